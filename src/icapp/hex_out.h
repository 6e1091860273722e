// hex_out.h - bytes for the host as upper-case hexadecimal text.
#pragma once

#include "qvreader/support.h"

#include <cstdint>
#include <span>

namespace qv {

// Writes two characters a byte and a NUL. The number of characters.
inline uint32_t writeHexText(std::span<const uint8_t> bytes, char *pszOut) noexcept
{
    const size_t nChars = 2 * bytes.size();
    Str_HexToAsc(bytes.data(), static_cast<int32_t>(nChars), pszOut);
    return static_cast<uint32_t>(nChars);
}

} // namespace qv
