// The hash table: making it, the probe sequence, replacing, looking up, walking through it, destroying it.

#include "hash_table.h"
#include "support_log.h"

#include "qvreader/support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace qvtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const uint32_t g_nAtLoad = nHashLenth;

TEST(HashTableSize, IsZeroSlotsAtLoad)
{
    EXPECT_EQ(g_nAtLoad, 0U);
}

TEST(HashTableInit, MakesAFreeTableOfEachSize)
{
    for (int32_t i = 0; i < 4; ++i) {
        HashTable record{nullptr, 99, -5, nullptr};
        ASSERT_EQ(InitHashTable(&record, DJBHash, i), 0);
        EXPECT_EQ(nHashLenth, aSlots[i]);
        EXPECT_EQ(record.nCount, 0);
        EXPECT_EQ(record.nSizeIndex, i);
        EXPECT_EQ(record.pfnHash, &DJBHash);
        for (uint32_t n = 0; n < aSlots[i]; ++n)
            EXPECT_EQ(hex(&record.pSlot[n], sizeof(HashSlot)), hex(Bytes(12))) << n;
        DestroyHashTable(&record);
    }
}

TEST(HashTableInit, OfAnotherIndexOrNullAllocatesNothing)
{
    Table table(DJBHash, 2);
    for (int32_t nIndex : {4, 5, INT32_MAX, -1, INT32_MIN}) {
        HashSlot old{};
        HashTable record{&old, 99, 1, always120};
        EXPECT_EQ(InitHashTable(&record, DJBHash, nIndex), -1);
        EXPECT_EQ(record.pSlot, &old);
        EXPECT_EQ(record.nCount, 0) << "the one field that changes";
        EXPECT_EQ(record.nSizeIndex, 1);
        EXPECT_EQ(record.pfnHash, &always120);
        EXPECT_EQ(nHashLenth, 229U);
    }
    EXPECT_EQ(InitHashTable(nullptr, DJBHash, 0), -1);
    HashTable record{};
    EXPECT_EQ(InitHashTable(&record, nullptr, 0), -1);
    EXPECT_EQ(record.pSlot, nullptr);
    EXPECT_EQ(nHashLenth, 229U);
}

TEST(HashTableInit, LeavesWhatTheRecordPointedToAlone)
{
    HashSlot another{};
    another.nValue = 5;
    for (HashSlot *pOld : {&another, reinterpret_cast<HashSlot *>(uintptr_t{3})}) {
        HashTable record{pOld, 99, 2, nullptr};
        ASSERT_EQ(InitHashTable(&record, DJBHash, 0), 0);
        EXPECT_NE(record.pSlot, pOld);
        DestroyHashTable(&record);
    }
    EXPECT_EQ(another.nValue, 5U);
}

TEST(HashTableInsert, StoresAnElementAsItIs)
{
    Table table(always120);
    EXPECT_EQ(InsertHash(table.get(), element(bytes("9F3601"), 3, 0x01020304), 7, 0), 0);
    EXPECT_EQ(InsertHash(table.get(), element(bytes("9F"), 1, 5), 0, 0x31), 0);
    EXPECT_THAT(table.used(), ElementsAre("120 9F 36 01/3 16909060 7", "121 9F 00 00/1 5 0"));
    EXPECT_EQ(table->nCount, 2);
}

TEST(HashTableInsert, OfTheSameKeyIsRefusedUnlessTheModeReplaces)
{
    Table table(BKDRHash);
    EXPECT_EQ(table.insert("9F", 1, 0, 10), 0);
    for (int32_t nMode : {0, 1, 0x30, 0x32, 0x131, -1})
        EXPECT_EQ(table.insert("9F", 2, nMode, 20), -1);
    EXPECT_EQ(table->nCount, 1);
    EXPECT_EQ(table->pSlot[table.find("9F")].nData, 10U);
    EXPECT_EQ(table.insert("9F", 3, nReplace, 30), 0);
    EXPECT_EQ(table->nCount, 2) << "a replacement counts as well";
    EXPECT_EQ(table->pSlot[table.find("9F")].nData, 30U);
    EXPECT_EQ(table->pSlot[table.find("9F")].nValue, 3U);
    EXPECT_EQ(table.used().size(), 1U);
}

TEST(HashTableInsert, RefusesKeysOfNoneOrMoreThanThreeBytes)
{
    Table table(BKDRHash);
    for (int nKeyLen : {0, 4, 5, 127, 128, 255})
        EXPECT_EQ(InsertHash(table.get(), element(bytes("414243"), static_cast<uint8_t>(nKeyLen)), 1, nReplace), -1);
    EXPECT_EQ(table->nCount, 0);
    EXPECT_THAT(table.used(), IsEmpty());
}

