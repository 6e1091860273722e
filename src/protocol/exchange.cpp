// exchange.cpp - one command and its reply.
//
// Sends a framed or raw command through the dispatcher, reads until the end byte of the reply has come, takes the frame
// apart and keeps the reader's status word. Nothing is retried here. A cancel goes down to the running read.

#include "end_byte.h"
#include "frame_limits.h"
#include "last_read.h"
#include "log.h"
#include "qvreader/protocol.h"

#include <algorithm>
#include <array>
#include <cstring>

using qv::kLogComm;
using qv::kLogCommDev;

RDZ73xx stRDZ73xx = {};
uint8_t gEndChar = 0x03;

namespace {

int32_t s_nLastRead = 0;

constexpr uint32_t nTypePcsc = 2; // readers of this type take commands without a frame

bool isRawCommand(uint8_t cHead, uint8_t cEnd) noexcept
{
    return (cHead == 0 && cEnd == 0) || stRDZ73xx.nType == nTypePcsc;
}

// True: all bytes went out.
bool writeAll(const uint8_t *pData, uint32_t nLen) noexcept
{
    return int64_t{COMM_Dev_WriteDataToTransPort(pData, nLen)} == int64_t{nLen};
}

bool writeFramed(uint8_t cHead, uint8_t cEnd, const uint8_t *pData, uint32_t nLen) noexcept
{
    std::array<uint8_t, qv::nFrameSize> frame;
    const int32_t nFrame = Str_RDZ_MakePacket(cHead, cEnd, pData, nLen, frame.data());
    return writeAll(frame.data(), static_cast<uint32_t>(nFrame));
}

int32_t takeFramed(uint8_t cHead, uint8_t cEnd, const uint8_t *pPacket, int32_t nLen, uint8_t *pOut,
                   uint32_t nMax) noexcept
{
    std::array<uint8_t, qv::nReplyBytesMax> body;
    uint32_t nBody = 0;
    if (Str_RDZ_ParsePacket(cHead, cEnd, pPacket, static_cast<uint32_t>(nLen), body.data(), &nBody) != 0)
        return RET_PUB_PACKET_ERR;
    QV_LOG(kLogCommDev, "Str_RDZ_ParsePacket Data Len = %d ", static_cast<int>(nBody));
    const uint32_t nOut = std::min(nMax, nBody);
    std::copy_n(body.begin(), nOut, pOut);
    return static_cast<int32_t>(nOut);
}

} // namespace

namespace qv {

int32_t lastReadBytes() noexcept
{
    return s_nLastRead;
}

} // namespace qv

