#pragma once
// The services OS() starts with. They are declared here, inside the platform, so that the
// service object can be constant-initialised with their addresses: each has a constexpr
// constructor and no destructor of its own, so it serves from the first static constructor
// of any module to the last static destructor. Not part of the installed interface.

#include <cstring>
#include <new>
#include <utility>

#include "ole/platform/os/OS.h"

namespace Kv::Platform {

class StockMemory final : public iMemory {
public:
    constexpr StockMemory() = default;
    void* allocate(std::size_t bytes) override;
    void release(void* block) override;
};

class StockDiagnostics final : public iDiagnostics {
public:
    constexpr StockDiagnostics() = default;
    void describeContext(ContextLines& lines) override;
    double currentTime() override;
};

class StockSynchronisation final : public iSynchronisation {
public:
    constexpr StockSynchronisation() = default;
    Kv::Ptr<iCriticalSection> createCriticalSection(int reserved) override;
    Kv::Ptr<iThreadEvent> createEvent(int flag, int reserved1, int reserved2) override;
    Kv::Ptr<iMutex> createMutex(const char* name) override;
    int waitForAny(const EventList& events, void* reserved, unsigned int timeoutMs) override;
};

class StockSystemInfo final : public iSystemInfo {
public:
    constexpr StockSystemInfo() = default;
    unsigned int processorCount() override;
};

class StockFileSystem final : public iFileSystem {
public:
    constexpr StockFileSystem() = default;
    Kv::Ptr<iFile> open(const LightweightString<wchar_t>& path, int access, int disposition,
                        int flagA, int flagB) override;
    wchar_t pathSeparator() override { return L'/'; }
};

extern StockMemory stockMemory;
extern StockDiagnostics stockDiagnostics;
extern StockSynchronisation stockSynchronisation;
extern StockSystemInfo stockSystemInfo;
extern StockFileSystem stockFileSystem;

// An object made on first use in static storage and never destroyed, for the shared state of
// the stock services (lock tables, the log file): a static destructor of another module may
// still take a lock or write a line after this module's own statics would have gone. Use it
// as a function-local static; it has no destructor, so nothing is registered at exit.
template <class T>
class Immortal {
public:
    template <class... Args>
    explicit Immortal(Args&&... args)
    {
        ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() noexcept { return &**this; }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

// The text of an errno value, safe on any thread. The C library's strerror_r comes in two
// shapes, the GNU one returning its text and the POSIX one filling the buffer; overloading on
// its result takes whichever this library has.
inline const char* errorText(const char* gnuResult, const char*) noexcept
{
    return gnuResult;
}
inline const char* errorText(int posixResult, const char* buffer) noexcept
{
    return posixResult == 0 ? buffer : "unknown error";
}
inline const char* describeError(int error, char* buffer, std::size_t size) noexcept
{
    return errorText(strerror_r(error, buffer, size), buffer);
}

}  // namespace Kv::Platform
