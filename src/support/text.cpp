// text.cpp - trimming, searching and splitting of text.

#include "log.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

bool isInvisible(char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isSpace(char c) noexcept
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

uint8_t *Str_localFindMsgSign(const uint8_t *pData, uint32_t nLen, uint8_t uc) noexcept
{
    if (pData == nullptr)
        return nullptr;
    return static_cast<uint8_t *>(std::memchr(const_cast<uint8_t *>(pData), uc, nLen));
}

int32_t Str_GetDataDeleteChar(const uint8_t *pData, int32_t nLen, uint8_t uc) noexcept
{
    if (pData == nullptr)
        return RET_PUB_FAIL;
    while (nLen > 0 && pData[nLen - 1] == uc)
        --nLen;
    return std::max(nLen, 0);
}

char *Str_strsTrim(char *pszText) noexcept
{
    if (pszText == nullptr)
        return nullptr;
    // A text with nothing to remove is not written to; it may be a constant.
    char *pEnd = pszText + std::strlen(pszText);
    char *pNewEnd = std::remove_if(pszText, pEnd, isInvisible);
    if (pNewEnd != pEnd)
        *pNewEnd = '\0';
    return pszText;
}

char *strim(char *pszText) noexcept
{
    if (pszText == nullptr)
        return nullptr;
    while (isSpace(*pszText))
        ++pszText;
    char *pEnd = pszText + std::strlen(pszText);
    while (pEnd > pszText && isSpace(pEnd[-1]))
        --pEnd;
    *pEnd = '\0';
    return pszText;
}

int32_t Str_GetSplitData(const char *pszIn, const char *pszSplit, char *pOut) noexcept
{
    QV_LOG(qv::kLogPublic, "[%s] Start szInPut = %s sPlit = %s ", __func__, pszIn == nullptr ? "" : pszIn,
           pszSplit == nullptr ? "" : pszSplit);
    if (pszIn == nullptr || pszSplit == nullptr || pOut == nullptr)
        return RET_PUB_INVAL_PARAM;
    const char *pszFound = std::strstr(pszIn, pszSplit);
    if (pszFound == nullptr)
        return RET_PUB_INVAL_PARAM;
    const auto nLen = static_cast<int>(pszFound - pszIn);
    std::copy(pszIn, pszFound, pOut);
    QV_LOG(qv::kLogPublic, "OutBuf = %.*s nLen = %d", nLen, pOut, nLen);
    return 0;
}
