// multi_detection.cpp - which of all its kinds of card the reader has found, and whether a reader is there at all.
//
//     out  32 30 T T | 32 32 T T kind      T: seconds that the reader waits
//     in   kind | for a magnetic card: track 2 "|" track 3 and two more characters

#include "bounded_text.h"
#include "last_read.h"
#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>
#include <string_view>

using qv::kLogCommDev;

namespace {

constexpr int32_t nHostMargin = 2;   // seconds that the host waits longer than the reader
constexpr uint32_t nScanTimeOut = 1; // seconds, a read of the slot scan
constexpr uint8_t ucMagnetic = 3;
constexpr size_t nTrackTail = 2; // characters behind track 3
constexpr char cTrackSeparator = '|';

using Reply = std::array<uint8_t, qv::nReplySize>;

bool isKnownKind(uint32_t nKind) noexcept
{
    return nKind >= 1 && nKind <= 4;
}

int32_t readerWait(int32_t nTimeOut) noexcept
{
    return nTimeOut > nHostMargin ? nTimeOut - nHostMargin : 0;
}

void copyTrack(std::string_view sTrack, char *pOut) noexcept
{
    if (pOut != nullptr)
        pOut[sTrack.copy(pOut, sTrack.size())] = '\0';
}

// Without a separator the reader sent no tracks.
void copyTracks(std::string_view sText, char *pTrack2, char *pTrack3) noexcept
{
    const size_t nAt = sText.find(cTrackSeparator);
    if (nAt == sText.npos)
        return;
    const std::string_view sRest = sText.substr(nAt + 1);
    if (sRest.size() > nTrackTail)
        copyTrack(sRest.substr(0, sRest.size() - nTrackTail), pTrack3);
    copyTrack(sText.substr(0, nAt), pTrack2);
}

// What the reader found, from its reply of nRecvLen bytes; the rest of the buffer is zero.
int32_t takeDetection(const Reply &reply, int32_t nRecvLen, char *pTrack2, char *pTrack3, uint32_t *pnKind) noexcept
{
    if (nRecvLen < 0)
        return nRecvLen;
    *pnKind = reply[0];
    if (!isKnownKind(*pnKind))
        return RET_PUB_PACKET_ERR;
    if (*pnKind == ucMagnetic) {
        const std::string_view sReply(reinterpret_cast<const char *>(reply.data()), static_cast<size_t>(nRecvLen));
        copyTracks(sReply.substr(1), pTrack2, pTrack3);
    }
    return 0;
}

// A link whose speed could not be raised may have been left open.
void closeAfterRaise() noexcept
{
    if (g_bIcBaundFlag == 1)
        Dev_Rdz_Ic_ClosePort();
}

} // namespace

int32_t COMM_Icc_detectMulCard(int32_t nTimeOut, char *track2, char *track3, uint32_t *kind) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    if (kind == nullptr)
        return RET_PUB_PACKET_ERR;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_MulModuleStatus(readerWait(nTimeOut), command.data(), &nLen);
    COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nTimeOut));
    Reply reply{};
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    QV_LOG(kLogCommDev, "READ DATA LEN %d", nRecvLen);
    if (qv::logIsOn())
        for (int32_t i = 0; i < nRecvLen; ++i)
            QV_LOG(kLogCommDev, "READ DATA %x", reply[static_cast<size_t>(i)]);
    return takeDetection(reply, nRecvLen, track2, track3, kind);
}

int32_t COMM_Icc_detectMulComCard(uint8_t ucRequest, int32_t nTimeOut, char *track2, char *track3,
                                  uint32_t *kind) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    if (kind == nullptr)
        return RET_PUB_PACKET_ERR;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_MulModuleComStatus(ucRequest, static_cast<uint32_t>(readerWait(nTimeOut)), command.data(), &nLen);
    COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nTimeOut));
    Reply reply{};
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    DPrintLogToFile("READ DATA LEN %d", nRecvLen);
    if (qv::logIsOn())
        for (int32_t i = 0; i < nRecvLen; ++i)
            DPrintLogToFile("READ DATA %x", reply[static_cast<size_t>(i)]);
    return takeDetection(reply, nRecvLen, track2, track3, kind);
}

int32_t Dev_Rdz_Ic_DetectCard(uint32_t termType, const char *port, const uint8_t *boxPort, int32_t baud,
                              const uint8_t *cardType) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    if (port == nullptr || cardType == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (Dev_Rdz_Ic_OpenPort(port, boxPort, termType, 0, baud) != 0) {
        Dev_Rdz_Ic_ClosePort();
        if (Dev_Rdz_Ic_OpenPort(port, boxPort, termType, 0, baud) != 0) {
            closeAfterRaise();
            return qv::nPortNotOpened;
        }
    }
    COMM_Rdz_ChageReadTimeOut(nScanTimeOut);
    int32_t nSlot = 0;
    const int32_t nRet = DealCardSlot(*cardType, &nSlot);
    QV_LOG(kLogCommDev, "DealCardSlot nRet = %d", nRet);
    Dev_Rdz_Ic_ClosePort();
    return nRet;
}

int32_t Dev_Rdz_Ic_ChkDevPresent(const char *port, const uint8_t *boxPort, int32_t baud) noexcept
{
    int32_t nRet = Dev_Rdz_Ic_OpenPort(port, boxPort, 0, 0, baud);
    if (nRet != 0) {
        if (nRet == qv::nPortNotOpened)
            closeAfterRaise();
        return nRet;
    }
    constexpr std::array<uint8_t, 2> question{0x31, 0x11};
    if (COMM_Rdz_WriteDataToReader(qv::ucCardHead, qv::ucCardEnd, question.data(), question.size()) != 0) {
        nRet = RET_PUB_SEND_FAIL;
    } else {
        std::array<uint8_t, 256> reply;
        const int32_t nRecvLen =
            COMM_Rdz_ReadDataFromReader(1, qv::ucCardHead, qv::ucCardEnd, reply.data(), reply.size());
        // A frame without body is an answer; a channel may also report silence as 0.
        nRet = nRecvLen < 0 || qv::lastReadBytes() <= 0 ? static_cast<int32_t>(RET_PUB_READ_FAIL) : 0;
    }
    Dev_Rdz_Ic_ClosePort();
    return nRet;
}