int32_t COMM_Rdz_OpenReader(TransPortParam *pParam) noexcept
{
    QV_LOG(kLogComm, "[%s]Start ", __func__);
    const int32_t nRet = COMM_Dev_OpenTransPort(pParam);
    if (nRet == 0)
        stRDZ73xx.nType = pParam->nType;
    QV_LOG(kLogComm, "[%s]End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t COMM_Rdz_WriteDataToReader(uint8_t cHead, uint8_t cEnd, const uint8_t *data, uint32_t len) noexcept
{
    QV_LOG(kLogCommDev, "nDataLen = %d", static_cast<int>(len));
    const bool bRaw = isRawCommand(cHead, cEnd);
    if (data == nullptr || len > (bRaw ? qv::nFrameSize : qv::nDataMax)) {
        QV_LOG(kLogComm, "refused: %s", data == nullptr ? "no data" : "longer than a command may be");
        return RET_PUB_FAIL;
    }
    const bool bSent = bRaw ? writeAll(data, len) : writeFramed(cHead, cEnd, data, len);
    return bSent ? 0 : RET_PUB_FAIL;
}

int32_t COMM_Rdz_ReadDataFromReader(uint32_t bParse, uint8_t cHead, uint8_t cEnd, uint8_t *out, uint32_t nMax) noexcept
{
    QV_LOG(kLogComm, "[ %s ] Start ", __func__);
    if (nMax == 0) {
        QV_LOG(kLogComm, "Not Read Data ");
        return 0;
    }
    if (out == nullptr)
        return RET_PUB_FAIL;
    if (cEnd != 0) {
        ChangeEndChar(cEnd);
        COMM_Dev_ChangeEndCondition(ChangeEndCondition);
    }
    COMM_Rdz_ReSetStatus();
    std::array<uint8_t, qv::nReplySize> packet;
    const int32_t nReadLen = COMM_Dev_ReadDataFromTransPort(packet.data(), packet.size());
    s_nLastRead = nReadLen;
    QV_LOG(kLogCommDev, "==> nReadLen = %d ", nReadLen);
    if (nReadLen <= 0)
        return nReadLen;
    DPrintDataHexToFile("== ucPacket", packet.data(), nReadLen);
    if (cHead != 0 || (cEnd != 0 && bParse != 0))
        return takeFramed(cHead, cEnd, packet.data(), nReadLen, out, nMax);

    const uint32_t nRetVal = std::min(nMax, static_cast<uint32_t>(nReadLen));
    std::copy_n(packet.begin(), nRetVal, out);
    QV_LOG(kLogComm, "nretval = %d ", static_cast<int>(nRetVal));
    return static_cast<int32_t>(nRetVal);
}

int32_t COMM_Rdz_SendAndReciveData(uint32_t bParse, uint8_t cHead, uint8_t cEnd, const uint8_t *send, uint32_t nSendLen,
                                   uint8_t *recv, uint32_t nMaxReciveBufLen) noexcept
{
    QV_LOG(kLogComm, "[ %s ] Start ", __func__);
    QV_LOG(kLogComm, "nSendLen %d ", static_cast<int>(nSendLen));
    QV_LOG(kLogComm, "nMaxReciveBufLen %d,cHead =%c,cHead = %c", static_cast<int>(nMaxReciveBufLen), cHead, cHead);
    COMM_Rdz_ReSetStatus();
    const int32_t nWritten = COMM_Rdz_WriteDataToReader(cHead, cEnd, send, nSendLen);
    DPrintDataHexToFile("【发送命令】 szSend\n", send, qv::loggedLength(nSendLen));
    if (nWritten != 0) {
        COMM_Rdz_ReSetStatus();
        return RET_PUB_SEND_FAIL;
    }
    if (recv == nullptr || nMaxReciveBufLen == 0)
        return 0;
    return COMM_Rdz_ReadDataFromReader(bParse, cHead, cEnd, recv, nMaxReciveBufLen);
}

int32_t COMM_Rdz_ReaderCmd(const uint8_t *data, uint32_t len) noexcept
{
    return len <= qv::nFrameSize && writeAll(data, len) ? 0 : RET_PUB_FAIL;
}

int32_t COMM_Rdz_Cancel(void) noexcept
{
    QV_LOG(kLogComm, "[%s] Start ", __func__);
    return COMM_Dev_CancelRead();
}

int32_t COMM_Rdz_CloseReader(void) noexcept
{
    return COMM_Dev_CloseTransPort();
}

int32_t COMM_Rdz_SetEndCondition(EndConditionFn end) noexcept
{
    QV_LOG(kLogComm, "[%s ] Start", __func__);
    return COMM_Dev_ChangeEndCondition(end);
}

int32_t COMM_Rdz_ChageReadTimeOut(uint32_t nTimeOut) noexcept
{
    QV_LOG(kLogCommDev, "%s Start  nTimeOut = %d ", __func__, static_cast<int>(nTimeOut));
    return COMM_Dev_ChangeReadTimeOut(nTimeOut);
}

int32_t COMM_Rdz_SetHidClearZero(uint32_t nFlag) noexcept
{
    QV_LOG(kLogComm, "[ %s ] Start nFlag = %02x", __func__, nFlag);
    return COMM_Dev_SetHidClearZero(nFlag);
}

uint32_t COMM_Rdz_GetRecStatus(void) noexcept
{
    QV_LOG(kLogComm, "[%s] Start stRDZ73xx.gStatus = %02x", __func__, stRDZ73xx.gStatus);
    return stRDZ73xx.gStatus;
}

uint32_t COMM_Rdz_SetRecStatus(uint32_t status) noexcept
{
    QV_LOG(kLogComm, "[%s] Start ", __func__);
    QV_LOG(kLogComm, "status = %02x ", status);
    stRDZ73xx.gStatus = status;
    return status;
}

int32_t COMM_Rdz_ReSetStatus(void) noexcept
{
    QV_LOG(kLogComm, "[%s]Start ", __func__);
    stRDZ73xx.gStatus = 0;
    return 0;
}

int32_t ChangeEndChar(uint8_t c) noexcept
{
    gEndChar = c;
    return 0;
}

int32_t ChangeEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return qv::endsIn(buf, len, gEndChar);
}

int32_t Set_RdzBp(const char *mode) noexcept
{
    QV_LOG(kLogComm, "[%s] Start ", __func__);
    if (mode == nullptr || *mode == '\0' || std::strchr("ABCK", *mode) == nullptr)
        return 0;
    const std::array<uint8_t, 3> select{0x1B, 0x25, static_cast<uint8_t>(*mode)};
    return COMM_Rdz_SendAndReciveData(1, 0, 0, select.data(), select.size(), nullptr, 0);
}
