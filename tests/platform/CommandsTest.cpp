// The command framework: the lock-free stack under contention, the pools built on it, objects
// found by name, command bodies and handles, worker queues, and registered commands.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ole/platform/commands/CommandRegistrar.h"
#include "ole/platform/commands/KvDCCommand.h"
#include "ole/platform/commands/KvNamedObjects.h"
#include "ole/platform/commands/KvWorkerThreadQueue.h"
#include "ole/platform/os/KvThread.h"
#include "tests/support/TestSupport.h"

namespace {

using TS = KvDC::ThreadSafetyTraits::ThreadSafe;
using Ctx = KvDC::NoCtx;
using Queue = KvCmdProcessors::WorkerThreadQueue<TS, Ctx>;
using Null = KvDC::NullCommand<Ctx, TS>;

struct Node : Kv::LockFree::SLNode<Node> {
    std::atomic<int> holders{0};
};

TEST(LockFreeStackThreads, ConcurrentPushesAndPopsNeitherLoseNorShareANode)
{
    // Each thread pops two nodes and pushes the first back before the second: exactly what
    // makes the reuse hazard of a bare pointer swap show. A popper that read head A and its
    // next B is overtaken while another pops A and B and pushes A back; a bare swap then
    // makes B the head while B is held. Without a version on the head this fails in about a
    // third of the rounds below.
    constexpr int kNodes = 4, kThreads = 4, kRepeats = 8, kRounds = 40000;
    for (int repeat = 0; repeat < kRepeats; ++repeat) {
        Kv::LockFree::Stack<Node> stack;
        Node nodes[kNodes];
        for (Node& n : nodes) stack.push(&n);

        std::atomic<int> shared{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < kRounds; ++i) {
                    Node* held[2] = {static_cast<Node*>(stack.pop()), static_cast<Node*>(stack.pop())};
                    for (Node* n : held)
                        if (n && n->holders.fetch_add(1) != 0) shared.fetch_add(1);
                    for (Node* n : held)
                        if (n) {
                            n->holders.fetch_sub(1);
                            stack.push(n);
                        }
                }
            });
        for (std::thread& t : threads) t.join();

        ASSERT_EQ(shared.load(), 0) << "a node was handed to two threads at once";
        EXPECT_EQ(stack.count(), kNodes);
        std::set<Node*> seen;
        for (int i = 0; i < kNodes; ++i) seen.insert(static_cast<Node*>(stack.pop()));
        EXPECT_TRUE(seen.size() == kNodes && !seen.count(nullptr) && stack.empty());
    }
}

struct Block : KvDC::DefaultPoolBase<Block> {
    explicit Block(bool fail = false)
    {
        if (fail) throw 7;
    }
    int payload[6] = {};
};
struct BiggerBlock : Block {
    int more[16] = {};
};

TEST(PooledObject, BlocksOfTheRepSizeComeBackAndOthersDoNot)
{
    auto& pool = Block::pool();
    EXPECT_EQ(&pool, Kv::Private::StackHolder<Block>::getStack());
    // Start from an empty pool, and leave it as found.
    std::vector<Kv::LockFree::SLNode<Block>*> kept;
    while (auto* n = pool.pop()) kept.push_back(n);

    Block* a = new Block;
    const int before = pool.count();
    delete a;
    EXPECT_EQ(pool.count(), before + 1);
    Block* b = new Block;
    EXPECT_TRUE(b == a && pool.count() == before) << "the block just given back is the next one taken";

    // Blocks of another size go to the heap: a derived class, or a delete told another size.
    delete new BiggerBlock;
    Block::operator delete(::operator new(sizeof(Block) + 8), sizeof(Block) + 8);
    Block::operator delete(nullptr, sizeof(Block));
    EXPECT_EQ(pool.count(), before);

    // A constructor that throws gives its block back.
    EXPECT_THROW(new Block(true), int);
    EXPECT_EQ(pool.count(), before + 1);
    delete b;
    for (auto* n : kept) pool.push(n);
}

struct Tally {
    int n;
};

TEST(NamedObjectsThreads, OneObjectATypeAndNameForEveryCaller)
{
    constexpr int kThreads = 4;
    Tally* found[kThreads] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&found, t] { Kv::NamedObjects::findOrCreate(&found[t], "tally"); });
    for (std::thread& t : threads) t.join();
    for (Tally* f : found) EXPECT_EQ(f, found[0]);
    ASSERT_NE(found[0], nullptr);
    EXPECT_EQ(found[0]->n, 0) << "made zeroed";

    Tally* other = nullptr;
    Kv::NamedObjects::findOrCreate(&other, "another tally");
    EXPECT_NE(other, found[0]);
    int* sameNameOtherType = nullptr;
    Kv::NamedObjects::findOrCreate(&sameNameOtherType, "tally");
    EXPECT_NE(static_cast<void*>(sameNameOtherType), static_cast<void*>(found[0]));
}

using IntCmd = KvDC::ParamCmd<int, KvDC::NoTag, Ctx, int, TS>;

// Reads its parameter under the body's section, which execute already holds on this thread.
struct Adder : KvDC::Receiver<IntCmd> {
    int executeCommand(IntCmd& cmd, Ctx&) override
    {
        CriticalSection::Lock again(cmd.paramRep()->section());
        if (cmd.paramRep()->param < 0) throw std::runtime_error("negative");
        total += cmd.paramRep()->param;
        return total;
    }
    int total = 0;
};

