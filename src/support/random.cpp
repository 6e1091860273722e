// random.cpp - filler bytes. The C library's generator, seeded with the time, gives the same bytes within one second;
// nothing secret may be made of them.

#include "clock.h"
#include "qvreader/support.h"

#include <cstdlib>

int32_t Str_GetRandom(int32_t n, uint8_t *pOut) noexcept
{
    if (pOut == nullptr)
        return RET_PUB_FAIL;
    const time_t nNow = qv::wallSeconds(); // once: a call that outlasts the second gives that second's bytes, too
    std::srand(static_cast<unsigned>(nNow));
    for (int32_t i = 0; i < n; ++i) {
        pOut[i] = static_cast<uint8_t>(std::rand() & 0xFF);
        std::srand(static_cast<unsigned>(nNow + i + pOut[i]));
    }
    return 0;
}

int32_t GetRandom(int32_t n, uint8_t *pOut) noexcept
{
    return Str_GetRandom(n, pOut);
}
