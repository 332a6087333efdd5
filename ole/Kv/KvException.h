#pragma once
// The library's exceptions, thrown by value. Deliberately not derived from std::exception:
// a caller that catches the standard family does not swallow them.

#include "ole/platform/os/OS.h"

namespace Kv::Exception {

class Base {
public:
    Base(const char* kind_, const char* message_, const char* file_, int line_) noexcept
        : kind(kind_), message(message_), file(file_), line(line_)
    {
    }
    Base(const Base&) = default;
    Base& operator=(const Base&) = default;
    virtual ~Base() = default;

    const char* kind;     // "RuntimeError", "LogicError" or "BadAlloc"
    const char* message;  // not copied
    const char* file;     // not copied
    int line;
    ContextLines context;  // diagnostic lines
};

// Carries the call context, filled through OS()->diagnostics().
class RuntimeError : public Base {
public:
    RuntimeError(const char* message_, const char* file_, int line_) : Base("RuntimeError", message_, file_, line_)
    {
        if (iDiagnostics* d = OS()->diagnostics()) d->describeContext(context);
    }
};

class LogicError : public Base {
public:
    LogicError(const char* message_, const char* file_, int line_) noexcept
        : Base("LogicError", message_, file_, line_)
    {
    }
};

// Touches no allocator while it reports that memory ran out.
class BadAlloc : public Base {
public:
    BadAlloc(const char* message_, const char* file_, int line_) noexcept
        : Base("BadAlloc", message_, file_, line_)
    {
    }
};

}  // namespace Kv::Exception
