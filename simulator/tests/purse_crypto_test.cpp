// Keys and codes of purse cards against known answers: published ones, and ones made by another implementation of DES.
#include "model/purse_crypto.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace qvsim {
namespace {

template <std::size_t size> std::array<std::uint8_t, size> key(const char *hex)
{
    const Bytes bytes = fromHex(hex).value();
    EXPECT_EQ(bytes.size(), size);
    std::array<std::uint8_t, size> whole{};
    std::copy_n(bytes.begin(), std::min(size, bytes.size()), whole.begin());
    return whole;
}

TEST(PurseCrypto, TripleDesEnciphersWithLeftRightLeft)
{
    const CipherBlock block = key<8>("4E 6F 77 20 69 73 20 74");
    EXPECT_EQ(toHex(encipher(key<16>("0123456789ABCDEF FEDCBA9876543210"), block)), "D8 0A 0D 8B 2B AE 5E 4E");
}

TEST(PurseCrypto, WithEqualHalvesItIsSingleDes)
{
    EXPECT_EQ(toHex(encipher(key<16>("133457799BBCDFF1 133457799BBCDFF1"), key<8>("0123456789ABCDEF"))),
              "85 E8 13 54 0F 0A B4 05");
}

TEST(PurseCrypto, ACardsKeyComesFromItsSerialNumberAndItsComplement)
{
    EXPECT_EQ(toHex(diversify(key<16>("50555243484153453A64656D6F2D3033"), key<8>("62 00 00 00 10 00 00 03"))),
              "36 18 58 1A 1E 5A 7F C3 32 AB 78 B4 22 B6 32 9E");
}

TEST(PurseCrypto, TheKeyOfATacIsTheHalvesExclusiveOr)
{
    EXPECT_EQ(toHex(tacKey(key<16>("5441432D4B45592E3A64656D6F2D3034"))), "6E 25 26 40 24 68 69 1A");
}

TEST(PurseCrypto, AMacIsTheLeftHalfOfTheLastBlock)
{
    const CipherBlock published = key<8>("0123456789ABCDEF");
    const std::string_view text = "Now is the time for all ";
    EXPECT_EQ(toHex(mac(published, Bytes(text.begin(), text.end()))), "10 E1 F0 F1"); // ISO 9797-1's own example
    const struct {
        const char *data;
        const char *code;
    } rows[] = {
        {"", "CA EE 53 4C"},
        {"01 02 03 04 05 06 07", "D0 6A 45 95"},    // one byte of padding
        {"01 02 03 04 05 06 07 08", "F0 A1 1D AF"}, // a whole block of padding
        {"00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13", "D7 80 13 B2"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(toHex(mac(published, fromHex(row.data).value())), row.code) << row.data;
}

} // namespace
} // namespace qvsim
