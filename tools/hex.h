// hex.h - bytes as hexadecimal text and back.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

using Bytes = std::vector<uint8_t>;
using BytesView = std::span<const uint8_t>;

// "3B6800", upper case.
std::string hexText(BytesView data);
// "3B 68 00".
std::string spacedHex(BytesView data);
// "9000": a status word or another 16-bit number.
std::string hexWord(uint32_t nWord);
// Blanks, tabs and colons between the digits do not count. Empty: something else stands there, or half a byte.
std::optional<Bytes> parseHex(std::string_view sText);

} // namespace qvtool
