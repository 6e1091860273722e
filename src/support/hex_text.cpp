// hex_text.cpp - bytes as text and back: hexadecimal text, the wire's half-byte characters, the LRC.
//
// Several forms stand beside each other because hosts call each of them by name; they differ in letter case, in their
// terminator and in what a bad character counts as, and each keeps its own answer.

#include "qvreader/support.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace {

using PairTable = std::array<std::array<char, 2>, 256>;

constexpr PairTable makePairs(std::string_view sDigits)
{
    PairTable table{};
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = {sDigits[i >> 4], sDigits[i & 0x0F]};
    return table;
}

constexpr PairTable upperPairs = makePairs("0123456789ABCDEF");
constexpr PairTable lowerPairs = makePairs("0123456789abcdef");

void writePairs(const PairTable &table, const uint8_t *pData, size_t nLen, char *pOut) noexcept
{
    for (size_t i = 0; i < nLen; ++i)
        std::memcpy(pOut + 2 * i, table[pData[i]].data(), 2);
}

// Two half bytes, of which either may be more than a half byte wide.
constexpr uint8_t joinHalves(int nHigh, int nLow) noexcept
{
    return static_cast<uint8_t>((nHigh << 4) | nLow);
}

// Str_AscToHex: the value of each character, unchecked.
constexpr uint8_t uncheckedValue(unsigned nChar) noexcept
{
    if (nChar >= 0x61)
        return static_cast<uint8_t>(nChar - 0x57);
    if (nChar >= 0x41)
        return static_cast<uint8_t>(nChar - 0x37);
    if (nChar >= 0x30)
        return static_cast<uint8_t>(nChar - 0x30);
    return static_cast<uint8_t>(nChar & 0x0F);
}

constexpr std::array<uint8_t, 256> uncheckedValues = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i)
        table[i] = uncheckedValue(i);
    return table;
}();

// Str_AscToHex marks "no half pending" with this value, so that the one character which has it (0xAC) is swallowed as
// a first half.
constexpr uint8_t ucNonePending = 0x55;

// Str_MergeBcdToHex: digits and upper-case letters; every other character is taken for a lower-case letter.
constexpr int letterValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return static_cast<unsigned char>(c) - 0x57;
}

constexpr size_t nAreaSize = 4096; // characters that Str_AsciiToCn and Str_AsciiToBcd work on

} // namespace

int32_t Str_GetDataLRC(const uint8_t *pData, int32_t nLen) noexcept
{
    if (pData == nullptr)
        return RET_PUB_FAIL;
    return Str_CalcLrc(pData, nLen);
}

uint8_t Str_CalcLrc(const uint8_t *pData, int32_t nLen) noexcept
{
    uint8_t ucLrc = 0;
    for (int32_t i = 0; pData != nullptr && i < nLen; ++i)
        ucLrc ^= pData[i];
    return ucLrc;
}

void Str_RdzModeSplitData(const uint8_t *pIn, int32_t nLen, uint8_t *pOut) noexcept
{
    if (pIn == nullptr || pOut == nullptr)
        return;
    for (int32_t i = 0; i < nLen; ++i)
        Str_localSplitHex2Asc(pIn[i], &pOut[2 * i], &pOut[2 * i + 1]);
}

void Str_RdzModeMergeData(const uint8_t *pIn, int32_t nLen, uint8_t *pOut) noexcept
{
    if (pIn == nullptr || pOut == nullptr || nLen % 2 != 0)
        return;
    for (int32_t i = 0; i < nLen; i += 2)
        pOut[i / 2] = joinHalves(pIn[i], pIn[i + 1] & 0x0F);
}

int32_t Str_localSplitHex2Asc(uint8_t uc, uint8_t *pHi, uint8_t *pLo) noexcept
{
    if (pHi == nullptr || pLo == nullptr)
        return RET_PUB_FAIL;
    *pHi = static_cast<uint8_t>(0x30 + (uc >> 4));
    *pLo = static_cast<uint8_t>(0x30 + (uc & 0x0F));
    return 0;
}

