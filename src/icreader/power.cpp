// power.cpp - card power, and the slot that later calls go to.
//
// A power-up sets the read time-out each time, since reads take their duration off it. The time that the reader itself
// waits for a card stands in the command, in milliseconds.

#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>

using qv::kLogCommDev;
using qv::nSlotAntenna;
using qv::nSlotUser;

uint32_t g_nPowerOnTimeout = 0;
uint32_t g_nPowerOnModule = 0;

namespace {

enum PowerOnModule : uint32_t { kDetectFirst = 0, kContactThenContactless = 1 };

constexpr uint32_t nWaitMax = 0xFFFF;    // milliseconds, the command's field
constexpr uint32_t nDetectMargin = 2;    // seconds that the host waits longer than the reader detects
constexpr uint8_t ucSecondContact = '!'; // the automatic kind that begins with contact slot 1
constexpr int32_t nSlotPsamFirst = 16, nSlotPsamLast = 31;

uint32_t waitOfPowerOn() noexcept
{
    return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{g_nPowerOnTimeout} * 1000, UINT32_MAX));
}

int32_t powerUpAsCurrent(int32_t nSlot, uint8_t *pAtr, uint32_t *pnAtrLen, uint32_t nWait) noexcept
{
    COMM_Icc_CardReaderSetCardSlot(nSlot);
    return COMM_Icc_CardReaderPowerOn(nSlot, pAtr, pnAtrLen, nWait);
}

// The slot that a card type names by itself; -1: none.
int32_t slotOfCardType(uint8_t c) noexcept
{
    switch (c) {
    case '1':
    case 0: return nSlotUser;
    case '2':
    case nSlotAntenna: return nSlotAntenna;
    case 1:
    case 2:
    case 3: return c;
    default: return c >= nSlotPsamFirst && c <= nSlotPsamLast ? c : -1;
    }
}

} // namespace

int32_t COMM_Icc_CardReaderSetCardSlot(int32_t nSlot) noexcept
{
    stCardReader.nCardSlot = nSlot;
    QV_LOG(kLogCommDev, "stCardReader.nCardSlot = %02x", static_cast<unsigned>(stCardReader.nCardSlot));
    return 0;
}

int32_t Dev_Rdz_Ic_SetSlot(int32_t nSlot) noexcept
{
    return COMM_Icc_CardReaderSetCardSlot(nSlot);
}

int32_t COMM_Icc_CardReaderGetCardSlot(void) noexcept
{
    return stCardReader.nCardSlot;
}

int32_t COMM_Icc_CardReaderReSetCardSlot(void) noexcept
{
    stCardReader.nCardSlot = nSlotUser;
    return 0;
}

int32_t Dev_Rdz_Ic_SetPowerOnModule(uint32_t nModule) noexcept
{
    g_nPowerOnModule = nModule;
    return 0;
}

uint32_t Dev_Rdz_Ic_GetPowerOnModule(void) noexcept
{
    return g_nPowerOnModule;
}

int32_t Dev_Rdz_SetPowerOnTime(uint32_t nSeconds) noexcept
{
    g_nPowerOnTimeout = nSeconds;
    return 0;
}

int32_t COMM_Icc_RDZPowerOn(int32_t nSlot, uint8_t *atr, uint32_t *atrLen, uint32_t T) noexcept
{
    if (atrLen != nullptr)
        *atrLen = 0;
    if (qv::isOtherReader())
        return qv::nUnsupported;
    // A refused slot leaves the command empty; it goes out so, and the reader answers it.
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_RDZPowerOnCmd(nSlot, std::min(T, nWaitMax), command.data(), &nLen);

    std::array<uint8_t, qv::nReplySize> reply{};
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    QV_LOG(kLogCommDev, "PowerOn SendAndReciveData nRecvLen=%d ,ucRecvData =%.*s\n ", nRecvLen, std::max(nRecvLen, 0),
           reinterpret_cast<const char *>(reply.data()));
    QV_LOG(kLogCommDev, "status=%d\n ", static_cast<int>(stRDZ73xx.gStatus));
    if (nRecvLen < 0)
        return nRecvLen;
    if (nRecvLen == 0)
        return qv::minusStatus();
    if (atr != nullptr && atrLen != nullptr) {
        std::copy_n(reply.begin(), nRecvLen, atr);
        *atrLen = static_cast<uint32_t>(nRecvLen);
    }
    return 0;
}

