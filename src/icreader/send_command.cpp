// send_command.cpp - the host's command calls.
//
//                     opens and closes      on an open port
//     APDU            SendCommand           SendCommandOnly, SendCommandeOnly (scans the slots first)
//     raw bytes       SendCommandDirect     SendCommandOnlyDirect
//
// After a failed exchange SendCommand returns minus the reader's status word, SendCommandOnly the word itself; hosts
// tell the two apart by that.

#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>

using qv::kLogCommDev;

namespace {

constexpr uint32_t nBareHeader = 4; // CLA INS P1 P2: gets Le = 00
constexpr size_t nResponseSize = 2048;
constexpr size_t nRawReplySize = 512;
constexpr uint32_t nTermTypeOfDirect = 1;

// What the exchange of one APDU came to.
struct Outcome {
    int32_t nRet;     // of the exchange
    uint32_t nStatus; // the reader's status word, where it failed
};

void chooseSlot(char cCardType) noexcept
{
    if (cCardType == '1')
        COMM_Icc_CardReaderSetCardSlot(qv::nSlotUser);
    else if (cCardType == '2')
        COMM_Icc_CardReaderSetCardSlot(qv::nSlotAntenna);
    QV_LOG(kLogCommDev, " nSlot = %d ", COMM_Icc_CardReaderGetCardSlot());
}

Outcome exchange(const char *pszCardType, uint32_t nCmd, const uint8_t *pCmd, uint32_t *pnOut, uint8_t *pOut) noexcept
{
    chooseSlot(*pszCardType);
    DPrintDataHexToFile("szCmd", pCmd, qv::loggedLength(nCmd));
    std::array<uint8_t, nBareHeader + 1> withLe{};
    if (nCmd == nBareHeader) {
        std::copy_n(pCmd, nBareHeader, withLe.begin());
        pCmd = withLe.data();
        nCmd = static_cast<uint32_t>(withLe.size());
    }
    std::array<uint8_t, nResponseSize> response;
    uint32_t nResponse = 0;
    *pnOut = 0;
    const int32_t nRet = ICC_CardCmdVisitCOS(pCmd, nCmd, response.data(), &nResponse);
    if (nRet != 0)
        return {nRet, COMM_Rdz_GetRecStatus()};
    std::copy_n(response.begin(), nResponse, pOut);
    *pnOut = nResponse;
    return {0, 0};
}

int32_t exchangeRaw(uint32_t nCmd, const uint8_t *pCmd, uint32_t *pnLen, uint8_t *pOut) noexcept
{
    DPrintDataHexToFile("szCmd", pCmd, qv::loggedLength(nCmd));
    std::array<uint8_t, nRawReplySize> reply;
    const bool bAwait = *pnLen != 0;
    const int32_t nRet = COMM_Rdz_SendAndReciveData(1, 0, 0, pCmd, nCmd, bAwait ? reply.data() : nullptr,
                                                    bAwait ? static_cast<uint32_t>(reply.size()) : 0);
    if (nRet > 0) {
        std::copy_n(reply.begin(), nRet, pOut);
        *pnLen = static_cast<uint32_t>(nRet);
    }
    return nRet;
}

} // namespace

int32_t Dev_Rdz_Ic_SendCommand(const char *port, uint32_t termType, const uint8_t *boxPort, int32_t baud,
                               const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                               uint8_t *out) noexcept
{
    if (port == nullptr || cmd == nullptr || out == nullptr || outLen == nullptr || cardType == nullptr)
        return RET_PUB_INVAL_PARAM;
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    QV_LOG(kLogCommDev, "==>port:%s term:%d,baud:%d\r\n", port, static_cast<int>(termType), baud);
    const int32_t nReturn = Dev_Rdz_Ic_OpenPort(port, boxPort, termType, 0, baud);
    QV_LOG(kLogCommDev, "==>nReturn:%d\r\n", nReturn);
    if (nReturn != 0) {
        Dev_Rdz_Ic_ClosePort();
        return qv::nPortNotOpened;
    }
    const Outcome outcome = exchange(cardType, cmdLen, cmd, outLen, out);
    int32_t nRet = outcome.nRet;
    if (nRet != 0 && outcome.nStatus != 0)
        nRet = static_cast<int32_t>(0U - outcome.nStatus);
    Dev_Rdz_Ic_ClosePort();
    QV_LOG(kLogCommDev, "[%s] End nRet = %02x  ", __func__, static_cast<unsigned>(nRet));
    return nRet;
}

int32_t Dev_Rdz_Ic_SendCommandOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                   uint8_t *out) noexcept
{
    if (cardType == nullptr || cmd == nullptr || outLen == nullptr || out == nullptr)
        return RET_PUB_INVAL_PARAM;
    const Outcome outcome = exchange(cardType, cmdLen, cmd, outLen, out);
    int32_t nRet = outcome.nRet;
    if (nRet != 0 && outcome.nStatus != 0)
        nRet = static_cast<int32_t>(outcome.nStatus);
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t Dev_Rdz_Ic_SendCommandDirect(const char *port, const uint8_t *boxPort, int32_t baud, uint32_t cmdLen,
                                     const uint8_t *cmd, uint32_t *ioLen, uint8_t *out) noexcept
{
    if (port == nullptr || cmd == nullptr || ioLen == nullptr || out == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (Dev_Rdz_Ic_OpenPort(port, boxPort, nTermTypeOfDirect, 0, baud) != 0) {
        Dev_Rdz_Ic_ClosePort();
        return qv::nPortNotOpened;
    }
    const int32_t nRet = exchangeRaw(cmdLen, cmd, ioLen, out);
    Dev_Rdz_Ic_ClosePort();
    return nRet;
}

int32_t Dev_Rdz_Ic_SendCommandOnlyDirect(uint32_t cmdLen, const uint8_t *cmd, uint32_t *ioLen, uint8_t *out) noexcept
{
    if (ioLen == nullptr || out == nullptr)
        return RET_PUB_INVAL_PARAM;
    return exchangeRaw(cmdLen, cmd, ioLen, out);
}

int32_t Dev_Rdz_Ic_SendCommandeOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                    uint8_t *out) noexcept
{
    if (cardType == nullptr)
        return RET_PUB_INVAL_PARAM;
    int32_t nSlot = 0;
    const int32_t nFound = DealCardSlot(static_cast<uint8_t>(*cardType), &nSlot);
    return nFound != 0 ? nFound : Dev_Rdz_Ic_SendCommandOnly(cardType, cmdLen, cmd, outLen, out);
}
