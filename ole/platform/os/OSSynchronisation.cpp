// The stock synchronisation service: re-entrant critical sections, events that keep a signal
// until a waiter has seen it, and process-wide locks found by name.

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/StockServices.h"
#include "ole/platform/settings/KvLog.h"

namespace Kv::Platform {

constinit StockSynchronisation stockSynchronisation;

namespace {

using Clock = std::chrono::steady_clock;

// Waits on `cv` until `ready()` holds or the time-out (milliseconds, forever for ever) runs
// out; the result is `ready()` at the end.
template <class Predicate>
bool waitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
             unsigned int timeoutMs, Predicate ready)
{
    if (timeoutMs == iThreadEvent::forever) {
        cv.wait(lock, ready);
        return true;
    }
    return cv.wait_until(lock, Clock::now() + std::chrono::milliseconds(timeoutMs), ready);
}

class StockCriticalSection final : public iCriticalSection {
public:
    void enter() override { lock_.lock(); }
    bool tryEnter() override { return lock_.try_lock(); }
    void leave() override { lock_.unlock(); }

private:
    std::recursive_mutex lock_;
};

// One lock and one wake-up for every event of the process. A signal wakes all waiters and
// each looks at its own events; that costs a few spurious wake-ups and makes waiting on any
// of several events as simple as waiting on one.
struct EventHub {
    std::mutex lock;
    std::condition_variable changed;
};

EventHub& eventHub()
{
    static Immortal<EventHub> hub;
    return *hub;
}

class StockEvent final : public iThreadEvent {
public:
    bool wait(unsigned int timeoutMs) override
    {
        EventHub& hub = eventHub();
        std::unique_lock lock(hub.lock);
        if (!waitFor(hub.changed, lock, timeoutMs, [this] { return signalled_; })) return false;
        signalled_ = false;
        return true;
    }

    void signal() override
    {
        EventHub& hub = eventHub();
        {
            std::lock_guard lock(hub.lock);
            signalled_ = true;
        }
        hub.changed.notify_all();
    }

    void reset() override
    {
        std::lock_guard lock(eventHub().lock);
        signalled_ = false;
    }

    // Under the hub's lock: takes the signal if there is one.
    bool consume() noexcept
    {
        if (!signalled_) return false;
        signalled_ = false;
        return true;
    }

private:
    bool signalled_ = false;  // guarded by the hub's lock
};

// The state of one named lock, shared by every handle made with its name.
struct NamedLock {
    std::mutex lock;
    std::condition_variable released;
    std::thread::id owner;  // no thread when free
    unsigned int depth = 0;
};

// Names of the locks that have handles. Names whose last handle went are swept out now and
// then, so that a stream of one-off names does not pile up.
struct NamedLockTable {
    std::mutex lock;
    std::map<std::string, std::weak_ptr<NamedLock>> byName;
    std::size_t sweepAt = 16;
};

NamedLockTable& namedLocks()
{
    static Immortal<NamedLockTable> table;
    return *table;
}

class StockMutex final : public iMutex {
public:
    explicit StockMutex(std::shared_ptr<NamedLock> state) : state_(std::move(state)) {}

    bool lock(unsigned int timeoutMs) override
    {
        NamedLock& s = *state_;
        const std::thread::id self = std::this_thread::get_id();
        std::unique_lock guard(s.lock);
        if (s.owner == self) {
            ++s.depth;
            return true;
        }
        if (!waitFor(s.released, guard, timeoutMs, [&s] { return s.owner == std::thread::id(); }))
            return false;
        s.owner = self;
        s.depth = 1;
        return true;
    }

    void unlock() override
    {
        NamedLock& s = *state_;
        {
            std::lock_guard guard(s.lock);
            const bool owned = s.owner == std::this_thread::get_id();
            KV_ASSERT(owned);
            if (!owned || --s.depth != 0) return;
            s.owner = std::thread::id();
        }
        s.released.notify_one();
    }

private:
    std::shared_ptr<NamedLock> state_;
};

std::shared_ptr<NamedLock> namedLock(const char* name)
{
    NamedLockTable& table = namedLocks();
    std::lock_guard guard(table.lock);
    std::weak_ptr<NamedLock>& entry = table.byName[name];
    if (std::shared_ptr<NamedLock> existing = entry.lock()) return existing;
    std::shared_ptr<NamedLock> fresh = std::make_shared<NamedLock>();
    entry = fresh;
    if (table.byName.size() >= table.sweepAt) {
        std::erase_if(table.byName, [](const auto& named) { return named.second.expired(); });
        table.sweepAt = 2 * table.byName.size() + 16;
    }
    return fresh;
}

}  // namespace

Kv::Ptr<iCriticalSection> StockSynchronisation::createCriticalSection(int)
{
    return Kv::Ptr<iCriticalSection>(new StockCriticalSection);
}

// Both kinds keep a signal until one waiter has seen it.
Kv::Ptr<iThreadEvent> StockSynchronisation::createEvent(int, int, int)
{
    return Kv::Ptr<iThreadEvent>(new StockEvent);
}

// A lock without a name belongs to its handle alone.
Kv::Ptr<iMutex> StockSynchronisation::createMutex(const char* name)
{
    std::shared_ptr<NamedLock> state =
        name && *name ? namedLock(name) : std::make_shared<NamedLock>();
    return Kv::Ptr<iMutex>(new StockMutex(std::move(state)));
}

// Consumes the signal of the first signalled event in list order. An event that another
// service made cannot be watched from here: each call says so in the log and leaves it out.
int StockSynchronisation::waitForAny(const EventList& events, void*, unsigned int timeoutMs)
{
    std::vector<StockEvent*> ours(events.size(), nullptr);
    for (std::size_t i = 0; i < events.size(); ++i) {
        ours[i] = dynamic_cast<StockEvent*>(events[i].get());
        if (!ours[i] && events[i])
            Log("waitForAny: event %zu was not made by the stock synchronisation service\n", i);
    }
    if (events.empty() && timeoutMs != iThreadEvent::forever) return -1;

    int found = -1;
    auto anySignalled = [&] {
        for (std::size_t i = 0; i < ours.size(); ++i) {
            if (ours[i] && ours[i]->consume()) {
                found = int(i);
                return true;
            }
        }
        return false;
    };
    EventHub& hub = eventHub();
    std::unique_lock lock(hub.lock);
    waitFor(hub.changed, lock, timeoutMs, anySignalled);
    return found;
}

}  // namespace Kv::Platform
