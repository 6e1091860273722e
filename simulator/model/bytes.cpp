// Hexadecimal and decimal text. No locale, no exceptions.
#include "model/bytes.h"

#include <charconv>

namespace qvsim {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

} // namespace

std::string toHex(BytesView bytes)
{
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const std::uint8_t b : bytes) {
        if (!text.empty())
            text += ' ';
        text += kDigits[b >> 4];
        text += kDigits[b & 0x0F];
    }
    return text;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

std::optional<Bytes> fromHex(std::string_view text)
{
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || c == '\t')
            continue;
        const int digit = hexDigit(c);
        if (digit < 0)
            return std::nullopt;
        if (high < 0) {
            high = digit;
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>((high << 4) | digit));
        high = -1;
    }
    if (high >= 0)
        return std::nullopt;
    return bytes;
}

std::optional<unsigned> parseNumber(std::string_view text, unsigned most)
{
    unsigned value = 0;
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc{} || stopped != end || value > most)
        return std::nullopt;
    return value;
}

} // namespace qvsim
