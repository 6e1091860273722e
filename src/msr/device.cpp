// device.cpp - the open reader as the stripe side sees it: commands in frames 01 ... 04 or bare, and the settings of
// the head (read time, separator, recording format, reset, channel).
//
// A cancel goes down to the running read.

#include "device.h"

#include "end_byte.h"
#include "log.h"

#include <array>

using qv::kLogCommDev;

namespace {

constexpr uint32_t nFirstWord = 170;
constexpr int32_t nDefaultTimeOut = 2; // seconds
constexpr size_t nReplySize = 1024;    // of the answers to settings

uint32_t s_nBusy = 0; // of the record that was opened last

bool isBusy() noexcept
{
    return s_nBusy != 0;
}

// Markers of a stripe frame, or none.
struct Markers {
    uint8_t cHead, cEnd;
};
constexpr Markers markers(uint32_t bRaw) noexcept
{
    return bRaw == qv::kBare ? Markers{0, 0} : Markers{qv::ucStripeHead, qv::ucStripeEnd};
}

struct Command {
    std::array<uint8_t, qv::nCommandSize> aBytes{};
    uint32_t nLen = 0;
};

int32_t sendBare(const Command &command) noexcept
{
    return Dev_Rdz_MsgSendData(qv::kBare, command.aBytes.data(), command.nLen);
}

// How the reset and the channel selection tell their result; a send gives 0 or -1, so that both always give -1.
int32_t bareResult(int32_t nSent) noexcept
{
    if (nSent < 0)
        return nSent;
    return nSent == 0 ? static_cast<int32_t>(RET_PUB_FAIL) : 0;
}

struct FormatRow {
    int32_t nCode;
    int32_t (*pfnBuild)(uint8_t *, uint32_t *) noexcept;
};
constexpr std::array<FormatRow, 3> s_formats{{
    {1, Instr_Msg_SetModeIBM},
    {2, Instr_Msg_SetModeIsoDK},
    {3, Instr_Msg_SetModeIBMDK},
}};

Command formatCommand(int32_t nCode) noexcept
{
    auto pfnBuild = Instr_Msg_SetModeIso;
    for (const FormatRow &row : s_formats)
        if (row.nCode == nCode)
            pfnBuild = row.pfnBuild;
    Command command;
    pfnBuild(command.aBytes.data(), &command.nLen);
    return command;
}

// A reader that does not answer at all counts as set; one that answers with a body does not.
int32_t settingResult(int32_t nExchanged) noexcept
{
    if (nExchanged < 0)
        return 0;
    return nExchanged == 0 && COMM_Msg_CardReaderGetRecStatus() == 0 ? 0 : static_cast<int32_t>(RET_PUB_FAIL);
}

} // namespace

int32_t MsgEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return qv::endsIn(buf, len, qv::ucStripeEnd);
}

int32_t COMM_Msg_InitCardReaderParam(TransPortParam *param) noexcept
{
    if (param == nullptr)
        return RET_PUB_INVAL_PARAM;
    *param = {};
    param->nWord1 = nFirstWord;
    param->nType = qv::nTypeSerial;
    param->nPort = 1;
    param->nBaud = qv::nBaseBaud;
    param->nTimeOut = nDefaultTimeOut;
    return 0;
}

