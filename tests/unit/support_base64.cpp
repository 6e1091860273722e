// Base64: both codecs against a plain reference, with their own rules of capacity, padding and foreign characters.

#include "codec_buffers.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

using namespace qvtest;

namespace {

constexpr std::string_view sAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
struct Codec {
    const char *pszName;
    int32_t (*pfnEncode)(const uint8_t *, uint32_t, char *, int32_t);
    int32_t (*pfnDecode)(const char *, uint32_t, uint8_t *, uint32_t);
    int32_t (*pfnIndex)(char);
};

constexpr Codec aCodecs[] = {
    {"Data", Base64_EncData, Base64_DecData, GetIndexFromTable},
    {"Base64", EncryptBase64, DecryptBase64, GetIndexFromBase64Table},
};

std::string encodeReference(const Bytes &data)
{
    std::string s;
    for (size_t n = 0; n < data.size(); n += 3) {
        const size_t nLeft = data.size() - n;
        unsigned nGroup = data[n] * 65536U;
        if (nLeft > 1)
            nGroup += data[n + 1] * 256U;
        if (nLeft > 2)
            nGroup += data[n + 2];
        s += sAlphabet[nGroup >> 18];
        s += sAlphabet[nGroup >> 12 & 63];
        s += nLeft > 1 ? sAlphabet[nGroup >> 6 & 63] : '=';
        s += nLeft > 2 ? sAlphabet[nGroup & 63] : '=';
    }
    return s;
}

int indexReference(char c)
{
    if (c == '=')
        return 0;
    const size_t nAt = sAlphabet.find(c);
    return nAt == std::string_view::npos ? -1 : static_cast<int>(nAt);
}

struct Decoded {
    int32_t nResult;
    Bytes written;
};

Decoded decodeReference(std::string_view sText, uint64_t nCap)
{
    Decoded decoded{0, {}};
    for (; sText.size() >= 4; sText.remove_prefix(4))
        for (size_t nPair = 0; nPair < 3; ++nPair) {
            const char a = sText[nPair];
            const char b = sText[nPair + 1];
            if (a == '=' || b == '=') {
                decoded.nResult = static_cast<int32_t>(decoded.written.size());
                return decoded;
            }
            if (decoded.written.size() > nCap) {
                decoded.nResult = -1;
                return decoded;
            }
            const int nHigh = indexReference(a);
            const int nLow = indexReference(b);
            const int nByte = nPair == 0   ? nHigh * 4 | nLow >> 4
                              : nPair == 1 ? nHigh * 16 | nLow >> 2
                                           : nHigh * 64 | nLow;
            decoded.written.push_back(static_cast<uint8_t>(nByte & 0xFF));
        }
    decoded.nResult = static_cast<int32_t>(decoded.written.size());
    return decoded;
}

std::string asString(const Bytes &data)
{
    return std::string(data.begin(), data.end());
}

class Base64 : public testing::TestWithParam<Codec> {
  protected:
    int32_t encode(const Bytes &data, char *pOut, int32_t nCap)
    {
        const uint8_t *pData = data.empty() ? &ucFree : data.data(); // null is refused, also without bytes
        return GetParam().pfnEncode(pData, static_cast<uint32_t>(data.size()), pOut, nCap);
    }
    int32_t decode(std::string_view sText, uint8_t *pOut, uint32_t nCap)
    {
        return GetParam().pfnDecode(sText.data(), static_cast<uint32_t>(sText.size()), pOut, nCap);
    }
    void expectDecode(std::string_view sText, uint32_t nCap)
    {
        const Decoded expected = decodeReference(sText, nCap);
        Out out(sText.size() + 8);
        EXPECT_EQ(decode(sText, out.bytes(), nCap), expected.nResult) << sText << " cap " << nCap;
        EXPECT_EQ(out.firstText(expected.written.size()), asString(expected.written)) << sText << " cap " << nCap;
    }
};

INSTANTIATE_TEST_SUITE_P(BothCodecs, Base64, testing::ValuesIn(aCodecs),
                         [](const auto &codec) { return codec.param.pszName; });

// First in this program: nothing has prepared the older codec's alphabet yet.
TEST(OlderCodec, WorksBeforeItsTableIsPreparedAndUnchangedAfter)
{
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(GetIndexFromBase64Table('/'), 63);
        Out text(4);
        EXPECT_EQ(EncryptBase64(bytes("FB FF FE").data(), 3, text.text(), 4), 4);
        EXPECT_EQ(text.firstText(4), "+//+");
        Out data(3);
        EXPECT_EQ(DecryptBase64("+//+", 4, data.bytes(), 3), 3);
        EXPECT_EQ(data.firstText(3), "\xFB\xFF\xFE");
        IniBase64Table();
    }
}

