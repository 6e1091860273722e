// device.h - stripe frames and command sizes, and where a reply is judged: for the files of this room.
#pragma once

#include "qvreader/msr.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qv {

// Stripe frames.
inline constexpr uint8_t ucStripeHead = 0x01;
inline constexpr uint8_t ucStripeEnd = 0x04;

// How a command travels: the raw flag of the device layer.
enum Travel : uint32_t {
    kInFrame = 0,
    kBare = 1,
};

inline constexpr uint32_t nTypeSerial = 1;

inline constexpr int32_t nNotOpened = -50; // also of a busy record
inline constexpr int32_t nBaseBaud = 9600;
inline constexpr uint32_t nSettingSeconds = 2; // read time-out of settings and of the status after a read

inline constexpr size_t nCommandSize = 16;       // of commands without a text
inline constexpr size_t nTextCommandSize = 1024; // of commands with one

// The bytes before the first NUL, which is where replies are judged: reports of USB devices are padded with zeros.
inline std::string_view textBeforeNul(const uint8_t *pBuf, int32_t nLen) noexcept
{
    if (pBuf == nullptr || nLen <= 0)
        return {};
    const char *pText = reinterpret_cast<const char *>(pBuf);
    return {pText, strnlen(pText, static_cast<size_t>(nLen))};
}

} // namespace qv
