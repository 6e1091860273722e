// The hash table and the Base64 texts of files when memory is short: a failure, and all stays as it was.

#include "codec_buffers.h"
#include "file_calls.h"
#include "hash_table.h"
#include "short_memory.h"
#include "support_files.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace qvtest;

namespace {

TEST(ShortMemory, MakesNoHashTable)
{
    HashTable record{nullptr, 99, 3, nullptr};
    {
        const ShortMemory now;
        EXPECT_EQ(InitHashTable(&record, always120, 1), -1);
        EXPECT_EQ(ShortMemory::refused(), 1);
    }
    EXPECT_EQ(record.pSlot, nullptr);
    EXPECT_EQ(record.nCount, 0);
    EXPECT_EQ(InsertHash(&record, element("A"), 1, 0), -1);
    DestroyHashTable(&record);
    EXPECT_EQ(InitHashTable(&record, always120, 1), 0) << "once there is some again";
    DestroyHashTable(&record);
}

TEST(ShortMemory, KeepsAHashTableFromGrowing)
{
    Table table(always120);
    for (int n = 0; n < 63; ++n)
        ASSERT_EQ(table.insert(keyOf(n), static_cast<uint32_t>(n % 2)), 0);
    const auto before = table.used();
    const HashSlot *pSlots = table->pSlot;
    {
        const ShortMemory now;
        EXPECT_EQ(table.insert(keyOf(63)), -1);
        EXPECT_EQ(ShortMemory::refused(), 1);
        RecreateHashTable(table.get());
        EXPECT_EQ(ShortMemory::refused(), 2);
    }
    EXPECT_EQ(table->pSlot, pSlots);
    EXPECT_EQ(table->nCount, 63);
    EXPECT_EQ(table->nSizeIndex, 0);
    EXPECT_EQ(nHashLenth, 127U);
    EXPECT_EQ(table.used(), before);
    EXPECT_EQ(table.insert(keyOf(63)), -1) << "now it grows";
    EXPECT_EQ(table->nSizeIndex, 1);
    EXPECT_EQ(table.insert(keyOf(63)), 0);
}

// Also those that bring nothing: a read of some bytes into no memory fails by itself.
TEST_F(Files, WithoutMemoryBecomeNoText)
{
    const std::string sPath = made("ten", "0123456789");
    Out text(32);
    for (const size_t nPiece : {SIZE_MAX, size_t{0}}) {
        FileCalls calls{.nPiece = nPiece};
        useFileCalls(&calls);
        uint32_t nLen = 32;
        {
            const ShortMemory now;
            EXPECT_EQ(GetBase64DataEx(sPath.c_str(), text.text()), -1);
            EXPECT_EQ(ShortMemory::refused(), 1);
            EXPECT_EQ(GetBase64FromFile(sPath.c_str(), text.text(), &nLen), -1);
            EXPECT_EQ(ShortMemory::refused(), 2);
        }
        useFileCalls(nullptr);
        EXPECT_EQ(nLen, 32U);
        EXPECT_TRUE(text.untouched());
    }
    EXPECT_EQ(GetBase64DataEx(sPath.c_str(), text.text()), 0);
    EXPECT_EQ(text.firstText(17), std::string("MDEyMzQ1Njc4OQ==") + '\0');
}

} // namespace
