#pragma once
// Threads of the platform. A thread is started by co_create, which gives a 16-bit identifier,
// and reached through coThreadGet. Names are kept in full (the kernel's 15-character name is
// only a shortened copy for debuggers).

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"
#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

class iThread : public iObject {
public:
    enum eExecRC { eExecOK = 0, eExecFailed = 1 };

    // True once the thread has ended; false when the time-out (milliseconds, 0xFFFFFFFF for
    // ever) ran out first.
    virtual bool waitForExit(unsigned int timeoutMs) = 0;
    virtual bool isRunning() = 0;
    virtual LightweightString<char> name() = 0;
    virtual unsigned short id() = 0;
    // The function's result, once the thread has ended.
    virtual eExecRC exitCode() = 0;
};

using ThreadFunction = iThread::eExecRC (*)(void*);

// The thread service behind co_create and coThreadGet; replaceable like the OS() services.
class iThreads {
public:
    virtual unsigned short create(ThreadFunction function, const char* name, int priority,
                                  void* argument, int affinityMask, unsigned int stackSize) = 0;
    virtual Kv::Ptr<iThread> get(unsigned short id) = 0;
    virtual Kv::Ptr<iThread> current() = 0;

protected:
    ~iThreads() = default;
};

namespace Kv::Platform {
// Installs a thread service; returns the one in place; null puts back the stock one.
KV_EXPORT iThreads* setThreads(iThreads* service) noexcept;
KV_EXPORT iThreads* threads() noexcept;
}  // namespace Kv::Platform

// Starts `function(argument)` on a new thread named `name`. priority, affinityMask and
// stackSize (0 for the default) are hints. Returns the thread's identifier, 0 on failure.
KV_EXPORT unsigned short co_create(ThreadFunction function, const char* name, int priority,
                                   void* argument, int affinityMask, unsigned int stackSize);
// The thread of an identifier; empty for an unknown one.
KV_EXPORT Kv::Ptr<iThread> coThreadGet(unsigned short id);
// The calling thread, if co_create started it; empty otherwise.
KV_EXPORT Kv::Ptr<iThread> coThreadCurrent();
