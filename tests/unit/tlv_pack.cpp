// Packing one BER-TLV item.

#include "codec_buffers.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace qvtest;

namespace {

constexpr uint32_t nUnset = 77;

TEST(TlvPack, WritesTagShortestLengthAndValue)
{
    struct {
        const char *pszTag;
        size_t nValue;
        const char *pszHead;
    } const aRows[] = {
        {"\x9F\x02", 6, "9F 02 06"},
        {"\x9F\x02", 200, "9F 02 81 C8"},
        {"\x9F\x02", 300, "9F 02 82 01 2C"},
        {"\x5A", 0, "5A 00"},
        {"\x5A", 1, "5A 01"},
        {"\x5A", 127, "5A 7F"},
        {"\x5A", 128, "5A 81 80"},
        {"\x5A", 255, "5A 81 FF"},
        {"\x5A", 256, "5A 82 01 00"},
        {"\x5A", 65535, "5A 82 FF FF"},
        {"\x5A", 65536, "5A 83 01 00 00"},
        {"\x5A", 0x12345, "5A 83 01 23 45"},
        {"\x70", 3, "70 03"},
        {"\xDF\x81", 3, "DF 81 03"}, // any second byte
        {"\x1F\x7F", 3, "1F 7F 03"},
        {"\xFF\xFF", 3, "FF FF 03"},
        {"\xFE", 3, "FE 03"},
    };
    for (const auto &row : aRows) {
        const Block tag(ended(row.pszTag)), value(withBody("", row.nValue));
        const Bytes wanted = withBody(row.pszHead, row.nValue);
        Out out(wanted.size());
        uint32_t nLen = nUnset; // set, not added to
        EXPECT_EQ(Tlv_Pack_Data(out.bytes(), tag.text(), value.data(), static_cast<uint32_t>(row.nValue), &nLen), 0)
            << row.pszHead;
        EXPECT_EQ(nLen, wanted.size()) << row.pszHead;
        EXPECT_TRUE(out.first(wanted.size()) == hex(wanted)) << row.pszHead;
    }
}

TEST(TlvPack, TakesUpTo16777215Bytes)
{
    const Bytes value(0xFFFFFF, 0x7E);
    Bytes out(value.size() + 6, ucFree);
    uint32_t nLen = nUnset;
    EXPECT_EQ(Tlv_Pack_Data(out.data(), "\x9F\x02", value.data(), 0xFFFFFF, &nLen), 0);
    EXPECT_EQ(nLen, out.size());
    EXPECT_EQ(hex(out.data(), 7), "9F 02 83 FF FF FF 7E");
    EXPECT_TRUE(std::equal(value.begin(), value.end(), out.begin() + 6));

    // One more is refused before it is read.
    const Block one("AA");
    Out untouched(16);
    nLen = nUnset;
    for (uint32_t n : {0x1000000U, 0x1000001U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX})
        EXPECT_EQ(Tlv_Pack_Data(untouched.bytes(), "\x5A", one.data(), n, &nLen), -1) << n;
    EXPECT_TRUE(untouched.untouched());
    EXPECT_EQ(nLen, nUnset);
}

TEST(TlvPack, RefusesATagThatIsNotWhole)
{
    const Block value("AA");
    for (const char *pszTag :
         {"", "\x9F", "\x1F", "\xFF", "\x5A\x01", "\x9F\x02\x03", "\xDF\x81\x01", "\x5A\x01\x02", "\x5A\x01\x02\x03"}) {
        const Block tag(ended(pszTag));
        Out out(16);
        uint32_t nLen = nUnset;
        EXPECT_EQ(Tlv_Pack_Data(out.bytes(), tag.text(), value.data(), 1, &nLen), -1) << pszTag;
        EXPECT_TRUE(out.untouched());
        EXPECT_EQ(nLen, nUnset);
    }
}

TEST(TlvPack, RefusesNullButForAnEmptyValue)
{
    const Block value("AA");
    Out out(16);
    uint32_t nLen = nUnset;
    EXPECT_EQ(Tlv_Pack_Data(nullptr, "\x5A", value.data(), 1, &nLen), -1);
    EXPECT_EQ(Tlv_Pack_Data(out.bytes(), nullptr, value.data(), 1, &nLen), -1);
    EXPECT_EQ(Tlv_Pack_Data(out.bytes(), "\x5A", nullptr, 1, &nLen), -1);
    EXPECT_EQ(Tlv_Pack_Data(out.bytes(), "\x5A", value.data(), 1, nullptr), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
    EXPECT_EQ(Tlv_Pack_Data(out.bytes(), "\x5A", nullptr, 0, &nLen), 0);
    EXPECT_EQ(out.first(2), "5A 00");
    EXPECT_EQ(nLen, 2U);
}

TEST(TlvPack, WhatItWritesIsParsedBack)
{
    for (size_t n : {0U, 1U, 127U, 128U, 255U, 256U, 65535U, 65536U}) {
        for (const char *pszTag : {"\x5A", "\x9F\x02"}) {
            const Bytes value = withBody("", n);
            Bytes out(n + 6);
            uint32_t nLen = 0;
            ASSERT_EQ(Tlv_Pack_Data(out.data(), pszTag, value.data(), static_cast<uint32_t>(n), &nLen), 0);
            uint8_t *pValue = nullptr;
            uint32_t nValue = nUnset;
            EXPECT_EQ(TLV_GetData(pszTag, out.data(), static_cast<int32_t>(nLen), &pValue, &nValue), 0) << n;
            ASSERT_EQ(nValue, n);
            EXPECT_TRUE(std::equal(value.begin(), value.end(), pValue)) << n;
        }
    }
}

} // namespace