int32_t Str_localMergeAsc2Hex(uint8_t *pOut, char cHi, char cLo) noexcept
{
    if (pOut == nullptr)
        return RET_PUB_FAIL;
    *pOut = static_cast<uint8_t>(((cHi & 0x0F) << 4) + (cLo - 0x30));
    return 0;
}

int32_t Str_HexToAsc(const uint8_t *pData, int32_t nNibbles, char *pszOut) noexcept
{
    if (pData == nullptr || pszOut == nullptr)
        return RET_PUB_FAIL;
    const size_t nChars = nNibbles > 0 ? static_cast<size_t>(nNibbles) : 0;
    const size_t nBytes = nChars / 2;
    writePairs(upperPairs, pData, nBytes, pszOut);
    if (nChars % 2 != 0)
        pszOut[nChars - 1] = upperPairs[pData[nBytes]][0];
    pszOut[nChars] = '\0';
    return 0;
}

int32_t Str_SplitHexToBCD(const uint8_t *pData, int32_t nLen, char *pOut) noexcept
{
    if (pData == nullptr || pOut == nullptr)
        return 0;
    if (nLen > 0)
        writePairs(upperPairs, pData, static_cast<size_t>(nLen), pOut);
    return nLen;
}

int32_t Str_localSplitHexToBCD(const uint8_t *pData, int32_t nLen, char *pszOut) noexcept
{
    if (pData == nullptr || pszOut == nullptr)
        return RET_PUB_FAIL;
    const size_t nBytes = nLen > 0 ? static_cast<size_t>(nLen) : 0;
    writePairs(lowerPairs, pData, nBytes, pszOut);
    pszOut[2 * nBytes] = '\0';
    return 0;
}

int32_t Str_MergeBcdToHex(const char *pText, int32_t nLen, uint8_t *pOut) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    if (nLen % 2 != 0 || nLen < 0)
        return 0;
    for (int32_t i = 0; i < nLen; i += 2)
        pOut[i / 2] = joinHalves(letterValue(pText[i]), letterValue(pText[i + 1]));
    return nLen / 2;
}

int32_t Str_localMergeBcdToHex(const char *pText, int32_t nLen, uint8_t *pOut) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    int32_t nWritten = 0;
    for (int32_t i = 0; i < nLen; i += 2) {
        if (nLen - i < 2)
            return RET_PUB_FAIL;
        pOut[nWritten++] = joinHalves(Str_localHexCharToNum(pText[i]), Str_localHexCharToNum(pText[i + 1]));
    }
    return nWritten;
}

int32_t Str_localHexCharToNum(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

int32_t Str_AscToHex(const char *pText, int32_t nChars, uint8_t *pOut) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    int32_t i = 0;
    while (i < nChars) {
        const uint8_t ucHigh = uncheckedValues[static_cast<unsigned char>(pText[i++])];
        if (ucHigh == ucNonePending)
            continue;
        const uint8_t ucLow = i < nChars ? uncheckedValues[static_cast<unsigned char>(pText[i++])] : 0;
        *pOut++ = joinHalves(ucHigh, ucLow);
    }
    return 0;
}

int32_t Str_AsciiToCn(const char *pText, int32_t nLen, uint8_t *pOut, uint32_t nOut) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    std::array<char, nAreaSize> area;
    area.fill('F');
    std::copy_n(pText, std::clamp<int64_t>(nLen, 0, nAreaSize), area.begin());
    const int32_t nBytes = static_cast<int32_t>(std::min<uint32_t>(nOut, nAreaSize / 2));
    Str_AscToHex(area.data(), 2 * nBytes, pOut);
    return nBytes;
}

int32_t Str_AsciiToBcd(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nOut) noexcept
{
    if (pText == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    std::array<char, nAreaSize> area;
    area.fill('0');
    const uint32_t nBytes = std::min<uint32_t>(nOut, nAreaSize / 2);
    const uint32_t nKept = std::min(nLen, 2 * nBytes);
    std::copy_n(pText, nKept, area.begin() + (2 * nBytes - nKept));
    Str_AscToHex(area.data(), static_cast<int32_t>(2 * nBytes), pOut);
    return static_cast<int32_t>(nBytes);
}
