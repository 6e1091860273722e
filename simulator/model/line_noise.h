// What two ends of a line that run at different speeds make of each other's bytes.
#pragma once

#include "model/bytes.h"

namespace qvsim {

// As many bytes as were sent, every one of them different from the one sent. Half-byte characters and frame marks come
// out with the top bit set, so that noise is never taken for a frame.
inline Bytes lineNoise(BytesView sent)
{
    Bytes noise(sent.begin(), sent.end());
    for (std::uint8_t &b : noise)
        b = static_cast<std::uint8_t>(b ^ 0xE5);
    return noise;
}

} // namespace qvsim
