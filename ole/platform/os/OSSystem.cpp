// The stock diagnostics and system facts.

#include <execinfo.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "ole/platform/os/KvThread.h"
#include "ole/platform/os/StockServices.h"

namespace Kv::Platform {

constinit StockDiagnostics stockDiagnostics;
constinit StockSystemInfo stockSystemInfo;

// One line for the thread, by its full name when co_create started it, then one line a frame
// of the call stack, this function's own frame left out.
void StockDiagnostics::describeContext(ContextLines& lines)
{
    char number[64];
    LightweightString<char> threadLine("thread ");
    if (Kv::Ptr<iThread> thread = coThreadCurrent()) {
        threadLine += "\"";
        threadLine += thread->name();
        std::snprintf(number, sizeof number, "\" (id %u, tid %ld)", unsigned(thread->id()),
                      long(gettid()));
    } else {
        std::snprintf(number, sizeof number, "(tid %ld)", long(gettid()));
    }
    threadLine += number;
    lines.push_back(threadLine);

    void* frames[64];
    const int count = backtrace(frames, 64);
    char** symbols = backtrace_symbols(frames, count);  // one malloc'd block, or null
    for (int i = 1; i < count; ++i) {
        LightweightString<char> frame("  at ");
        if (symbols) {
            frame += symbols[i];
        } else {
            std::snprintf(number, sizeof number, "%p", frames[i]);
            frame += number;
        }
        lines.push_back(frame);
    }
    std::free(symbols);
}

double StockDiagnostics::currentTime()
{
    using Seconds = std::chrono::duration<double>;
    return std::chrono::duration_cast<Seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

unsigned int StockSystemInfo::processorCount()
{
    return std::thread::hardware_concurrency();
}

}  // namespace Kv::Platform
