// card_exchange.cpp - APDUs: one exchange, and the exchange with its one follow-up.
//
//     card answers   goes out next, once
//     61 xx          00 C0 00 00 xx                     GET RESPONSE
//     62 xx          00 C0 00 00 00                     GET RESPONSE
//     6C xx          CLA INS P1 P2 xx                   the command's head again with the right Le
//
// Only a response of exactly two bytes is followed up. The status word of the last exchange is kept for the host.

#include "bounded_text.h"
#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

using qv::kLogCommDev;

StCardCmdParam stCardCmdParam = {};

namespace {

constexpr uint32_t nExchangeFailed = 0xAAAA;
constexpr size_t nResponseSize = 2048;
constexpr size_t nCommandMax = 508; // of a card frame's data, head included
constexpr uint32_t nHeaderSize = 4; // CLA INS P1 P2
constexpr uint32_t nStatusSize = 2; // SW1 SW2

using Response = std::array<uint8_t, nResponseSize>;

int32_t send(std::span<const uint8_t> command, Response &response, uint32_t &nLen) noexcept
{
    response.fill(0);
    nLen = static_cast<uint32_t>(response.size());
    return COMM_Icc_CardReaderApdu(COMM_Icc_CardReaderGetCardSlot(), command.data(),
                                   static_cast<uint32_t>(command.size()), response.data(), &nLen);
}

// The command that a status word asks for. False: none.
bool followUp(std::span<const uint8_t> command, uint8_t ucSw1, uint8_t ucSw2,
              std::array<uint8_t, nHeaderSize + 1> &next) noexcept
{
    switch (ucSw1) {
    case 0x61: next = {0x00, 0xC0, 0x00, 0x00, ucSw2}; return true;
    case 0x62: next = {0x00, 0xC0, 0x00, 0x00, 0x00}; return true;
    case 0x6C:
        if (command.size() < nHeaderSize)
            return false;
        std::copy_n(command.begin(), nHeaderSize, next.begin());
        next[nHeaderSize] = ucSw2;
        return true;
    default: return false;
    }
}

// Result of a command that never reaches the exchange: no status word belongs to it.
int32_t refused(int32_t nRet) noexcept
{
    COMM_Rdz_ReSetStatus();
    return nRet;
}

} // namespace

char *ICC_CardCmdGetApduCardType(const char *label) noexcept
{
    static std::array<char, 64> s_szTitle{};
    const int32_t nSlot = COMM_Icc_CardReaderGetCardSlot();
    if (nSlot == qv::nSlotAntenna)
        qv::copyText(s_szTitle, "非接卡");
    else if (nSlot >= 0 && nSlot <= 15)
        std::snprintf(s_szTitle.data(), s_szTitle.size(), "接触卡%d", nSlot);
    else if (nSlot >= 16 && nSlot <= 31)
        std::snprintf(s_szTitle.data(), s_szTitle.size(), "PSAM卡%d", nSlot - 16);
    else
        qv::copyText(s_szTitle, "未知卡");
    if (label != nullptr) {
        qv::appendText(s_szTitle, " ");
        qv::appendText(s_szTitle, label);
        qv::appendText(s_szTitle, " ");
    }
    return s_szTitle.data();
}

int32_t COMM_Icc_RDZAPDU(int32_t nSlot, const uint8_t *capdu, uint32_t nLen, uint8_t *rapdu,
                         uint32_t *rapduLen) noexcept
{
    if (qv::isOtherReader())
        return refused(qv::nUnsupported);
    if (capdu == nullptr || rapdu == nullptr || rapduLen == nullptr)
        return refused(RET_PUB_INVAL_PARAM);
    std::array<uint8_t, nCommandMax> command;
    uint32_t nSend = 0;
    INSTR_Ic_RDZAPDUCmd(nSlot, command.data(), &nSend);
    if (nLen > command.size() - nSend) {
        QV_LOG(kLogCommDev, "C-APDU of %u bytes is longer than a frame holds", nLen);
        return refused(RET_PUB_SEND_FAIL);
    }
    std::copy_n(capdu, nLen, command.begin() + nSend);
    nSend += nLen;

    std::array<uint8_t, qv::nReplySize> reply;
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nSend, reply.data(), reply.size());
    if (nRecvLen < 0)
        return nRecvLen;
    if (static_cast<size_t>(nRecvLen) >= reply.size())
        return RET_PUB_READ_FAIL;
    std::copy_n(reply.begin(), nRecvLen, rapdu);
    *rapduLen = static_cast<uint32_t>(nRecvLen);
    DPrintDataHexToFile("[COMM_Icc_RDZAPDU] End", rapdu, nRecvLen);
    return 0;
}

