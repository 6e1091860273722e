// Bytes as hexadecimal text and back; exhaustive where the input is one or two characters.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace qvtest;

namespace {

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

} // namespace
