// codec_buffers.h - what the tests of the coders share: guarded output buffers, and texts made another way.
#pragma once

#include "harness.h"

#include <cstdint>
#include <random>
#include <string>

namespace qvtest {

inline constexpr uint8_t ucFree = 0xC5; // what an output byte holds that was not written

// An output buffer between two margins.
class Out {
  public:
    explicit Out(size_t nSize) : m_data(nSize + 2 * nMargin, ucFree) {}
    uint8_t *bytes() { return m_data.data() + nMargin; }
    char *text() { return reinterpret_cast<char *>(bytes()); }
    // The first n bytes; "overrun" when anything beyond them or before the buffer was written.
    std::string first(size_t n) const
    {
        for (size_t nAt = 0; nAt < m_data.size(); ++nAt)
            if ((nAt < nMargin || nAt >= nMargin + n) && m_data[nAt] != ucFree)
                return "overrun at " + std::to_string(static_cast<long>(nAt) - static_cast<long>(nMargin));
        return hex(m_data.data() + nMargin, n);
    }
    std::string firstText(size_t n) const
    {
        const std::string s = first(n);
        return s.starts_with("overrun") ? s : std::string(m_data.begin() + nMargin, m_data.begin() + nMargin + long(n));
    }
    bool untouched() const { return first(0).empty(); }

  private:
    static constexpr long nMargin = 32;
    Bytes m_data;
};

inline const char *asText(const uint8_t *p)
{
    return reinterpret_cast<const char *>(p);
}

inline Bytes randomBytes(size_t nLen, unsigned nSeed)
{
    std::mt19937 random(nSeed);
    Bytes data(nLen);
    for (uint8_t &uc : data)
        uc = static_cast<uint8_t>(random());
    return data;
}

inline std::string plainHex(const Bytes &data, const char *pszDigits)
{
    std::string s;
    for (uint8_t uc : data) {
        s += pszDigits[uc / 16];
        s += pszDigits[uc % 16];
    }
    return s;
}

inline std::string upperHex(const Bytes &data)
{
    return plainHex(data, "0123456789ABCDEF");
}

inline std::string lowerHex(const Bytes &data)
{
    return plainHex(data, "0123456789abcdef");
}

inline Bytes allBytes()
{
    Bytes data(256);
    for (size_t n = 0; n < 256; ++n)
        data[n] = static_cast<uint8_t>(n);
    return data;
}

} // namespace qvtest