TEST(HashTableInsert, TellsKeysOfDifferentLengthApart)
{
    Table table(always120);
    for (const char *pszKey : {"A", "AB", "ABC"})
        EXPECT_EQ(table.insert(pszKey), 0);
    EXPECT_EQ(table.find("A"), 120);
    EXPECT_EQ(table.find("AB"), 121);
    EXPECT_EQ(table.find("ABC"), 123);
    EXPECT_EQ(table.find("ABD"), -1);
    EXPECT_EQ(table.find("ABCD"), -1);
    EXPECT_EQ(table.find(""), -1);
}

TEST(HashTableInsert, SearchesAKeyOnlyUpToItsFirstZeroByte)
{
    Table table(always120);
    EXPECT_EQ(InsertHash(table.get(), element(bytes("AB00CD"), 3), 1, 0), 0);
    EXPECT_EQ(table.find("\xAB"), -1) << "it stands there with its whole length";
    EXPECT_EQ(InsertHash(table.get(), element(bytes("AB00CD"), 3), 2, 0), 0) << "so it is not found again";
    EXPECT_EQ(table.insert("\xAB", 3), 0);
    EXPECT_EQ(InsertHash(table.get(), element(bytes("AB00EF"), 3, 9), 4, nReplace), 0);
    EXPECT_THAT(table.used(), ElementsAre("120 AB 00 CD/3 0 1", "121 AB 00 CD/3 0 2", "123 AB 00 EF/1 9 4"));
    EXPECT_EQ(table->nCount, 4);
    EXPECT_EQ(InsertHash(table.get(), element(bytes("001122"), 3), 5, 0), 0) << "an empty text is searched";
    EXPECT_EQ(table.used().size(), 4U);
}

TEST(HashTableProbe, MovesOnByOneMoreSlotEachTime)
{
    Table table(always120);
    int32_t nExpected = 120;
    for (int n = 0; n < 40; ++n) {
        nExpected = (nExpected + n) % 127;
        ASSERT_EQ(table.insert(keyOf(n)), 0);
        EXPECT_EQ(table.find(keyOf(n)), nExpected) << n;
    }
    EXPECT_EQ(table->nCount, 40);
}

TEST(HashTableProbe, StartsAtTheHashModuloTheSizeOfTheTable)
{
    Table table(DJBHash, 3);
    for (int n = 0; n < 20; ++n)
        table.insert(keyOf(5 * n));
    int nAtStart = 0;
    for (int n = 0; n < 20; ++n)
        nAtStart += table.find(keyOf(5 * n)) == static_cast<int32_t>(DJBHash(keyOf(5 * n).c_str()) % 277);
    EXPECT_GT(nAtStart, 15);
    Table largest([](const char *) -> uint32_t { return 0xFFFFFFFF; }, 1);
    EXPECT_EQ(largest.insert("A"), 0);
    EXPECT_EQ(largest.find("A"), static_cast<int32_t>(0xFFFFFFFF % 179));
}

TEST(HashTableSearch, TellsTheInsertionPointAndAddsTheCollisions)
{
    Table table(always120);
    for (int n = 0; n < 3; ++n)
        table.insert(keyOf(n));
    int32_t nSlot = -1, nCollisions = 0;
    EXPECT_EQ(SearchHash(table.get(), "zz", &nSlot, &nCollisions), -1);
    EXPECT_EQ(nSlot, 126);
    EXPECT_EQ(nCollisions, 3);
    nCollisions = 0;
    EXPECT_EQ(SearchHash(table.get(), keyOf(2).c_str(), &nSlot, &nCollisions), 0);
    EXPECT_EQ(nSlot, 123);
    EXPECT_EQ(nCollisions, 2);
    nCollisions = 1; // the first step is of two slots then
    EXPECT_EQ(SearchHash(table.get(), "zz", &nSlot, &nCollisions), -1);
    EXPECT_EQ(nSlot, 122);
    EXPECT_EQ(nCollisions, 2);
}

TEST(HashTableSearch, EndsAfterAsManyCollisionsAsThereAreSlots)
{
    Table table(always120);
    for (uint32_t i = 0; i < 277; ++i)
        table->pSlot[i].ucKeyLen = 3;
    int32_t nSlot = -1, nCollisions = 0;
    EXPECT_EQ(SearchHash(table.get(), "A", &nSlot, &nCollisions), -1);
    EXPECT_EQ(nCollisions, 127);
    EXPECT_EQ(nSlot, (120 + 126 * 127 / 2) % 127);
    nCollisions = INT32_MAX;
    EXPECT_EQ(SearchHash(table.get(), "A", &nSlot, &nCollisions), -1);
    EXPECT_EQ(nSlot, 120);
}

