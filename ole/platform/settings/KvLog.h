#pragma once
// The application's log and the diagnostics channel. No levels: a line is a line.

#include "ole/platform/os/KvPlatformExport.h"

class iLogSink {
public:
    // Both: a LogBoth message, delivered once for the two channels.
    enum Channel { AppLog = 0, Diagnostics = 1, Both = 2 };
    // Receives one formatted message (which carries its own newline if it has one).
    virtual void write(Channel channel, const char* text) = 0;

protected:
    ~iLogSink() = default;
};

namespace Kv::Platform {
// Installs a sink; returns the one in place; null puts back the stock sink, which writes the
// application log to the file named by KV_LOG_FILE (standard error when unset) and the
// diagnostics to standard error, printing a LogBoth message once where both meet.
KV_EXPORT iLogSink* setLogSink(iLogSink* sink) noexcept;
}  // namespace Kv::Platform

KV_EXPORT void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));
KV_EXPORT void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));
KV_EXPORT void diag_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
