// tagged_text.cpp - text fields with lettered tags: a run of items
//
//     letter | three-digit decimal length | that many characters

#include "log.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t nDigits = 3;
constexpr int nValueMax = 128; // the search does not step over a longer value

bool isLetter(char c) noexcept
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// True: the next nLen characters of the text, all before its NUL, are the tag.
bool startsWith(const char *pszText, const char *pTag, size_t nLen) noexcept
{
    return strnlen(pszText, nLen) == nLen && std::strncmp(pszText, pTag, nLen) == 0;
}

// The decimal length at pszText, of which three characters must be there.
int lengthAt(const char *pszText) noexcept
{
    std::array<char, nDigits + 1> szLength{};
    std::copy_n(pszText, nDigits, szLength.begin());
    return std::atoi(szLength.data());
}

} // namespace

char *Str_FindTagApp(const char *pTag, int32_t nTagLen, const char *pszText, int32_t) noexcept
{
    if (pTag == nullptr || pszText == nullptr || nTagLen < 0)
        return nullptr;
    while (*pszText != '\0') {
        if (startsWith(pszText, pTag, static_cast<size_t>(nTagLen)))
            return const_cast<char *>(pszText);
        if (!isLetter(*pszText++))
            continue;
        const size_t nLeft = std::strlen(pszText);
        if (nLeft < nDigits + 1)
            return nullptr;
        const int nValue = lengthAt(pszText);
        if (nValue < 0 || nValue > nValueMax || static_cast<size_t>(nValue) > nLeft - nDigits)
            return nullptr;
        pszText += nDigits + static_cast<size_t>(nValue);
    }
    return nullptr;
}

int32_t Str_GetTagValueApp(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen, char *pOut,
                           uint32_t *pnOutLen) noexcept
{
    QV_LOG(qv::kLogPublic, "[%s] Start ", __func__);
    const char *pszFound = Str_FindTagApp(pTag, nTagLen, pszText, nTextLen);
    if (pszFound == nullptr || pOut == nullptr || pnOutLen == nullptr)
        return RET_PUB_FAIL;
    const char *pszItem = pszFound + nTagLen;
    const size_t nLeft = std::strlen(pszItem);
    if (nLeft < nDigits || std::strlen(pszFound) < nDigits + 1)
        return RET_PUB_FAIL;
    const int nValue = lengthAt(pszItem);
    if (nValue < 0 || static_cast<size_t>(nValue) > nLeft - nDigits)
        return RET_PUB_FAIL;
    std::copy_n(pszItem + nDigits, nValue, pOut);
    *pnOutLen = static_cast<uint32_t>(nValue);
    QV_LOG(qv::kLogPublic, "[%s] End   ", __func__);
    return 0;
}