int32_t COMM_Icc_CardReaderPowerOn(int32_t nSlot, uint8_t *atr, uint32_t *atrLen, uint32_t T) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start nCardSlot = %02x nTimeOut = %d \r\n", __func__, static_cast<unsigned>(nSlot),
           static_cast<int>(T));
    const int32_t nRet = COMM_Icc_RDZPowerOn(nSlot, atr, atrLen, T);
    QV_LOG(kLogCommDev, "[%s] End nRet = %d \r\n", __func__, nRet);
    return nRet;
}

int32_t COMM_Icc_RDZPowerOff(int32_t nSlot) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_RDZPowerOffCmd(nSlot, command.data(), &nLen);
    DPrintDataHexToFile("INSTR_Ic_RDZPowerOffCmd ucSendData ", command.data(), static_cast<int32_t>(nLen));
    std::array<uint8_t, qv::nReplySize> reply;
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRecvLen);
    return std::min(nRecvLen, 0); // the reader's status does not count
}

int32_t COMM_Icc_CardReaderPowerOff(int32_t nSlot) noexcept
{
    return COMM_Icc_RDZPowerOff(nSlot);
}

int32_t Dev_Rdz_IccPowerOn(uint8_t cCardType, uint8_t *atr, uint32_t *atrLen) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start icFlag = %c", __func__, cCardType);
    QV_LOG(kLogCommDev, "g_nPowerOnTimeout = %d", static_cast<int>(g_nPowerOnTimeout));
    COMM_Icc_CardReaderReSetCardSlot();
    COMM_Rdz_ChageReadTimeOut(g_nPowerOnTimeout);
    if (const int32_t nSlot = slotOfCardType(cCardType); nSlot >= 0)
        return powerUpAsCurrent(nSlot, atr, atrLen, waitOfPowerOn());
    if (cCardType == ' ' || cCardType == ucSecondContact) {
        g_nPowerOnModule = kContactThenContactless;
        return Dev_Rdz_PowerOnLoop(cCardType, atr, atrLen);
    }
    g_nPowerOnModule = kDetectFirst;
    return Dev_Rdz_PowerOnInstr(cCardType, atr, atrLen);
}

int32_t Dev_Rdz_IccPowerOnSlot(int32_t nSlot, uint8_t *atr, uint32_t *atrLen) noexcept
{
    COMM_Rdz_ChageReadTimeOut(g_nPowerOnTimeout);
    return COMM_Icc_CardReaderPowerOn(nSlot, atr, atrLen, waitOfPowerOn());
}

int32_t Dev_Rdz_PowerOnInstr(uint8_t, uint8_t *atr, uint32_t *atrLen) noexcept
{
    if (atrLen != nullptr)
        *atrLen = 0;
    COMM_Rdz_ChageReadTimeOut(g_nPowerOnTimeout + nDetectMargin);
    const int32_t nFound = ICC_RDZ73xxCHECKCARD(g_nPowerOnTimeout);
    // The card was waited for already, so that the power-up does not wait again.
    if (nFound == 0) {
        QV_LOG(kLogCommDev, "check icc \r\n");
        return powerUpAsCurrent(nSlotUser, atr, atrLen, 0);
    }
    if (nFound == 1) {
        QV_LOG(kLogCommDev, "check picc \r\n");
        return powerUpAsCurrent(nSlotAntenna, atr, atrLen, 0);
    }
    return nFound;
}

int32_t Dev_Rdz_PowerOnLoop(uint8_t cCardType, uint8_t *atr, uint32_t *atrLen) noexcept
{
    if (atrLen != nullptr)
        *atrLen = 0;
    if (g_nPowerOnTimeout != 0) {
        QV_LOG(kLogCommDev, " get contact IC or contactless IC ");
        return RET_PUB_FAIL;
    }
    COMM_Rdz_ChageReadTimeOut(0);
    const int32_t nContact = cCardType == ucSecondContact ? 1 : nSlotUser;
    const int32_t nRet = powerUpAsCurrent(nContact, atr, atrLen, g_nPowerOnTimeout);
    if (nRet == 0)
        return 0;
    return powerUpAsCurrent(nSlotAntenna, atr, atrLen, g_nPowerOnTimeout);
}

int32_t Dev_Rdz_Ic_PowerOff(void) noexcept
{
    return COMM_Icc_CardReaderPowerOff(COMM_Icc_CardReaderGetCardSlot());
}

int32_t Dev_Rdz_Ic_PowerOffSlot(int32_t nSlot) noexcept
{
    return COMM_Icc_CardReaderPowerOff(nSlot);
}
