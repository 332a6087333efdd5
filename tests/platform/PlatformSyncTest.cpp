// Events, waiting on several events, critical sections and named locks, across real threads.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/os/OS.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr unsigned int forever = iThreadEvent::forever;

Kv::Ptr<iThreadEvent> makeEvent(int flag = 1)
{
    return OS()->synchronisation()->createEvent(flag, 0, 0);
}

long msSince(Clock::time_point since)
{
    return long(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

// Runs `body` on another thread and waits for it: for checks by a thread that holds no lock.
template <class F>
void onOtherThread(F body)
{
    std::thread(body).join();
}

TEST(PlatformThreadEvent, KeepsOneSignalUntilSeen)
{
    for (int flag : {0, 1}) {
        SCOPED_TRACE(flag);
        Kv::Ptr<iThreadEvent> event = makeEvent(flag);
        event->signal();
        event->signal();  // signals do not add up
        EXPECT_TRUE(event->wait(0) && !event->wait(0));
        event->signal();
        event->reset();
        const auto start = Clock::now();
        EXPECT_FALSE(event->wait(20));
        EXPECT_GE(msSince(start), 19);
    }
}

TEST(PlatformThreadEvent, WaitsWakeOnSignalsFromAnotherThread)
{
    Kv::Ptr<iThreadEvent> event = makeEvent();
    bool seen = false;
    std::thread waiter([&] { seen = event->wait(forever); });
    event->signal();
    waiter.join();
    EXPECT_TRUE(seen && !event->wait(0)) << "the waiter consumed the signal";

    EventList events{makeEvent(), makeEvent(), makeEvent()};
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        events[1]->signal();
    });
    EXPECT_EQ(OS()->synchronisation()->waitForAny(events, nullptr, forever), 1);
    signaller.join();
}

TEST(PlatformThreadEvent, WaitForAnyConsumesTheFirstSignalledInListOrder)
{
    iSynchronisation* sync = OS()->synchronisation();
    EventList events{makeEvent(), makeEvent(0), makeEvent()};
    events[2]->signal();
    events[0]->signal();
    EXPECT_EQ(sync->waitForAny(events, nullptr, 0), 0);
    EXPECT_EQ(sync->waitForAny(events, nullptr, 0), 2);
    EXPECT_EQ(sync->waitForAny(events, nullptr, 0), -1);
    EXPECT_FALSE(events[2]->wait(0)) << "the signal reported was consumed";

    const auto start = Clock::now();
    EXPECT_EQ(sync->waitForAny(events, nullptr, 20), -1);
    EXPECT_GE(msSince(start), 19);
    EXPECT_EQ(sync->waitForAny(EventList{}, nullptr, 10), -1);
}

TEST(PlatformThreadLocks, CriticalSectionIsReentrantAndExclusive)
{
    CriticalSection cs("counter");
    cs.enter();
    EXPECT_TRUE(cs.tryEnter());
    bool otherGotIt = true;
    onOtherThread([&] { otherGotIt = cs.tryEnter(); });
    EXPECT_FALSE(otherGotIt);
    cs.leave();
    onOtherThread([&] { otherGotIt = cs.tryEnter(); });
    EXPECT_FALSE(otherGotIt) << "one enter is still to be left";
    cs.leave();

    long counter = 0;
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                CriticalSection::Lock outer(cs), inner(cs);
                ++counter;
            }
        });
    }
    for (std::thread& w : workers) w.join();
    EXPECT_EQ(counter, 4 * 5000);
}

TEST(PlatformThreadLocks, NamedMutexIsOneReentrantLockPerName)
{
    iSynchronisation* sync = OS()->synchronisation();
    Kv::Ptr<iMutex> mine = sync->createMutex("kv-test-shared");
    Kv::Ptr<iMutex> same = sync->createMutex("kv-test-shared");
    ASSERT_TRUE(mine->lock(forever));
    ASSERT_TRUE(mine->lock(0)) << "re-entry by the owner";

    bool taken = true, otherNameTaken = false, unnamedTaken = false;
    long waited = 0;
    onOtherThread([&] {
        const auto start = Clock::now();
        taken = same->lock(20);
        waited = msSince(start);
        Kv::Ptr<iMutex> other = OS()->synchronisation()->createMutex("kv-test-other");
        Kv::Ptr<iMutex> unnamed = OS()->synchronisation()->createMutex(nullptr);
        otherNameTaken = other->lock(0);
        unnamedTaken = unnamed->lock(0);
        other->unlock();
        unnamed->unlock();
    });
    EXPECT_TRUE(!taken && waited >= 19) << waited;
    EXPECT_TRUE(otherNameTaken && unnamedTaken);

    mine->unlock();
    onOtherThread([&] { taken = same->lock(0); });
    EXPECT_FALSE(taken) << "one lock is still to be unlocked";
    mine->unlock();

    // A waiter for ever gets the lock when its holder lets go.
    Kv::Ptr<iThreadEvent> held = makeEvent(), release = makeEvent();
    std::thread holder([&] {
        same->lock(forever);
        held->signal();
        release->wait(forever);
        same->unlock();
    });
    ASSERT_TRUE(held->wait(forever));
    EXPECT_FALSE(mine->lock(10));
    release->signal();
    EXPECT_TRUE(mine->lock(forever));
    mine->unlock();
    holder.join();
}

}  // namespace
