// The eight string hashes, beside the same formulas written down a second time.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace qvtest;

namespace {

// In 64 bits, cut after each step.
uint64_t cut(uint64_t n)
{
    return n & 0xFFFFFFFF;
}

uint64_t multiply(const Bytes &key, uint64_t h, uint64_t nFactor)
{
    for (const uint8_t c : key)
        h = cut(h * nFactor + c);
    return h;
}

uint64_t sdbm(const Bytes &key)
{
    uint64_t h = 0;
    for (const uint8_t c : key)
        h = cut(h * 65599 + c); // 2^6 + 2^16 - 1
    return h;
}

uint64_t rs(const Bytes &key)
{
    uint64_t h = 0, a = 63689;
    for (const uint8_t c : key) {
        h = cut(h * a + c);
        a = cut(a * 378551);
    }
    return h;
}

uint64_t js(const Bytes &key)
{
    uint64_t h = 1315423911;
    for (const uint8_t c : key)
        h ^= cut(cut(h * 32) + c + h / 4);
    return h;
}

uint64_t foldTopFour(const Bytes &key)
{
    uint64_t h = 0;
    for (const uint8_t c : key) {
        h = cut(h * 16 + c);
        const uint64_t nTop = h >> 28;
        h = (h ^ nTop << 4) & 0x0FFFFFFF;
    }
    return h;
}

uint64_t ap(const Bytes &key)
{
    uint64_t h = 0;
    for (size_t i = 0; i < key.size(); ++i) {
        if (i % 2 == 0)
            h ^= cut(h * 128) ^ key[i] ^ h / 8;
        else
            h ^= 0xFFFFFFFF ^ (cut(h * 2048) ^ key[i] ^ h / 32);
    }
    return h;
}

constexpr size_t nHashes = 8;
using Values = std::array<uint32_t, nHashes>;
constexpr std::array<HashFn, nHashes> aFunctions{BKDRHash, SDBMHash, RSHash, JSHash, PJWHash, ELFHash, DJBHash, APHash};

Values reference(const Bytes &key)
{
    const uint64_t aFull[] = {multiply(key, 0, 131),   sdbm(key), rs(key), js(key), foldTopFour(key), foldTopFour(key),
                              multiply(key, 5381, 33), ap(key)};
    Values values{};
    for (size_t i = 0; i < nHashes; ++i)
        values[i] = static_cast<uint32_t>(aFull[i] & 0x7FFFFFFF);
    return values;
}

Values ours(const Bytes &key)
{
    const std::string sKey(key.begin(), key.end());
    Values values{};
    for (size_t i = 0; i < nHashes; ++i)
        values[i] = aFunctions[i](sKey.c_str());
    return values;
}

TEST(Hashes, OfKnownTextsAreKnown)
{
    const struct {
        Bytes key;
        Values values;
    } aCases[] = {
        {{}, {0, 0, 0, 0x4E67C6A7, 0, 0, 5381, 0}},
        {textBytes("a"), {97, 97, 97, 0x2EF5004D, 97, 97, 0x0002B606, 97}},
        {textBytes("9F36"),
         {0x07B5B648, 0x7EAFC490, 0x7D739F0E, 0x40BFD115, 0x0003D966, 0x0003D966, 0x7C7D81AD, 0x31930F85}},
        {textBytes("Quick brown fox 12345"),
         {0x0A11C535, 0x0FE59CE5, 0x40876D17, 0x26D70D22, 0x03690855, 0x03690855, 0x726D8DF6, 0x7709B03B}},
        {bytes("80FFFE01C0EEF09988"),
         {0x06241253, 0x39A9146F, 0x6050EB67, 0x39F9202C, 0x0EDF4AF8, 0x0EDF4AF8, 0x769E7B82, 0x3685EA20}},
    };
    for (const auto &row : aCases) {
        EXPECT_EQ(ours(row.key), row.values) << hex(row.key);
        EXPECT_EQ(reference(row.key), row.values) << hex(row.key);
    }
}

TEST(Hashes, OfEverySingleByteFollowTheFormulas)
{
    for (unsigned n = 1; n < 256; ++n)
        EXPECT_EQ(ours({static_cast<uint8_t>(n)}), reference({static_cast<uint8_t>(n)})) << n;
}

TEST(Hashes, OfRandomTextsFollowTheFormulasWithoutTheTopBit)
{
    for (unsigned nSeed = 0; nSeed < 3000; ++nSeed) {
        Bytes key = randomBytes(1 + nSeed % 40, nSeed);
        for (uint8_t &uc : key)
            uc = uc == 0 ? 0xFF : uc;
        const Values values = ours(key);
        ASSERT_EQ(values, reference(key)) << hex(key);
        for (const uint32_t n : values)
            ASSERT_LE(n, 0x7FFFFFFFU);
    }
}

TEST(Hashes, EndAtTheFirstZeroByte)
{
    for (const HashFn pfn : aFunctions)
        EXPECT_EQ(pfn("9F\0"
                      "36"),
                  pfn("9F"));
}

TEST(Hashes, OfNullAreZero)
{
    for (const HashFn pfn : aFunctions)
        EXPECT_EQ(pfn(nullptr), 0U);
}

} // namespace
