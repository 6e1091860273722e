// The growth of the hash table: when it comes, what it keeps and what it drops, where it ends; two tables at once.

#include "hash_table.h"

#include "qvreader/support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace qvtest;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

// Inserts keys that all collide until one is not stored. How many were.
int fillUntilRefused(Table &table, int nFrom, uint32_t nValue = 1)
{
    int n = nFrom;
    while (n < 300 && table.insert(keyOf(n), nValue) == 0)
        ++n;
    return n;
}

TEST(HashTableGrowth, ComesAtTheCollisionThatIsHalfTheSlots)
{
    constexpr int aStored[] = {63, 89, 114, 138};
    Table table(always120);
    int nStored = 0;
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(table->nSizeIndex, i);
        EXPECT_EQ(nHashLenth, aSlots[i]);
        nStored = fillUntilRefused(table, nStored);
        EXPECT_EQ(nStored, aStored[i]);
        EXPECT_EQ(table->nCount, nStored);
        EXPECT_EQ(table.find(keyOf(nStored)), -1) << "the key that made it grow is not stored";
        for (int n = 0; n < nStored; ++n)
            ASSERT_NE(table.find(keyOf(n)), -1) << n;
    }
    EXPECT_EQ(table->nSizeIndex, 3);
    EXPECT_EQ(nHashLenth, 277U);
}

TEST(HashTableGrowth, BeyondTheLargestSizeLeavesTheTableAsItIs)
{
    Table table(always120, 3);
    ASSERT_EQ(fillUntilRefused(table, 0, 0), 138);
    const auto before = table.used();
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(table.insert("zz"), -1);
        RecreateHashTable(table.get());
    }
    EXPECT_EQ(table->nCount, 138);
    EXPECT_EQ(table->nSizeIndex, 3);
    EXPECT_EQ(nHashLenth, 277U);
    EXPECT_EQ(table.used(), before);
    EXPECT_EQ(table.insert(keyOf(5), 9, nReplace), 0) << "replacing still works";
}

TEST(HashTableGrowth, DropsElementsWhoseValueIsZero)
{
    Table table([](const char *psz) { return static_cast<uint32_t>(psz[0]); });
    table.insert("A", 0, 0, 1);
    table.insert("B", 2, 0, 2);
    table.insert("C", 0x80000000, 0, 3);
    table.insert("D", 0, 0, 4);
    RecreateHashTable(table.get());
    EXPECT_THAT(table.used(), ElementsAre("66 42 00 00/1 2 2", "67 43 00 00/1 3 2147483648"));
    EXPECT_EQ(table->nCount, 2);
    EXPECT_EQ(table->nSizeIndex, 1);
    EXPECT_EQ(nHashLenth, 179U);
}

TEST(HashTableGrowth, OfNothingButZerosLeavesAnEmptyTable)
{
    Table table(always120);
    ASSERT_EQ(fillUntilRefused(table, 0, 0), 63);
    EXPECT_EQ(table->nCount, 0);
    EXPECT_THAT(table.used(), SizeIs(0));
    EXPECT_EQ(table.insert(keyOf(63)), 0);
}

TEST(HashTableGrowth, CountsWhatItKeptWithoutTheReplacements)
{
    Table table(BKDRHash);
    table.insert("A");
    for (int n = 0; n < 9; ++n)
        table.insert("A", 1, nReplace);
    table.insert("B");
    EXPECT_EQ(table->nCount, 11);
    RecreateHashTable(table.get());
    EXPECT_EQ(table->nCount, 2);
}

// 120 is the home of all; the slot order of three keys, not the order of their insertion, decides.
TEST(HashTableGrowth, InsertsAnewInTheOrderOfTheSlots)
{
    Table table([](const char *) -> uint32_t { return 126; });
    for (const char *pszKey : {"A", "B", "C", "D"}) // slots 126, 0, 2, 5
        ASSERT_EQ(table.insert(pszKey), 0);
    ASSERT_EQ(table.find("D"), 5);
    RecreateHashTable(table.get());
    EXPECT_EQ(table.find("B"), 126);
    EXPECT_EQ(table.find("C"), 127);
    EXPECT_EQ(table.find("D"), 129);
    EXPECT_EQ(table.find("A"), 132);
}

TEST(HashTableGrowth, KeepsAKeyWithAZeroByteWhole)
{
    Table table(always120);
    ASSERT_EQ(InsertHash(table.get(), element(bytes("AB00CD"), 3, 8), 1, 0), 0);
    RecreateHashTable(table.get());
    EXPECT_THAT(table.used(), ElementsAre("120 AB 00 CD/3 8 1"));
}

