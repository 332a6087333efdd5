#include "ole/platform/os/KvByteBuffer.h"

#include <cstdint>
#include <cstring>

#include "ole/platform/os/OSCore.h"

namespace {
constexpr std::uintptr_t kAlignment = 64;  // a cache line: lines of pixels start on one
}

ByteBufferImpl::ByteBufferImpl(unsigned int size) noexcept
    : buffer_(nullptr), block_(nullptr), size_(size), used_(0)
{
}

ByteBufferImpl::~ByteBufferImpl() { release(); }

void ByteBufferImpl::release() noexcept
{
    if (block_) OS()->memory()->release(block_);
    block_ = nullptr;
    buffer_ = nullptr;
}

bool ByteBufferImpl::alloc(unsigned int size)
{
    release();
    size_ = 0;
    used_ = 0;
    void* block = OS()->memory()->allocate(std::size_t(size) + kAlignment - 1);
    if (!block) return false;
    const std::uintptr_t at = (reinterpret_cast<std::uintptr_t>(block) + kAlignment - 1) & ~(kAlignment - 1);
    block_ = block;
    buffer_ = reinterpret_cast<unsigned char*>(at);
    size_ = size;
    return true;
}

bool ByteBufferImpl::setUsed(unsigned int used)
{
    if (used > size_) return false;
    used_ = used;
    return true;
}

void FastMemSet(void* destination, unsigned int pattern, unsigned long bytes)
{
    unsigned char* out = static_cast<unsigned char*>(destination);
    unsigned char bytesOfPattern[4];
    std::memcpy(bytesOfPattern, &pattern, 4);
    const unsigned long words = bytes / 4;
    // Word stores through memcpy: the compiler turns the loop into wide stores.
    for (unsigned long i = 0; i < words; ++i) std::memcpy(out + i * 4, &pattern, 4);
    for (unsigned long i = words * 4; i < bytes; ++i) out[i] = bytesOfPattern[i & 3];
}
