// tracks.cpp - the reader's life around a card: opened and set up before it, asked for its status, left idle; cancel.

#include "tracks.h"

#include "log.h"

#include <array>

using qv::kLogBusiMsg;

namespace qv {

bool isCardTime(uint32_t nSeconds) noexcept
{
    constexpr uint32_t nMost = 120;
    if (nSeconds >= 1 && nSeconds <= nMost)
        return true;
    QV_LOG(kLogBusiMsg, "time-out of %u seconds, must be 1 to %u", nSeconds, nMost);
    return false;
}

bool isInMode(int32_t nMode, int32_t nTrack) noexcept
{
    switch (nMode) {
    case 1:
    case 2:
    case 3: return nTrack == nMode;
    case 12: return nTrack == 1 || nTrack == 2;
    case 23: return nTrack == 2 || nTrack == 3;
    case 123: return nTrack >= 1 && nTrack <= 3;
    default: return false;
    }
}

int32_t openForCard(const StripePort &port, uint32_t nSeconds) noexcept
{
    const int32_t nOpened = Dev_Rdz_MsgOpenPort(port.pszDevice, port.pszChannel, port.nBaud, port.nTermType,
                                                static_cast<int32_t>(nSeconds));
    if (nOpened != 0)
        return nOpened;
    COMM_Msg_RDZSetFormat(port.nFormat);
    // A refused setting may have used the read time-out up, and a read without one waits for 1000 seconds.
    if (Dev_Rdz_MsgSetReadTrackTime(nSeconds) != 0)
        COMM_Rdz_ChageReadTimeOut(nSeconds);
    return 0;
}

int32_t exchangeStatus(uint8_t (&aReply)[nStatusSize]) noexcept
{
    std::array<uint8_t, nCommandSize> command{};
    uint32_t nLen = 0;
    Instr_Msg_GetStatus(command.data(), &nLen);
    return Dev_Rdz_MsgSendAndReciveData(0, kBare, command.data(), nLen, aReply, nStatusSize);
}

void leaveHeadIdle() noexcept
{
    Dev_Rdz_MsgReset();
    Dev_Rdz_MsgSetBp(ucIdleChannel);
}

} // namespace qv

int32_t MSG_QV_CancelRead(void) noexcept
{
    constexpr int32_t nNothingToCancel = -98;
    QV_LOG(kLogBusiMsg, "[%s] Start ", __func__);
    int32_t nRet = Dev_Rdz_MsgCancel();
    if (nRet == nNothingToCancel)
        nRet = 0;
    QV_LOG(kLogBusiMsg, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}
