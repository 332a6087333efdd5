#pragma once
// A re-entrant lock made through OS()->synchronisation(), with an optional name for
// diagnostics.

#include "ole/Kv/KvPtr.h"
#include "ole/platform/os/OS.h"

class KV_EXPORT CriticalSection {
public:
    CriticalSection();
    explicit CriticalSection(const char* name);
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter();
    bool tryEnter();
    void leave();
    const char* name() const noexcept { return name_; }

    // Holds the section for a scope.
    class Lock {
    public:
        explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
        ~Lock() { cs_.leave(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        CriticalSection& cs_;
    };

private:
    Kv::Ptr<iCriticalSection> cs_;
    const char* name_;
};
