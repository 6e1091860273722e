// Values at an offset, tables of tag types, and lists of tags that are pruned.

#include "codec_buffers.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace qvtest;

namespace {

// ---- quorvan_get_tag_data ------------------------------------------------------------------------------------------------

std::string dataAt(int32_t nOffset, const Block &buf)
{
    Out out(300);
    uint8_t aLen[] = {0xC5, 0xC5};
    EXPECT_EQ(quorvan_get_tag_data(nOffset, buf.data(), out.bytes(), aLen), 0);
    EXPECT_EQ(aLen[1], 0xC5) << "the length has one byte";
    return out.first(aLen[0]) + "/" + std::to_string(aLen[0]);
}

TEST(TlvData, IsTheValueWhoseLengthFieldStandsAtTheOffset)
{
    struct {
        int32_t nOffset;
        const char *pszBuf;
        const char *pszData;
    } const aRows[] = {
        {0, "02 12 34", "12 34/2"},
        {1, "5A 02 12 34", "12 34/2"},
        {2, "9F 26 01 AA", "AA/1"},
        {1, "5A 00", "/0"},
        {1, "5A 81 02 12 34", "12 34/2"},
        {1, "5A 81 00", "/0"},
        {1, "5A 82 00 02 12 34", "12 34/2"},
        {1, "5A 82 01 02 12 34", "12 34/2"}, // of two bytes the low one
        {1, "5A 82 01 00", "/0"},
        {3, "70 05 5A 81 01 AA", "AA/1"},
    };
    for (const auto &row : aRows)
        EXPECT_EQ(dataAt(row.nOffset, Block(row.pszBuf)), row.pszData) << row.pszBuf;
    struct {
        const char *pszHead;
        uint8_t ucLen;
    } const aLong[] = {{"7F", 0x7F},    {"80", 0x80},    {"83", 0x83},      {"FF", 0xFF},
                       {"81 FF", 0xFF}, {"81 80", 0x80}, {"82 01 FF", 0xFF}};
    for (const auto &row : aLong)
        EXPECT_EQ(dataAt(0, Block(withBody(row.pszHead, row.ucLen))),
                  bodyHex(row.ucLen) + "/" + std::to_string(row.ucLen))
            << row.pszHead;
}

TEST(TlvData, RefusesNull)
{
    const Block buf("5A 01 AA");
    Out out(8);
    uint8_t ucLen = 77;
    EXPECT_EQ(quorvan_get_tag_data(1, nullptr, out.bytes(), &ucLen), -1);
    EXPECT_EQ(quorvan_get_tag_data(1, buf.data(), nullptr, &ucLen), -1);
    EXPECT_EQ(quorvan_get_tag_data(1, buf.data(), out.bytes(), nullptr), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(ucLen, 77);
}

// ---- quorvan_get_tag_type --------------------------------------------------------------------------------------------------

TEST(TlvType, IsTheByteBehindTheTagInTheTable)
{
    struct {
        const char *pszTag;
        const char *pszTable;
        int32_t nType;
    } const aRows[] = {
        {"82", "82 01", 1},
        {"9F 26", "9F 26 02 82 01 DF 81 01 03 5A 04", 2},
        {"82", "9F 26 02 82 01 DF 81 01 03 5A 04", 1},
        {"DF 81 01", "9F 26 02 82 01 DF 81 01 03 5A 04", 3},
        {"5A", "9F 26 02 82 01 DF 81 01 03 5A 04", 4},
        {"50", "9F 26 02 82 01 DF 81 01 03 5A 04", 0},
        {"9F", "9F 26 02", 0}, // a part of a tag
        {"DF 81", "DF 81 01 03", 0},
        {"9F 26 02", "9F 26 02", 0},
        {"26", "9F 26 02", 0},
        {"82", "82 01 82 02", 1}, // the first of two
        {"5A", "82 5A 5A 03", 3}, // a type is no tag
        {"5A", "70 02 5A 03", 3}, // a constructed tag is a tag like others
        {"82", "82 80", 0x80},
        {"82", "82 FF", 0xFF},
        {"5A", "82 FF 5A 03", 3}, // FF as a type
        {"82", "82 00", 0},
        {"5A", "82 00 5A 03", 3},
        {"00", "00 07", 7}, // 00 is a tag
        {"5A", "00 07 5A 03", 3},
        {"5A", "82 01 FF 5A 03", 0}, // FF where a tag should start ends the table
        {"5A", "FF 5A 03", 0},
        {"5A", "FF 01 07 5A 03", 0}, // nor does what could be a tag of two bytes go on behind it
        {"FF", "FF 05", 0},
        {"5A", "DF FF 01 05 5A 03", 0}, // and inside a tag
        {"DF FF 01", "DF FF 01 05", 0},
        {"DF 81 80 01", "DF 81 80 01 09", 9},
        {"82", "82", 0}, // the type is cut off
        {"9F 26", "9F 26", 0},
        {"9F", "9F", 0},
        {"DF 81", "DF 81", 0},
        {"5A", "9F", 0},
        {"5A", "82 01 9F", 0},
        {"5A", "82", 0},
    };
    for (const auto &row : aRows) {
        const Block tag(row.pszTag), table(row.pszTable);
        EXPECT_EQ(quorvan_get_tag_type(tag.data(), tag.size(), table.data(), table.size()), row.nType)
            << row.pszTag << " in " << row.pszTable;
    }
}

TEST(TlvType, OfAShorterTableAnEmptyOneOrNullIs0)
{
    const Block tag("5A"), table("82 01 5A 03");
    EXPECT_EQ(quorvan_get_tag_type(tag.data(), 1, table.data(), 4), 3);
    for (int32_t n : {3, 2, 1, 0, -1, INT_MIN})
        EXPECT_EQ(quorvan_get_tag_type(tag.data(), 1, table.data(), n), 0) << n;
    EXPECT_EQ(quorvan_get_tag_type(nullptr, 1, table.data(), 4), 0);
    EXPECT_EQ(quorvan_get_tag_type(tag.data(), 1, nullptr, 4), 0);
    EXPECT_EQ(quorvan_get_tag_type(tag.data(), 0, table.data(), 4), 0);
    EXPECT_EQ(quorvan_get_tag_type(tag.data(), -1, table.data(), 4), 0);
}

// ---- quorvan_findapptag ------------------------------------------------------------------------------------------------

// What is left of the list.
std::string pruned(const char *pszList, const Block &buf, int32_t nBufLen)
{
    const Block list(pszList);
    const int32_t nLeft = quorvan_findapptag(buf.data(), nBufLen, list.data(), list.size());
    if (nLeft < 0 || nLeft > list.size())
        return "length " + std::to_string(nLeft);
    return hex(list.data(), static_cast<size_t>(nLeft));
}

TEST(TlvList, LosesEveryTagThatTheBufferHolds)
{
    struct {
        const char *pszList;
        const char *pszBuf;
        const char *pszLeft;
    } const aRows[] = {
        {"9F 26 82 9F 36", "82 02 39 00", "9F 26 9F 36"},
        {"9F 26 82 9F 36", "9F 26 01 AA 82 01 BB 9F 36 01 CC", ""},
        {"9F 26 82 9F 36", "9F 36 01 CC", "9F 26 82"},
        {"9F 26 82 9F 36", "9F 26 01 CC", "82 9F 36"},
        {"9F 26 82 9F 36", "50 01 CC", "9F 26 82 9F 36"},
        {"82 82 5A 82", "82 01 AA", "5A"}, // every occurrence
        {"82 5A 95", "70 06 82 01 AA 95 01 BB", "5A"},
        {"70 5A", "70 00", "5A"},
        {"82 9F", "82 01 AA", "9F"}, // a tag that the list cuts off stays
        {"9F", "9F 26 01 AA", "9F"},
        {"9F 26 9F", "9F 26 01 AA", "9F"},
        {"DF 81 01", "DF 81 01 01 AA", "DF 81 01"}, // a tag of three bytes is not known
        {"26 82", "9F 26 01 AA", "26 82"},
        {"", "82 01 AA", ""},
    };
    for (const auto &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(pruned(row.pszList, buf, buf.size()), row.pszLeft) << row.pszList << " by " << row.pszBuf;
    }
}

TEST(TlvList, IsPrunedByABufferThatEndsByItselfWhenItsLengthIs0)
{
    const Block buf("9F 36 01 AA DF 81 01 CC 00 00 82 01 BB");
    EXPECT_EQ(pruned("82 9F 36", buf, buf.size()), "82") << "with a length DF 81 01 is a tag, and 00 would be one";
    EXPECT_EQ(pruned("82 9F 36 DF 81 5A", buf, 0), "82 5A");
    const Block with00("9F 36 01 AA 00 00 82 01 BB");
    EXPECT_EQ(pruned("82 9F 36 5A", with00, with00.size()), "5A");
    EXPECT_EQ(pruned("82 9F 36 5A", with00, 0), "82 5A");
    EXPECT_EQ(pruned("82 9F 36 5A", with00, 4), "82 5A");
}

TEST(TlvList, IsNotReadOrWrittenBehindItsLength)
{
    const Block buf("82 01 AA 9F 26 01 BB");
    Block list("82 5A 9F 26 82");
    EXPECT_EQ(quorvan_findapptag(buf.data(), buf.size(), list.data(), 3), 2);
    EXPECT_EQ(hex(list.data(), 2), "5A 9F");
    EXPECT_EQ(hex(list.data() + 3, 2), "26 82");
    for (int32_t n : {0, -1, INT_MIN}) {
        EXPECT_EQ(quorvan_findapptag(buf.data(), buf.size(), list.data() + 3, n), n < 0 ? -1 : 0) << n;
        EXPECT_EQ(hex(list.data() + 3, 2), "26 82");
    }
}

TEST(TlvList, StaysForNullAndForANegativeLengthOfTheBuffer)
{
    const Block buf("82 01 AA"), list("82 5A");
    EXPECT_EQ(quorvan_findapptag(nullptr, 3, list.data(), 2), -1);
    EXPECT_EQ(quorvan_findapptag(nullptr, 0, list.data(), 2), -1);
    EXPECT_EQ(quorvan_findapptag(buf.data(), 3, nullptr, 2), -1);
    EXPECT_EQ(quorvan_findapptag(buf.data(), -1, list.data(), 2), 2);
    EXPECT_EQ(list.hex(), "82 5A");
}

} // namespace
