// The stock timed-task service: one recording task a name, begins and ends paired per thread.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "ole/platform/settings/TimedTaskManager.h"

TEST(TimedTaskManager, RecordsNestedBeginsPerThread)
{
    Kv::Ptr<TimedTaskBase> fetched = TimedTaskManager::getTimedTask("kvtest");
    auto* task = dynamic_cast<RecordingTimedTask*>(fetched.get());
    ASSERT_NE(task, nullptr);
    EXPECT_EQ(fetched.get(), TimedTaskManager::getTimedTask("kvtest").get());
    EXPECT_NE(fetched.get(), TimedTaskManager::getTimedTask("kvtest other").get());

    task->begin("outer");
    task->begin("inner");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([task] {
            for (int i = 0; i < 1000; ++i) {
                task->begin("worker");
                task->end();
            }
            task->end();  // this thread has nothing open: another thread's begins stay open
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(task->openCount(), 2u);
    task->end();
    EXPECT_EQ(task->record("inner").ends, 1u) << "an end closes its thread's latest begin";
    EXPECT_EQ(task->record("outer").ends, 0u);
    task->end();
    EXPECT_EQ(task->record("worker").ends, 4000u);
    EXPECT_EQ(task->unmatchedEnds(), 4u);
    const auto records = task->records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_STREQ(records[0].label.c_str(), "outer");
    EXPECT_GE(records[0].seconds, records[1].seconds);
    bool listed = false;
    for (const auto& [name, t] : Kv::Platform::recordedTimedTasks()) listed = listed || t.get() == task;
    EXPECT_TRUE(listed);
    task->reset();
    EXPECT_TRUE(task->records().empty());

    // A replaced service may answer null; null puts the stock service back.
    struct NullService final : iTimedTaskService {
        Kv::Ptr<TimedTaskBase> getTimedTask(const LightweightString<char>&) override { return {}; }
    } none;
    Kv::Platform::setTimedTaskService(&none);
    EXPECT_FALSE(TimedTaskManager::getTimedTask("Image"));
    EXPECT_EQ(Kv::Platform::setTimedTaskService(nullptr), &none);
    EXPECT_EQ(TimedTaskManager::getTimedTask("kvtest").get(), fetched.get());
}