TEST_P(Base64, IndexIsThePlaceInTheAlphabet)
{
    for (int n = 0; n < 256; ++n) {
        const char c = static_cast<char>(n);
        EXPECT_EQ(GetParam().pfnIndex(c), indexReference(c)) << n;
    }
}

struct Vector {
    const char *pszData;
    const char *pszText;
};

TEST_P(Base64, KnownVectorsGoBothWays)
{
    const Vector aRows[] = {{"", ""},
                            {"f", "Zg=="},
                            {"fo", "Zm8="},
                            {"foo", "Zm9v"},
                            {"foob", "Zm9vYg=="},
                            {"fooba", "Zm9vYmE="},
                            {"foobar", "Zm9vYmFy"}};
    for (const Vector &row : aRows) {
        const std::string sText = row.pszText;
        const std::string sData = row.pszData;
        Out text(16);
        EXPECT_EQ(encode(textBytes(sData), text.text(), 16), int32_t(sText.size())) << sData;
        EXPECT_EQ(text.firstText(sText.size()), sText);
        Out data(16);
        EXPECT_EQ(decode(sText, data.bytes(), 16), int32_t(sData.size())) << sText;
        EXPECT_EQ(data.firstText(sData.size()), sData);
    }
}

TEST_P(Base64, EveryInputOfOneOrTwoBytesIsEncoded)
{
    for (unsigned nFirst = 0; nFirst < 256; ++nFirst) {
        Bytes data = {static_cast<uint8_t>(nFirst)};
        char szOut[5] = "....";
        ASSERT_EQ(encode(data, szOut, 4), 4);
        ASSERT_EQ(szOut, encodeReference(data));
        data.push_back(0);
        for (unsigned nSecond = 0; nSecond < 256; ++nSecond) {
            data[1] = static_cast<uint8_t>(nSecond);
            ASSERT_EQ(encode(data, szOut, 4), 4);
            ASSERT_EQ(szOut, encodeReference(data));
            uint8_t aBack[4] = {ucFree, ucFree, ucFree, ucFree};
            ASSERT_EQ(decode({szOut, 4}, aBack, 2), 2);
            ASSERT_EQ(Bytes(aBack, aBack + 2), data);
            ASSERT_EQ(aBack[2], ucFree);
        }
    }
}

TEST_P(Base64, RandomDataOfEveryLengthGoesBothWays)
{
    std::mt19937 random(64);
    for (size_t nLen = 0; nLen <= 300; ++nLen) {
        Bytes data(nLen);
        for (uint8_t &uc : data)
            uc = static_cast<uint8_t>(random());
        const std::string sText = encodeReference(data);
        Out text(sText.size());
        ASSERT_EQ(encode(data, text.text(), static_cast<int32_t>(sText.size())), int32_t(sText.size())) << nLen;
        ASSERT_EQ(text.firstText(sText.size()), sText) << nLen;
        Out back(nLen);
        ASSERT_EQ(decode(sText, back.bytes(), static_cast<uint32_t>(nLen)), int32_t(nLen)) << nLen;
        ASSERT_EQ(back.firstText(nLen), asString(data)) << nLen;
    }
}

// ---- capacity of the encoder -------------------------------------------------------------------------------------------

