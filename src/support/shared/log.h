// log.h - how the rooms write to the log.
//
// Every line of the library itself has kind 0 (information). The writers look at the switch first and format nothing
// while it is off; they leave errno as it was, so that a line may stand between a system call and the test of its errno.
#pragma once

#include "qvreader/support.h"

namespace qv {

// The log type of each layer.
enum LogType : int32_t {
    kLogPublic = 1,
    kLogComm = 2,
    kLogCommDev = 3,
    kLogInstr = 4,
    kLogLoginc = 5,
    kLogBusiIc = 7,
    kLogBusiMsg = 8,
    kLogAppIc = 10,
    kLogAppMsg = 11,
};

// One line per byte costs a look-up each: a loop of them asks this first and is left out while the switch is off.
inline bool logIsOn() noexcept
{
    return isWriteLog() != 0;
}

// Length of a dump of command bytes. A caller may say more than a command can hold; such a command is refused unread,
// and its dump must not read further either.
inline int32_t loggedLength(uint32_t nLen) noexcept
{
    constexpr uint32_t nCommandMax = 1024;
    return static_cast<int32_t>(nLen < nCommandMax ? nLen : nCommandMax);
}

} // namespace qv

#define QV_LOG(nType, ...) DPrintLogToFileAddType(0, nType, __VA_ARGS__)
