#include <gtest/gtest.h>

#include "ole/misc/LightweightString.h"
#include "ole/misc/Vector.h"

using W = LightweightString<wchar_t>;

TEST(Vector, GrowsFromFourByDoubling)
{
    Vector<int*> v;
    EXPECT_EQ(v.capacity, 0u);
    EXPECT_EQ(v.items, nullptr);
    int x = 0;
    EXPECT_EQ(v.add(&x), 0u);
    EXPECT_EQ(v.capacity, 4u);
    for (int i = 0; i < 4; ++i) v.push_back(&x);
    EXPECT_EQ(v.capacity, 8u);
    EXPECT_EQ(v.size, 5u);
    Vector<int*> w;
    w.resizeFor(5);
    EXPECT_EQ(w.capacity, 8u);
    w.resizeFor(8);
    EXPECT_EQ(w.capacity, 8u);
    w.resizeFor(9);
    EXPECT_EQ(w.capacity, 16u);
    w.clear();
    EXPECT_EQ(w.capacity, 0u);
    EXPECT_EQ(w.items, nullptr);
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
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(v.size, 2u);
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
    EXPECT_EQ(v.size, 2u);
    EXPECT_EQ(s.useCount(), 5);
    EXPECT_TRUE(v.remove(1, 1));
    EXPECT_EQ(v.size, 2u);
    Vector<W> other;
    other.add(W(L"x"));
    other.consume(v);  // frees its own, takes v's storage
    EXPECT_EQ(v.items, nullptr);
    EXPECT_EQ(v.capacity, 0u);
    EXPECT_EQ(other.size, 2u);
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
    EXPECT_EQ(v[0], L"a");
    EXPECT_EQ(v[2], L"c");
    v.insert(W(L"far"), 3);  // at the end
    v.insert(W(L"gap"), 6);  // past the end but inside the storage: stored there, size + 1
    EXPECT_EQ(v.size, 5u);
    EXPECT_EQ(v.capacity, 8u);
    EXPECT_EQ(v.items[6], L"gap");
    v.insert(W(L"lost"), 1000);  // beyond the storage: nothing written
    EXPECT_EQ(v.size, 6u);
    EXPECT_LE(v.size, v.capacity);
    EXPECT_TRUE(v.remove(2, 100));  // `to` past the size: nothing moves, the count stops at 0
    EXPECT_EQ(v.size, 0u);

    Vector<W> copy;
    copy.add(W(L"1"));
    Vector<W> duplicate = copy;
    duplicate.add(W(L"2"));
    EXPECT_EQ(copy.size, 1u);
    EXPECT_EQ(duplicate.size, 2u);
    EXPECT_EQ(duplicate[0].impl(), copy[0].impl());
}
