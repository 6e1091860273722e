// big_endian.h - 32-bit words as bytes, the highest first.
#pragma once

#include <cstdint>

namespace qv {

inline uint32_t loadBigEndian(const uint8_t *p) noexcept
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

inline void storeBigEndian(uint32_t n, uint8_t *p) noexcept
{
    p[0] = static_cast<uint8_t>(n >> 24);
    p[1] = static_cast<uint8_t>(n >> 16);
    p[2] = static_cast<uint8_t>(n >> 8);
    p[3] = static_cast<uint8_t>(n);
}

} // namespace qv
