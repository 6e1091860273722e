// fuzz_lettered_text.cpp - quorvan_find_tag_app and quorvan_get_tag_value_app against a plain reader of the same rules.
//
// input: length of the tag (1 to 4), tag, text

#include "fuzz_support.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <cstring>
#include <string>

using qvfuzz::Area;

namespace {

constexpr int32_t nMark = 0x5EADBEEF;
constexpr size_t nValueMax = 999;

// The length at nAt, by the digits that stand there, three at most.
size_t lengthAt(const std::string &sText, size_t nAt)
{
    const std::string sDigits = sText.substr(nAt, 3);
    const std::string sNumber = sDigits.substr(0, sDigits.find_first_not_of("0123456789"));
    return sNumber.empty() ? 0 : std::stoul(sNumber);
}

size_t findPlainly(const std::string &sTag, const std::string &sText)
{
    static const std::string s_sLetters = "ABCDEFGHIJPQRSTUVW";
    size_t nAt = 0;
    while (nAt < sText.size()) {
        if (sText.compare(nAt, sTag.size(), sTag) == 0)
            return nAt;
        if (s_sLetters.find(sText[nAt]) == std::string::npos)
            nAt += 1;
        else
            nAt += 4 + lengthAt(sText, nAt + 1);
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
    if (tag.empty())
        return 0;
    const std::string sTag(tag.begin(), tag.end());
    // The text ends at its NUL, in a block of exactly its size.
    const std::string sText(text.begin(), std::ranges::find(text, uint8_t{0}));
    qvfuzz::Bytes exact(sText.size() + 1);
    std::memcpy(exact.data(), sText.c_str(), exact.size());
    const auto *pszText = reinterpret_cast<const char *>(exact.data());
    const auto nTagLen = static_cast<int32_t>(sTag.size());

    const char *pszFound = quorvan_find_tag_app(sTag.data(), nTagLen, pszText, -1);
    const size_t nAt = findPlainly(sTag, sText);
    QV_HOLDS((pszFound == nullptr) == (nAt == sText.npos));
    QV_HOLDS(pszFound == nullptr || pszFound == pszText + nAt);

    Area value(nValueMax);
    int32_t nValue = nMark;
    const int32_t nRet = quorvan_get_tag_value_app(sTag.data(), nTagLen, pszText, 0, value.text(), &nValue);
    QV_HOLDS(std::memcmp(pszText, sText.c_str(), exact.size()) == 0);
    const size_t nDigitsAt = nAt == sText.npos ? sText.size() : nAt + sTag.size();
    const size_t nBehind = sText.size() - nDigitsAt;
    const bool bThere = nAt != sText.npos && nBehind >= 3 && nBehind - 3 >= lengthAt(sText, nDigitsAt);
    QV_HOLDS(nRet == (bThere ? 0 : -1));
    if (!bThere) {
        QV_HOLDS(nValue == nMark && value.intactBehind(0));
        return 0;
    }
    const size_t nLength = lengthAt(sText, nDigitsAt);
    QV_HOLDS(nValue == static_cast<int32_t>(nLength));
    QV_HOLDS(value.intactBehind(nLength));
    QV_HOLDS(std::memcmp(value.text(), pszText + nDigitsAt + 3, nLength) == 0);
    return 0;
}
