// The stock thread service: co_create, coThreadGet, coThreadCurrent.

#include "ole/platform/os/KvThread.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "ole/Kv/KvException.h"
#include "ole/platform/os/StockServices.h"
#include "ole/platform/settings/KvLog.h"

namespace Kv::Platform {
namespace {

class ThreadRecord;

// The record of the thread running this code, when co_create started it.
thread_local ThreadRecord* currentRecord = nullptr;

class ThreadRecord final : public iThread {
public:
    ThreadRecord(unsigned short id, const char* name, ThreadFunction function, void* argument)
        : id_(id), name_(name), function_(function), argument_(argument)
    {
    }

    bool waitForExit(unsigned int timeoutMs) override
    {
        std::unique_lock lock(lock_);
        auto ended = [this] { return !running_; };
        if (ended()) return true;
        if (currentRecord == this) return false;  // a thread cannot outlive itself
        if (timeoutMs == iThreadEvent::forever) {
            ended_.wait(lock, ended);
            return true;
        }
        return ended_.wait_for(lock, std::chrono::milliseconds(timeoutMs), ended);
    }

    bool isRunning() override
    {
        std::lock_guard lock(lock_);
        return running_;
    }

    LightweightString<char> name() override { return name_; }
    unsigned short id() override { return id_; }

    eExecRC exitCode() override
    {
        std::lock_guard lock(lock_);
        return exitCode_;
    }

    // The body of the new thread.
    void run()
    {
        currentRecord = this;
        // The kernel keeps 15 characters of a thread name; the record keeps it whole.
        char shortName[16] = {};
        std::strncpy(shortName, name_.c_str(), sizeof shortName - 1);
        pthread_setname_np(pthread_self(), shortName);

        eExecRC result = eExecFailed;
        try {
            result = function_(argument_);
        } catch (const Kv::Exception::Base& e) {
            Log("Thread \"%s\" ended by %s: %s at %s:%d\n", name_.c_str(), e.kind,
                e.message ? e.message : "", e.file ? e.file : "", e.line);
        } catch (const std::exception& e) {
            Log("Thread \"%s\" ended by an exception: %s\n", name_.c_str(), e.what());
        } catch (...) {
            Log("Thread \"%s\" ended by an unknown exception\n", name_.c_str());
        }
        {
            std::lock_guard lock(lock_);
            exitCode_ = result;
            running_ = false;
        }
        ended_.notify_all();
        currentRecord = nullptr;
    }

private:
    const unsigned short id_;
    const LightweightString<char> name_;
    const ThreadFunction function_;
    void* const argument_;

    std::mutex lock_;
    std::condition_variable ended_;
    bool running_ = true;
    eExecRC exitCode_ = eExecFailed;
};

// Threads by identifier: every running thread, and the most recent ended ones, so that a
// caller can still reach a thread that was over before it asked. Identifiers go round, so
// that an ended thread's identifier is not soon given to another.
class ThreadTable {
public:
    static constexpr std::size_t keptEnded = 256;

    // A fresh identifier with the record registered under it; 0 when all are taken.
    unsigned short enter(Kv::Ptr<ThreadRecord>& record, const char* name, ThreadFunction function,
                         void* argument)
    {
        std::lock_guard lock(lock_);
        for (unsigned int tries = 0; tries < 0xFFFF; ++tries) {
            const unsigned short id = next_;
            next_ = next_ == 0xFFFF ? 1 : next_ + 1;
            if (byId_.count(id)) continue;
            record = Kv::Ptr<ThreadRecord>(new ThreadRecord(id, name, function, argument));
            byId_.emplace(id, record);
            return id;
        }
        return 0;
    }

    // A thread that never started.
    void remove(unsigned short id)
    {
        Kv::Ptr<ThreadRecord> gone;  // released after the lock
        std::lock_guard lock(lock_);
        if (auto it = byId_.find(id); it != byId_.end()) {
            gone = std::move(it->second);
            byId_.erase(it);
        }
    }

    // A thread that has ended: kept for a while, and the oldest ended one beyond the limit
    // goes.
    void retire(unsigned short id)
    {
        Kv::Ptr<ThreadRecord> gone;  // released after the lock
        std::lock_guard lock(lock_);
        ended_.push_back(id);
        if (ended_.size() <= keptEnded) return;
        const unsigned short oldest = ended_.front();
        ended_.pop_front();
        if (auto it = byId_.find(oldest); it != byId_.end()) {
            gone = std::move(it->second);
            byId_.erase(it);
        }
    }

    Kv::Ptr<ThreadRecord> find(unsigned short id)
    {
        std::lock_guard lock(lock_);
        auto it = byId_.find(id);
        return it == byId_.end() ? Kv::Ptr<ThreadRecord>() : it->second;
    }

private:
    std::mutex lock_;
    std::unordered_map<unsigned short, Kv::Ptr<ThreadRecord>> byId_;
    std::deque<unsigned short> ended_;  // oldest first
    unsigned short next_ = 1;
};

ThreadTable& threadTable()
{
    static Immortal<ThreadTable> table;
    return *table;
}

class StockThreads final : public iThreads {
public:
    constexpr StockThreads() = default;

    // Priority, affinity and stack size are hints that the standard thread does not take;
    // the library passes its defaults for them.
    unsigned short create(ThreadFunction function, const char* name, int, void* argument, int,
                          unsigned int) override
    {
        if (!function) return 0;
        ThreadTable& table = threadTable();
        Kv::Ptr<ThreadRecord> record;
        const unsigned short id = table.enter(record, name, function, argument);
        if (id == 0) {
            Log("Thread \"%s\" not started: every thread identifier is in use\n", name ? name : "");
            return 0;
        }
        try {
            std::thread([record] {
                record->run();
                threadTable().retire(record->id());
            }).detach();
        } catch (const std::system_error& e) {
            table.remove(id);
            Log("Thread \"%s\" not started: %s\n", name ? name : "", e.what());
            return 0;
        }
        return id;
    }

    Kv::Ptr<iThread> get(unsigned short id) override { return threadTable().find(id); }

    Kv::Ptr<iThread> current() override { return Kv::Ptr<iThread>(currentRecord); }
};

constinit StockThreads stockThreads;
constinit std::atomic<iThreads*> installedThreads{&stockThreads};

}  // namespace

iThreads* setThreads(iThreads* service) noexcept
{
    return installedThreads.exchange(service ? service : &stockThreads, std::memory_order_acq_rel);
}

iThreads* threads() noexcept
{
    return installedThreads.load(std::memory_order_acquire);
}

}  // namespace Kv::Platform

unsigned short co_create(ThreadFunction function, const char* name, int priority, void* argument,
                         int affinityMask, unsigned int stackSize)
{
    return Kv::Platform::threads()->create(function, name, priority, argument, affinityMask,
                                           stackSize);
}

Kv::Ptr<iThread> coThreadGet(unsigned short id)
{
    return Kv::Platform::threads()->get(id);
}

Kv::Ptr<iThread> coThreadCurrent()
{
    return Kv::Platform::threads()->current();
}
