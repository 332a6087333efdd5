// co_create and the thread records, and the call context that the diagnostics give.

#include <gtest/gtest.h>
#include <pthread.h>

#include <set>
#include <string>

#include "ole/platform/os/KvThread.h"
#include "ole/platform/os/OS.h"
#include "tests/support/TestSupport.h"

namespace {

constexpr unsigned int forever = iThreadEvent::forever;

struct Observed {
    std::string name, kernelName;
    unsigned short id = 0;
    ContextLines context;
};

iThread::eExecRC observe(void* argument)
{
    auto* seen = static_cast<Observed*>(argument);
    if (Kv::Ptr<iThread> self = coThreadCurrent()) {
        seen->name = self->name().c_str();
        seen->id = self->id();
    }
    char kernel[16] = {};
    pthread_getname_np(pthread_self(), kernel, sizeof kernel);
    seen->kernelName = kernel;
    OS()->diagnostics()->describeContext(seen->context);
    return iThread::eExecOK;
}

iThread::eExecRC nothing(void*) { return iThread::eExecOK; }

iThread::eExecRC waitForEvent(void* event)
{
    static_cast<iThreadEvent*>(event)->wait(forever);
    return iThread::eExecFailed;
}

iThread::eExecRC throwSomething(void*) { throw std::runtime_error("thrown on purpose"); }

Kv::Ptr<iThread> start(ThreadFunction function, const char* name, void* argument = nullptr)
{
    const unsigned short id = co_create(function, name, 0, argument, 0, 0);
    EXPECT_NE(id, 0);
    return coThreadGet(id);
}

TEST(PlatformThreads, ThreadKeepsItsFullNameAndKnowsItself)
{
    const char* name = "$DQ<LightweightString<wchar_t>>";
    Observed seen;
    Kv::Ptr<iThread> thread = start(observe, name, &seen);
    ASSERT_TRUE(thread && thread->waitForExit(forever));
    EXPECT_TRUE(!thread->isRunning() && thread->exitCode() == iThread::eExecOK);
    EXPECT_STREQ(thread->name().c_str(), name);
    EXPECT_TRUE(seen.name == name && seen.id == thread->id());
    EXPECT_EQ(seen.kernelName, std::string(name, 15));
    ASSERT_GE(seen.context.size(), 2u) << "a thread line and at least one frame";
    EXPECT_NE(std::string(seen.context[0].c_str()).find(name), std::string::npos);

    ContextLines lines;
    OS()->diagnostics()->describeContext(lines);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(std::string(lines[0].c_str()).rfind("thread (tid ", 0), 0u) << "a thread of no name";
    EXPECT_FALSE(coThreadCurrent());
}

TEST(PlatformThreads, EndedThreadsStayReachableUnderDistinctIds)
{
    std::set<unsigned short> ids;
    for (int i = 0; i < 40; ++i) {
        const unsigned short id = co_create(nothing, "short", 0, nullptr, 0, 0);
        EXPECT_TRUE(id != 0 && ids.insert(id).second) << id;
    }
    for (unsigned short id : ids) {
        Kv::Ptr<iThread> thread = coThreadGet(id);
        ASSERT_TRUE(thread) << id;
        EXPECT_TRUE(thread->waitForExit(forever) && thread->exitCode() == iThread::eExecOK);
    }
    EXPECT_FALSE(coThreadGet(0));
    EXPECT_EQ(co_create(nullptr, "no function", 0, nullptr, 0, 0), 0);
}

TEST(PlatformThreads, WaitForExitTimesOutWhileTheThreadRuns)
{
    Kv::Ptr<iThreadEvent> go = OS()->synchronisation()->createEvent(1, 0, 0);
    Kv::Ptr<iThread> thread = start(waitForEvent, "waiter", go.get());
    ASSERT_TRUE(thread);
    EXPECT_TRUE(!thread->waitForExit(10) && thread->isRunning());
    go->signal();
    EXPECT_TRUE(thread->waitForExit(forever) && thread->exitCode() == iThread::eExecFailed);
}

TEST(PlatformThreads, AnExceptionEndsOnlyItsThreadWithALogLine)
{
    CapturingLogSink log;
    Kv::Ptr<iThread> thread = start(throwSomething, "thrower");
    ASSERT_TRUE(thread && thread->waitForExit(forever));
    EXPECT_TRUE(thread->exitCode() == iThread::eExecFailed && log.count({"thrower", "thrown on purpose"}) == 1);
}

TEST(PlatformThreads, SystemFactsAndClock)
{
    EXPECT_GE(OS()->systemInfo()->processorCount(), 1u);
    const double before = OS()->diagnostics()->currentTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_GE(OS()->diagnostics()->currentTime() - before, 0.004);
}

}  // namespace