TEST(ParamCmd, ExecuteHoldsTheSectionAcrossTheReceiverAndReleasesItOnThrow)
{
    Adder adder;
    IntCmd cmd(&adder);
    ASSERT_TRUE(cmd.isValid() && cmd.paramRep()->refCount() == 1);
    cmd.paramRep()->param = 5;
    Ctx ctx;
    EXPECT_EQ(cmd.execute(ctx), 5);
    EXPECT_EQ(cmd.execute(ctx), 10);
    EXPECT_EQ(cmd.paramRep()->refCount(), 1) << "the handle made inside execute is gone again";

    cmd.paramRep()->param = -1;
    EXPECT_THROW(cmd.execute(ctx), std::runtime_error);
    bool free = false;
    std::thread([&] {
        free = cmd.paramRep()->section().tryEnter();
        if (free) cmd.paramRep()->section().leave();
    }).join();
    EXPECT_TRUE(free);

    IntCmd copy(cmd);
    EXPECT_EQ(cmd.paramRep()->refCount(), 2);
    const int pooled = IntCmd::RepType::pool().count();
    copy.reset();
    cmd.reset();
    EXPECT_EQ(IntCmd::RepType::pool().count(), pooled + 1);
    EXPECT_EQ(cmd.execute(ctx), 0) << "an empty handle does nothing";
}

// A body that appends its number to a shared journal, optionally after waiting for a gate.
struct Journal {
    std::mutex lock;
    std::vector<int> entries;
    std::vector<std::string> threadNames;
    std::atomic<bool> gateOpen{true};
    std::atomic<int> started{0};
};

struct Entry : KvDC::CommandRep<Ctx, TS> {
    Entry(Journal& j, int n) : journal(j), number(n) {}
    int execute(Ctx&) override
    {
        journal.started.fetch_add(1);
        while (!journal.gateOpen.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (number < 0) throw std::runtime_error("entry refused");
        Kv::Ptr<iThread> self = coThreadCurrent();
        std::lock_guard guard(journal.lock);
        journal.entries.push_back(number);
        journal.threadNames.push_back(self ? self->name().c_str() : "");
        return 1;
    }
    Journal& journal;
    int number;
};

KvDC::Cmd<Ctx, TS> entry(Journal& j, int n)
{
    return KvDC::Cmd<Ctx, TS>(new Entry(j, n));
}

TEST(WorkerThreadQueue, RunsInOrderOnItsNamedThreadBetweenStartAndStop)
{
    Journal journal;
    CapturingLogSink log;
    {
        Queue queue("$Queue Test Thread", entry(journal, 0), entry(journal, 99), 1, 1, false);
        ASSERT_TRUE(queue.threadRunning());
        journal.gateOpen = false;
        for (int n : {1, 2, -1, 3}) {
            auto cmd = entry(journal, n);
            EXPECT_TRUE(queue.insert(cmd, Queue::InsertAtBack));
        }
        auto urgent = entry(journal, 4);
        queue.insert(urgent, Queue::InsertAtFront);
        journal.gateOpen = true;
    }  // the destructor lets every queued command run first
    // Entry 1 may already have been taken when 4 jumped the queue.
    const std::vector<int> a{0, 1, 4, 2, 3, 99}, b{0, 4, 1, 2, 3, 99};
    EXPECT_TRUE(journal.entries == a || journal.entries == b);
    for (const std::string& name : journal.threadNames) EXPECT_EQ(name, "$Queue Test Thread");
    EXPECT_EQ(log.count({"entry refused"}), 1) << "a throwing command is logged and the queue goes on";
}

TEST(WorkerThreadQueue, StopRightAfterALastInsertStillEnds)
{
    // The wake-up for the last command and the one for the stop can merge into one; the thread
    // must still see the stop once that command is done, or the destructor waits for ever.
    Journal journal;
    for (int round = 0; round < 200; ++round) {
        Queue queue("$Queue Test Thread", Null(), Null(), 1, 1, false);
        auto cmd = entry(journal, round);
        ASSERT_TRUE(queue.insert(cmd, Queue::InsertAtBack));
    }
    EXPECT_EQ(journal.entries.size(), 200u);
}

TEST(WorkerThreadQueue, DiscardingQueueDropsWhatHasNotBegun)
{
    Journal journal;
    journal.gateOpen = false;
    auto* queue = new Queue("$Queue Test Thread", Null(), Null(), 1, 1, true);
    for (int n : {1, 2, 3}) {
        auto cmd = entry(journal, n);
        queue->insert(cmd, 0);
    }
    // The first command is under way and held at the gate, so the queue cannot finish
    // stopping (and vanish) until the gate opens.
    while (journal.started.load() == 0) std::this_thread::yield();
    std::thread destroyer([queue] { delete queue; });
    while (!queue->stopRequested()) std::this_thread::yield();
    journal.gateOpen = true;
    destroyer.join();
    EXPECT_EQ(journal.entries, std::vector<int>{1});
}

int runs = 0;
void countRun() { ++runs; }
void otherRun() { runs += 100; }

TEST(CommandRegistrar, RegistersRunsAndForgetsByName)
{
    runs = 0;
    {
        CommandRegistrar reg("Test Count", &countRun, UIString("Count"), UIString("Counts runs"),
                             eCmdScopeDiagnostic, MapItem(65, 2));
        EXPECT_TRUE(CommandRegistrar::run("Test Count") && runs == 1);
        CommandRegistrar::Entry entry;
        ASSERT_TRUE(CommandRegistrar::find("Test Count", entry));
        EXPECT_TRUE(std::string(entry.description.c_str()) == "Counts runs" && entry.mapItem.key == 65);
        {
            CommandRegistrar later("Test Count", &otherRun, UIString(), UIString(), eCmdScopeGlobal, MapItem());
            EXPECT_TRUE(CommandRegistrar::run("Test Count") && runs == 101) << "the later registration stands";
        }
        EXPECT_FALSE(CommandRegistrar::run("Test Count")) << "the later one took the name with it";
    }
    EXPECT_FALSE(CommandRegistrar::run(nullptr));
}

}  // namespace
