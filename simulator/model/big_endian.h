// Numbers and fields in the byte strings of cards.
#pragma once

#include "model/bytes.h"

namespace qvsim {

// Up to four bytes, the highest first.
inline std::uint32_t bigEndianNumber(BytesView bytes)
{
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes)
        number = (number << 8) | byte;
    return number;
}

inline void appendBytes(Bytes &to, BytesView bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// The low `count` bytes of a number, the highest first.
inline void appendNumber(Bytes &to, std::uint32_t number, std::size_t count)
{
    while (count-- > 0)
        to.push_back(static_cast<std::uint8_t>(number >> (8 * count)));
}

} // namespace qvsim
