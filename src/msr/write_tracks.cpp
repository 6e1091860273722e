// write_tracks.cpp - writing a card.
//
//     open, channel | reset, format | read time | write command | status ... card ... reply | reset, channel A | close
//     (all tracks: the write command travels in a frame, and its reply tells the result)
//
// The status of a bare write is answered when the card has been swiped. Nothing is read back.

#include "tracks.h"

#include "log.h"

#include <array>

using qv::kLogBusiMsg;

namespace {

constexpr size_t nReplySize = 1024;

struct TextCommand {
    std::array<uint8_t, qv::nTextCommandSize> aBytes{};
    uint32_t nLen = 0;
};

// nBuilt: the builder's result.
int32_t writeBuilt(uint32_t bFramed, const TextCommand &command, int32_t nBuilt, uint32_t nSeconds) noexcept
{
    if (nBuilt == 0)
        return WriteTrack(bFramed, command.aBytes.data(), command.nLen, nSeconds);
    QV_LOG(kLogBusiMsg, "no text, or one that is too long for a command");
    return nBuilt;
}

int32_t judgeFramed() noexcept
{
    switch (COMM_Msg_CardReaderGetRecStatus()) {
    case 0: return 0;
    case qv::nStatusWriteFault: return qv::nWriteFault;
    default: return qv::nOtherStatus;
    }
}

int32_t writeFramed(const uint8_t *pCommand, uint32_t nLen) noexcept
{
    std::array<uint8_t, nReplySize> reply;
    const int32_t nExchanged =
        Dev_Rdz_MsgSendAndReciveData(1, qv::kInFrame, pCommand, nLen, reply.data(), reply.size());
    return nExchanged < 0 ? nExchanged : judgeFramed();
}

bool isTimeUp(uint32_t nSeconds) noexcept
{
    constexpr int64_t nMillis = 1000;
    GetTickCountEndTime();
    return GetTickCountTimeOut() > (int64_t{nSeconds} + 1) * nMillis;
}

int32_t writeBare(const uint8_t *pCommand, uint32_t nLen, uint32_t nSeconds) noexcept
{
    const int32_t nSent = Dev_Rdz_MsgSendData(qv::kBare, pCommand, nLen);
    if (nSent != 0) {
        QV_LOG(kLogBusiMsg, "the write command was not sent");
        return nSent;
    }
    COMM_Rdz_SetEndCondition(MsgStatusEndCondition);
    uint8_t aStatus[qv::nStatusSize] = {};
    const int32_t nJudged = tFuncCheckTrackStatusFormat(aStatus, qv::exchangeStatus(aStatus));
    if (nJudged != qv::nReadFault)
        return nJudged;
    if (!isTimeUp(nSeconds))
        return qv::nWriteFault;
    QV_LOG(kLogBusiMsg, "TimeOut");
    return RET_PUB_TIMEOUT;
}

// True: every text that the mode writes is there.
bool hasTexts(int32_t nMode, const char *pszText1, const char *pszText2, const char *pszText3) noexcept
{
    const bool bAll = (pszText1 != nullptr || !qv::isInMode(nMode, 1)) &&
                      (pszText2 != nullptr || !qv::isInMode(nMode, 2)) &&
                      (pszText3 != nullptr || !qv::isInMode(nMode, 3));
    if (!bAll)
        QV_LOG(kLogBusiMsg, "tracks %d: a text is missing", nMode);
    return bAll;
}

int32_t writeMode(int32_t nMode, uint32_t nSeconds, const char *pszText1, const char *pszText2,
                  const char *pszText3) noexcept
{
    switch (nMode) {
    case 1: return WriteTrack1(pszText1, nSeconds);
    case 2: return WriteTrack2(pszText2, nSeconds);
    case 3: return WriteTrack3(pszText3, nSeconds);
    case 12: return WriteTrack12(pszText1, pszText2, nSeconds);
    case 23: return WriteTrack23(pszText2, pszText3, nSeconds);
    case 123: return WriteTrack123(pszText1, pszText2, pszText3, nSeconds);
    default: QV_LOG(kLogBusiMsg, "no such tracks: %d", nMode); return 0;
    }
}

int32_t writeCard(const qv::StripePort &port, int32_t nMode, uint32_t nSeconds, char *pszText1, char *pszText2,
                  char *pszText3) noexcept
{
    if (!qv::isCardTime(nSeconds) || CheckTrackData(pszText1, pszText2, pszText3) != 0 ||
        !hasTexts(nMode, pszText1, pszText2, pszText3))
        return RET_PUB_INVAL_PARAM;
    int32_t nRet = qv::nNotOpened;
    if (qv::openForCard(port, nSeconds) == 0) {
        nRet = writeMode(nMode, nSeconds, pszText1, pszText2, pszText3);
        qv::leaveHeadIdle();
    }
    Dev_Rdz_MsgClosePort();
    return nRet;
}

} // namespace

int32_t WriteTrack(uint32_t bFramed, const uint8_t *cmd, uint32_t len, uint32_t timeout) noexcept
{
    GetTickCountStartTime();
    const int32_t nRet = bFramed == 1 ? writeFramed(cmd, len) : writeBare(cmd, len, timeout);
    if (nRet != 0)
        QV_LOG(kLogBusiMsg, "[%s] not written, nRet = %d", __func__, nRet);
    return nRet;
}

int32_t WriteTrack1(const char *text, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack1(text, command.aBytes.data(), &command.nLen);
    return writeBuilt(0, command, nBuilt, timeout);
}

int32_t WriteTrack2(const char *text, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack2(text, command.aBytes.data(), &command.nLen);
    return writeBuilt(0, command, nBuilt, timeout);
}

int32_t WriteTrack3(const char *text, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack3(text, command.aBytes.data(), &command.nLen);
    return writeBuilt(0, command, nBuilt, timeout);
}

int32_t WriteTrack12(const char *text1, const char *text2, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack12(text1, text2, command.aBytes.data(), &command.nLen);
    return writeBuilt(0, command, nBuilt, timeout);
}

int32_t WriteTrack23(const char *text2, const char *text3, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack23(text2, text3, command.aBytes.data(), &command.nLen);
    return writeBuilt(0, command, nBuilt, timeout);
}

int32_t WriteTrack123(const char *text1, const char *text2, const char *text3, uint32_t timeout) noexcept
{
    TextCommand command;
    const int32_t nBuilt = Instr_Msg_GetNtWriteTrack123(text1, text2, text3, command.aBytes.data(), &command.nLen);
    return writeBuilt(1, command, nBuilt, timeout);
}

int32_t MSG_QV_WriteData(const char *device, uint32_t baud, const char *extPort, int32_t format, uint32_t termType,
                         int32_t mode, uint32_t timeout, char *track1, char *track2, char *track3) noexcept
{
    QV_LOG(kLogBusiMsg, "[%s] Start ", __func__);
    const int32_t nRet = writeCard({device, baud, extPort, format, termType}, mode, timeout, track1, track2, track3);
    QV_LOG(kLogBusiMsg, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}
