#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "ole/Kv/KvPtr.h"
#include "ole/Kv/KvRefCount.h"

namespace {

struct Counted : iObject {
    explicit Counted(int* deaths_ = nullptr) : deaths(deaths_) {}
    ~Counted() override
    {
        if (deaths) ++*deaths;
    }
    int* deaths;
    Kv::Ptr<Counted> next;  // lets an object own its own successor
    int value = 7;
};

struct Plain {  // no count of its own: for the external policy
    explicit Plain(int* deaths_) : deaths(deaths_) {}
    ~Plain() { ++*deaths; }
    int* deaths;
};

// An iRefCounter that counts its calls and forwards to the one it replaced.
struct CallCountingRefCounter final : iRefCounter {
    CallCountingRefCounter() : previous(OS()->setRefCounter(this)) {}
    ~CallCountingRefCounter() { OS()->setRefCounter(previous); }
    int increment(int* c) override { ++increments; return previous->increment(c); }
    int decrement(int* c) override { ++decrements; return previous->decrement(c); }
    int fetchAdd(int* a, int n) override { return previous->fetchAdd(a, n); }
    void* compareAndSwap(void** a, void* n, void* e) override { return previous->compareAndSwap(a, n, e); }
    iRefCounter* previous;
    int increments = 0;
    int decrements = 0;
};

}  // namespace

TEST(KvPtr, IsTwoWordsAndCountsInsideTheObject)
{
    static_assert(sizeof(Kv::Ptr<Counted>) == 2 * sizeof(void*));
    int deaths = 0;
    auto* raw = new Counted(&deaths);
    EXPECT_EQ(raw->refCount(), 0);
    {
        Kv::Ptr<Counted> a(raw);
        EXPECT_TRUE(a.countAddress() == raw->refCountAddress() && a.useCount() == 1);
        Kv::Ptr<Counted> b(a);
        Kv::Ptr<Counted> c(raw);  // a second raw take of an internally counted object is safe
        EXPECT_EQ(a.useCount(), 3);
        Kv::Ptr<iObject> asBase(a);  // conversion shares the same count
        EXPECT_EQ(a.useCount(), 4);
    }
    EXPECT_EQ(deaths, 1);
}

// Every change of a count goes through the installed counter, and self-assignment makes none.
TEST(KvPtr, ReplacedCounterSeesEveryChangeAndSelfAssignmentNone)
{
    CallCountingRefCounter counter;
    int deaths = 0;
    {
        Kv::Ptr<Counted> a(new Counted(&deaths));
        Kv::Ptr<Counted> b(a);
        Kv::Ptr<Counted> c;
        c = b;
        Kv::Ptr<Counted>& alias = a;
        a = alias;
        a = std::move(alias);
        EXPECT_EQ(counter.increments, 3);
        EXPECT_EQ(counter.decrements, 0);
        EXPECT_EQ(a.useCount(), 3);
    }
    EXPECT_EQ(counter.increments, 3);
    EXPECT_EQ(counter.decrements, 3);
    EXPECT_EQ(deaths, 1);
}

TEST(KvPtr, OldTargetLivesUntilTheNewOneIsInPlace)
{
    // p is the only owner of A, and A is the only owner of B. Assigning A's `next` to p must
    // take B before A dies; under AddressSanitizer a release-first order reads freed memory.
    int deaths = 0;
    Kv::Ptr<Counted> p(new Counted(&deaths));
    p->next = Kv::Ptr<Counted>(new Counted(&deaths));
    p->next->value = 42;
    p = p->next;
    ASSERT_TRUE(p);
    EXPECT_TRUE(deaths == 1 && p->value == 42 && p.useCount() == 1);

    // The same through a move from a member of the object that dies.
    p->next = Kv::Ptr<Counted>(new Counted(&deaths));
    p->next->value = 43;
    p = std::move(p->next);
    EXPECT_TRUE(deaths == 2 && p->value == 43);
}

TEST(KvPtr, ExternalCountBlockAndDestructionPolicy)
{
    int deaths = 0;
    {
        using ExtPtr = Kv::Ptr<Plain, Kv::DtorTraits, Kv::ExternalRefCountTraits>;
        ExtPtr a(new Plain(&deaths));
        ASSERT_NE(a.countAddress(), nullptr);
        ExtPtr b = a;
        EXPECT_TRUE(b.countAddress() == a.countAddress() && a.useCount() == 2);
        a.reset();
        EXPECT_TRUE(!a && deaths == 0 && b.useCount() == 1);
    }
    EXPECT_EQ(deaths, 1);  // and the count block was freed: LeakSanitizer checks
}

TEST(KvPtr, CopiesOnManyThreadsKeepOneCount)
{
    int deaths = 0;
    Kv::Ptr<Counted> shared(new Counted(&deaths));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                Kv::Ptr<Counted> copy(shared);
                Kv::Ptr<Counted> other;
                other = copy;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(shared.useCount(), 1);
    shared.reset();
    EXPECT_EQ(deaths, 1);
}