TEST_P(Base64, EncodingNeedsTheWholeGroupsOfItsText)
{
    for (uint32_t nLen = 0; nLen <= 12; ++nLen) {
        const Bytes data(nLen, 0x5A);
        const int32_t nNeed = static_cast<int32_t>((nLen + 2) / 3 * 4);
        for (int32_t nCap = -1; nCap <= nNeed + 1; ++nCap) {
            Out out(24);
            EXPECT_EQ(encode(data, out.text(), nCap), nCap < nNeed ? -1 : nNeed) << nLen << " into " << nCap;
            EXPECT_EQ(out.firstText(nCap < nNeed ? 0 : size_t(nNeed)), nCap < nNeed ? "" : encodeReference(data));
        }
    }
}

TEST_P(Base64, EncodingIntoANegativeCapacityIsRefused)
{
    Out out(8);
    const uint8_t uc = 1;
    for (int32_t nCap : {-1, -4, INT_MIN}) {
        EXPECT_EQ(GetParam().pfnEncode(&uc, 1, out.text(), nCap), -1) << nCap;
        EXPECT_EQ(GetParam().pfnEncode(&uc, 0, out.text(), nCap), -1) << nCap;
    }
    EXPECT_TRUE(out.untouched());
}

TEST_P(Base64, EncodingALengthNearTheEndOf32BitsIsRefused)
{
    Out out(8);
    const uint8_t uc = 1;
    for (uint32_t nLen : {0x60000000U, 0x7FFFFFFFU, 0x80000000U, 0xBFFFFFFEU, 0xBFFFFFFFU, 0xC0000000U, 0xFFFFFFFDU,
                          0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_EQ(GetParam().pfnEncode(&uc, nLen, out.text(), 8), -1) << nLen;
        EXPECT_EQ(GetParam().pfnEncode(&uc, nLen, out.text(), 0), -1) << nLen;
    }
    EXPECT_TRUE(out.untouched());
}

TEST_P(Base64, NullIsMinus1)
{
    Out out(8);
    const uint8_t uc = 1;
    EXPECT_EQ(GetParam().pfnEncode(nullptr, 1, out.text(), 8), -1);
    EXPECT_EQ(GetParam().pfnEncode(&uc, 1, nullptr, 8), -1);
    EXPECT_EQ(GetParam().pfnDecode(nullptr, 4, out.bytes(), 8), -1);
    EXPECT_EQ(GetParam().pfnDecode("Zm9v", 4, nullptr, 8), -1);
    EXPECT_TRUE(out.untouched());
}

// ---- capacity, padding and foreign characters of the decoder ------------------------------------------------------------

struct DecodeRow {
    const char *pszText;
    uint32_t nCap;
    int32_t nResult;
    const char *pszWritten; // bytes
};

TEST_P(Base64, DecoderRulesHold)
{
    const DecodeRow aRows[] = {
        // the count already written is compared, so that one byte more than the capacity may come
        {"Zm9v", 3, 3, "66 6F 6F"},
        {"Zm9v", 2, 3, "66 6F 6F"},
        {"Zm9v", 1, -1, "66 6F"},
        {"Zm9v", 0, -1, "66"},
        {"Zm9vYmFy", 6, 6, "66 6F 6F 62 61 72"},
        {"Zm9vYmFy", 5, 6, "66 6F 6F 62 61 72"},
        {"Zm9vYmFy", 4, -1, "66 6F 6F 62 61"},
        {"Zm9vYmFy", 3, -1, "66 6F 6F 62"},
        {"Zm9vYmFy", 2, -1, "66 6F 6F"},
        {"Zm9vYmFy", 0xFFFFFFFF, 6, "66 6F 6F 62 61 72"},
        // a pad is seen before the capacity
        {"Zm8=", 1, 2, "66 6F"},
        {"Zm8=", 0, -1, "66"},
        {"Zg==", 0, 1, "66"},
        {"Zm9v====", 2, 3, "66 6F 6F"},
        {"Zm9v=AAA", 0, -1, "66"},
        // a pad ends the whole decoding, wherever it stands
        {"Zg==Zg==", 8, 1, "66"},
        {"Zm8=Zm9v", 8, 2, "66 6F"},
        {"====", 8, 0, ""},
        {"=AAA", 8, 0, ""},
        {"A=AA", 8, 0, ""},
        {"Zm=v", 8, 1, "66"},
        // less than a group at the end is ignored
        {"", 8, 0, ""},
        {"Z", 8, 0, ""},
        {"Zm", 8, 0, ""},
        {"Zm9", 8, 0, ""},
        {"Zm9vY", 8, 3, "66 6F 6F"},
        {"Zm9vYm", 8, 3, "66 6F 6F"},
        {"Zm9vYmF", 8, 3, "66 6F 6F"},
        // a foreign character counts as all ones
        {"!!!!", 8, 3, "FF FF FF"},
        {"A!AA", 8, 3, "FF F0 00"},
        {"AA!A", 8, 3, "00 FF C0"},
        {"AAA!", 8, 3, "00 00 FF"},
        {"!AAA", 8, 3, "FC 00 00"},
        {"Zm9\n", 8, 3, "66 6F FF"},
        {"-_-_", 8, 3, "FF FF FF"},
    };
    for (const DecodeRow &row : aRows) {
        const Bytes written = bytes(row.pszWritten);
        Out out(16);
        EXPECT_EQ(decode(row.pszText, out.bytes(), row.nCap), row.nResult) << row.pszText << " cap " << row.nCap;
        EXPECT_EQ(out.firstText(written.size()), asString(written)) << row.pszText << " cap " << row.nCap;
        const Decoded reference = decodeReference(row.pszText, row.nCap);
        EXPECT_EQ(reference.nResult, row.nResult) << "the reference of this test";
        EXPECT_EQ(hex(reference.written), row.pszWritten) << "the reference of this test";
    }
}

TEST_P(Base64, AnyTextIsDecodedLikeTheReference)
{
    std::mt19937 random(46);
    const std::string sMostly = std::string(sAlphabet) + std::string(sAlphabet) + "==\r\n !\xFF\x80";
    for (int nRound = 0; nRound < 2000; ++nRound) {
        std::string sText(random() % 40, ' ');
        for (char &c : sText)
            c = random() % 20 == 0 ? static_cast<char>(random()) : sMostly[random() % sMostly.size()];
        expectDecode(sText, static_cast<uint32_t>(random() % 34));
    }
}

TEST_P(Base64, EveryPairOfCharactersIsDecodedLikeTheReference)
{
    std::string sText = "AAAA";
    for (int a = 0; a < 256; ++a)
        for (int b = 0; b < 256; ++b) {
            sText[1] = static_cast<char>(a);
            sText[2] = static_cast<char>(b);
            const Decoded expected = decodeReference(sText, 3);
            uint8_t aOut[4] = {ucFree, ucFree, ucFree, ucFree};
            ASSERT_EQ(decode(sText, aOut, 3), expected.nResult) << a << " " << b;
            ASSERT_EQ(Bytes(aOut, aOut + expected.written.size()), expected.written) << a << " " << b;
            ASSERT_EQ(aOut[expected.written.size()], ucFree);
        }
}

TEST_P(Base64, NothingBehindTheLengthIsRead)
{
    const Bytes text = textBytes("Zm9vYmFy"); // exactly eight bytes on the heap
    for (uint32_t nLen = 0; nLen <= 8; ++nLen) {
        Out out(8);
        EXPECT_EQ(GetParam().pfnDecode(reinterpret_cast<const char *>(text.data()), nLen, out.bytes(), 8),
                  int32_t(nLen / 4 * 3));
    }
    const Bytes data = bytes("01 02 03 04");
    char szOut[16];
    EXPECT_EQ(encode(data, szOut, 16), 8);
    EXPECT_EQ(std::string(szOut, 8), "AQIDBA==");
}

TEST_P(Base64, OneMegabyteGoesBothWays)
{
    Bytes data(1U << 20);
    std::mt19937 random(7);
    for (uint8_t &uc : data)
        uc = static_cast<uint8_t>(random());
    const std::string sText = encodeReference(data);
    std::string sOut(sText.size(), '.');
    EXPECT_EQ(encode(data, sOut.data(), static_cast<int32_t>(sOut.size())), int32_t(sText.size()));
    EXPECT_TRUE(sOut == sText);
    Bytes back(data.size() + 1);
    EXPECT_EQ(decode(sText, back.data(), static_cast<uint32_t>(data.size())), int32_t(data.size()));
    back.pop_back();
    EXPECT_TRUE(back == data);
}

} // namespace
