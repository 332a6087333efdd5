#pragma once
// Timed tasks: the host's named stopwatches. A piece of work fetches a task by name, calls
// begin with a label as it starts and end on every way out. What a task makes of that is the
// host's business. The stock service hands out one recording task a name, which counts, per
// label, the begins, the ends and the seconds between them, for tests and the tool to read.
// Like the other services, the one that hands out tasks can be replaced at run time.

#include <utility>
#include <vector>

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"
#include "ole/misc/LightweightString.h"
#include "ole/platform/os/KvPlatformExport.h"

class TimedTaskBase : public iObject {
public:
    // Starts timing a piece of work. Begins may nest; each needs its end.
    virtual void begin(const char* label) = 0;
    // Stops the latest begin of the calling thread that is still open.
    virtual void end() = 0;
};

class iTimedTaskService {
public:
    // The task of that name, or null: callers must accept a null task.
    virtual Kv::Ptr<TimedTaskBase> getTimedTask(const LightweightString<char>& name) = 0;

protected:
    ~iTimedTaskService() = default;
};

namespace Kv::Platform {
// Installs a service and returns the one in place; null puts back the stock service. Whoever
// installs one keeps it alive while it is installed.
KV_EXPORT iTimedTaskService* setTimedTaskService(iTimedTaskService* service) noexcept;
}  // namespace Kv::Platform

class KV_EXPORT TimedTaskManager {
public:
    TimedTaskManager() = delete;
    static Kv::Ptr<TimedTaskBase> getTimedTask(const LightweightString<char>& name);
};

// The stock service's task. Safe to use from any number of threads at once; begins and ends
// pair up per thread, innermost first.
class KV_EXPORT RecordingTimedTask final : public TimedTaskBase {
public:
    struct Record {
        LightweightString<char> label;
        unsigned long long begins = 0;
        unsigned long long ends = 0;
        double seconds = 0.0;  // summed over the ended begins
    };

    RecordingTimedTask();
    ~RecordingTimedTask() override;
    RecordingTimedTask(const RecordingTimedTask&) = delete;
    RecordingTimedTask& operator=(const RecordingTimedTask&) = delete;

    void begin(const char* label) override;
    void end() override;

    // One record a label, in the order the labels were first begun.
    std::vector<Record> records() const;
    // The record of one label; all zero for a label never begun.
    Record record(const char* label) const;
    // Begins not yet ended, over all threads.
    unsigned int openCount() const;
    // Ends that found no open begin on their thread.
    unsigned long long unmatchedEnds() const;
    // Forgets the records; begins still open stay open.
    void reset();

private:
    struct State;
    State* state_;
};

namespace Kv::Platform {
// Every task that the stock service has handed out, with its name, in the order made.
KV_EXPORT std::vector<std::pair<LightweightString<char>, Kv::Ptr<RecordingTimedTask>>> recordedTimedTasks();
}  // namespace Kv::Platform
