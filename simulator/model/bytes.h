// Byte strings and their hexadecimal text, as the trace, the card files and the control lines show them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvsim {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

// Upper case, a blank between bytes: "32 22 0B".
std::string toHex(BytesView bytes);

// Upper or lower case, blanks allowed anywhere. Nothing when a character is no hexadecimal digit or one is left over.
std::optional<Bytes> fromHex(std::string_view text);

// Value of one hexadecimal digit, or -1.
int hexDigit(char c);

// Decimal text without sign or blanks, at most `most`.
std::optional<unsigned> parseNumber(std::string_view text, unsigned most);

} // namespace qvsim
