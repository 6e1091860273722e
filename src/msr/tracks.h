// tracks.h - codes, sizes and steps that reading and writing a card have in common.
#pragma once

#include "device.h"

namespace qv {

inline constexpr int32_t nWriteFault = -6;
inline constexpr int32_t nNoData = -9;
inline constexpr int32_t nReadFault = -5;
inline constexpr int32_t nOtherStatus = -100;

// Status words of framed replies.
inline constexpr int32_t nStatusNoData = 0x4001;
inline constexpr int32_t nStatusReadFault = 0x4002;
inline constexpr int32_t nStatusWriteFault = 0x4001;

inline constexpr uint8_t ucIdleChannel = 'A'; // selected whenever the library is idle

inline constexpr size_t nTrackSize = 513; // of the engine's own track buffers
inline constexpr size_t nStatusSize = 128;

struct StripePort {
    const char *pszDevice;
    uint32_t nBaud;
    const char *pszChannel;
    int32_t nFormat;
    uint32_t nTermType;
};

// True for 1 to 120 seconds.
bool isCardTime(uint32_t nSeconds) noexcept;

// True: the mode (1, 2, 3, 12, 23 or 123) names that track.
bool isInMode(int32_t nMode, int32_t nTrack) noexcept;

// Opens the reader and sets it up: recording format, how long it waits for a card, read time-out. Neither setting stops
// anything when it fails. The open's result.
int32_t openForCard(const StripePort &port, uint32_t nSeconds) noexcept;

// Asks for the result of the last operation. Bytes of the reply, or the exchange's code.
int32_t exchangeStatus(uint8_t (&aReply)[nStatusSize]) noexcept;

// Resets the head and selects channel A.
void leaveHeadIdle() noexcept;

} // namespace qv
