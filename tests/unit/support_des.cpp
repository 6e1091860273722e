// DES and triple DES: the published known answers, the lengths of keys and buffers, the hexadecimal wrappers.

#include "codec_buffers.h"
#include "des_answers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <string>

using namespace qvtest;

namespace {

using Block = std::array<uint8_t, 8>;

const Bytes g_k1 = bytes("0123456789ABCDEF"), g_k1k2 = bytes("0123456789ABCDEF 23456789ABCDEF01"),
            g_k1k2k1 = bytes("0123456789ABCDEF 23456789ABCDEF01 0123456789ABCDEF"),
            g_k1k2k3 = bytes("0123456789ABCDEF 23456789ABCDEF01 456789ABCDEF0123");
const Bytes g_plain = bytes("5468652071756663");

std::string encrypted(const Bytes &key, const Bytes &plain)
{
    Bytes out(8);
    EncryptDES_BYTE(key.data(), static_cast<int32_t>(key.size()), plain.data(), out.data());
    return upperHex(out);
}

std::string decrypted(const Bytes &key, const Bytes &cipher)
{
    Bytes out(8);
    DecryptDES_BYTE(key.data(), static_cast<int32_t>(key.size()), cipher.data(), out.data());
    return upperHex(out);
}

// One answer, both ways, by the calls for 8-byte keys and by those for any.
void expectAnswer(const std::string &sKey, const std::string &sPlain, const std::string &sCipher)
{
    const Bytes key = bytes(sKey), plain = bytes(sPlain), cipher = bytes(sCipher);
    Bytes out(8);
    EnDES(key.data(), plain.data(), out.data());
    EXPECT_EQ(upperHex(out), sCipher) << sKey << " " << sPlain;
    DeDES(key.data(), cipher.data(), out.data());
    EXPECT_EQ(upperHex(out), sPlain) << sKey << " " << sCipher;
    EXPECT_EQ(encrypted(key, plain), sCipher);
    EXPECT_EQ(decrypted(key, cipher), sPlain);
}

// Bit i of 64, the leftmost first, in bytes that hold ucRest otherwise.
std::string withBit(size_t i, uint8_t ucRest)
{
    Bytes block(8, ucRest);
    block[i / 8] = static_cast<uint8_t>(block[i / 8] | 0x80U >> i % 8);
    return upperHex(block);
}

TEST(Des, GivesTheVariablePlaintextAnswers)
{
    ASSERT_EQ(std::size(aVariablePlaintext), 64U);
    for (size_t i = 0; i < 64; ++i)
        expectAnswer("0101010101010101", withBit(i, 0), aVariablePlaintext[i]);
}

TEST(Des, GivesTheVariableKeyAnswers)
{
    ASSERT_EQ(std::size(aVariableKey), 56U);
    for (size_t i = 0; i < 56; ++i)
        expectAnswer(withBit(i / 7 * 8 + i % 7, 1), "0000000000000000", aVariableKey[i]);
}

TEST(Des, GivesThePermutationAndSubstitutionAnswers)
{
    ASSERT_EQ(std::size(aPermutationOperation), 32U);
    for (const DesAnswer &answer : aPermutationOperation)
        expectAnswer(answer.pszKey, answer.pszPlain, answer.pszCipher);
    ASSERT_EQ(std::size(aSubstitutionTable), 19U);
    for (const DesAnswer &answer : aSubstitutionTable)
        expectAnswer(answer.pszKey, answer.pszPlain, answer.pszCipher);
}

// The example of SP 800-67, appendix B.
TEST(TripleDes, GivesThePublishedExampleBlockByBlock)
{
    const Bytes plain = textBytes("The qufck brown fox jump");
    const std::string sCipher = "A826FD8CE53B855FCCE21C8112256FE668D5C05DD9B6B900";
    Out out(24), back(24);
    EXPECT_EQ(QV_EncryptDES_BYTE(g_k1k2k3.data(), 24, plain.data(), 24, out.bytes()), 0);
    EXPECT_EQ(out.first(24), hex(bytes(sCipher)));
    EXPECT_EQ(QV_DecryptDES_BYTE(g_k1k2k3.data(), 24, out.bytes(), 24, back.bytes()), 24);
    EXPECT_EQ(back.firstText(24), "The qufck brown fox jump");
}

TEST(TripleDes, OfTwoKeysUsesTheFirstAgainAsTheThird)
{
    EXPECT_EQ(encrypted(g_k1k2, g_plain), "C44862F70CF2FBDC");
    EXPECT_EQ(encrypted(g_k1k2k1, g_plain), "C44862F70CF2FBDC");
    EXPECT_EQ(decrypted(g_k1k2, bytes("C44862F70CF2FBDC")), upperHex(g_plain));
    EXPECT_EQ(decrypted(g_k1k2k1, bytes("C44862F70CF2FBDC")), upperHex(g_plain));
}

TEST(TripleDes, OfEqualKeysIsSingleDes)
{
    Bytes twice = g_k1, thrice = g_k1;
    twice.insert(twice.end(), g_k1.begin(), g_k1.end());
    thrice.insert(thrice.end(), twice.begin(), twice.end());
    const std::string sSingle = encrypted(g_k1, g_plain);
    EXPECT_EQ(sSingle, "A28E91724C4BBA31") << "the known answer of this key and text";
    EXPECT_EQ(encrypted(twice, g_plain), sSingle);
    EXPECT_EQ(encrypted(thrice, g_plain), sSingle);
    EXPECT_EQ(decrypted(twice, bytes(sSingle)), upperHex(g_plain));
    EXPECT_EQ(decrypted(thrice, bytes(sSingle)), upperHex(g_plain));
}

TEST(TripleDes, IgnoresTheParityBitsOfEveryKeyByte)
{
    for (const Bytes &key : {g_k1, g_k1k2, g_k1k2k3})
        for (size_t i = 0; i < key.size(); ++i) {
            Bytes other = key;
            other[i] ^= 1;
            EXPECT_EQ(encrypted(other, g_plain), encrypted(key, g_plain)) << i;
            other[i] ^= 3; // a bit that counts
            EXPECT_NE(encrypted(other, g_plain), encrypted(key, g_plain)) << i;
        }
}

TEST(DesKeyLength, OtherThan8Or16Or24LeavesTheOutputAsItWas)
{
    const Bytes key(64, 0x23), in(16, 0x42);
    for (int32_t nKeyLen : {0, 1, 7, 9, 12, 15, 17, 23, 25, 32, 64, -8, -1, INT32_MIN, INT32_MAX}) {
        Out out(16);
        EncryptDES_BYTE(key.data(), nKeyLen, in.data(), out.bytes());
        DecryptDES_BYTE(key.data(), nKeyLen, in.data(), out.bytes());
        EXPECT_EQ(QV_EncryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.bytes()), 0);
        EXPECT_EQ(QV_DecryptDES_BYTE(key.data(), nKeyLen, in.data(), 12, out.bytes()), 16);
        QV_TY_EncryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.bytes());
        QV_TY_DecryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.bytes());
        EXPECT_EQ(EncryptDES_HEX(key.data(), nKeyLen, in.data(), out.text()), 0);
        EXPECT_EQ(DecryptDES_HEX(key.data(), nKeyLen, "42", out.bytes()), 0);
        EXPECT_TRUE(out.untouched()) << nKeyLen;
    }
}

