// hashes.cpp - hashes of NUL-terminated byte strings. Bytes count as unsigned; bit 31 of every result is 0.

#include "qvreader/support.h"

#include <cstddef>

namespace {

constexpr uint32_t nResultBits = 0x7FFFFFFF;
constexpr uint32_t nTopFour = 0xF0000000;

// Feeds each byte with its place to step and gives the result's bits. 0 for null.
template <typename Step> uint32_t hash(const char *psz, uint32_t nStart, Step step) noexcept
{
    if (psz == nullptr)
        return 0;
    uint32_t h = nStart;
    for (size_t i = 0; psz[i] != '\0'; ++i)
        h = step(h, static_cast<uint8_t>(psz[i]), i);
    return h & nResultBits;
}

// Four bits are shifted in; those that reach the top are folded back.
uint32_t shiftAndFold(uint32_t h, uint32_t c) noexcept
{
    h = (h << 4) + c;
    const uint32_t nTop = h & nTopFour;
    return (h ^ nTop >> 24) & ~nTop;
}

} // namespace

uint32_t BKDRHash(const char *psz) noexcept
{
    return hash(psz, 0, [](uint32_t h, uint32_t c, size_t) { return h * 131 + c; });
}

uint32_t SDBMHash(const char *psz) noexcept
{
    return hash(psz, 0, [](uint32_t h, uint32_t c, size_t) { return c + (h << 6) + (h << 16) - h; });
}

uint32_t RSHash(const char *psz) noexcept
{
    uint32_t a = 63689;
    return hash(psz, 0, [&a](uint32_t h, uint32_t c, size_t) {
        const uint32_t nNext = h * a + c;
        a *= 378551;
        return nNext;
    });
}

uint32_t JSHash(const char *psz) noexcept
{
    return hash(psz, 1315423911, [](uint32_t h, uint32_t c, size_t) { return h ^ ((h << 5) + c + (h >> 2)); });
}

uint32_t PJWHash(const char *psz) noexcept
{
    return hash(psz, 0, [](uint32_t h, uint32_t c, size_t) { return shiftAndFold(h, c); });
}

uint32_t ELFHash(const char *psz) noexcept
{
    return hash(psz, 0, [](uint32_t h, uint32_t c, size_t) { return shiftAndFold(h, c); });
}

uint32_t DJBHash(const char *psz) noexcept
{
    return hash(psz, 5381, [](uint32_t h, uint32_t c, size_t) { return h * 33 + c; });
}

uint32_t APHash(const char *psz) noexcept
{
    return hash(psz, 0, [](uint32_t h, uint32_t c, size_t nPlace) {
        return h ^ (nPlace % 2 == 0 ? (h << 7) ^ c ^ (h >> 3) : ~((h << 11) ^ c ^ (h >> 5)));
    });
}
