// Checks and the half-byte characters of the wire; exhaustive, for their input is one or two bytes.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace qvtest;

namespace {

// ---- LRC -------------------------------------------------------------------------------------------------------------

TEST(Lrc, IsTheExclusiveOrOfTheBytes)
{
    struct {
        const char *pszData;
        int32_t nLrc;
    } const aRows[] = {{"00", 0}, {"FF", 0xFF}, {"01 02", 3}, {"AB AB", 0}, {"12 34 56 78", 0x08}, {"80 7F", 0xFF}};
    for (const auto &row : aRows) {
        const Bytes data = bytes(row.pszData);
        EXPECT_EQ(Str_GetDataLRC(data.data(), static_cast<int32_t>(data.size())), row.nLrc) << row.pszData;
        EXPECT_EQ(Str_CalcLrc(data.data(), static_cast<int32_t>(data.size())), row.nLrc) << row.pszData;
    }
    for (unsigned n = 0; n < 256; ++n) {
        const uint8_t uc = static_cast<uint8_t>(n);
        EXPECT_EQ(Str_GetDataLRC(&uc, 1), int32_t(n));
        EXPECT_EQ(Str_CalcLrc(&uc, 1), uc);
    }
}

TEST(Lrc, OfNoBytesIs0)
{
    const uint8_t uc = 0x5A;
    for (int32_t nLen : {0, -1, INT_MIN}) {
        EXPECT_EQ(Str_GetDataLRC(&uc, nLen), 0) << nLen;
        EXPECT_EQ(Str_CalcLrc(&uc, nLen), 0) << nLen;
    }
}

TEST(Lrc, OfNullIsMinus1OrAsAByte0)
{
    EXPECT_EQ(Str_GetDataLRC(nullptr, 3), -1);
    EXPECT_EQ(Str_CalcLrc(nullptr, 3), 0);
}

// ---- half-byte characters ----------------------------------------------------------------------------------------------

TEST(HalfByte, EveryByteSplitsIntoTwoCharactersFrom0x30)
{
    for (unsigned n = 0; n < 256; ++n) {
        const uint8_t uc = static_cast<uint8_t>(n);
        const Bytes expected = {static_cast<uint8_t>(0x30 + n / 16), static_cast<uint8_t>(0x30 + n % 16)};
        Out out(2);
        Str_RdzModeSplitData(&uc, 1, out.bytes());
        EXPECT_EQ(out.first(2), hex(expected)) << n;

        uint8_t ucHi = ucFree;
        uint8_t ucLo = ucFree;
        EXPECT_EQ(Str_localSplitHex2Asc(uc, &ucHi, &ucLo), 0);
        EXPECT_EQ(ucHi, expected[0]) << n;
        EXPECT_EQ(ucLo, expected[1]) << n;
    }
}

TEST(HalfByte, AbSplitsIntoColonAndSemicolon)
{
    const uint8_t data[] = {0xAB, 0x00, 0xF9};
    Out out(8);
    Str_RdzModeSplitData(data, 3, out.bytes());
    EXPECT_EQ(out.firstText(6), ":;00?9");
}

TEST(HalfByte, SplitOfNothingOrNullWritesNothing)
{
    const uint8_t data[] = {0x12};
    Out out(8);
    for (int32_t nLen : {0, -1, INT_MIN})
        Str_RdzModeSplitData(data, nLen, out.bytes());
    Str_RdzModeSplitData(nullptr, 1, out.bytes());
    Str_RdzModeSplitData(data, 1, nullptr);
    EXPECT_TRUE(out.untouched());
}

TEST(HalfByte, MergeTakesTheLowHalfOfEveryCharacter)
{
    for (unsigned nHi = 0; nHi < 256; ++nHi)
        for (unsigned nLo = 0; nLo < 256; ++nLo) {
            const uint8_t data[] = {static_cast<uint8_t>(nHi), static_cast<uint8_t>(nLo)};
            uint8_t aOut[2] = {ucFree, ucFree};
            Str_RdzModeMergeData(data, 2, aOut);
            ASSERT_EQ(aOut[0], (nHi % 16) * 16 + nLo % 16) << nHi << " " << nLo;
            ASSERT_EQ(aOut[1], ucFree);
        }
}

TEST(HalfByte, MergeOfAnOddCountOrNullWritesNothing)
{
    const uint8_t data[] = {'1', '2', '3', '4', '5'};
    Out out(8);
    for (int32_t nLen : {1, 3, 5, 0, -1, -2, INT_MIN, INT_MIN + 1})
        Str_RdzModeMergeData(data, nLen, out.bytes());
    Str_RdzModeMergeData(nullptr, 2, out.bytes());
    Str_RdzModeMergeData(data, 2, nullptr);
    EXPECT_TRUE(out.untouched());
}

TEST(HalfByte, MergeRevertsSplit)
{
    for (size_t nLen : {size_t{1}, size_t{2}, size_t{255}, size_t{508}, size_t{4096}}) {
        const Bytes data = randomBytes(nLen, 1);
        Out text(2 * nLen);
        Str_RdzModeSplitData(data.data(), static_cast<int32_t>(nLen), text.bytes());
        Out back(nLen);
        Str_RdzModeMergeData(text.bytes(), static_cast<int32_t>(2 * nLen), back.bytes());
        EXPECT_EQ(back.first(nLen), hex(data)) << nLen;
    }
}

TEST(HalfByte, MergeOfTwoCharactersMasksTheHighOneOnly)
{
    for (unsigned nHi = 0; nHi < 256; ++nHi)
        for (unsigned nLo = 0; nLo < 256; ++nLo) {
            uint8_t uc = ucFree;
            ASSERT_EQ(Str_localMergeAsc2Hex(&uc, static_cast<char>(nHi), static_cast<char>(nLo)), 0);
            ASSERT_EQ(uc, (nHi % 16 * 16 + nLo + 256 - 0x30) % 256) << nHi << " " << nLo;
        }
}

TEST(HalfByte, SingleByteCallsRefuseNull)
{
    uint8_t uc = ucFree;
    EXPECT_EQ(Str_localSplitHex2Asc(0x12, nullptr, &uc), -1);
    EXPECT_EQ(Str_localSplitHex2Asc(0x12, &uc, nullptr), -1);
    EXPECT_EQ(Str_localMergeAsc2Hex(nullptr, '1', '2'), -1);
}

// ---- check digit 7-3-1 -----------------------------------------------------------------------------------------------------

TEST(Math731, KnownDigits)
{
    struct {
        const char *pszText;
        int32_t nDigit;
    } const aRows[] = {
        {"", 0},     {"A1", 3},   {"0", 0},     {"1", 7},         {"01", 3},     {"001", 1},
        {"0001", 7}, {"A", 0},    {"Z", 5},     {"740812", 2},    {"120415", 9}, {"L898902C3", 6},
        {"a", -1},   {"A1a", -1}, {"<", -1},    {"12<", -1},      {" 1", -1},    {"1 ", -1},
        {"-1", -1},  {"1\n", -1}, {"\xC1", -1}, {"000000000", 0},
    };
    for (const auto &row : aRows)
        EXPECT_EQ(Str_Math731(row.pszText), row.nDigit) << row.pszText;
    EXPECT_EQ(Str_Math731(nullptr), -1);
}

TEST(Math731, EveryCharacterHasItsValueAtEveryWeight)
{
    constexpr int aWeights[] = {7, 3, 1};
    for (int c = 1; c < 256; ++c) {
        int nValue = -1;
        if (c >= '0' && c <= '9')
            nValue = c - '0';
        else if (c >= 'A' && c <= 'Z')
            nValue = c - 'A' + 10;
        for (size_t nAt = 0; nAt < 7; ++nAt) {
            const std::string sText = std::string(nAt, '0') + static_cast<char>(c);
            EXPECT_EQ(Str_Math731(sText.c_str()), nValue < 0 ? -1 : nValue * aWeights[nAt % 3] % 10) << c;
        }
    }
}

TEST(Math731, LongTextIsSummedWhole)
{
    // 10,000 times Z: 3334 x 35 x 7 + 3333 x 35 x 3 + 3333 x 35
    const std::string sText(10000, 'Z');
    EXPECT_EQ(Str_Math731(sText.c_str()), (3334 * 35 * 7 + 3333 * 35 * 3 + 3333 * 35) % 10);
}

} // namespace
