#include "stripe_mask.h"

#include <algorithm>

namespace qvtool {

namespace {

constexpr size_t nLeastNumber = 13; // digits of a card number
constexpr size_t nShownFirst = 6;
constexpr size_t nShownLast = 4;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Blanks, separators and the like.
bool isPlain(char c)
{
    return c >= 0x20 && c < 0x7F && !isDigit(c) && !isLetter(c);
}

} // namespace

std::string maskedTrack(std::string_view sTrack)
{
    const size_t nNumberEnd = std::min(sTrack.find_first_of("=^"), sTrack.size());
    const auto nDigits =
        static_cast<size_t>(std::count_if(sTrack.begin(), sTrack.begin() + static_cast<long>(nNumberEnd), isDigit));
    std::string sOut(sTrack);
    size_t nDigit = 0;
    for (size_t n = 0; n < sOut.size(); ++n) {
        bool bShow = isPlain(sOut[n]) || (n == 0 && isLetter(sOut[n]));
        if (n < nNumberEnd && isDigit(sOut[n])) {
            bShow = nDigits >= nLeastNumber && (nDigit < nShownFirst || nDigit >= nDigits - nShownLast);
            ++nDigit;
        }
        if (!bShow)
            sOut[n] = '*';
    }
    return sOut;
}

} // namespace qvtool