int32_t COMM_Msg_OpenCardReader(TransPortParam *param) noexcept
{
    if (param == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (param->pfnEndCondition == nullptr)
        param->pfnEndCondition = MsgEndCondition;
    if (param->nWord4 != 0) {
        QV_LOG(kLogCommDev, "the record is busy: %u", param->nWord4);
        return qv::nNotOpened;
    }
    const int32_t nRet = COMM_Rdz_OpenReader(param);
    if (nRet == 0)
        s_nBusy = param->nWord4;
    return nRet;
}

int32_t COMM_Msg_CloseCardReader(void) noexcept
{
    return isBusy() ? qv::nNotOpened : COMM_Rdz_CloseReader();
}

int32_t COMM_Msg_WriteDataToCardReader(uint32_t bRaw, const uint8_t *data, uint32_t len) noexcept
{
    if (isBusy())
        return qv::nNotOpened;
    const Markers frame = markers(bRaw);
    return COMM_Rdz_WriteDataToReader(frame.cHead, frame.cEnd, data, len);
}

int32_t COMM_Msg_ReadDataFromCardReader(uint32_t bRaw, uint8_t *buf, uint32_t len) noexcept
{
    if (isBusy())
        return qv::nNotOpened;
    const Markers frame = markers(bRaw);
    return COMM_Rdz_ReadDataFromReader(bRaw == qv::kBare ? 0 : 1, frame.cHead, frame.cEnd, buf, len);
}

int32_t COMM_Msg_CardReaderGetRecStatus(void) noexcept
{
    return isBusy() ? 0 : static_cast<int32_t>(COMM_Rdz_GetRecStatus());
}

int32_t COMM_Msg_RDZSetTimeout(uint32_t seconds) noexcept
{
    Command command;
    Instr_Msg_SetTimeOut(static_cast<uint8_t>(seconds), command.aBytes.data(), &command.nLen);
    std::array<uint8_t, nReplySize> reply;
    COMM_Rdz_SetHidClearZero(1);
    const int32_t nExchanged =
        Dev_Rdz_MsgSendAndReciveData(1, qv::kInFrame, command.aBytes.data(), command.nLen, reply.data(), reply.size());
    const int32_t nRet = settingResult(nExchanged);
    COMM_Rdz_SetHidClearZero(0);
    if (nExchanged < 0)
        QV_LOG(kLogCommDev, "no answer to the read time (%d), taken as set", nExchanged);
    else if (nRet != 0)
        QV_LOG(kLogCommDev, "the read time was refused (%d)", nExchanged);
    return nRet;
}

int32_t COMM_Msg_RDZSetSeparator(const char *separator) noexcept
{
    if (separator == nullptr || *separator == '\0') {
        QV_LOG(kLogCommDev, "no separator");
        return RET_PUB_INVAL_PARAM;
    }
    std::array<uint8_t, qv::nTextCommandSize> command{};
    uint32_t nLen = 0;
    int32_t nExchanged = Instr_Msg_SetSeparator(separator, command.data(), &nLen);
    std::array<uint8_t, nReplySize> reply;
    if (nExchanged == 0)
        nExchanged = Dev_Rdz_MsgSendAndReciveData(1, qv::kInFrame, command.data(), nLen, reply.data(), reply.size());
    if (nExchanged >= 0 && COMM_Msg_CardReaderGetRecStatus() == 0)
        return 0;
    QV_LOG(kLogCommDev, "the separator was not accepted (%d)", nExchanged);
    return RET_PUB_READ_FAIL;
}

int32_t COMM_Msg_RDZSetBp(uint8_t channel) noexcept
{
    Command command;
    Instr_Msg_BP(channel, command.aBytes.data(), &command.nLen);
    return bareResult(sendBare(command));
}

int32_t COMM_Msg_RDZReset(void) noexcept
{
    Command command;
    Instr_Msg_Reset(command.aBytes.data(), &command.nLen);
    return bareResult(sendBare(command));
}

int32_t COMM_Msg_RDZSetFormat(int32_t code) noexcept
{
    Command reset;
    Instr_Msg_Reset(reset.aBytes.data(), &reset.nLen);
    const int32_t nReset = sendBare(reset);
    return nReset == 0 ? sendBare(formatCommand(code)) : nReset;
}

int32_t COMM_Msg_SetBaud(uint32_t) noexcept
{
    return 0;
}

int32_t COMM_Msg_Cancel(void) noexcept
{
    return COMM_Rdz_Cancel();
}

int32_t Dev_Rdz_MsgCancel(void) noexcept
{
    return COMM_Msg_Cancel();
}

int32_t Dev_Rdz_MsgSetReadTrackTime(uint32_t seconds) noexcept
{
    COMM_Rdz_ChageReadTimeOut(qv::nSettingSeconds);
    const int32_t nRet = COMM_Msg_RDZSetTimeout(seconds);
    if (nRet == 0)
        COMM_Rdz_ChageReadTimeOut(seconds);
    return nRet;
}

int32_t Dev_Rdz_MsgSetSeparator(const char *separator) noexcept
{
    COMM_Rdz_ChageReadTimeOut(qv::nSettingSeconds);
    return COMM_Msg_RDZSetSeparator(separator);
}

int32_t Dev_Rdz_MsgReset(void) noexcept
{
    return COMM_Msg_RDZReset();
}

int32_t Dev_Rdz_MsgSetBp(uint8_t channel) noexcept
{
    return COMM_Msg_RDZSetBp(channel);
}

int32_t Dev_Rdz_MsgSendAndReciveData(uint32_t bFramedRead, uint32_t bRaw, const uint8_t *cmd, uint32_t len,
                                     uint8_t *reply, uint32_t replySize) noexcept
{
    const Markers frame = markers(bRaw);
    return COMM_Rdz_SendAndReciveData(bRaw == qv::kBare ? 0 : bFramedRead, frame.cHead, frame.cEnd, cmd, len, reply,
                                      replySize);
}

int32_t Dev_Rdz_MsgSendData(uint32_t bRaw, const uint8_t *data, uint32_t len) noexcept
{
    return COMM_Msg_WriteDataToCardReader(bRaw, data, len);
}
