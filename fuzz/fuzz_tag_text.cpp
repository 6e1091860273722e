// fuzz_tag_text.cpp - Str_FindTagApp and Str_GetTagValueApp against a plain reader of the same rules.
//
// input: length of the tag (1 to 4), tag, text

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

using qvfuzz::Area;

namespace {

constexpr uint32_t nMark = 0xDEADBEEF;
constexpr size_t nValueMax = 999;

bool isLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

size_t findByTheRules(const std::string &sTag, const std::string &sText)
{
    for (size_t nAt = 0; nAt < sText.size();) {
        if (sText.compare(nAt, sTag.size(), sTag) == 0)
            return nAt;
        if (!isLetter(sText[nAt++]))
            continue;
        if (sText.size() - nAt < 4)
            break;
        const int nLength = std::atoi(sText.substr(nAt, 3).c_str());
        if (nLength < 0 || nLength > 128 || static_cast<size_t>(nLength) > sText.size() - nAt - 3)
            break;
        nAt += 3 + static_cast<size_t>(nLength);
    }
    return std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const size_t nTag = input.byte() % 4 + size_t{1};
    const auto tag = input.take(nTag);
    const auto text = input.rest();
    const std::string sTag(tag.begin(), tag.end());
    // The text ends at its NUL, in a block of exactly its size.
    const size_t nText = static_cast<size_t>(std::find(text.begin(), text.end(), uint8_t{0}) - text.begin());
    const std::string sText(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(nText));
    qvfuzz::Bytes exact(sText.begin(), sText.end());
    exact.push_back(0);
    const auto *pszText = reinterpret_cast<const char *>(exact.data());
    const auto nTagLen = static_cast<int32_t>(sTag.size());

    const char *pszFound = Str_FindTagApp(sTag.data(), nTagLen, pszText, static_cast<int32_t>(nText));
    const size_t nAt = findByTheRules(sTag, sText);
    QV_HOLDS((pszFound == nullptr) == (nAt == sText.npos));
    QV_HOLDS(pszFound == nullptr || pszFound == pszText + nAt);

    Area value(nValueMax);
    uint32_t nValue = nMark;
    const int32_t nRet = Str_GetTagValueApp(sTag.data(), nTagLen, pszText, -1, value.text(), &nValue);
    QV_HOLDS(nRet == 0 || nRet == -1);
    QV_HOLDS(std::memcmp(pszText, sText.c_str(), nText + 1) == 0);
    if (nRet != 0) {
        QV_HOLDS(nValue == nMark && value.intactBehind(0));
        return 0;
    }
    QV_HOLDS(nAt != sText.npos);
    const size_t nLengthAt = nAt + sTag.size();
    QV_HOLDS(sText.size() - nLengthAt >= 3);
    QV_HOLDS(nValue == static_cast<uint32_t>(std::atoi(sText.substr(nLengthAt, 3).c_str())));
    QV_HOLDS(nValue <= sText.size() - nLengthAt - 3);
    QV_HOLDS(value.intactBehind(nValue));
    QV_HOLDS(std::memcmp(value.text(), pszText + nLengthAt + 3, nValue) == 0);
    return 0;
}
