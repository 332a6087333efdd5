// The application log and the diagnostics channel.

#include "ole/platform/settings/KvLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "ole/platform/os/StockServices.h"

namespace Kv::Platform {
namespace {

// The application log goes to the file named by KV_LOG_FILE, or to standard error. The name
// is looked at for every message, so that a change of it takes effect at the next line.
class StockLogSink final : public iLogSink {
public:
    constexpr StockLogSink() = default;

    void write(Channel channel, const char* text) override
    {
        LogFile& log = logFile();
        std::lock_guard lock(log.lock);
        FILE* appLog = log.current();
        if (channel == AppLog || channel == Both) put(appLog, text);
        if (channel == Diagnostics || (channel == Both && appLog != stderr)) put(stderr, text);
    }

private:
    struct LogFile {
        std::mutex lock;
        std::string name;  // of the open file; empty for standard error
        FILE* file = stderr;

        FILE* current()
        {
            const char* wanted = std::getenv("KV_LOG_FILE");
            if (!wanted) wanted = "";
            if (name != wanted) {
                if (file != stderr) std::fclose(file);
                file = stderr;
                name.clear();
                if (*wanted) {
                    if (FILE* opened = std::fopen(wanted, "a")) {
                        file = opened;
                        name = wanted;
                    } else {
                        std::fprintf(stderr, "Cannot open the log file \"%s\"; logging to standard error\n",
                                     wanted);
                    }
                }
            }
            return file;
        }
    };

    static LogFile& logFile()
    {
        static Immortal<LogFile> log;
        return *log;
    }

    static void put(FILE* file, const char* text)
    {
        std::fputs(text, file);
        std::fflush(file);
    }
};

constinit StockLogSink stockLogSink;
constinit std::atomic<iLogSink*> installedSink{&stockLogSink};

// Formats the message whole, however long, and hands it to the sink in one call.
void deliver(iLogSink::Channel channel, const char* format, va_list args)
{
    char small[512];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(small, sizeof small, format, args);
    iLogSink* sink = installedSink.load(std::memory_order_acquire);
    if (length < 0) {
        va_end(again);
        return;  // a format the C library refuses: nothing sensible to say
    }
    if (std::size_t(length) < sizeof small) {
        va_end(again);
        sink->write(channel, small);
        return;
    }
    std::unique_ptr<char[]> large(new char[std::size_t(length) + 1]);
    std::vsnprintf(large.get(), std::size_t(length) + 1, format, again);
    va_end(again);
    sink->write(channel, large.get());
}

}  // namespace

iLogSink* setLogSink(iLogSink* sink) noexcept
{
    return installedSink.exchange(sink ? sink : &stockLogSink, std::memory_order_acq_rel);
}

}  // namespace Kv::Platform

void Log(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Kv::Platform::deliver(iLogSink::AppLog, format, args);
    va_end(args);
}

void LogBoth(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Kv::Platform::deliver(iLogSink::Both, format, args);
    va_end(args);
}

void diag_printf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Kv::Platform::deliver(iLogSink::Diagnostics, format, args);
    va_end(args);
}