// Behind a wrap the short key comes first in slot order; the long one, of which only the front is searched, takes its
// place.
TEST(HashTableGrowth, ReplacesAnElementThatIsFoundAgain)
{
    Table table([](const char *) -> uint32_t { return 126; });
    ASSERT_EQ(InsertHash(table.get(), element(bytes("AB00CD"), 3, 1), 5, 0), 0);
    ASSERT_EQ(table.insert("\xAB", 6, 0, 2), 0);
    ASSERT_EQ(table.find("\xAB"), 0);
    RecreateHashTable(table.get());
    EXPECT_THAT(table.used(), ElementsAre("126 AB 00 CD/1 1 5"));
    EXPECT_EQ(table->nCount, 2);
}

// 5 slots are probed: the steps lead to 0, 1 and 3 only.
TEST(HashTableGrowth, ComesWhenNoFreeSlotWasFound)
{
    Table table([](const char *) -> uint32_t { return 0; });
    nHashLenth = 5;
    for (int n = 0; n < 3; ++n)
        ASSERT_EQ(table.insert(keyOf(n)), 0);
    EXPECT_EQ(table.insert(keyOf(3)), -1);
    EXPECT_EQ(table->nSizeIndex, 1);
    EXPECT_EQ(nHashLenth, 179U);
    EXPECT_EQ(table->nCount, 3);
    for (int n = 0; n < 3; ++n)
        EXPECT_NE(table.find(keyOf(n)), -1);
}

// Keys that 179 slots do not tell apart: inserted anew into that many they make the table grow once more.
TEST(HashTableGrowth, WithinGrowthLosesTheOneElementThatCausedIt)
{
    Table table([](const char *psz) -> uint32_t {
        return 179U * (26U * static_cast<uint32_t>(psz[0] - 'A') + static_cast<uint32_t>(psz[1] - 'a'));
    });
    for (int n = 0; n < 110; ++n)
        ASSERT_EQ(table.insert(keyOf(n), static_cast<uint32_t>(n) + 1), 0) << n;
    ASSERT_EQ(table->nSizeIndex, 0);
    RecreateHashTable(table.get());
    EXPECT_EQ(table->nSizeIndex, 2);
    EXPECT_EQ(nHashLenth, 229U);
    EXPECT_EQ(table->nCount, 109);
    EXPECT_THAT(table.used(), SizeIs(109));
    int nLost = 0;
    for (int n = 0; n < 110; ++n)
        if (const int32_t nSlot = table.find(keyOf(n)); nSlot < 0)
            ++nLost;
        else
            EXPECT_EQ(table->pSlot[nSlot].nValue, static_cast<uint32_t>(n) + 1);
    EXPECT_EQ(nLost, 1);
}

TEST(TwoHashTables, OfWhichTheLargerGrowsLastKeepTheElementsBeyondTheSlotsOfTheSmaller)
{
    Table large([](const char *psz) -> uint32_t { return psz[0] == 'A' ? 126 : 178; }, 1);
    ASSERT_EQ(large.insert("A", 1), 0);
    ASSERT_EQ(large.insert("B", 2), 0);
    ASSERT_EQ(large.insert("C", 3), 0);
    ASSERT_EQ(large.find("C"), 0);
    Table small(always120, 0);
    ASSERT_EQ(nHashLenth, 127U);
    RecreateHashTable(large.get());
    EXPECT_EQ(nHashLenth, 229U);
    EXPECT_EQ(large->nCount, 3);
    EXPECT_THAT(large.used(), ElementsAre("126 41 00 00/1 0 1", "178 43 00 00/1 0 3", "179 42 00 00/1 0 2"));
}

// The smaller table decides how far the larger one is probed.
TEST(TwoHashTables, AreBothProbedOverTheSlotsOfTheLastMade)
{
    Table large([](const char *) -> uint32_t { return 270; }, 3);
    Table small(always120, 0);
    EXPECT_EQ(nHashLenth, 127U);
    ASSERT_EQ(large.insert("A"), 0);
    ASSERT_EQ(large.insert("B"), 0);
    EXPECT_EQ(large.find("A"), 270);
    EXPECT_EQ(large.find("B"), 271 % 127);
    EXPECT_EQ(TraverseHash(large.get(), [](int32_t nSlot, uint64_t, uint32_t) { EXPECT_LT(nSlot, 127); }), 127);
}

TEST(TwoHashTables, OfWhichTheSmallerWasMadeFirstStayInsideTheirSlots)
{
    Table small([](const char *) -> uint32_t { return 126; }, 0);
    Table large(always120, 3);
    EXPECT_EQ(nHashLenth, 277U);
    for (int n = 0; n < 63; ++n)
        ASSERT_EQ(small.insert(keyOf(n)), 0);
    EXPECT_EQ(small.find(keyOf(1)), 127) << "behind the last slot of its own size";
    EXPECT_EQ(small.insert(keyOf(63)), -1);
    EXPECT_EQ(nHashLenth, 179U);
    EXPECT_EQ(small->nCount, 63);
    EXPECT_THAT(small.used(), SizeIs(63)) << "nothing is left of where they stood before";
    for (int n = 0; n < 63; ++n)
        EXPECT_NE(small.find(keyOf(n)), -1) << n;
}

} // namespace
