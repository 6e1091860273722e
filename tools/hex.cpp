#include "hex.h"

namespace qvtool {

namespace {

constexpr std::string_view sDigits = "0123456789ABCDEF";
constexpr std::string_view sIgnored = " \t:";

int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

void append(std::string &sText, uint8_t uc)
{
    sText += sDigits[uc >> 4];
    sText += sDigits[uc & 15];
}

} // namespace

std::string hexText(BytesView data)
{
    std::string sText;
    for (uint8_t uc : data)
        append(sText, uc);
    return sText;
}

std::string spacedHex(BytesView data)
{
    std::string sText;
    for (uint8_t uc : data) {
        if (!sText.empty())
            sText += ' ';
        append(sText, uc);
    }
    return sText;
}

std::string hexWord(uint32_t nWord)
{
    std::string sText;
    append(sText, static_cast<uint8_t>(nWord >> 8));
    append(sText, static_cast<uint8_t>(nWord));
    return sText;
}

std::optional<Bytes> parseHex(std::string_view sText)
{
    Bytes out;
    int nHigh = -1;
    for (char c : sText) {
        if (sIgnored.find(c) != std::string_view::npos)
            continue;
        int nValue = digitValue(c);
        if (nValue < 0)
            return std::nullopt;
        if (nHigh < 0) {
            nHigh = nValue;
        } else {
            out.push_back(static_cast<uint8_t>(nHigh << 4 | nValue));
            nHigh = -1;
        }
    }
    if (nHigh >= 0)
        return std::nullopt;
    return out;
}

} // namespace qvtool
