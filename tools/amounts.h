// amounts.h - amounts of money as they are typed and shown.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qvtool {

// "12.50", "12.5" or "12": cents. Empty: something else stands there, or more than 42949672.95.
std::optional<uint32_t> parseAmount(std::string_view sText);

// Cents as "12.50".
std::string amountText(uint32_t nCents);

} // namespace qvtool
