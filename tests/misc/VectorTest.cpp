#include <gtest/gtest.h>

#include "ole/misc/LightweightString.h"
#include "ole/misc/Vector.h"

using W = LightweightString<wchar_t>;

TEST(Vector, GrowsFromFourByDoubling)
{
    Vector<int*> v;
    EXPECT_TRUE(v.capacity == 0 && v.items == nullptr);
    int x = 0;
    EXPECT_EQ(v.add(&x), 0u);
    EXPECT_EQ(v.capacity, 4u);
    for (int i = 0; i < 4; ++i) v.push_back(&x);
    EXPECT_TRUE(v.capacity == 8 && v.size == 5);
    Vector<int*> w;
    for (auto [wanted, capacity] : {std::pair{5u, 8u}, {8, 8}, {9, 16}}) {
        w.resizeFor(wanted);
        EXPECT_EQ(w.capacity, capacity) << wanted;
    }
    w.clear();
    EXPECT_TRUE(w.capacity == 0 && w.items == nullptr);
}

TEST(Vector, LocateInternAndRemoveItem)
{
    Vector<W> v;
    unsigned int index = 99;
    EXPECT_FALSE(v.locate(W(L"a"), index));
    EXPECT_EQ(index, 0u);
    EXPECT_TRUE(v.intern(W(L"a"), index));
    EXPECT_TRUE(v.intern(W(L"b"), index));
    EXPECT_EQ(index, 1u);
    EXPECT_FALSE(v.intern(W(L"a"), index));
    EXPECT_TRUE(index == 0 && v.size == 2);
    EXPECT_TRUE(v.removeItem(W(L"a")));
    EXPECT_FALSE(v.removeItem(W(L"zz")));
    ASSERT_EQ(v.size, 1u);
    EXPECT_EQ(v[0], L"b");
    EXPECT_FALSE(v.removeIdx(1));
}

TEST(Vector, StringElementsAreReleasedWhereTheRulesSay)
{
    W s(L"shared");
    Vector<W> v;
    for (int i = 0; i < 5; ++i) v.add(s);
    EXPECT_EQ(s.useCount(), 6);
    EXPECT_TRUE(v.removeIdx(4));  // clears the vacated slot
    EXPECT_EQ(s.useCount(), 5);
    EXPECT_TRUE(v.remove(0, 2));  // leaves the two slots behind holding their references
    EXPECT_TRUE(v.size == 2 && s.useCount() == 5);
    EXPECT_TRUE(v.remove(1, 1));
    EXPECT_EQ(v.size, 2u);
    Vector<W> other;
    other.add(W(L"x"));
    other.consume(v);  // frees its own, takes v's storage
    EXPECT_TRUE(v.items == nullptr && v.capacity == 0 && other.size == 2);
    other.consume(other);
    EXPECT_EQ(other.size, 2u);
    other.clear();
    EXPECT_EQ(s.useCount(), 1);
}

TEST(Vector, InsertAndRemoveOutsideTheUsedRangeStayInsideTheStorage)
{
    Vector<W> v;
    v.insert(W(L"b"), 0);
    v.insert(W(L"a"), 0);
    v.insert(W(L"c"), 2);
    ASSERT_EQ(v.size, 3u);
    EXPECT_TRUE(v[0] == L"a" && v[2] == L"c");
    v.insert(W(L"far"), 3);  // at the end
    v.insert(W(L"gap"), 6);  // past the end but inside the storage: stored there, size + 1
    EXPECT_TRUE(v.size == 5 && v.capacity == 8 && v.items[6] == L"gap");
    v.insert(W(L"lost"), 1000);  // beyond the storage: nothing written
    EXPECT_EQ(v.size, 6u);
    EXPECT_TRUE(v.remove(2, 100));  // `to` past the size: nothing moves, the count stops at 0
    EXPECT_EQ(v.size, 0u);

    Vector<W> copy;
    copy.add(W(L"1"));
    Vector<W> duplicate = copy;
    duplicate.add(W(L"2"));
    EXPECT_TRUE(copy.size == 1 && duplicate.size == 2 && duplicate[0].impl() == copy[0].impl());
}
