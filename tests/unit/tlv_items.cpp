// BER-TLV items of one level: their parts, the search for one, and its offset.

#include "codec_buffers.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>

using namespace qvtest;
using namespace std::string_literals;

namespace {

constexpr uint32_t nUnset = 77;

// The tail of an item is a pair of its own.
static_assert(offsetof(TlvItem, pValue) - offsetof(TlvItem, nValueLen) == offsetof(TlvValue, pValue));

const uint8_t ucNowhere = 0;

TlvItem unsetItem()
{
    return {-7, &ucNowhere, nUnset, &ucNowhere};
}

bool isUnset(const TlvItem &item)
{
    return item.nTagLen == -7 && item.pTag == &ucNowhere && item.nValueLen == nUnset && item.pValue == &ucNowhere;
}

// ---- tag and length --------------------------------------------------------------------------------------------------

TEST(TlvItems, ATagHasTwoBytesWhenTheLowFiveBitsOfItsFirstAreSet)
{
    for (unsigned n = 0; n < 256; ++n) {
        const Block tag(Bytes{static_cast<uint8_t>(n)}); // the second byte is not looked at
        TlvItem item = unsetItem();
        Ex_TLV_Parse_Tag(&item, tag.data());
        EXPECT_EQ(item.nTagLen, n % 32 == 31 ? 2 : 1) << n;
        EXPECT_EQ(item.pTag, tag.data());
        EXPECT_EQ(item.nValueLen, nUnset);
        EXPECT_EQ(item.pValue, &ucNowhere);
    }
    TlvItem item = unsetItem();
    Ex_TLV_Parse_Tag(&item, nullptr);
    EXPECT_TRUE(isUnset(item));
    Ex_TLV_Parse_Tag(nullptr, &ucNowhere);
}

TEST(TlvItems, ALengthIsOneByteOr81To83WithItsBytesBehind)
{
    struct {
        const char *pszField;
        int32_t nRet;
        uint32_t nLen;
        long nValueAt; // -1: null
    } const aRows[] = {
        {"00", 0, 0, -1},
        {"01", 0, 1, 1},
        {"7F", 0, 0x7F, 1},
        {"81 00", 0, 0, 2}, // not null
        {"81 7F", 0, 0x7F, 2},
        {"81 FF", 0, 0xFF, 2},
        {"82 00 00", 0, 0, 3},
        {"82 12 34", 0, 0x1234, 3},
        {"82 FF FE", 0, 0xFFFE, 3},
        {"83 00 00 00", 0, 0, 4},
        {"83 12 34 56", 0, 0x123456, 4},
        {"83 FF FE FD", 0, 0xFFFEFD, 4},
    };
    for (const auto &row : aRows) {
        const Block field(row.pszField);
        TlvValue pair = {nUnset, &ucNowhere};
        EXPECT_EQ(Ex_TLV_Parse_Length(&pair, field.data()), row.nRet) << row.pszField;
        EXPECT_EQ(pair.nValueLen, row.nLen) << row.pszField;
        EXPECT_EQ(field.offsetOf(pair.pValue), row.nValueAt) << row.pszField;
    }
}

TEST(TlvItems, EveryOtherLengthFormFails)
{
    for (unsigned n = 0x80; n < 0x100; n = n == 0x80 ? 0x84 : n + 1) {
        const Block field(Bytes{static_cast<uint8_t>(n)});
        TlvValue pair = {nUnset, &ucNowhere};
        EXPECT_EQ(Ex_TLV_Parse_Length(&pair, field.data()), -1) << n;
        EXPECT_EQ(pair.nValueLen, nUnset);
        EXPECT_EQ(pair.pValue, &ucNowhere);
        const Block whole(Bytes{0x5A, static_cast<uint8_t>(n), 0, 0, 0, 0, 0, 0});
        TlvItem item = unsetItem();
        EXPECT_EQ(TLV_Parser(&item, whole.data(), whole.size()), -1) << n;
        EXPECT_TRUE(isUnset(item));
    }
    TlvValue pair = {nUnset, &ucNowhere};
    EXPECT_EQ(Ex_TLV_Parse_Length(&pair, nullptr), -1);
    EXPECT_EQ(Ex_TLV_Parse_Length(nullptr, &ucNowhere), -1);
    EXPECT_EQ(pair.nValueLen, nUnset);
}

// ---- one item ------------------------------------------------------------------------------------------------------

TEST(TlvItems, ParserTakesTheItemThatStandsThereAndNothingThatIsCutOff)
{
    struct {
        Bytes item;
        int32_t nTagLen;
        uint32_t nValueLen;
        long nValueAt;
    } const aRows[] = {
        {bytes("5A 02 12 34"), 1, 2, 2},
        {bytes("5A 00"), 1, 0, -1},
        {bytes("5A 81 00"), 1, 0, 3},
        {bytes("5A 82 00 00"), 1, 0, 4},
        {bytes("5A 83 00 00 00"), 1, 0, 5},
        {bytes("9F 26 00"), 2, 0, -1},
        {bytes("9F 26 01 AA"), 2, 1, 3},
        {bytes("9F 26 81 01 AA"), 2, 1, 4},
        {bytes("9F 26 82 00 01 AA"), 2, 1, 5},
        {bytes("9F 26 83 00 00 01 AA"), 2, 1, 6},
        {bytes("DF 81 01 AA"), 2, 1, 3},       // of a longer tag the first two bytes
        {bytes("70 04 5A 02 12 34"), 1, 4, 2}, // a template is one item
        {bytes("00 01 AA"), 1, 1, 2},          // no filler here
        {bytes("FF 01 01 AA"), 2, 1, 3},       //
        {withBody("5A 7F", 127), 1, 127, 2},
        {withBody("5A 81 80", 128), 1, 128, 3},
        {withBody("5A 81 FF", 255), 1, 255, 3},
        {withBody("5A 82 01 02", 0x102), 1, 0x102, 4},
        {withBody("5A 83 01 00 02", 0x10002), 1, 0x10002, 5},
    };
    for (const auto &row : aRows) {
        const std::string sHead = hex(row.item.data(), std::min<size_t>(row.item.size(), 8));
        const Block block(row.item);
        const int32_t nSize = block.size();
        TlvItem item = unsetItem();
        EXPECT_EQ(TLV_Parser(&item, block.data(), nSize), 0) << sHead;
        EXPECT_EQ(item.nTagLen, row.nTagLen) << sHead;
        EXPECT_EQ(item.pTag, block.data()) << sHead;
        EXPECT_EQ(item.nValueLen, row.nValueLen) << sHead;
        EXPECT_EQ(block.offsetOf(item.pValue), row.nValueAt) << sHead;
        EXPECT_EQ(TLV_Parser(&item, block.data(), INT_MAX), 0) << sHead;

        for (int32_t n = nSize - 1; n >= 0; n -= nSize > 300 && n > 20 && n < nSize - 20 ? 97 : 1) {
            const Block cut(Bytes(row.item.begin(), row.item.begin() + n));
            item = unsetItem();
            EXPECT_EQ(TLV_Parser(&item, cut.data(), n), -1) << sHead << ", " << n;
            EXPECT_TRUE(isUnset(item)) << sHead << ", " << n;
        }
    }
}

TEST(TlvItems, ParserRefusesNullAndALengthBelow1)
{
    const Block block("5A 01 AA");
    TlvItem item = unsetItem();
    for (int32_t n : {0, -1, INT_MIN})
        EXPECT_EQ(TLV_Parser(&item, block.data(), n), -1) << n;
    EXPECT_EQ(TLV_Parser(&item, nullptr, 3), -1);
    EXPECT_EQ(TLV_Parser(nullptr, block.data(), 3), -1);
    EXPECT_TRUE(isUnset(item));
}

// ---- looking for a tag -----------------------------------------------------------------------------------------------

struct DataRow {
    std::string sTag;
    const char *pszBuf;
    long nAt;   // of the item's value; -1: null
    long nLen;  // of the value; -1: not found
    long nOff;  // of the item, filler not counted
    long nSize; // of the item
    long nLeft; // bytes from the item on
};

const DataRow aFound[] = {
    {"\x5A", "5A 02 12 34", 2, 2, 0, 4, 4},
    {"\x5A", "50 01 AA 5A 02 12 34", 5, 2, 3, 4, 4},
    {"\x5A", "50 00 5A 02 12 34 57 00", 4, 2, 2, 4, 6},
    {"\x5A", "5A 01 AA 5A 01 BB", 2, 1, 0, 3, 6}, // the first of two
    {"\x5A", "5A 00 50 01 AA", -1, 0, 0, 2, 5},   // an empty value: null
    {"\x5A", "5A 81 00 50 01 AA", 3, 0, 0, 3, 6}, // and one that is not
    {"\x5A", "5A 82 00 01 AA", 4, 1, 0, 5, 5},
    {"\x5A", "50 83 00 00 01 AA 5A 83 00 00 01 AA", 11, 1, 6, 6, 6},
    {"\x9F\x26", "00 00 9F 26 08 01 02 03 04 05 06 07 08", 5, 8, 0, 11, 11},
    {"\x9F\x26", "9F 27 01 80 9F 26 81 01 AA", 8, 1, 4, 5, 5},
    {"\x9F\x26", "5F 26 01 80 9F 26 01 AA", 7, 1, 4, 4, 4},
    {"\x9F\x01", "9F 01 01 AA", 3, 1, 0, 4, 4},
    {"\xDF\x81", "DF 81 01 AA", 3, 1, 0, 4, 4},
    {"\x5A", "FF 5A 01 AA", 3, 1, 0, 3, 3},                          // filler in front,
    {"\x5A", "00 FF 00 50 01 AA FF FF 5A 01 BB 00", 10, 1, 3, 3, 4}, // in between,
    {"\x5A", "5A 01 AA 00 FF", 2, 1, 0, 3, 5},                       // and behind
    {"\x5A", "50 02 00 FF 5A 01 AA", 6, 1, 4, 3, 3},                 // a value is no filler
    {"\x70", "70 04 5A 02 12 34", 2, 4, 0, 6, 6},
    {"\x5A", "70 03 5A 01 AA 5A 01 BB", 7, 1, 5, 3, 3}, // not the one inside
    {"\x5A", "5A 01 AA 5F 20 80 00", 2, 1, 0, 3, 7},    // in front of a malformed item
    {"\x5A", "5A 01 AA 50 05 00", 2, 1, 0, 3, 6},
    {"\x5A", "5A 01 AA 50", 2, 1, 0, 3, 4},
};

struct AbsentRow {
    std::string sTag;
    const char *pszBuf;
};

const AbsentRow aAbsent[] = {
    {"\x5A", "50 01 AA"},
    {"\x5A", "00 FF 00"},
    {"\x5A", "70 04 5A 02 12 34"}, // inside a template
    {"\x9F", "9F 26 01 AA"},       // a part of a tag
    {"\x26", "9F 26 01 AA"},
    {"\x9F\x26", "9F 27 01 AA"},
    {"\x9F\x26", "5F 26 01 AA"},
    {"\x5A\x01", "5A 01 AA"}, // more than the tag
    {"\xDF\x81\x01", "DF 81 01 01 AA"},
    {"\x9F\x26\x01", "9F 26 01 AA"},
    {"", "5A 01 AA"},
    {"", "00 01 AA"},
    {"\xFF", "FF 01 01 AA"},           // filler is no tag
    {"\x5F\x20", "5F 20 80 41 42 00"}, // a length form that is not known,
    {"\x5A", "5F 20 80 41 42 5A 01 AA"},
    {"\x5A", "50 84 00 00 00 01 AA 5A 01 BB"},
    {"\x5A", "50 05 AA 5A 01 BB"}, // an item that runs past the end,
    {"\x5A", "5A 03 AA BB"},
    {"\x5A", "5A"}, // a head that is cut off
    {"\x5A", "5A 81"},
    {"\x5A", "5A 82 00"},
    {"\x5A", "5A 83 00 00"},
    {"\x9F\x26", "9F"},
    {"\x9F\x26", "9F 26"},
    {"\x5A", "50 01 AA 00 5A"},
};

TEST(TlvItems, GetDataPointsAtTheValueInTheBuffer)
{
    for (const DataRow &row : aFound) {
        const Block buf(row.pszBuf), tag(ended(row.sTag));
        uint8_t ucElse = 0, *pValue = &ucElse;
        uint32_t nLen = nUnset;
        EXPECT_EQ(TLV_GetData(tag.text(), buf.data(), buf.size(), &pValue, &nLen), 0) << row.pszBuf;
        EXPECT_EQ(buf.offsetOf(pValue), row.nAt) << row.pszBuf;
        EXPECT_EQ(nLen, static_cast<uint32_t>(row.nLen)) << row.pszBuf;
    }
}

TEST(TlvItems, GetTagOffCountsTheItemsInFrontWithoutFillerAndPrintsOneLine)
{
    for (const DataRow &row : aFound) {
        const Block buf(row.pszBuf), tag(ended(row.sTag));
        int32_t nOff = -7, nSize = -7;
        testing::internal::CaptureStderr();
        const int32_t nRet = TLV_GetTagOff(tag.text(), buf.data(), buf.size(), &nOff, &nSize);
        const std::string sPrinted = testing::internal::GetCapturedStderr();
        EXPECT_EQ(nRet, 0) << row.pszBuf;
        EXPECT_EQ(nOff, row.nOff) << row.pszBuf;
        EXPECT_EQ(nSize, row.nSize) << row.pszBuf;
        EXPECT_EQ(sPrinted, "nSrcLen:" + std::to_string(row.nLeft) + ",*nOff:" + std::to_string(row.nOff) +
                                ",*nLen:" + std::to_string(row.nSize) + "\n");
    }
}

TEST(TlvItems, GetDataByTagCopiesTheValue)
{
    for (const DataRow &row : aFound) {
        const Block buf(row.pszBuf), tag(ended(row.sTag));
        Out out(32);
        uint32_t nLen = nUnset;
        EXPECT_EQ(Ex_TLV_GetDataByTag(tag.text(), buf.data(), buf.size(), out.bytes(), &nLen), 0) << row.pszBuf;
        ASSERT_EQ(nLen, static_cast<uint32_t>(row.nLen)) << row.pszBuf;
        EXPECT_EQ(out.first(nLen), row.nLen > 0 ? hex(buf.data() + row.nAt, nLen) : "") << row.pszBuf;
    }
    const Block big(withBody("5A 83 01 00 02", 0x10002));
    Out out(0x10002);
    uint32_t nLen = nUnset;
    EXPECT_EQ(Ex_TLV_GetDataByTag("\x5A", big.data(), big.size(), out.bytes(), &nLen), 0);
    EXPECT_EQ(nLen, 0x10002U);
    EXPECT_EQ(out.first(0x10002), bodyHex(0x10002));
}

TEST(TlvItems, SearchesThatFailLeaveTheOutputsAndPrintNothing)
{
    const auto expectFailure = [](const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, const char *pszWhat) {
        uint8_t ucElse = 0, *pValue = &ucElse;
        uint32_t nLen = nUnset;
        int32_t nOff = -7, nSize = -7;
        Out out(32);
        testing::internal::CaptureStderr();
        EXPECT_EQ(TLV_GetData(pszTag, pBuf, nBufLen, &pValue, &nLen), -1) << pszWhat;
        EXPECT_EQ(TLV_GetTagOff(pszTag, pBuf, nBufLen, &nOff, &nSize), -1) << pszWhat;
        EXPECT_EQ(Ex_TLV_GetDataByTag(pszTag, pBuf, nBufLen, out.bytes(), &nLen), -1) << pszWhat;
        EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt(pszTag, nullptr, pBuf, nBufLen, out.bytes(), &nLen), -1) << pszWhat;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << pszWhat;
        EXPECT_EQ(pValue, &ucElse) << pszWhat;
        EXPECT_EQ(nLen, nUnset) << pszWhat;
        EXPECT_EQ(nOff, -7) << pszWhat;
        EXPECT_EQ(nSize, -7) << pszWhat;
        EXPECT_TRUE(out.untouched()) << pszWhat;
    };
    for (const AbsentRow &row : aAbsent) {
        const Block buf(row.pszBuf), tag(ended(row.sTag));
        expectFailure(tag.text(), buf.data(), buf.size(), row.pszBuf);
    }
    const Block buf("50 01 AA 5A 01 BB");
    for (int32_t n : {0, 3, 4, 5, -1, INT_MIN})
        expectFailure("\x5A", buf.data(), n, "a shorter length");
    expectFailure(nullptr, buf.data(), buf.size(), "no tag");
    expectFailure("\x5A", nullptr, 6, "no buffer");
    expectFailure("\x5A", nullptr, 0, "no buffer");
}

TEST(TlvItems, SearchesRefuseNullOutputs)
{
    const Block buf("5A 01 BB");
    uint8_t ucElse = 0, *pValue = &ucElse;
    uint32_t nLen = nUnset;
    int32_t nNumber = -7;
    Out out(8);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TLV_GetData("\x5A", buf.data(), 3, nullptr, &nLen), -1);
    EXPECT_EQ(TLV_GetData("\x5A", buf.data(), 3, &pValue, nullptr), -1);
    EXPECT_EQ(TLV_GetTagOff("\x5A", buf.data(), 3, nullptr, &nNumber), -1);
    EXPECT_EQ(TLV_GetTagOff("\x5A", buf.data(), 3, &nNumber, nullptr), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTag("\x5A", buf.data(), 3, nullptr, &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTag("\x5A", buf.data(), 3, out.bytes(), nullptr), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", nullptr, buf.data(), 3, nullptr, &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", nullptr, buf.data(), 3, out.bytes(), nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(pValue, &ucElse);
    EXPECT_EQ(nLen, nUnset);
    EXPECT_EQ(nNumber, -7);
    EXPECT_TRUE(out.untouched());
}

} // namespace
