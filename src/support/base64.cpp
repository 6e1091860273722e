// base64.cpp - Base64 (RFC 4648, section 4), one codec under two sets of names.
//
// The decoder checks little: a pad ends it wherever it stands, a foreign character counts as all ones, and the
// capacity test is "already more than", so that one byte more than the capacity may be written.

#include "qvreader/support.h"

#include <array>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view s_TabBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char cPad = '=';

constexpr std::array<int8_t, 256> indexOf = [] {
    std::array<int8_t, 256> table{};
    table.fill(-1);
    for (size_t i = 0; i < s_TabBase64.size(); ++i)
        table[static_cast<unsigned char>(s_TabBase64[i])] = static_cast<int8_t>(i);
    table[static_cast<unsigned char>(cPad)] = 0;
    return table;
}();

// Two characters for each 12 bits: a group of three bytes is two look-ups.
constexpr std::array<std::array<char, 2>, 4096> pairOf = [] {
    std::array<std::array<char, 2>, 4096> table{};
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = {s_TabBase64[i >> 6], s_TabBase64[i & 0x3F]};
    return table;
}();

// The alphabet's values shifted to each place of a group; negative for a pad and for a foreign character, so that one
// test of four values joined tells whether the group is plain.
constexpr std::array<std::array<int32_t, 256>, 4> valueAt = [] {
    std::array<std::array<int32_t, 256>, 4> tables{};
    for (size_t nPlace = 0; nPlace < tables.size(); ++nPlace) {
        tables[nPlace].fill(-1);
        for (size_t i = 0; i < s_TabBase64.size(); ++i)
            tables[nPlace][static_cast<unsigned char>(s_TabBase64[i])] = static_cast<int32_t>(i << (18 - 6 * nPlace));
    }
    return tables;
}();

// The 24 bits of four characters; negative when one of them is not of the alphabet.
constexpr int32_t plainGroup(const char *pGroup) noexcept
{
    const auto at = [pGroup](size_t n) { return valueAt[n][static_cast<unsigned char>(pGroup[n])]; };
    return at(0) | at(1) | at(2) | at(3);
}

constexpr int index(char c) noexcept
{
    return indexOf[static_cast<unsigned char>(c)];
}

void encodeGroup(uint32_t nBits, char *pOut) noexcept
{
    std::memcpy(pOut, pairOf[nBits >> 12].data(), 2);
    std::memcpy(pOut + 2, pairOf[nBits & 0xFFF].data(), 2);
}

// Byte number nAt (0 to 2) of a group of four characters.
constexpr uint8_t groupByte(const char *pGroup, int nAt) noexcept
{
    const int nShift = 2 + 2 * nAt;
    return static_cast<uint8_t>((index(pGroup[nAt]) << nShift) | (index(pGroup[nAt + 1]) >> (4 - 2 * nAt)));
}

} // namespace

int32_t Base64_EncData(const uint8_t *pData, uint32_t nLen, char *pOut, int32_t nCap) noexcept
{
    const uint64_t nNeed = (uint64_t{nLen} + 2) / 3 * 4;
    if (pData == nullptr || pOut == nullptr || nCap < 0 || static_cast<uint64_t>(nCap) < nNeed)
        return RET_PUB_FAIL;
    uint32_t nRest = nLen;
    for (; nRest >= 3; nRest -= 3, pData += 3, pOut += 4)
        encodeGroup(uint32_t{pData[0]} << 16 | uint32_t{pData[1]} << 8 | pData[2], pOut);
    if (nRest > 0) {
        encodeGroup(uint32_t{pData[0]} << 16 | (nRest == 2 ? uint32_t{pData[1]} << 8 : 0), pOut);
        pOut[3] = cPad;
        if (nRest == 1)
            pOut[2] = cPad;
    }
    return static_cast<int32_t>(nNeed);
}

int32_t Base64_DecData(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nCap) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    uint32_t nWritten = 0;
    for (; nLen >= 4; nLen -= 4, pText += 4) {
        const int32_t nBits = plainGroup(pText);
        if (nBits >= 0 && uint64_t{nWritten} + 2 <= nCap) {
            pOut[nWritten] = static_cast<uint8_t>(nBits >> 16);
            pOut[nWritten + 1] = static_cast<uint8_t>(nBits >> 8);
            pOut[nWritten + 2] = static_cast<uint8_t>(nBits);
            nWritten += 3;
            continue;
        }
        for (int i = 0; i < 3; ++i) {
            if (pText[i] == cPad || pText[i + 1] == cPad)
                return static_cast<int32_t>(nWritten);
            if (nWritten > nCap)
                return RET_PUB_FAIL;
            pOut[nWritten++] = groupByte(pText, i);
        }
    }
    return static_cast<int32_t>(nWritten);
}

int32_t GetIndexFromTable(char c) noexcept
{
    return index(c);
}

int32_t EncryptBase64(const uint8_t *pData, uint32_t nLen, char *pOut, int32_t nCap) noexcept
{
    return Base64_EncData(pData, nLen, pOut, nCap);
}

int32_t DecryptBase64(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nCap) noexcept
{
    return Base64_DecData(pText, nLen, pOut, nCap);
}

int32_t GetIndexFromBase64Table(char c) noexcept
{
    return index(c);
}

// The alphabet is a constant; hosts of older libraries still call this first.
void IniBase64Table(void) noexcept {}