TEST(HashTableSearch, OfNullFails)
{
    Table table(always120);
    table.insert("A");
    int32_t nSlot = -7, nCollisions = 0;
    EXPECT_EQ(SearchHash(nullptr, "A", &nSlot, &nCollisions), -1);
    EXPECT_EQ(SearchHash(table.get(), nullptr, &nSlot, &nCollisions), -1);
    EXPECT_EQ(SearchHash(table.get(), "A", nullptr, &nCollisions), -1);
    EXPECT_EQ(SearchHash(table.get(), "A", &nSlot, nullptr), -1);
    EXPECT_EQ(FindHash(table.get(), nullptr, &nSlot), -1);
    EXPECT_EQ(FindHash(nullptr, "A", &nSlot), -1);
    EXPECT_EQ(FindHash(table.get(), "A", nullptr), -1);
    EXPECT_EQ(InsertHash(nullptr, element("B"), 1, 0), -1);
    EXPECT_EQ(nSlot, -7);
}

TEST(HashTableStep, IsModuloTheNumberOfSlots)
{
    Table table(always120);
    int32_t nSlot = 100;
    collision(&nSlot, 26);
    EXPECT_EQ(nSlot, 126);
    collision(&nSlot, 1);
    EXPECT_EQ(nSlot, 0);
    collision(&nSlot, 127 * 5 + 3);
    EXPECT_EQ(nSlot, 3);
    collision(nullptr, 1);
    nHashLenth = 0;
    collision(&nSlot, 5);
    EXPECT_EQ(nSlot, 3) << "no slots, no step";
}

TEST(HashTableRecord, ThatWasNeverMadeIsRefused)
{
    HashTable record{};
    int32_t nSlot = -7;
    nHashLenth = 127;
    EXPECT_EQ(InsertHash(&record, element("A"), 1, 0), -1);
    EXPECT_EQ(FindHash(&record, "A", &nSlot), -1);
    EXPECT_EQ(TraverseHash(&record, [](int32_t, uint64_t, uint32_t) {}), 0);
    RecreateHashTable(&record);
    RecreateHashTable(nullptr);
    EXPECT_EQ(record.pSlot, nullptr);
    EXPECT_EQ(nHashLenth, 127U);
}

TEST(HashTableRecord, WithAnotherSizeIndexIsRefused)
{
    Table table(always120);
    for (int32_t nIndex : {-1, 4, INT32_MAX, INT32_MIN}) {
        table->nSizeIndex = nIndex;
        EXPECT_EQ(table.insert("A"), -1);
        EXPECT_EQ(table.find("A"), -1);
        RecreateHashTable(table.get());
        EXPECT_EQ(table->nSizeIndex, nIndex);
    }
    EXPECT_EQ(nHashLenth, 127U);
}

TEST(HashTableRecord, WithoutAHashIsRefused)
{
    Table table(always120);
    ASSERT_EQ(table.insert("A"), 0);
    table->pfnHash = nullptr;
    EXPECT_EQ(table.insert("B"), -1);
    EXPECT_EQ(table.find("A"), -1);
    int32_t nSlot = -7, nCollisions = 0;
    EXPECT_EQ(SearchHash(table.get(), "A", &nSlot, &nCollisions), -1);
    EXPECT_EQ(nSlot, -7);
    RecreateHashTable(table.get());
    EXPECT_EQ(table->nSizeIndex, 0);
    EXPECT_EQ(nHashLenth, 127U);
    table->pfnHash = always120;
    EXPECT_EQ(table.find("A"), 120);
}

