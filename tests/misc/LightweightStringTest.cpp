#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ole/misc/LightweightString.h"
#include "tests/support/CountingMemory.h"

using S = LightweightString<char>;
using W = LightweightString<wchar_t>;

TEST(LightweightString, CapacityIsTheNextPowerOfTwoAboveTheLength)
{
    EXPECT_EQ(S("abc").capacity(), 4u);
    EXPECT_EQ(W(L"abcdefgh").capacity(), 16u);
    EXPECT_EQ(S::createImpl(5, false).capacity(), 6u) << "exactly the length and its terminator";
    EXPECT_EQ(S::createImpl(5, true).capacity(), 8u);
    EXPECT_EQ(S::capacityFor(0x7FFFFFFFu), 0x80000000u);
    EXPECT_EQ(S::capacityFor(0x80000000u), 0x80000001u);  // no 32-bit power of two above it
}

TEST(LightweightString, HeaderAndTextShareOneBlockFromTheMemoryService)
{
    CountingMemory memory;
    {
        W w(L"hello");
        EXPECT_EQ(memory.lastBytes.load(), sizeof(W::Impl) + 8 * sizeof(wchar_t));
        EXPECT_EQ(reinterpret_cast<const char*>(w.c_str()), reinterpret_cast<const char*>(w.impl()) + sizeof(W::Impl));
        W copy = w;  // a copy allocates nothing
        EXPECT_EQ(memory.allocations.load(), 1);
        EXPECT_TRUE(copy.impl() == w.impl() && w.useCount() == 2);
    }
    EXPECT_EQ(memory.outstanding(), 0);
}

TEST(LightweightString, EveryEmptyResultIsTheNullString)
{
    const char* nothing = nullptr;
    S assigned("x"), assignedNull("x"), resized("abc"), blanks("   ");
    assigned.assign("");
    assignedNull.assign(nothing);
    resized.resizeFor(0);
    trimLeadingSpaces(blanks);
    for (const S& s : {S(), S(""), S(nothing), S("abc", 0), assigned, assignedNull, S::join("", 0, nullptr, 0),
                       S::createImpl(0, true), resized, blanks}) {
        EXPECT_TRUE(s.empty() && s.impl() == nullptr && s.capacity() == 0);
        EXPECT_STREQ(s.c_str(), "");
        EXPECT_TRUE(s == S() && s == "");
    }
    S unchanged("keep");
    unchanged.append("zz", 0);
    unchanged += static_cast<const char*>(nullptr);
    EXPECT_EQ(unchanged, "keep");
}

TEST(LightweightString, ChangesInPlaceOnlyWhenSoleOwnerAndBelowCapacity)
{
    S s("abcde");  // capacity 8
    const char* before = s.c_str();
    s.append("fg", 2);  // length 7 < 8
    EXPECT_TRUE(s.c_str() == before && s == "abcdefg");
    s.append("h", 1);  // length 8 is not below 8: a new block
    EXPECT_TRUE(s.c_str() != before && s.capacity() == 16 && s == "abcdefgh");

    // With a second holder nothing is written into the shared block.
    S other = s;
    s.append("i", 1);
    EXPECT_TRUE(other == "abcdefgh" && s == "abcdefghi" && other.useCount() == 1);
    S shared("xyz");
    S holder = shared;
    shared.assign("q");
    EXPECT_TRUE(holder == "xyz" && shared == "q");
    const char* sole = shared.c_str();
    shared.assign("rs");  // sole owner, but 2 is not below capacity 2
    EXPECT_NE(shared.c_str(), sole);
}

TEST(LightweightString, AppendsReallocateOnlyWhenCrossingAPowerOfTwo)
{
    W w;
    unsigned int moves = 0;
    const wchar_t* data = nullptr;
    std::wstring reference;
    for (int i = 0; i < 300; ++i) {
        const wchar_t c[2] = {wchar_t(L'a' + i % 26), 0};
        w += c;
        reference += c[0];
        if (w.c_str() != data) {
            ++moves;
            data = w.c_str();
            // A new block is needed exactly when the length reaches a power of two.
            const unsigned int len = w.size();
            EXPECT_EQ(len & (len - 1), 0u) << len;
        }
        ASSERT_EQ(std::wstring(w.c_str()), reference);
    }
    EXPECT_EQ(moves, 9u);  // lengths 1, 2, 4, 8, ..., 256
}

