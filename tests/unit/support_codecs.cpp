// Hexadecimal text, half-byte characters, BCD, numbers and checks; exhaustive where the input is one or two bytes.

#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

constexpr uint8_t ucFree = 0xC5; // what an output byte holds that was not written

// An output buffer between two margins.
class Out {
  public:
    explicit Out(size_t nSize) : m_data(nSize + 2 * nMargin, ucFree) {}
    uint8_t *bytes() { return m_data.data() + nMargin; }
    char *text() { return reinterpret_cast<char *>(bytes()); }
    // The first n bytes; "overrun" when anything beyond them or before the buffer was written.
    std::string first(size_t n) const
    {
        for (size_t nAt = 0; nAt < m_data.size(); ++nAt)
            if ((nAt < nMargin || nAt >= nMargin + n) && m_data[nAt] != ucFree)
                return "overrun at " + std::to_string(static_cast<long>(nAt) - static_cast<long>(nMargin));
        return hex(m_data.data() + nMargin, n);
    }
    std::string firstText(size_t n) const
    {
        const std::string s = first(n);
        return s.starts_with("overrun") ? s : std::string(m_data.begin() + nMargin, m_data.begin() + nMargin + long(n));
    }
    bool untouched() const { return first(0).empty(); }

  private:
    static constexpr long nMargin = 32;
    Bytes m_data;
};

const char *asText(const uint8_t *p)
{
    return reinterpret_cast<const char *>(p);
}

Bytes randomBytes(size_t nLen, unsigned nSeed)
{
    std::mt19937 random(nSeed);
    Bytes data(nLen);
    for (uint8_t &uc : data)
        uc = static_cast<uint8_t>(random());
    return data;
}

std::string plainHex(const Bytes &data, const char *pszDigits)
{
    std::string s;
    for (uint8_t uc : data) {
        s += pszDigits[uc / 16];
        s += pszDigits[uc % 16];
    }
    return s;
}

std::string upperHex(const Bytes &data)
{
    return plainHex(data, "0123456789ABCDEF");
}

std::string lowerHex(const Bytes &data)
{
    return plainHex(data, "0123456789abcdef");
}

Bytes allBytes()
{
    Bytes data(256);
    for (size_t n = 0; n < 256; ++n)
        data[n] = static_cast<uint8_t>(n);
    return data;
}

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

// ---- bytes to hexadecimal text -------------------------------------------------------------------------------------------

TEST(HexToAsc, WritesEveryByteInUpperCaseAndANul)
{
    const Bytes data = allBytes();
    Out out(513);
    EXPECT_EQ(Str_HexToAsc(data.data(), 512, out.text()), 0);
    EXPECT_EQ(out.firstText(513), upperHex(data) + '\0');
}

TEST(HexToAsc, CountsCharactersNotBytes)
{
    const uint8_t data[] = {0x12, 0xAB, 0xCD};
    const char *const aExpected[] = {"", "1", "12", "12A", "12AB", "12ABC", "12ABCD"};
    for (int32_t n = 0; n <= 6; ++n) {
        Out out(8);
        EXPECT_EQ(Str_HexToAsc(data, n, out.text()), 0);
        EXPECT_EQ(out.firstText(size_t(n) + 1), std::string(aExpected[n]) + '\0');
    }
}

TEST(HexToAsc, OddCountReadsNoByteBehindTheLast)
{
    const Bytes data = {0x12, 0xAB}; // exactly two bytes on the heap
    Out out(8);
    EXPECT_EQ(Str_HexToAsc(data.data(), 3, out.text()), 0);
    EXPECT_EQ(out.firstText(4), std::string("12A") + '\0');
}

TEST(HexToAsc, NegativeCountWritesNoCharacter)
{
    const uint8_t data[] = {0x12};
    for (int32_t n : {-1, -2, INT_MIN}) {
        Out out(8);
        Str_HexToAsc(data, n, out.text());
        EXPECT_TRUE(out.untouched() || out.first(1) == "00") << out.first(1);
    }
}