TEST(DesBuffer, IsWorkedOnInWholeBlocks)
{
    const Bytes data = randomBytes(32, 7);
    for (int32_t nLen : {INT32_MIN, -8, -1, 0, 1, 7, 8, 9, 12, 15, 16, 17, 24, 25}) {
        const size_t nWhole = nLen <= 0 ? 0 : (static_cast<size_t>(nLen) + 7) / 8 * 8;
        Bytes expected;
        for (size_t i = 0; i < nWhole; i += 8) {
            Block block{};
            EncryptDES_BYTE(g_k1k2.data(), 16, data.data() + i, block.data());
            expected.insert(expected.end(), block.begin(), block.end());
        }
        Out out(32), same(32), back(32), sameBack(32);
        EXPECT_EQ(QV_EncryptDES_BYTE(g_k1k2.data(), 16, data.data(), nLen, out.bytes()), 0);
        EXPECT_EQ(out.first(nWhole), hex(expected)) << nLen;
        QV_TY_EncryptDES_BYTE(g_k1k2.data(), 16, data.data(), nLen, same.bytes());
        EXPECT_EQ(same.first(nWhole), hex(expected)) << nLen;
        EXPECT_EQ(QV_DecryptDES_BYTE(g_k1k2.data(), 16, out.bytes(), nLen, back.bytes()), static_cast<int32_t>(nWhole));
        EXPECT_EQ(back.first(nWhole), hex(data.data(), nWhole)) << nLen;
        QV_TY_DecryptDES_BYTE(g_k1k2.data(), 16, out.bytes(), nLen, sameBack.bytes());
        EXPECT_EQ(sameBack.first(nWhole), hex(data.data(), nWhole)) << nLen;
    }
}

