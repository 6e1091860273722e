// bcd.cpp - packed BCD, numbers as bytes, and the check digit of machine-readable documents.

#include "qvreader/support.h"

#include <array>
#include <cstddef>

int32_t Str_ByteToBcd(int32_t nValue, uint8_t *pOut) noexcept
{
    if (pOut == nullptr || nValue < 0 || nValue > 99)
        return RET_PUB_FAIL;
    *pOut = static_cast<uint8_t>((nValue / 10) << 4 | nValue % 10);
    return 0;
}

uint64_t Str_BcdtoUint64(const uint8_t *pData, int32_t nLen) noexcept
{
    uint64_t nValue = 0;
    for (int32_t i = 0; pData != nullptr && i < nLen; ++i)
        nValue = (nValue * 10 + (pData[i] >> 4)) * 10 + (pData[i] & 0x0F);
    return nValue;
}

int32_t Str_IntTo4Bcd(int32_t nValue, uint8_t *pOut, uint32_t *pnOutLen) noexcept
{
    if (pOut == nullptr || pnOutLen == nullptr || nValue < 0 || nValue > 99'999'999)
        return RET_PUB_FAIL;
    // The two middle quotients keep their hundreds: from 10,000 on the third byte, and from 1,000,000 on the second,
    // does not fit and stays as it was. Callers pass values below 10,000.
    Str_ByteToBcd(nValue / 1'000'000, &pOut[0]);
    Str_ByteToBcd(nValue / 10'000, &pOut[1]);
    Str_ByteToBcd(nValue / 100, &pOut[2]);
    Str_ByteToBcd(nValue % 100, &pOut[3]);
    *pnOutLen = 4;
    return 0;
}

uint32_t *Str_Char4ToInt(uint32_t *pnOut, const uint8_t *pData) noexcept
{
    if (pnOut == nullptr || pData == nullptr)
        return nullptr;
    *pnOut = uint32_t{pData[0]} << 24 | uint32_t{pData[1]} << 16 | uint32_t{pData[2]} << 8 | pData[3];
    return pnOut;
}

int32_t Str_DesNumtoHex(int32_t nValue, uint8_t *pOut, uint32_t nBytes) noexcept
{
    if (pOut == nullptr || nBytes > sizeof nValue)
        return RET_PUB_FAIL;
    auto nRest = static_cast<uint32_t>(nValue);
    for (uint32_t i = nBytes; i-- > 0; nRest >>= 8)
        pOut[i] = static_cast<uint8_t>(nRest);
    return 0;
}

int32_t Str_localXor(const uint8_t *pA, const uint8_t *pB, uint8_t *pOut) noexcept
{
    constexpr int32_t nBlock = 8;
    if (pA == nullptr || pB == nullptr || pOut == nullptr)
        return RET_PUB_FAIL;
    for (int32_t i = 0; i < nBlock; ++i)
        pOut[i] = static_cast<uint8_t>(pA[i] ^ pB[i]);
    return nBlock;
}

int32_t Str_Math731(const char *pszText) noexcept
{
    constexpr std::array<uint32_t, 3> weights{7, 3, 1};
    if (pszText == nullptr)
        return RET_PUB_FAIL;
    uint32_t nSum = 0;
    for (std::size_t i = 0; pszText[i] != '\0'; ++i) {
        const char c = pszText[i];
        uint32_t nValue = 0;
        if (c >= 'A' && c <= 'Z')
            nValue = static_cast<uint32_t>(c - 'A') + 10;
        else if (c >= '0' && c <= '9')
            nValue = static_cast<uint32_t>(c - '0');
        else
            return RET_PUB_FAIL;
        nSum = (nSum + nValue * weights[i % weights.size()]) % 10;
    }
    return static_cast<int32_t>(nSum);
}