int32_t COMM_Icc_CardReaderApdu(int32_t nSlot, const uint8_t *capdu, uint32_t nLen, uint8_t *rapdu,
                                uint32_t *rapduLen) noexcept
{
    if (qv::logIsOn())
        DPrintDataHexToFile(ICC_CardCmdGetApduCardType("C_APDU"), capdu, qv::loggedLength(nLen));
    const int32_t nRet = COMM_Icc_RDZAPDU(nSlot, capdu, nLen, rapdu, rapduLen);
    if (nRet != 0) {
        QV_LOG(kLogCommDev, "[%s] nRet = %d, %08x", __func__, nRet, static_cast<unsigned>(nRet));
        return nRet;
    }
    if (qv::logIsOn())
        DPrintDataHexToFile(ICC_CardCmdGetApduCardType("R_APDU"), rapdu, static_cast<int32_t>(*rapduLen));
    return *rapduLen == 0 ? qv::minusStatus() : 0;
}

int32_t ICC_CardCmdVisitCOS(const uint8_t *cmd, uint32_t len, uint8_t *response, uint32_t *responseLen) noexcept
{
    QV_LOG(kLogCommDev, "【%s】 Start ", __func__);
    DPrintDataHexToFile("[ICC_CardCmdVisitCOS]", cmd, qv::loggedLength(len));
    if (cmd == nullptr || response == nullptr || responseLen == nullptr)
        return RET_PUB_INVAL_PARAM;
    const std::span command(cmd, len);
    Response answer;
    uint32_t nAnswer = 0;
    int32_t nRet = send(command, answer, nAnswer);
    if (nRet != 0) {
        ICC_CardCmdSetErrCode(nExchangeFailed);
        return nRet;
    }
    std::array<uint8_t, nHeaderSize + 1> next;
    if (nAnswer == nStatusSize && followUp(command, answer[0], answer[1], next)) {
        nRet = send(next, answer, nAnswer);
        if (nRet != 0)
            return nRet; // the caller's outputs and the register stay as they were
    }
    std::copy_n(answer.begin(), nAnswer, response);
    *responseLen = nAnswer;
    ICC_CardCmdSetErrCode(nAnswer < nStatusSize
                              ? nExchangeFailed
                              : static_cast<uint32_t>(answer[nAnswer - 2] << 8 | answer[nAnswer - 1]));
    QV_LOG(kLogCommDev, "stCardCmdParam.nErrorCode %02x", stCardCmdParam.nErrorCode);
    return 0;
}

int32_t ICC_CardCmd(IccCardCmd *record) noexcept
{
    if (record == nullptr)
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, nHeaderSize + 1 + 255 + 1> command;
    auto pAt = command.begin();
    for (uint8_t uc : {record->cla, record->ins, record->p1, record->p2})
        *pAt++ = uc;
    if (record->lc != 0) {
        *pAt++ = record->lc;
        pAt = std::copy_n(record->data, record->lc, pAt);
    }
    if (record->lePresent == 1)
        *pAt++ = record->le;
    return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(pAt - command.begin()), record->response,
                               &record->responseLen);
}

uint32_t ICC_CardCmdGetErrCode(void) noexcept
{
    return stCardCmdParam.nErrorCode;
}

int32_t ICC_CardCmdSetErrCode(uint32_t code) noexcept
{
    stCardCmdParam.nErrorCode = code;
    return 0;
}