TEST(LightweightString, AppendingAStringToItself)
{
    S a("abc");  // capacity 4: the self-append needs a new block
    a += a;
    EXPECT_TRUE(a == "abcabc" && a.size() == 6);
    a += a;  // 12 characters, capacity 8: again across a reallocation
    EXPECT_EQ(a, "abcabcabcabc");
    S big("0123");
    big.append("45678901", 8);  // length 12 in capacity 16
    big.append(big.c_str(), big.size());  // 24: reallocation while reading the old block
    EXPECT_EQ(big, "012345678901012345678901");
    W w(L"ab");  // capacity 4
    w.resizeFor(1);
    w.append(w.c_str(), 1);  // in place, reading its own text
    EXPECT_EQ(w, L"aa");
}

TEST(LightweightString, ResizeForKeepsTextInPlaceAndLeavesANewBlockUnfilled)
{
    S s("abcdef");  // capacity 8
    const char* before = s.c_str();
    s.resizeFor(3);
    EXPECT_TRUE(s.c_str() == before && s == "abc");
    s.resizeFor(7);
    EXPECT_TRUE(s.c_str() == before && s.size() == 7 && s.c_str()[7] == '\0');

    S shared("hello");
    S holder = shared;
    shared.resizeFor(20);
    EXPECT_TRUE(shared.impl() != holder.impl() && shared.useCount() == 1 && holder == "hello");
    EXPECT_TRUE(shared.size() == 20 && shared.c_str()[20] == '\0');
}

TEST(LightweightString, JoinAndAssignFromInsideItself)
{
    // A missing source is skipped and its length still counts; its room reads as terminators,
    // never stale bytes.
    S j = S::join("ab", 2, nullptr, 5);
    EXPECT_TRUE(j == "ab" && j.size() == 7 && j.c_str()[4] == '\0');
    EXPECT_EQ(S::join(nullptr, 0, "cd", 2), "cd");
    S self("hello world");
    self.assign(self.buffer() + 6);  // a source inside its own block
    EXPECT_EQ(self, "world");
    S shared("hello world");
    S holder = shared;
    shared.assign(shared.buffer() + 6);
    EXPECT_TRUE(shared == "world" && holder == "hello world");
}

TEST(LightweightString, OrderingAndTrimming)
{
    EXPECT_TRUE(S("abc") < S("abd") && S() < S("a") && !(S() < S()));
    EXPECT_LT(W(L"\u00e9"), W(L"\U0001F600"));  // wide text compares whole code points
    EXPECT_NE(W(L"a"), W(L"ab"));

    S s("  \tx ");  // only blanks go
    trimLeadingSpaces(s);
    EXPECT_EQ(s, "\tx ");
    W w(L"   wide");
    W holder = w;
    trimLeadingSpaces(w);
    EXPECT_TRUE(w == L"wide" && holder == L"   wide");
}

TEST(LightweightString, BoundedWideCopy)
{
    wchar_t buf[4] = {L'z', L'z', L'z', L'z'};
    EXPECT_EQ(StringHelpers::copy(buf, L"abcdef", 4), 3u);
    EXPECT_EQ(std::wstring(buf), L"abc");
    EXPECT_EQ(StringHelpers::copy(buf, L"", 4), 0u);
    EXPECT_EQ(buf[0], L'\0');
    EXPECT_EQ(StringHelpers::copy(buf, nullptr, 4), 0u);
    buf[0] = L'q';
    EXPECT_EQ(StringHelpers::copy(buf, L"abc", 0), 0u);
    EXPECT_EQ(buf[0], L'q');
}

TEST(LightweightString, SharingAndCopyOnWriteWhileOtherThreadsCopy)
{
    const S source("the quick brown fox");
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&source, &wrong, t] {
            for (int i = 0; i < 5000; ++i) {
                S mine = source;          // shares the block
                mine += "!";              // copy on write: never touches the shared block
                S again(mine.c_str());
                again.resizeFor(3);  // sole owner: in place, keeping "the"
                if (std::string(mine.c_str()) != "the quick brown fox!" || again != "the") ++wrong;
                if (t == 0 && source != "the quick brown fox") ++wrong;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(source.useCount(), 1);
    EXPECT_EQ(source, "the quick brown fox");
}
