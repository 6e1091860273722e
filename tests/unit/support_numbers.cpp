// Texts padded to a number of bytes, BCD and numbers.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

using namespace qvtest;

namespace {

// ---- texts padded to a number of bytes -----------------------------------------------------------------------------------

struct PadRow {
    const char *pszText;
    uint32_t nOut;
    const char *pszCn;
    const char *pszBcd;
};

constexpr PadRow aPads[] = {
    {"1234", 2, "12 34", "12 34"},
    {"123", 2, "12 3F", "01 23"},
    {"1", 1, "1F", "01"},
    {"", 2, "FF FF", "00 00"},
    {"12", 4, "12 FF FF FF", "00 00 00 12"},
    {"6222021", 5, "62 22 02 1F FF", "00 06 22 20 21"},
    {"123456", 2, "12 34", "12 34"},
    {"12345", 2, "12 34", "12 34"},
    {"aBcDeF", 3, "AB CD EF", "AB CD EF"},
    {"1234", 0, "", ""},
};

TEST(AsciiToCn, ShortTextIsPaddedWithFOnTheRight)
{
    for (const PadRow &row : aPads) {
        Out out(8);
        EXPECT_EQ(Str_AsciiToCn(row.pszText, int32_t(std::strlen(row.pszText)), out.bytes(), row.nOut), int(row.nOut));
        EXPECT_EQ(out.first(row.nOut), row.pszCn) << row.pszText;
    }
}

TEST(AsciiToBcd, ShortTextIsPaddedWith0OnTheLeft)
{
    for (const PadRow &row : aPads) {
        Out out(8);
        EXPECT_EQ(Str_AsciiToBcd(row.pszText, uint32_t(std::strlen(row.pszText)), out.bytes(), row.nOut),
                  int(row.nOut));
        EXPECT_EQ(out.first(row.nOut), row.pszBcd) << row.pszText;
    }
}

TEST(AsciiToCn, LengthCountsNotTheNul)
{
    Out out(8);
    EXPECT_EQ(Str_AsciiToCn("123456", 3, out.bytes(), 3), 3);
    EXPECT_EQ(out.first(3), "12 3F FF");
    Out bcd(8);
    EXPECT_EQ(Str_AsciiToBcd("123456", 3, bcd.bytes(), 3), 3);
    EXPECT_EQ(bcd.first(3), "00 01 23");
}

TEST(AsciiToCn, AreaEndsAt4096Characters)
{
    const Bytes data = randomBytes(2500, 3);
    const std::string sText = upperHex(data); // 5000 characters
    for (uint32_t nOut : {2047U, 2048U}) {
        Out cn(3000);
        EXPECT_EQ(Str_AsciiToCn(sText.c_str(), 5000, cn.bytes(), nOut), int32_t(nOut));
        EXPECT_EQ(cn.first(nOut), hex(data.data(), nOut));
        Out bcd(3000);
        EXPECT_EQ(Str_AsciiToBcd(sText.c_str(), 5000, bcd.bytes(), nOut), int32_t(nOut));
        EXPECT_EQ(bcd.first(nOut), hex(data.data(), nOut));
    }
    for (uint32_t nOut : {2049U, 2500U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nOut);
        Out cn(3000);
        EXPECT_EQ(Str_AsciiToCn(sText.c_str(), 5000, cn.bytes(), nOut), 2048);
        EXPECT_EQ(cn.first(2048), hex(data.data(), 2048));
        Out bcd(3000);
        EXPECT_EQ(Str_AsciiToBcd(sText.c_str(), 5000, bcd.bytes(), nOut), 2048);
        EXPECT_EQ(bcd.first(2048), hex(data.data(), 2048));
    }
}

TEST(AsciiToCn, FullAreaIsPaddedToItsEnd)
{
    Out cn(2048);
    EXPECT_EQ(Str_AsciiToCn("12", 2, cn.bytes(), 2048), 2048);
    EXPECT_EQ(cn.first(2048), hex(bytes("12" + std::string(4094, 'F'))));
    Out bcd(2048);
    EXPECT_EQ(Str_AsciiToBcd("12", 2, bcd.bytes(), 2048), 2048);
    EXPECT_EQ(bcd.first(2048), hex(bytes(std::string(4094, '0') + "12")));
}

TEST(AsciiToCn, NegativeLengthReadsNoCharacter)
{
    for (int32_t nLen : {-1, INT_MIN}) {
        Out out(8);
        const int32_t nResult = Str_AsciiToCn("12", nLen, out.bytes(), 2);
        EXPECT_TRUE((nResult == 2 && out.first(2) == "FF FF") || (nResult == -1 && out.untouched())) << nResult;
    }
}

TEST(AsciiToCn, NullIsMinus1)
{
    Out out(8);
    EXPECT_EQ(Str_AsciiToCn(nullptr, 2, out.bytes(), 2), -1);
    EXPECT_EQ(Str_AsciiToCn("12", 2, nullptr, 2), -1);
    EXPECT_EQ(Str_AsciiToBcd(nullptr, 2, out.bytes(), 2), -1);
    EXPECT_EQ(Str_AsciiToBcd("12", 2, nullptr, 2), -1);
    EXPECT_TRUE(out.untouched());
}

// ---- BCD and numbers -----------------------------------------------------------------------------------------------------

TEST(ByteToBcd, TakesZeroTo99)
{
    for (int32_t n = 0; n <= 99; ++n) {
        uint8_t uc = ucFree;
        EXPECT_EQ(Str_ByteToBcd(n, &uc), 0);
        EXPECT_EQ(uc, n / 10 * 16 + n % 10) << n;
    }
    for (int32_t n : {-1, -100, 100, 256, 356, INT_MAX, INT_MIN}) {
        uint8_t uc = ucFree;
        EXPECT_EQ(Str_ByteToBcd(n, &uc), -1) << n;
        EXPECT_EQ(uc, ucFree) << n;
    }
    EXPECT_EQ(Str_ByteToBcd(5, nullptr), -1);
}

struct BcdRow {
    int32_t nValue;
    const char *pszOut; // ".." stays unwritten
};

TEST(IntTo4Bcd, LeavesMiddleBytesUnwrittenFrom10000On)
{
    const BcdRow aRows[] = {
        {0, "00 00 00 00"},        {1, "00 00 00 01"},        {99, "00 00 00 99"},      {100, "00 00 01 00"},
        {1234, "00 00 12 34"},     {9999, "00 00 99 99"},     {10000, "00 01 C5 00"},   {12345, "00 01 C5 45"},
        {99999, "00 09 C5 99"},    {999999, "00 99 C5 99"},   {1000000, "01 C5 C5 00"}, {1234567, "01 C5 C5 67"},
        {12345678, "12 C5 C5 78"}, {99999999, "99 C5 C5 99"},
    };
    for (const BcdRow &row : aRows) {
        Out out(4);
        uint32_t nLen = 77;
        EXPECT_EQ(Str_IntTo4Bcd(row.nValue, out.bytes(), &nLen), 0) << row.nValue;
        EXPECT_EQ(out.first(4), row.pszOut) << row.nValue;
        EXPECT_EQ(nLen, 4U) << row.nValue;
    }
}

TEST(IntTo4Bcd, EveryValueBelow10000IsWhole)
{
    for (int32_t n = 0; n < 10000; ++n) {
        uint8_t aOut[4] = {ucFree, ucFree, ucFree, ucFree};
        uint32_t nLen = 0;
        ASSERT_EQ(Str_IntTo4Bcd(n, aOut, &nLen), 0);
        ASSERT_EQ(Str_BcdtoUint64(aOut, 4), uint64_t(n));
    }
}

TEST(IntTo4Bcd, RefusesWhatIsOutsideEightDigits)
{
    for (int32_t n : {-1, INT_MIN, 100000000, INT_MAX}) {
        Out out(4);
        uint32_t nLen = 77;
        EXPECT_EQ(Str_IntTo4Bcd(n, out.bytes(), &nLen), -1) << n;
        EXPECT_TRUE(out.untouched()) << n;
        EXPECT_EQ(nLen, 77U) << n;
    }
    Out out(4);
    uint32_t nLen = 77;
    EXPECT_EQ(Str_IntTo4Bcd(1, nullptr, &nLen), -1);
    EXPECT_EQ(Str_IntTo4Bcd(1, out.bytes(), nullptr), -1);
}

TEST(BcdToUint64, IsTheDecimalValueWithoutADigitCheck)
{
    struct {
        const char *pszBcd;
        uint64_t nValue;
    } const aRows[] = {
        {"00", 0},
        {"99", 99},
        {"12 34", 1234},
        {"00 00 00 01", 1},
        {"12 34 56 78 90", 1234567890},
        {"99 99 99 99 99 99 99 99 99", 999999999999999999U},
        {"18 44 67 44 07 37 09 55 16 15", 18446744073709551615U},
        {"0A", 10},
        {"A0", 100},
        {"AB", 111},
        {"FF", 165},
        {"FF 01", 16501},
        {"01 FF", 265},
    };
    for (const auto &row : aRows) {
        const Bytes bcd = bytes(row.pszBcd);
        EXPECT_EQ(Str_BcdtoUint64(bcd.data(), static_cast<int32_t>(bcd.size())), row.nValue) << row.pszBcd;
    }
    for (unsigned n = 0; n < 256; ++n) {
        const uint8_t uc = static_cast<uint8_t>(n);
        EXPECT_EQ(Str_BcdtoUint64(&uc, 1), n / 16 * 10 + n % 16);
    }
}

TEST(BcdToUint64, NothingOrNullIs0)
{
    const uint8_t data[] = {0x12};
    for (int32_t nLen : {0, -1, INT_MIN})
        EXPECT_EQ(Str_BcdtoUint64(data, nLen), 0U) << nLen;
    EXPECT_EQ(Str_BcdtoUint64(nullptr, 1), 0U);
}

TEST(Char4ToInt, IsBigEndianAndReturnsItsOutput)
{
    struct {
        const char *pszBytes;
        uint32_t nValue;
    } const aRows[] = {{"00 00 00 00", 0},
                       {"00 00 00 01", 1},
                       {"12 34 56 78", 0x12345678},
                       {"80 00 00 00", 0x80000000},
                       {"FF FE FD FC", 0xFFFEFDFC}};
    for (const auto &row : aRows) {
        uint32_t nOut = 0x55555555;
        EXPECT_EQ(Str_Char4ToInt(&nOut, bytes(row.pszBytes).data()), &nOut);
        EXPECT_EQ(nOut, row.nValue) << row.pszBytes;
    }
    uint32_t nOut = 7;
    EXPECT_EQ(Str_Char4ToInt(&nOut, nullptr), nullptr);
    EXPECT_EQ(Str_Char4ToInt(nullptr, bytes("01020304").data()), nullptr);
    EXPECT_EQ(nOut, 7U);
}

TEST(DesNumToHex, WritesTheLowBytesMostSignificantFirst)
{
    struct {
        int32_t nValue;
        uint32_t nBytes;
        const char *pszOut;
    } const aRows[] = {
        {0x12345678, 4, "12 34 56 78"},
        {0x12345678, 3, "34 56 78"},
        {0x12345678, 2, "56 78"},
        {0x12345678, 1, "78"},
        {0x12345678, 0, ""},
        {-1, 4, "FF FF FF FF"},
        {-2, 2, "FF FE"},
        {INT_MIN, 4, "80 00 00 00"},
        {0, 4, "00 00 00 00"},
    };
    for (const auto &row : aRows) {
        Out out(8);
        EXPECT_EQ(Str_DesNumtoHex(row.nValue, out.bytes(), row.nBytes), 0);
        EXPECT_EQ(out.first(row.nBytes), row.pszOut);
    }
}

TEST(DesNumToHex, RefusesNullAndMoreThan4Bytes)
{
    Out out(8);
    for (uint32_t nBytes : {5U, 8U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(Str_DesNumtoHex(1, out.bytes(), nBytes), -1) << nBytes;
    EXPECT_EQ(Str_DesNumtoHex(1, nullptr, 4), -1);
    EXPECT_TRUE(out.untouched());
}

TEST(LocalXor, TakesExactly8BytesAlsoInPlace)
{
    const Bytes a = bytes("00 FF 0F F0 12 34 56 78 EE");
    const Bytes b = bytes("00 FF FF FF 21 43 65 87 EE");
    const std::string sExpected = "00 00 F0 0F 33 77 33 FF";
    Out out(16);
    EXPECT_EQ(Str_localXor(a.data(), b.data(), out.bytes()), 8);
    EXPECT_EQ(out.first(8), sExpected);

    Bytes first = a;
    EXPECT_EQ(Str_localXor(first.data(), b.data(), first.data()), 8);
    EXPECT_EQ(hex(first), sExpected + " EE");
    Bytes second = b;
    EXPECT_EQ(Str_localXor(a.data(), second.data(), second.data()), 8);
    EXPECT_EQ(hex(second), sExpected + " EE");
    EXPECT_EQ(Str_localXor(second.data(), second.data(), second.data()), 8);
    EXPECT_EQ(hex(second), "00 00 00 00 00 00 00 00 EE");
}

TEST(LocalXor, NullIsMinus1)
{
    const Bytes a(8);
    Out out(8);
    EXPECT_EQ(Str_localXor(nullptr, a.data(), out.bytes()), -1);
    EXPECT_EQ(Str_localXor(a.data(), nullptr, out.bytes()), -1);
    EXPECT_EQ(Str_localXor(a.data(), a.data(), nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

} // namespace
