// The stock memory service, and the process's operator new and delete, which all draw on
// whatever memory service is installed at the time.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "ole/platform/os/StockServices.h"

namespace Kv::Platform {

constinit StockMemory stockMemory;

void* StockMemory::allocate(std::size_t bytes)
{
    // A request for nothing still gets a block of its own, so that every allocation has a
    // distinct address to give back.
    void* block = std::malloc(bytes ? bytes : 1);
    if (!block) throw std::bad_alloc();
    return block;
}

void StockMemory::release(void* block)
{
    std::free(block);
}

}  // namespace Kv::Platform

namespace {

void* allocateBlock(std::size_t bytes)
{
    return OS()->memory()->allocate(bytes);
}

void releaseBlock(void* block) noexcept
{
    if (block) OS()->memory()->release(block);
}

// The memory service promises only fundamental alignment, so an over-aligned object takes a
// larger block and sits at the first suitable address in it, with the block's own address
// kept in the word just before the object for the matching delete.
void* allocateAligned(std::size_t bytes, std::align_val_t alignment)
{
    const std::size_t align = static_cast<std::size_t>(alignment);
    const std::size_t slack = align - 1 + sizeof(void*);
    if (bytes > std::numeric_limits<std::size_t>::max() - slack) throw std::bad_alloc();
    void* block = allocateBlock(bytes + slack);
    if (!block) return nullptr;  // a host service that reports failure by null: pass it on
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(block) + sizeof(void*);
    const std::uintptr_t aligned = (first + align - 1) & ~std::uintptr_t(align - 1);
    std::memcpy(reinterpret_cast<void*>(aligned - sizeof(void*)), &block, sizeof block);
    return reinterpret_cast<void*>(aligned);
}

void releaseAligned(void* object) noexcept
{
    if (!object) return;
    void* block;
    std::memcpy(&block, static_cast<char*>(object) - sizeof(void*), sizeof block);
    releaseBlock(block);
}

}  // namespace

// The throwing forms pass on whatever the memory service does; the nothrow forms turn any
// failure of it into a null result.

KV_EXPORT void* operator new(std::size_t bytes)
{
    return allocateBlock(bytes);
}

KV_EXPORT void* operator new[](std::size_t bytes)
{
    return allocateBlock(bytes);
}

KV_EXPORT void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return allocateBlock(bytes);
    } catch (...) {
        return nullptr;
    }
}

KV_EXPORT void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return allocateBlock(bytes);
    } catch (...) {
        return nullptr;
    }
}

KV_EXPORT void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return allocateAligned(bytes, alignment);
}

KV_EXPORT void* operator new[](std::size_t bytes, std::align_val_t alignment)
{
    return allocateAligned(bytes, alignment);
}

KV_EXPORT void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    try {
        return allocateAligned(bytes, alignment);
    } catch (...) {
        return nullptr;
    }
}

KV_EXPORT void* operator new[](std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    try {
        return allocateAligned(bytes, alignment);
    } catch (...) {
        return nullptr;
    }
}

KV_EXPORT void operator delete(void* object) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete[](void* object) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete(void* object, const std::nothrow_t&) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete[](void* object, const std::nothrow_t&) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete(void* object, std::size_t) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete[](void* object, std::size_t) noexcept
{
    releaseBlock(object);
}

KV_EXPORT void operator delete(void* object, std::align_val_t) noexcept
{
    releaseAligned(object);
}

KV_EXPORT void operator delete[](void* object, std::align_val_t) noexcept
{
    releaseAligned(object);
}

KV_EXPORT void operator delete(void* object, std::align_val_t, const std::nothrow_t&) noexcept
{
    releaseAligned(object);
}

KV_EXPORT void operator delete[](void* object, std::align_val_t, const std::nothrow_t&) noexcept
{
    releaseAligned(object);
}

KV_EXPORT void operator delete(void* object, std::size_t, std::align_val_t) noexcept
{
    releaseAligned(object);
}

KV_EXPORT void operator delete[](void* object, std::size_t, std::align_val_t) noexcept
{
    releaseAligned(object);
}
