#pragma once
// KvCmdProcessors::WorkerThreadQueue: one thread of its own that runs the commands inserted
// into the queue, one after the other, in the order they were inserted.
//
// The thread is made by co_create in the constructor and named as given. It runs a start
// command first and a stop command last (either may be the NullCommand). The destructor asks
// the thread to stop and waits for it: with discardPendingOnStop false the thread first runs
// every command already inserted, with true it drops those not yet begun. A command that
// throws is written to the log and the thread goes on with the next. After each command the
// thread keeps looking for the next one for kLookAheadMicroseconds before it sleeps.

#include <chrono>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

#include "ole/Kv/KvException.h"
#include "ole/platform/commands/KvDCCommand.h"
#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/os/KvAssert.h"
#include "ole/platform/os/KvThread.h"
#include "ole/platform/os/OS.h"
#include "ole/platform/settings/KvLog.h"

namespace KvCmdProcessors {

template <class ThreadSafety, class Ctx>
class WorkerThreadQueue {
public:
    using Command = KvDC::Cmd<Ctx, ThreadSafety>;

    // Values of insert's second argument.
    static constexpr unsigned int InsertAtBack = 0;
    static constexpr unsigned int InsertAtFront = 1;

    // Long enough to span the gap between two commands of a caller that issues one a picture,
    // short enough to cost little when none follows.
    static constexpr int kLookAheadMicroseconds = 100;

    // priority and affinityMask are handed to co_create as hints.
    WorkerThreadQueue(const char* name, const Command& startCommand, const Command& stopCommand,
                      int priority, int affinityMask, bool discardPendingOnStop)
        : wake_(OS()->synchronisation()->createEvent(0, 0, 0)),
          slots_(8),
          start_(startCommand),
          stop_(stopCommand),
          discardPending_(discardPendingOnStop)
    {
        id_ = co_create(&threadMain, name, priority, this, affinityMask, 0);
        if (id_ != 0) thread_ = coThreadGet(id_);
    }

    WorkerThreadQueue(const WorkerThreadQueue&) = delete;
    WorkerThreadQueue& operator=(const WorkerThreadQueue&) = delete;

    // Must not run on the queue's own thread, which cannot wait for itself to end.
    virtual ~WorkerThreadQueue()
    {
        {
            CriticalSection::Lock hold(lock_);
            stopping_ = true;
            __atomic_store_n(&queued_, std::size_t(1) + count_, __ATOMIC_RELEASE);  // wakes a looking thread
        }
        wake_->signal();
        if (!thread_) return;
        Kv::Ptr<iThread> self = coThreadCurrent();
        const bool onOwnThread = self && self->id() == id_;
        KV_ASSERT(!onOwnThread);
        if (!onOwnThread) thread_->waitForExit(iThreadEvent::forever);
    }

    bool threadRunning() const { return thread_ && thread_->isRunning(); }
    unsigned short threadId() const noexcept { return id_; }
    // True once the destructor has begun.
    bool stopRequested()
    {
        CriticalSection::Lock hold(lock_);
        return stopping_;
    }

    // Queues a copy of the handle, at the back, or at the front with InsertAtFront. False, and
    // nothing queued, when the thread is not there to run it or is stopping.
    bool insert(Command& command, unsigned int where)
    {
        if (!thread_) return false;
        {
            CriticalSection::Lock hold(lock_);
            if (stopping_) return false;
            if (count_ == slots_.size()) grow();
            const std::size_t size = slots_.size();
            if (where == InsertAtFront) {
                head_ = (head_ + size - 1) % size;
                slots_[head_] = command;
            } else {
                slots_[(head_ + count_) % size] = command;
            }
            ++count_;
            __atomic_store_n(&queued_, count_, __ATOMIC_RELEASE);  // not stopping here
        }
        wake_->signal();
        return true;
    }

private:
    static iThread::eExecRC threadMain(void* queue)
    {
        static_cast<WorkerThreadQueue*>(queue)->run();
        return iThread::eExecOK;
    }

    void run()
    {
        runGuarded(start_);
        for (;;) {
            Command next;
            std::vector<Command> dropped;  // let go of after the lock
            bool have = false, stop = false;
            {
                CriticalSection::Lock hold(lock_);
                if (stopping_ && (count_ == 0 || discardPending_)) {
                    for (; count_ != 0; --count_, head_ = (head_ + 1) % slots_.size())
                        dropped.push_back(std::move(slots_[head_]));
                    stop = true;
                } else if (count_ != 0) {
                    next = std::move(slots_[head_]);
                    head_ = (head_ + 1) % slots_.size();
                    --count_;
                    __atomic_store_n(&queued_, count_ + (stopping_ ? 1 : 0), __ATOMIC_RELEASE);
                    have = true;
                }
            }
            if (stop) break;
            // After a command, back to the top whatever the look-ahead found: the wake-up that
            // brought this command may also have been the stop's, so only a look under the
            // lock that finds nothing may lead to sleep.
            if (have) {
                runGuarded(next);
                next.reset();
                awaitMore();
                continue;
            }
            wake_->wait(iThreadEvent::forever);
        }
        runGuarded(stop_);
    }

    // After a command the thread looks for the next one for a little while before it sleeps:
    // work that comes a command a picture finds it awake, which saves the wake-up of a sleeping
    // thread (tens of microseconds on an idle processor). It yields as it looks, so that on a
    // busy machine it holds nobody up. It ends early when something came or a stop was asked for.
    void awaitMore()
    {
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(kLookAheadMicroseconds);
        do {
            if (__atomic_load_n(&queued_, __ATOMIC_ACQUIRE) != 0) return;
            std::this_thread::yield();
        } while (std::chrono::steady_clock::now() < until);
    }

    void runGuarded(const Command& command)
    {
        if (!command.isValid()) return;
        try {
            command.execute(context_);
        } catch (const Kv::Exception::Base& e) {
            Log("Worker queue thread: a command ended by %s: %s at %s:%d\n", e.kind,
                e.message ? e.message : "", e.file ? e.file : "", e.line);
        } catch (const std::exception& e) {
            Log("Worker queue thread: a command ended by an exception: %s\n", e.what());
        } catch (...) {
            Log("Worker queue thread: a command ended by an unknown exception\n");
        }
    }

    // Under the lock: twice the slots, the queued commands first in order.
    void grow()
    {
        std::vector<Command> bigger(slots_.size() * 2);
        for (std::size_t i = 0; i < count_; ++i)
            bigger[i] = std::move(slots_[(head_ + i) % slots_.size()]);
        slots_.swap(bigger);
        head_ = 0;
    }

    CriticalSection lock_;
    Kv::Ptr<iThreadEvent> wake_;
    // A ring of commands: count_ of them from head_ on.
    std::vector<Command> slots_;
    std::size_t head_ = 0;
    std::size_t count_ = 0;
    // count_, plus one once stopping, as a thread that looks for work without the lock sees it
    std::size_t queued_ = 0;
    bool stopping_ = false;

    const Command start_;
    const Command stop_;
    const bool discardPending_;
    Ctx context_{};

    unsigned short id_ = 0;
    Kv::Ptr<iThread> thread_;
};

}  // namespace KvCmdProcessors
