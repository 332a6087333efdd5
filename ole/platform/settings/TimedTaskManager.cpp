// Timed tasks: the stock service and its recording task.

#include "ole/platform/settings/TimedTaskManager.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include "ole/platform/os/StockServices.h"

struct RecordingTimedTask::State {
    struct Open {
        std::thread::id thread;
        std::size_t record;
        double start;
    };

    mutable std::mutex lock;
    std::vector<Record> records;
    // Begins not yet ended, oldest first; a thread's latest is the last of its entries. Room
    // is kept so that steady use does not allocate.
    std::vector<Open> open;
    unsigned long long unmatchedEnds = 0;

    std::size_t recordFor(const char* label)
    {
        for (std::size_t i = 0; i < records.size(); ++i)
            if (std::strcmp(records[i].label.c_str(), label) == 0) return i;
        records.push_back(Record{LightweightString<char>(label), 0, 0, 0.0});
        return records.size() - 1;
    }
};

namespace {

double now() { return OS()->diagnostics()->currentTime(); }

}  // namespace

RecordingTimedTask::RecordingTimedTask() : state_(new State)
{
    state_->open.reserve(16);
}

RecordingTimedTask::~RecordingTimedTask() { delete state_; }

void RecordingTimedTask::begin(const char* label)
{
    const double start = now();
    std::lock_guard guard(state_->lock);
    const std::size_t record = state_->recordFor(label ? label : "");
    ++state_->records[record].begins;
    state_->open.push_back(State::Open{std::this_thread::get_id(), record, start});
}

void RecordingTimedTask::end()
{
    const double stop = now();
    const std::thread::id self = std::this_thread::get_id();
    std::lock_guard guard(state_->lock);
    auto& open = state_->open;
    for (std::size_t i = open.size(); i-- > 0;) {
        if (open[i].thread != self) continue;
        // A reset may have dropped the record that this begin counted in.
        if (open[i].record < state_->records.size()) {
            Record& record = state_->records[open[i].record];
            ++record.ends;
            record.seconds += stop > open[i].start ? stop - open[i].start : 0.0;
        }
        open.erase(open.begin() + std::ptrdiff_t(i));
        return;
    }
    ++state_->unmatchedEnds;
}

std::vector<RecordingTimedTask::Record> RecordingTimedTask::records() const
{
    std::lock_guard guard(state_->lock);
    return state_->records;
}

RecordingTimedTask::Record RecordingTimedTask::record(const char* label) const
{
    std::lock_guard guard(state_->lock);
    for (const Record& r : state_->records)
        if (std::strcmp(r.label.c_str(), label ? label : "") == 0) return r;
    return Record{LightweightString<char>(label), 0, 0, 0.0};
}

unsigned int RecordingTimedTask::openCount() const
{
    std::lock_guard guard(state_->lock);
    return static_cast<unsigned int>(state_->open.size());
}

unsigned long long RecordingTimedTask::unmatchedEnds() const
{
    std::lock_guard guard(state_->lock);
    return state_->unmatchedEnds;
}

void RecordingTimedTask::reset()
{
    std::lock_guard guard(state_->lock);
    state_->records.clear();
    state_->unmatchedEnds = 0;
    // An open begin counts its end in a record made afresh under the same label.
    for (State::Open& o : state_->open) o.record = std::size_t(-1);
}

namespace Kv::Platform {
namespace {

// One recording task a name, made at the first request and kept until the process ends.
class StockTimedTaskService final : public iTimedTaskService {
public:
    Kv::Ptr<TimedTaskBase> getTimedTask(const LightweightString<char>& name) override
    {
        return Kv::Ptr<TimedTaskBase>(find(name));
    }

    Kv::Ptr<RecordingTimedTask> find(const LightweightString<char>& name)
    {
        Tasks& tasks = table();
        std::lock_guard guard(tasks.lock);
        for (auto& [taskName, task] : tasks.list)
            if (taskName == name) return task;
        tasks.list.emplace_back(name, Kv::Ptr<RecordingTimedTask>(new RecordingTimedTask));
        return tasks.list.back().second;
    }

    std::vector<std::pair<LightweightString<char>, Kv::Ptr<RecordingTimedTask>>> all()
    {
        Tasks& tasks = table();
        std::lock_guard guard(tasks.lock);
        return tasks.list;
    }

private:
    struct Tasks {
        std::mutex lock;
        std::vector<std::pair<LightweightString<char>, Kv::Ptr<RecordingTimedTask>>> list;
    };

    static Tasks& table()
    {
        static Immortal<Tasks> tasks;
        return *tasks;
    }
};

constinit StockTimedTaskService stockTimedTaskService;
constinit std::atomic<iTimedTaskService*> installedTimedTaskService{&stockTimedTaskService};

}  // namespace

iTimedTaskService* setTimedTaskService(iTimedTaskService* service) noexcept
{
    return installedTimedTaskService.exchange(service ? service : &stockTimedTaskService,
                                              std::memory_order_acq_rel);
}

std::vector<std::pair<LightweightString<char>, Kv::Ptr<RecordingTimedTask>>> recordedTimedTasks()
{
    return stockTimedTaskService.all();
}

}  // namespace Kv::Platform

Kv::Ptr<TimedTaskBase> TimedTaskManager::getTimedTask(const LightweightString<char>& name)
{
    return Kv::Platform::installedTimedTaskService.load(std::memory_order_acquire)->getTimedTask(name);
}