TEST(HexToAsc, NullIsMinus1)
{
    const uint8_t data[] = {0x12};
    Out out(8);
    EXPECT_EQ(Str_HexToAsc(nullptr, 2, out.text()), -1);
    EXPECT_EQ(Str_HexToAsc(data, 2, nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

TEST(SplitHexToBcd, WritesUpperCaseWithoutNulAndReturnsTheLength)
{
    const Bytes data = allBytes();
    Out out(512);
    EXPECT_EQ(Str_SplitHexToBCD(data.data(), 256, out.text()), 256);
    EXPECT_EQ(out.firstText(512), upperHex(data));
}

TEST(SplitHexToBcd, LengthBelow1ComesBackUnchanged)
{
    const uint8_t data[] = {0x12};
    Out out(8);
    for (int32_t nLen : {0, -1, -77, INT_MIN})
        EXPECT_EQ(Str_SplitHexToBCD(data, nLen, out.text()), nLen);
    EXPECT_TRUE(out.untouched());
}

TEST(SplitHexToBcd, NullIs0)
{
    const uint8_t data[] = {0x12};
    Out out(8);
    EXPECT_EQ(Str_SplitHexToBCD(nullptr, 1, out.text()), 0);
    EXPECT_EQ(Str_SplitHexToBCD(data, 1, nullptr), 0);
    EXPECT_TRUE(out.untouched());
}

TEST(LocalSplitHexToBcd, WritesLowerCaseWithNul)
{
    const Bytes data = allBytes();
    Out out(513);
    EXPECT_EQ(Str_localSplitHexToBCD(data.data(), 256, out.text()), 0);
    EXPECT_EQ(out.firstText(513), lowerHex(data) + '\0');
}

TEST(LocalSplitHexToBcd, NothingOrNullWritesNoCharacter)
{
    const uint8_t data[] = {0x12};
    for (int32_t nLen : {0, -1, INT_MIN}) {
        Out out(8);
        EXPECT_EQ(Str_localSplitHexToBCD(data, nLen, out.text()), 0) << nLen;
        EXPECT_TRUE(out.untouched() || out.first(1) == "00") << nLen;
    }
    Out out(8);
    EXPECT_EQ(Str_localSplitHexToBCD(nullptr, 1, out.text()), -1);
    EXPECT_EQ(Str_localSplitHexToBCD(data, 1, nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

// ---- hexadecimal text to bytes -------------------------------------------------------------------------------------------

TEST(HexCharToNum, KnowsBothCasesAndNothingElse)
{
    for (int n = 0; n < 256; ++n) {
        int32_t nExpected = -1;
        if (n >= '0' && n <= '9')
            nExpected = n - '0';
        else if (n >= 'A' && n <= 'F')
            nExpected = n - 'A' + 10;
        else if (n >= 'a' && n <= 'f')
            nExpected = n - 'a' + 10;
        EXPECT_EQ(Str_localHexCharToNum(static_cast<char>(n)), nExpected) << n;
    }
}

unsigned mergeBcdHalf(unsigned c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return c - 0x57U;
}

TEST(MergeBcdToHex, EveryPairIsDecodedWithoutACheck)
{
    for (unsigned nHi = 0; nHi < 256; ++nHi)
        for (unsigned nLo = 0; nLo < 256; ++nLo) {
            const uint8_t text[] = {static_cast<uint8_t>(nHi), static_cast<uint8_t>(nLo)};
            uint8_t aOut[2] = {ucFree, ucFree};
            ASSERT_EQ(Str_MergeBcdToHex(asText(text), 2, aOut), 1);
            ASSERT_EQ(aOut[0], ((mergeBcdHalf(nHi) << 4) | mergeBcdHalf(nLo)) & 0xFFU) << nHi << " " << nLo;
            ASSERT_EQ(aOut[1], ucFree);
        }
}

TEST(MergeBcdToHex, OddLengthIs0AndWritesNothing)
{
    Out out(8);
    for (int32_t nLen : {1, 3, 5, 0, -1, -2, INT_MIN, INT_MIN + 1})
        EXPECT_EQ(Str_MergeBcdToHex("123456", nLen, out.bytes()), 0) << nLen;
    EXPECT_TRUE(out.untouched());
}

TEST(MergeBcdToHex, NullIsMinus1)
{
    Out out(8);
    EXPECT_EQ(Str_MergeBcdToHex(nullptr, 2, out.bytes()), -1);
    EXPECT_EQ(Str_MergeBcdToHex("12", 2, nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

TEST(LocalMergeBcdToHex, BadCharacterCountsAsAllOnes)
{
    for (int nHi = 0; nHi < 256; ++nHi)
        for (int nLo = 0; nLo < 256; ++nLo) {
            const uint8_t text[] = {static_cast<uint8_t>(nHi), static_cast<uint8_t>(nLo)};
            const int nHigh = Str_localHexCharToNum(static_cast<char>(nHi)); // has its own test
            const int nLow = Str_localHexCharToNum(static_cast<char>(nLo));
            const int nExpected = (nHigh < 0 ? 0xF0 : nHigh * 16) | (nLow < 0 ? 0xFF : nLow);
            uint8_t aOut[2] = {ucFree, ucFree};
            ASSERT_EQ(Str_localMergeBcdToHex(asText(text), 2, aOut), 1);
            ASSERT_EQ(aOut[0], nExpected) << nHi << " " << nLo;
            ASSERT_EQ(aOut[1], ucFree);
        }
}

TEST(LocalMergeBcdToHex, LeftOverCharacterIsMinus1BehindThePairsBeforeIt)
{
    Out out(8);
    EXPECT_EQ(Str_localMergeBcdToHex("12aBc", 5, out.bytes()), -1);
    EXPECT_EQ(out.first(2), "12 AB");
    Out single(8);
    EXPECT_EQ(Str_localMergeBcdToHex("1", 1, single.bytes()), -1);
    EXPECT_TRUE(single.untouched());
}

TEST(LocalMergeBcdToHex, NothingIs0AndNullIsMinus1)
{
    Out out(8);
    EXPECT_EQ(Str_localMergeBcdToHex("12", 0, out.bytes()), 0);
    for (int32_t nLen : {-1, -2, INT_MIN})
        EXPECT_LE(Str_localMergeBcdToHex("12", nLen, out.bytes()), 0) << nLen;
    EXPECT_EQ(Str_localMergeBcdToHex(nullptr, 2, out.bytes()), -1);
    EXPECT_EQ(Str_localMergeBcdToHex("12", 2, nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

unsigned ascHalf(unsigned c)
{
    if (c >= 0x61)
        return c - 0x57;
    if (c < 0x41)
        return c >= 0x30 ? c - 0x30 : c & 0x0F;
    return c - 0x37;
}

TEST(AscToHex, EveryPairIsDecodedWithoutACheck)
{
    for (unsigned nHi = 0; nHi < 256; ++nHi) {
        if (nHi == 0xAC) // has its own tests
            continue;
        for (unsigned nLo = 0; nLo < 256; ++nLo) {
            const uint8_t text[] = {static_cast<uint8_t>(nHi), static_cast<uint8_t>(nLo)};
            uint8_t aOut[2] = {ucFree, ucFree};
            ASSERT_EQ(Str_AscToHex(asText(text), 2, aOut), 0);
            ASSERT_EQ(aOut[0], ((ascHalf(nHi) << 4) | ascHalf(nLo)) & 0xFFU) << nHi << " " << nLo;
            ASSERT_EQ(aOut[1], ucFree);
        }
    }
}

TEST(AscToHex, OddCountPadsAZeroHalfOnTheRight)
{
    Out out(8);
    EXPECT_EQ(Str_AscToHex("ABC", 3, out.bytes()), 0);
    EXPECT_EQ(out.first(2), "AB C0");
    for (unsigned n = 0; n < 256; ++n) {
        if (n == 0xAC)
            continue;
        const uint8_t uc = static_cast<uint8_t>(n);
        Out single(4);
        EXPECT_EQ(Str_AscToHex(asText(&uc), 1, single.bytes()), 0);
        const uint8_t ucExpected = static_cast<uint8_t>((ascHalf(n) & 0x0F) << 4);
        EXPECT_EQ(single.first(1), hex(&ucExpected, 1)) << n;
    }
}

struct TextRow {
    const char *pszText; // bytes
    const char *pszOut;
};

TEST(AscToHex, CharacterAcInAFirstHalfIsSkipped)
{
    const TextRow aRows[] = {
        {"AC", ""},                  // alone: no half is pending
        {"AC 31", "10"},             // the next one becomes the first half
        {"AC 31 32", "12"},          //
        {"AC AC AC 31 32", "12"},    //
        {"31 AC", "55"},             // in a second half it is a value
        {"46 AC", "F5"},             // F0 | 55
        {"31 AC 32 33", "55 23"},    //
        {"31 32 AC", "12"},          //
        {"31 32 AC 33", "12 30"},    //
        {"31 32 AC 33 34", "12 34"}, //
        {"AC 31 AC", "55"},          //
    };
    for (const TextRow &row : aRows) {
        const Bytes text = bytes(row.pszText);
        const Bytes expected = bytes(row.pszOut);
        Out out(8);
        EXPECT_EQ(Str_AscToHex(asText(text.data()), static_cast<int32_t>(text.size()), out.bytes()), 0);
        EXPECT_EQ(out.first(expected.size()), hex(expected)) << row.pszText;
    }
}

TEST(AscToHex, ColonToQuestionMarkCountAsAToF)
{
    Out out(8);
    EXPECT_EQ(Str_AscToHex(":;<=>?", 6, out.bytes()), 0);
    EXPECT_EQ(out.first(3), "AB CD EF");
}

TEST(AscToHex, NothingOrNullWritesNothing)
{
    Out out(8);
    for (int32_t n : {0, -1, -2, INT_MIN})
        Str_AscToHex("12", n, out.bytes());
    EXPECT_EQ(Str_AscToHex("12", 0, out.bytes()), 0);
    EXPECT_EQ(Str_AscToHex(nullptr, 2, out.bytes()), -1);
    EXPECT_EQ(Str_AscToHex("12", 2, nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

TEST(HexText, EveryDecoderRevertsEveryEncoder)
{
    for (size_t nLen : {size_t{1}, size_t{2}, size_t{3}, size_t{16}, size_t{255}, size_t{4096}, size_t{10000}}) {
        SCOPED_TRACE(nLen);
        const Bytes data = randomBytes(nLen, static_cast<unsigned>(nLen));
        const int32_t nBytes = static_cast<int32_t>(nLen);
        Out upper(2 * nLen + 1);
        Out plain(2 * nLen);
        Out lower(2 * nLen + 1);
        EXPECT_EQ(Str_HexToAsc(data.data(), 2 * nBytes, upper.text()), 0);
        EXPECT_EQ(Str_SplitHexToBCD(data.data(), nBytes, plain.text()), nBytes);
        EXPECT_EQ(Str_localSplitHexToBCD(data.data(), nBytes, lower.text()), 0);
        EXPECT_EQ(upper.firstText(2 * nLen + 1), upperHex(data) + '\0');
        EXPECT_EQ(plain.firstText(2 * nLen), upperHex(data));
        EXPECT_EQ(lower.firstText(2 * nLen + 1), lowerHex(data) + '\0');
        for (Out *pText : {&upper, &plain, &lower}) {
            Out a(nLen);
            Out b(nLen);
            Out c(nLen);
            EXPECT_EQ(Str_AscToHex(pText->text(), 2 * nBytes, a.bytes()), 0);
            EXPECT_EQ(Str_MergeBcdToHex(pText->text(), 2 * nBytes, b.bytes()), nBytes);
            EXPECT_EQ(Str_localMergeBcdToHex(pText->text(), 2 * nBytes, c.bytes()), nBytes);
            EXPECT_EQ(a.first(nLen), hex(data));
            EXPECT_EQ(b.first(nLen), hex(data));
            EXPECT_EQ(c.first(nLen), hex(data));
        }
    }
}

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
