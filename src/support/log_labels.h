// log_labels.h - the labels of typed log lines.
#pragma once

#include <cstdint>
#include <span>

namespace qv {

// Room that both labels need.
inline constexpr size_t nLabelSize = 128;

// Writes the labels of a typed line as the file shows them: "INFO:    Comm:    ".
// pszOut must be zeroed; the result is NUL-terminated.
void writeLabels(int32_t nKind, int32_t nType, std::span<char, nLabelSize> out) noexcept;

} // namespace qv
