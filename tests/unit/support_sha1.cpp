// SHA-1: the published examples, every length around a block, odd pieces, the count of the bytes, null pointers.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

using namespace qvtest;

namespace {

std::string digestOf(const Bytes &data)
{
    Bytes digest(20);
    const uint8_t *pData = data.empty() ? &ucFree : data.data(); // null is refused, also without bytes
    EXPECT_EQ(xn_sha1(pData, static_cast<uint32_t>(data.size()), digest.data()), 0);
    return lowerHex(digest);
}

std::string finished(Sha1Context &context)
{
    Out digest(20);
    sha1_finish(&context, digest.bytes());
    std::string s;
    for (const char c : digest.first(20))
        if (c != ' ')
            s += static_cast<char>(std::tolower(c));
    return s;
}

TEST(Sha1, GivesThePublishedDigests)
{
    EXPECT_EQ(digestOf(textBytes("abc")), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(digestOf(textBytes("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(digestOf({}), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(Sha1, OfAMillionLettersInOddPiecesIsThePublishedDigest)
{
    const Bytes letters(997, 'a');
    Sha1Context context;
    sha1_starts(&context);
    uint32_t nLeft = 1000000;
    for (uint32_t nPiece = 1; nLeft > 0; nPiece = nPiece * 7 % 997) {
        const uint32_t n = std::min(nPiece, nLeft);
        sha1_update(&context, letters.data(), n);
        nLeft -= n;
    }
    EXPECT_EQ(context.nTotal[0], 1000000U);
    EXPECT_EQ(finished(context), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Sha1, PadsIntoOneBlockUpTo55BytesAndIntoTwoFrom56)
{
    const struct {
        size_t nLen;
        const char *pszDigest;
    } aCases[] = {
        {55, "c1c8bbdc22796e28c0e15163d20899b65621d65a"}, {56, "c2db330f6083854c99d4b5bfb6e8f29f201be699"},
        {63, "03f09f5b158a7a8cdad920bddc29b81c18a551f5"}, {64, "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
        {65, "11655326c708d70319be2610e8a57d9a5b959d3b"},
    };
    for (const auto &row : aCases)
        EXPECT_EQ(digestOf(Bytes(row.nLen, 'a')), row.pszDigest) << row.nLen;
}

TEST(Sha1, InAnyTwoPiecesIsThatOfTheWhole)
{
    const Bytes data = randomBytes(200, 3);
    for (size_t nLen : {0U, 1U, 63U, 64U, 65U, 127U, 128U, 129U, 200U}) {
        const std::string sWhole = digestOf(Bytes(data.begin(), data.begin() + static_cast<long>(nLen)));
        for (size_t nFirst = 0; nFirst <= nLen; ++nFirst) {
            Sha1Context context;
            sha1_starts(&context);
            sha1_update(&context, data.data(), static_cast<uint32_t>(nFirst));
            sha1_update(&context, data.data() + nFirst, static_cast<uint32_t>(nLen - nFirst));
            EXPECT_EQ(context.nTotal[0], nLen);
            EXPECT_EQ(finished(context), sWhole) << nFirst << " of " << nLen;
        }
    }
}

TEST(Sha1, StartsWithTheStandardsWordsAndNothingCounted)
{
    Sha1Context context;
    std::memset(&context, 0xC5, sizeof context);
    sha1_starts(&context);
    EXPECT_EQ(context.nTotal[0], 0U);
    EXPECT_EQ(context.nTotal[1], 0U);
    const uint32_t aExpected[] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    EXPECT_TRUE(std::equal(std::begin(aExpected), std::end(aExpected), context.nState));
}

// ---- one compression, written down a second time as the standard has it ---------------------------------------------

struct Words {
    uint32_t n[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
};

void compressPlainly(Words &state, const uint8_t *pBlock)
{
    uint32_t w[80];
    for (size_t t = 0; t < 80; ++t)
        w[t] = t < 16 ? static_cast<uint32_t>(pBlock[4 * t] << 24 | pBlock[4 * t + 1] << 16 | pBlock[4 * t + 2] << 8 |
                                              pBlock[4 * t + 3])
                      : std::rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
    auto [a, b, c, d, e] = state.n;
    for (size_t t = 0; t < 80; ++t) {
        const uint32_t nMixed = t < 20              ? (b & c) | (~b & d)
                                : t >= 40 && t < 60 ? (b & c) | (b & d) | (c & d)
                                                    : b ^ c ^ d;
        const uint32_t nConstant = t < 20 ? 0x5A827999 : t < 40 ? 0x6ED9EBA1 : t < 60 ? 0x8F1BBCDC : 0xCA62C1D6;
        const uint32_t nNext = std::rotl(a, 5) + nMixed + e + w[t] + nConstant;
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = nNext;
    }
    const uint32_t aWorked[] = {a, b, c, d, e};
    for (size_t i = 0; i < 5; ++i)
        state.n[i] += aWorked[i];
}

std::string plainText(const Words &state)
{
    Bytes digest;
    for (const uint32_t n : state.n)
        for (unsigned nShift : {24U, 16U, 8U, 0U})
            digest.push_back(static_cast<uint8_t>(n >> nShift));
    return lowerHex(digest);
}

TEST(Sha1Step, CompressesOneBlockAndCountsNothing)
{
    for (unsigned nSeed = 0; nSeed < 200; ++nSeed) {
        const Bytes block = randomBytes(64, nSeed);
        Sha1Context context;
        std::memset(&context, 0xC5, sizeof context);
        sha1_starts(&context);
        sha1_process(&context, block.data());
        Words expected;
        compressPlainly(expected, block.data());
        EXPECT_TRUE(std::equal(std::begin(expected.n), std::end(expected.n), context.nState)) << nSeed;
        EXPECT_EQ(context.nTotal[0], 0U);
        EXPECT_EQ(context.nTotal[1], 0U);
        EXPECT_EQ(hex(context.ucBuffer, 64), hex(Bytes(64, 0xC5))) << "the incomplete block is another one";
    }
}

// After each of some pieces: the words after the whole blocks, and what is left over as it came.
TEST(Sha1, KeepsTheIncompleteBlockAsItIs)
{
    const Bytes data = randomBytes(400, 21);
    Sha1Context context;
    sha1_starts(&context);
    size_t nDone = 0;
    for (const size_t nPiece : {5U, 0U, 58U, 1U, 64U, 63U, 2U, 128U, 70U}) {
        sha1_update(&context, data.data() + nDone, static_cast<uint32_t>(nPiece));
        nDone += nPiece;
        Words expected;
        for (size_t i = 0; i < nDone / 64; ++i)
            compressPlainly(expected, data.data() + 64 * i);
        EXPECT_TRUE(std::equal(std::begin(expected.n), std::end(expected.n), context.nState)) << nDone;
        EXPECT_EQ(hex(context.ucBuffer, nDone % 64), hex(data.data() + nDone / 64 * 64, nDone % 64)) << nDone;
    }
}

// The last block of a message whose length is as the counter says, and the digest from it.
std::string digestOfTail(uint64_t nTotal, const Bytes &tail)
{
    Bytes padded = tail;
    padded.push_back(0x80);
    while (padded.size() % 64 != 56)
        padded.push_back(0);
    for (int nShift = 56; nShift >= 0; nShift -= 8)
        padded.push_back(static_cast<uint8_t>(nTotal * 8 >> nShift));
    Words state;
    for (size_t i = 0; i < padded.size(); i += 64)
        compressPlainly(state, padded.data() + i);
    return plainText(state);
}

// Starts from a counter as it stands after many blocks, adds nLen bytes, the first nFirst of them on their own, and
// finishes.
void expectCounted(uint32_t nHigh, uint32_t nLow, size_t nLen, size_t nFirst = 0)
{
    ASSERT_EQ(nLow % 64, 0U);
    const Bytes tail = randomBytes(nLen, 11);
    Sha1Context context;
    sha1_starts(&context);
    context.nTotal[0] = nLow;
    context.nTotal[1] = nHigh;
    sha1_update(&context, tail.data(), static_cast<uint32_t>(nFirst));
    sha1_update(&context, tail.data() + nFirst, static_cast<uint32_t>(nLen - nFirst));
    const uint64_t nTotal = (uint64_t{nHigh} << 32 | nLow) + nLen;
    EXPECT_EQ(context.nTotal[0], static_cast<uint32_t>(nTotal));
    EXPECT_EQ(context.nTotal[1], static_cast<uint32_t>(nTotal >> 32));
    EXPECT_EQ(finished(context), digestOfTail(nTotal, tail)) << nHigh << " " << nLow << " + " << nLen;
}

TEST(Sha1Count, CarriesIntoItsHighWord)
{
    expectCounted(0, 0xFFFFFFC0, 63);
    expectCounted(0, 0xFFFFFFC0, 64);
    expectCounted(0, 0xFFFFFFC0, 65);
    expectCounted(0, 0xFFFFFF80, 300);
    expectCounted(7, 0xFFFFFFC0, 100);
}

TEST(Sha1Count, CarriesIntoItsHighWordFromInsideABlock)
{
    for (const size_t nFirst : {1U, 10U, 63U})
        for (const size_t nLen : {64U, 65U, 100U, 127U, 128U, 200U}) {
            expectCounted(0, 0xFFFFFFC0, nLen, nFirst);
            expectCounted(7, 0xFFFFFFC0, nLen, nFirst);
        }
}

TEST(Sha1Count, GivesABitLengthAbove512MiB)
{
    expectCounted(0, 0x1FFFFFC0, 63);
    expectCounted(0, 0x1FFFFFC0, 64);
    expectCounted(0, 0x20000000, 55);
    expectCounted(0, 0x20000000, 56);
    expectCounted(0, 0xE0000000, 10);
    expectCounted(1, 0, 10);
    expectCounted(0x1FFFFFFF, 0x80000000, 3);
}

TEST(Sha1Null, WritesNothing)
{
    Out digest(20);
    EXPECT_EQ(xn_sha1(nullptr, 1, digest.bytes()), -1);
    EXPECT_EQ(xn_sha1(nullptr, 0, digest.bytes()), -1);
    EXPECT_EQ(xn_sha1(&ucFree, 1, nullptr), -1);
    EXPECT_TRUE(digest.untouched());

    sha1_starts(nullptr);
    sha1_update(nullptr, &ucFree, 1);
    sha1_process(nullptr, &ucFree);
    sha1_finish(nullptr, digest.bytes());
    Sha1Context context;
    std::memset(&context, 0xC5, sizeof context);
    const Sha1Context before = context;
    sha1_update(&context, nullptr, 5);
    sha1_update(&context, &ucFree, 0);
    sha1_process(&context, nullptr);
    sha1_finish(&context, nullptr);
    EXPECT_EQ(std::memcmp(&context, &before, sizeof context), 0);
    EXPECT_TRUE(digest.untouched());
}

} // namespace
