// end_byte.h - what the end conditions of frames have in common.
#pragma once

#include <cstdint>

namespace qv {

// An end condition's result: 0 when the last byte is that one, else -1 (also for no bytes).
inline int32_t endsIn(const uint8_t *pBuf, int32_t nLen, uint8_t ucEnd) noexcept
{
    return pBuf != nullptr && nLen > 0 && pBuf[nLen - 1] == ucEnd ? 0 : -1;
}

} // namespace qv
