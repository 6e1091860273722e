// lettered_text.cpp - card data as text: fields of a letter ("A" to "J", "P" to "W"), three decimal digits with the
// length of the value in characters, and the value. The text ends at its NUL, which nothing steps over.

#include "qvreader/icapp.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t nDigits = 3;

bool isFieldLetter(char c) noexcept
{
    return (c >= 'A' && c <= 'J') || (c >= 'P' && c <= 'W');
}

// The length that the digits say; what is no digit ends them.
size_t lengthAt(std::string_view sText) noexcept
{
    size_t nLength = 0;
    for (char c : sText.substr(0, nDigits)) {
        if (c < '0' || c > '9')
            break;
        nLength = nLength * 10 + static_cast<size_t>(c - '0');
    }
    return nLength;
}

// What the text holds from the field on; empty: no such field.
std::string_view findField(std::string_view sText, std::string_view sWanted) noexcept
{
    while (!sText.empty() && !sText.starts_with(sWanted)) {
        const size_t nStep = isFieldLetter(sText.front()) ? 1 + nDigits + lengthAt(sText.substr(1)) : 1;
        sText.remove_prefix(std::min(nStep, sText.size()));
    }
    return sText;
}

std::string_view wanted(const char *pTag, int32_t nTagLen) noexcept
{
    return std::string_view(pTag, static_cast<size_t>(nTagLen));
}

} // namespace

char *quorvan_find_tag_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t) noexcept
{
    if (pTag == nullptr || pszText == nullptr || nTagLen < 0)
        return nullptr;
    const std::string_view sFound = findField(pszText, wanted(pTag, nTagLen));
    return sFound.empty() ? nullptr : const_cast<char *>(sFound.data());
}

int32_t quorvan_get_tag_value_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t, char *pOut,
                                  int32_t *pnOutLen) noexcept
{
    if (pTag == nullptr || pszText == nullptr || pOut == nullptr || pnOutLen == nullptr || nTagLen < 0)
        return RET_PUB_FAIL;
    const std::string_view sTag = wanted(pTag, nTagLen);
    std::string_view sField = findField(pszText, sTag);
    if (sField.size() < sTag.size() + nDigits)
        return RET_PUB_FAIL;
    sField.remove_prefix(sTag.size());
    const size_t nLength = lengthAt(sField);
    if (nLength > sField.size() - nDigits)
        return RET_PUB_FAIL;
    std::copy_n(sField.data() + nDigits, nLength, pOut);
    *pnOutLen = static_cast<int32_t>(nLength);
    return 0;
}