TEST(HashTableLength, WrittenByAHostNeverLeadsOutsideTheTable)
{
    for (uint32_t nLength : {0U, 1U, 5U, 1000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        Table table([](const char *) -> uint32_t { return 126; });
        nHashLenth = nLength;
        for (int n = 0; n < 200; ++n) {
            table.insert(keyOf(n));
            table.find(keyOf(n));
            if (table->nSizeIndex > 0)
                break; // growth has set it anew
        }
        for (int32_t nStart : {-1, -4, -500}) {
            int32_t nSlot = -1, nCollisions = nStart;
            nHashLenth = nLength;
            SearchHash(table.get(), "zz", &nSlot, &nCollisions);
            EXPECT_LT(nSlot, 277);
            EXPECT_GE(nSlot, -1);
        }
        nHashLenth = nLength;
        EXPECT_EQ(static_cast<uint32_t>(TraverseHash(table.get(), [](int32_t, uint64_t, uint32_t) {})), nLength);
    }
    Table table(always120);
    nHashLenth = 0;
    EXPECT_EQ(table.insert("A"), -1);
    EXPECT_EQ(table->nCount, 0);
}

struct Visit {
    int32_t nSlot;
    uint64_t ullElement;
    uint32_t nValue;
    bool operator==(const Visit &) const = default;
};
std::vector<Visit> g_visits;

void visit(int32_t nSlot, uint64_t ullElement, uint32_t nValue)
{
    g_visits.push_back({nSlot, ullElement, nValue});
}

constexpr char szTraversalOf127[] = "\xB9\xFE\xCF\xA3\xB5\xD8\xD6\xB7"
                                    "0"
                                    "\xA1\xAB"
                                    "126\n";

TEST_F(Log, OfATraversalIsOneGbkLineWithTheLastSlot)
{
    Table table([](const char *psz) { return static_cast<uint32_t>(psz[0]); });
    EXPECT_EQ(table.insert("z", 1, 0, 0x11), 0);
    EXPECT_EQ(table.insert("A", 0, 0, 0x22), 0);
    EXPECT_EQ(table.insert("M", 3, 0, 0x33), 0);
    logOn();
    g_visits.clear();
    EXPECT_EQ(TraverseHash(table.get(), visit), 127);
    EXPECT_THAT(g_visits, ElementsAre(Visit{'A', element("A", 0x22), 0}, Visit{'M', element("M", 0x33), 3},
                                      Visit{'z', element("z", 0x11), 1}));
    EXPECT_THAT(logTexts(), ElementsAre(szTraversalOf127));
    EXPECT_NE(rawLog().find("Public:"), std::string::npos);
}

TEST_F(Log, OfATraversalStandsThereBeforeTheFirstVisit)
{
    Table table(always120);
    table.insert("A");
    table.insert("B");
    static std::vector<size_t> s_lines;
    logOn();
    TraverseHash(table.get(), [](int32_t, uint64_t, uint32_t) { s_lines.push_back(logTexts().size()); });
    EXPECT_THAT(s_lines, ElementsAre(1U, 1U));
}

TEST_F(Log, OfATraversalThatShowsNothingIsTheSameLine)
{
    Table table(always120);
    table.insert("A");
    HashTable unmade{};
    const std::pair<HashTable *, HashVisitor> rows[] = {{nullptr, visit}, {table.get(), nullptr}, {&unmade, visit}};
    for (const auto &[pTable, pfnVisit] : rows) {
        logOn();
        EXPECT_EQ(TraverseHash(pTable, pfnVisit), 0);
        EXPECT_THAT(logTexts(), ElementsAre(szTraversalOf127));
    }
}

TEST(HashTableTraversal, ShowsTheBytesBehindAShortKeyAsTheyWereHandedOver)
{
    Table table(always120);
    const uint64_t ullFirst = element(bytes("9F3601"), 1, 0x11), ullOther = element(bytes("5A2402"), 2, 0x22),
                   ullAnew = element(bytes("9FFFFE"), 1, 0x33);
    EXPECT_EQ(InsertHash(table.get(), ullFirst, 1, 0), 0);
    EXPECT_EQ(InsertHash(table.get(), ullOther, 2, 0), 0);
    EXPECT_EQ(table.find("\x9F"), 120) << "the key is its length long";
    g_visits.clear();
    TraverseHash(table.get(), visit);
    EXPECT_THAT(g_visits, ElementsAre(Visit{120, ullFirst, 1}, Visit{121, ullOther, 2}));
    EXPECT_EQ(InsertHash(table.get(), ullAnew, 3, nReplace), 0);
    g_visits.clear();
    TraverseHash(table.get(), visit);
    EXPECT_THAT(g_visits, ElementsAre(Visit{120, ullAnew, 3}, Visit{121, ullOther, 2}));
}

TEST(HashTableTraversal, OfNullVisitsNothing)
{
    Table table(always120);
    table.insert("A");
    g_visits.clear();
    EXPECT_EQ(TraverseHash(nullptr, visit), 0);
    EXPECT_EQ(TraverseHash(table.get(), nullptr), 0);
    EXPECT_THAT(g_visits, IsEmpty());
}

TEST(HashTableDestruction, ClearsTheRecordAndMayBeRepeated)
{
    HashTable record{};
    ASSERT_EQ(InitHashTable(&record, always120, 2), 0);
    InsertHash(&record, element("A"), 1, 0);
    for (int n = 0; n < 2; ++n) {
        DestroyHashTable(&record);
        EXPECT_EQ(record.pSlot, nullptr);
        EXPECT_EQ(record.nCount, 0);
        EXPECT_EQ(record.nSizeIndex, 0);
        EXPECT_EQ(record.pfnHash, nullptr);
    }
    DestroyHashTable(nullptr);
    EXPECT_EQ(nHashLenth, 229U) << "stays";
}

} // namespace
