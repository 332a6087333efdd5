#pragma once
// The services of OS() beyond memory and counts: diagnostics, synchronisation, system facts,
// files. See OSCore.h for how a host or a test replaces any of them.

#include <cstdint>
#include <vector>

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"
#include "ole/misc/LightweightString.h"
#include "ole/misc/StdAllocator.h"
#include "ole/platform/os/OSCore.h"

using ContextLines = std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>;

class iDiagnostics {
public:
    // Appends lines describing the present call context: the thread and the call stack.
    virtual void describeContext(ContextLines& lines) = 0;
    // Seconds on a clock that never goes back.
    virtual double currentTime() = 0;

protected:
    ~iDiagnostics() = default;
};

// A lock that the thread holding it may enter again; each enter needs its leave.
class iCriticalSection : public iObject {
public:
    virtual void enter() = 0;
    virtual bool tryEnter() = 0;
    virtual void leave() = 0;
};

// An event that stays signalled until a waiter has seen it, even if the signal comes before
// the wait; seeing it clears it, so one signal wakes one wait.
class iThreadEvent : public iObject {
public:
    static constexpr unsigned int forever = 0xFFFFFFFFu;
    // True when the event was seen, false when the time-out (milliseconds) ran out first.
    virtual bool wait(unsigned int timeoutMs) = 0;
    virtual void signal() = 0;
    virtual void reset() = 0;
};

// A process-wide lock found by name: every createMutex with one name gives the same lock.
// Re-entrant for its owning thread.
class iMutex : public iObject {
public:
    // True when taken, false when the time-out (milliseconds, 0xFFFFFFFF for ever) ran out.
    virtual bool lock(unsigned int timeoutMs) = 0;
    virtual void unlock() = 0;
};

using EventList = std::vector<Kv::Ptr<iThreadEvent>>;

class iSynchronisation {
public:
    virtual Kv::Ptr<iCriticalSection> createCriticalSection(int reserved) = 0;
    // flag 1: stays signalled until a waiter has seen it. flag 0: the same, which is what a
    // queue's wake-up event needs (it may clear on waking since the waker drains the queue).
    virtual Kv::Ptr<iThreadEvent> createEvent(int flag, int reserved1, int reserved2) = 0;
    virtual Kv::Ptr<iMutex> createMutex(const char* name) = 0;
    // Waits until one of `events` is signalled, and consumes that signal. Returns its index,
    // or -1 when the time-out ran out (or the list is empty and the time-out is finite).
    virtual int waitForAny(const EventList& events, void* reserved, unsigned int timeoutMs) = 0;

protected:
    ~iSynchronisation() = default;
};

class iSystemInfo {
public:
    virtual unsigned int processorCount() = 0;  // 0 if not known

protected:
    ~iSystemInfo() = default;
};

// An open file. All operations share one file position.
class iFile : public iObject {
public:
    // Each returns the number of bytes moved; a short count means end of file or an error.
    virtual unsigned int read(void* buffer, unsigned int bytes) = 0;
    // Reads at a position and leaves the file position just behind what it read.
    virtual unsigned int readAt(std::uint64_t position, void* buffer, unsigned int bytes) = 0;
    virtual unsigned int write(const void* buffer, unsigned int bytes) = 0;
    virtual unsigned int writeAt(std::uint64_t position, const void* buffer, unsigned int bytes) = 0;
    virtual bool seek(std::uint64_t position) = 0;
    virtual std::uint64_t tell() = 0;
    virtual std::uint64_t size() = 0;
    virtual bool isValid() = 0;
};

class iFileSystem {
public:
    // access: 1 read, 2 write, 3 both. disposition: 0 open an existing file, 1 create a new
    // one (fails if it exists), 2 open or create, 3 create or truncate. The two flags
    // (sharing, access pattern) are hints. A load opens with 1, 0, 1, 0, a save with
    // 2, 3, 0, 0. The result is empty on failure, with a log line saying why.
    virtual Kv::Ptr<iFile> open(const LightweightString<wchar_t>& path, int access,
                                int disposition, int flagA, int flagB) = 0;
    virtual wchar_t pathSeparator() = 0;

protected:
    ~iFileSystem() = default;
};