TEST(DesBuffer, MayBeInputAndOutputAtOnce)
{
    const Bytes data = randomBytes(24, 8);
    for (const Bytes &key : {g_k1, g_k1k2, g_k1k2k3}) {
        const auto nKeyLen = static_cast<int32_t>(key.size());
        Bytes apart(24), inPlace = data;
        QV_EncryptDES_BYTE(key.data(), nKeyLen, data.data(), 24, apart.data());
        QV_EncryptDES_BYTE(key.data(), nKeyLen, inPlace.data(), 24, inPlace.data());
        EXPECT_EQ(inPlace, apart);
        QV_TY_DecryptDES_BYTE(key.data(), nKeyLen, inPlace.data(), 24, inPlace.data());
        EXPECT_EQ(inPlace, data);
    }
}

TEST(DesBuffer, ThatLiesOverTheKeyChangesItForTheBlocksBehind)
{
    for (const auto pfnBlock : {EncryptDES_BYTE, DecryptDES_BYTE}) {
        Bytes key = g_k1k2, same = g_k1k2, expected = g_k1k2;
        pfnBlock(expected.data(), 16, expected.data(), expected.data());
        pfnBlock(expected.data(), 16, expected.data() + 8, expected.data() + 8);
        const bool bEncrypt = pfnBlock == EncryptDES_BYTE;
        (bEncrypt ? QV_EncryptDES_BYTE : QV_DecryptDES_BYTE)(key.data(), 16, key.data(), 16, key.data());
        EXPECT_EQ(hex(key), hex(expected)) << bEncrypt;
        (bEncrypt ? QV_TY_EncryptDES_BYTE : QV_TY_DecryptDES_BYTE)(same.data(), 16, same.data(), 16, same.data());
        EXPECT_EQ(hex(same), hex(expected)) << bEncrypt;
    }
}

TEST(DesHex, IsTheBlockInUpperCaseWithoutNul)
{
    Out text(24);
    EXPECT_EQ(EncryptDES_HEX(g_k1.data(), 8, textBytes("Now is t").data(), text.text()), 0);
    EXPECT_EQ(text.firstText(16), "3FA40E8A984D4815");
    Out triple(24);
    EXPECT_EQ(EncryptDES_HEX(g_k1k2.data(), 16, g_plain.data(), triple.text()), 0);
    EXPECT_EQ(triple.firstText(16), "C44862F70CF2FBDC");
}

TEST(DesHex, StopsBeforeTheFirstZeroByte)
{
    const struct {
        const char *pszPlain, *pszCipher, *pszText;
    } aCases[] = {
        {"000000000000009E", "00680173B097CE66", ""},
        {"0000000000000052", "8E904C00C0F8F62E", "8E904C"},
        {"00000000000000D5", "C24419C30A406200", "C24419C30A4062"},
    };
    for (const auto &row : aCases) {
        ASSERT_EQ(encrypted(g_k1, bytes(row.pszPlain)), row.pszCipher);
        Out text(24);
        EXPECT_EQ(EncryptDES_HEX(g_k1.data(), 8, bytes(row.pszPlain).data(), text.text()), 0);
        EXPECT_EQ(text.firstText(std::strlen(row.pszText)), row.pszText);
    }
}

