#pragma once
// The process-wide service object, OS(), and the two services that every counted object and
// every string leans on: memory and reference counts. The other services are declared in
// OS.h; only their addresses are held here.
//
// Each service can be replaced at run time by a host or a test with one call on OS():
//   setMemory, setRefCounter, setDiagnostics, setSynchronisation, setSystemInfo,
//   setFileSystem, setMediaServices.
// Each returns the service that was in place, so that a replacement can forward to it (a
// counting memory service must hand blocks it did not allocate back to the one it replaced);
// passing null puts the stock service back. Services are never deleted by OS(): whoever
// installs one owns it and keeps it alive while it is installed.

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <sys/single_threaded.h>

#include "ole/platform/os/KvPlatformExport.h"

class iDiagnostics;
class iSynchronisation;
class iSystemInfo;
class iFileSystem;
class iMediaServices;

// All heap memory of the library and of the process's operator new comes from here.
class iMemory {
public:
    // Returns a block of at least `bytes` bytes, aligned for any fundamental type. Failure is
    // the service's own business: the stock one throws std::bad_alloc.
    virtual void* allocate(std::size_t bytes) = 0;
    virtual void release(void* block) = 0;

protected:
    ~iMemory() = default;
};

// Every reference count of the library changes through here.
class iRefCounter {
public:
    virtual int increment(int* count) = 0;                       // returns the new value
    virtual int decrement(int* count) = 0;                       // returns the new value
    virtual int fetchAdd(int* address, int amount) = 0;          // returns the old value
    virtual void* compareAndSwap(void** address, void* newValue, void* expected) = 0;  // returns the value found

protected:
    ~iRefCounter() = default;
};

namespace Kv::Platform {

// The stock counter; Kv::Ptr inlines its body when it is the installed one, so that a copy
// costs one atomic instruction and no call. While the process has never started a second
// thread (glibc's __libc_single_threaded), a plain add does the same work: no other thread
// can see the count, and starting one orders everything before it.
class StockRefCounter final : public iRefCounter {
public:
    constexpr StockRefCounter() = default;
    static int add(int* count) noexcept
    {
        if (__libc_single_threaded) return ++*count;
        return __atomic_add_fetch(count, 1, __ATOMIC_RELAXED);
    }
    static int subtract(int* count) noexcept
    {
        if (__libc_single_threaded) return --*count;
        return __atomic_sub_fetch(count, 1, __ATOMIC_ACQ_REL);
    }
    int increment(int* count) override { return add(count); }
    int decrement(int* count) override { return subtract(count); }
    int fetchAdd(int* address, int amount) override
    {
        return __atomic_fetch_add(address, amount, __ATOMIC_ACQ_REL);
    }
    void* compareAndSwap(void** address, void* newValue, void* expected) override
    {
        __atomic_compare_exchange_n(address, &expected, newValue, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE);
        return expected;
    }
};

KV_EXPORT extern StockRefCounter stockRefCounter;

}  // namespace Kv::Platform

class OSServices {
public:
    iMemory* memory() const noexcept { return memory_.load(std::memory_order_acquire); }
    iRefCounter* refCounter() const noexcept { return refCounter_.load(std::memory_order_acquire); }
    iDiagnostics* diagnostics() const noexcept { return diagnostics_.load(std::memory_order_acquire); }
    iSynchronisation* synchronisation() const noexcept
    {
        return synchronisation_.load(std::memory_order_acquire);
    }
    iSystemInfo* systemInfo() const noexcept { return systemInfo_.load(std::memory_order_acquire); }
    iFileSystem* fileSystem() const noexcept { return fileSystem_.load(std::memory_order_acquire); }
    // Null until a host (or the reference media service) installs one.
    iMediaServices* mediaServices() const noexcept
    {
        return mediaServices_.load(std::memory_order_acquire);
    }

    KV_EXPORT iMemory* setMemory(iMemory* service) noexcept;
    KV_EXPORT iRefCounter* setRefCounter(iRefCounter* service) noexcept;
    KV_EXPORT iDiagnostics* setDiagnostics(iDiagnostics* service) noexcept;
    KV_EXPORT iSynchronisation* setSynchronisation(iSynchronisation* service) noexcept;
    KV_EXPORT iSystemInfo* setSystemInfo(iSystemInfo* service) noexcept;
    KV_EXPORT iFileSystem* setFileSystem(iFileSystem* service) noexcept;
    KV_EXPORT iMediaServices* setMediaServices(iMediaServices* service) noexcept;

    constexpr OSServices(iMemory* m, iRefCounter* r, iDiagnostics* d, iSynchronisation* s,
                         iSystemInfo* i, iFileSystem* f) noexcept
        : memory_(m), refCounter_(r), diagnostics_(d), synchronisation_(s), systemInfo_(i),
          fileSystem_(f), mediaServices_(nullptr)
    {
    }
    OSServices(const OSServices&) = delete;
    OSServices& operator=(const OSServices&) = delete;

private:
    std::atomic<iMemory*> memory_;
    std::atomic<iRefCounter*> refCounter_;
    std::atomic<iDiagnostics*> diagnostics_;
    std::atomic<iSynchronisation*> synchronisation_;
    std::atomic<iSystemInfo*> systemInfo_;
    std::atomic<iFileSystem*> fileSystem_;
    std::atomic<iMediaServices*> mediaServices_;
};

namespace Kv::Platform {
KV_EXPORT extern OSServices theOS;
}

// The process-wide service object. Constant-initialised, so it is usable from the first
// static constructor of any module to the last static destructor.
inline OSServices* OS() noexcept { return &Kv::Platform::theOS; }

namespace Kv::Platform {

inline int incrementCount(int* count) noexcept
{
    iRefCounter* rc = OS()->refCounter();
    if (rc == &stockRefCounter) return StockRefCounter::add(count);
    return rc->increment(count);
}

inline int decrementCount(int* count) noexcept
{
    iRefCounter* rc = OS()->refCounter();
    if (rc == &stockRefCounter) return StockRefCounter::subtract(count);
    return rc->decrement(count);
}

}  // namespace Kv::Platform