TEST(DesHex, DeciphersZerosWhateverTheText)
{
    for (const char *pszText : {"", "3FA40E8A984D4815", "zz"}) {
        Out out(8), triple(8);
        EXPECT_EQ(DecryptDES_HEX(g_k1.data(), 8, pszText, out.bytes()), 0);
        EXPECT_EQ(out.first(8), hex(bytes("14AAD7F4DBB4E094")));
        EXPECT_EQ(DecryptDES_HEX(g_k1k2.data(), 16, pszText, triple.bytes()), 0);
        EXPECT_EQ(triple.first(8), hex(bytes("B2AA07FA32EB0EBF")));
    }
}

TEST(HexText, OfBytesIsUpperCaseWithoutNul)
{
    const Bytes data = allBytes();
    Out text(512);
    EXPECT_EQ(ByteToHex(data.data(), 256, text.text()), 512);
    EXPECT_EQ(text.firstText(512), upperHex(data));
    for (int32_t nLen : {0, -1, INT32_MIN}) {
        Out none(4);
        EXPECT_EQ(ByteToHex(data.data(), nLen, none.text()), 0);
        EXPECT_TRUE(none.untouched());
    }
}

TEST(HexText, ToBytesWritesNothing)
{
    Out out(8);
    EXPECT_EQ(HexToByte("3FA40E8A984D4815", 16, out.bytes()), 0);
    EXPECT_EQ(HexToByte(nullptr, 16, nullptr), 0);
    EXPECT_TRUE(out.untouched());
}

TEST(DesNull, WritesNothingAndSaysSo)
{
    Out out(24);
    for (int nNull = 0; nNull < 3; ++nNull) { // the key, the input, the output
        const uint8_t *pKey = nNull == 0 ? nullptr : g_k1.data(), *pIn = nNull == 1 ? nullptr : g_plain.data();
        uint8_t *pOut = nNull == 2 ? nullptr : out.bytes();
        EnDES(pKey, pIn, pOut);
        DeDES(pKey, pIn, pOut);
        EncryptDES_BYTE(pKey, 8, pIn, pOut);
        DecryptDES_BYTE(pKey, 8, pIn, pOut);
        QV_TY_EncryptDES_BYTE(pKey, 8, pIn, 8, pOut);
        QV_TY_DecryptDES_BYTE(pKey, 8, pIn, 8, pOut);
        for (const int32_t nLen : {0, -1, 8}) {
            EXPECT_EQ(QV_EncryptDES_BYTE(pKey, 8, pIn, nLen, pOut), -2) << nNull;
            EXPECT_EQ(QV_DecryptDES_BYTE(pKey, 8, pIn, nLen, pOut), 0) << nNull;
        }
        EXPECT_EQ(EncryptDES_HEX(pKey, 8, pIn, reinterpret_cast<char *>(pOut)), -2) << nNull;
    }
    EXPECT_EQ(DecryptDES_HEX(nullptr, 8, "00", out.bytes()), -2);
    EXPECT_EQ(DecryptDES_HEX(g_k1.data(), 8, "00", nullptr), -2);
    EXPECT_EQ(ByteToHex(nullptr, 1, out.text()), 0);
    EXPECT_EQ(ByteToHex(g_plain.data(), 1, nullptr), 0);
    EXPECT_TRUE(out.untouched());
}

TEST(Des, TheHexWrapperNeedsNoText)
{
    Out out(8), zeros(8);
    EXPECT_EQ(DecryptDES_HEX(g_k1.data(), 8, nullptr, out.bytes()), 0);
    DeDES(g_k1.data(), std::array<uint8_t, 8>{}.data(), zeros.bytes());
    EXPECT_EQ(hex(out.bytes(), 8), hex(zeros.bytes(), 8));
}

TEST(Des, TheCountOfBytesIsNeverNegative)
{
    // With a key of no known length nothing is read or written.
    Out out(8);
    EXPECT_EQ(QV_DecryptDES_BYTE(g_k1k2.data(), 12, g_plain.data(), INT32_MAX, out.bytes()), 2147483640);
    EXPECT_EQ(QV_DecryptDES_BYTE(g_k1k2.data(), 12, g_plain.data(), 2147483640, out.bytes()), 2147483640);
    EXPECT_EQ(QV_DecryptDES_BYTE(g_k1k2.data(), 12, g_plain.data(), -1, out.bytes()), 0);
    EXPECT_TRUE(out.untouched());
}

} // namespace
