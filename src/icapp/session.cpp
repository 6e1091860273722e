// session.cpp - session calls: each opens the reader through the device table, does one thing and closes it again.

#include "device_table.h"
#include "hex_out.h"
#include "host_pointers.h"
#include "kernel.h"

#include <algorithm>
#include <array>

using qv::isMissing;
using qv::kLogAppIc;
using qv::standardCode;

namespace {

constexpr int32_t nSlotUser = 0;
constexpr int32_t nSlotAntenna = 255;
constexpr uint32_t nReaderType = 1;
constexpr size_t nAtrSize = 1024; // more than a frame holds

const uint8_t *boxPort(const char *pszParameter) noexcept
{
    return reinterpret_cast<const uint8_t *>(pszParameter);
}

int32_t powerUp(char cCardType, uint32_t *pnAtr, char *pszAtr) noexcept
{
    std::array<uint8_t, nAtrSize> atr{};
    uint32_t nAtr = 0;
    const int32_t nRet = DevPowerOn(static_cast<uint8_t>(cCardType), atr.data(), &nAtr);
    if (nRet != 0 || pnAtr == nullptr || pszAtr == nullptr)
        return nRet;
    *pnAtr = qv::writeHexText({atr.data(), std::min<size_t>(nAtr, atr.size())}, pszAtr);
    QV_LOG(kLogAppIc, "uszAtr = %s", pszAtr);
    return 0;
}

// The automatic card type: true when the contact card was powered down and that is all. Otherwise the slot that is left
// as the current one is to be powered down (again).
bool isContactDown() noexcept
{
    COMM_Icc_CardReaderSetCardSlot(nSlotUser);
    if (qv::powerDownDevice(0) != 0)
        return false;
    if (COMM_Icc_CardReaderGetRecStatus() == 0)
        return true;
    COMM_Icc_CardReaderSetCardSlot(nSlotAntenna);
    return false;
}

// One call of a reader function on a port of its own. A reader function that fails leaves the port open.
template <typename Act>
int32_t onOpenPort(const char *pszPort, const char *pszParameter, int32_t nBaud, Act act) noexcept
{
    const int32_t nOpened = qv::openDevice(pszPort, pszParameter, nBaud);
    if (nOpened < 0)
        return nOpened;
    const int32_t nRet = act();
    if (nRet == 0)
        qv::closeDevice();
    return nRet;
}

int32_t told(int32_t nRet) noexcept
{
    QV_LOG(kLogAppIc, "nRET %d ", nRet);
    return nRet;
}

} // namespace

int32_t QV_APP_OpenPort(const char *port, const char *parameter, int32_t baud) noexcept
{
    if (isMissing(__func__, {port}))
        return RET_PUB_INVAL_PARAM;
    return qv::openDevice(port, parameter, baud);
}

int32_t QV_APP_ClosePort(const char *, const char *, int32_t) noexcept
{
    return qv::closeDevice();
}

int32_t QV_APP_PowerOn(const char *port, const char *parameter, int32_t baud, const char *icFlag, uint32_t *atrLen,
                       char *atrText) noexcept
{
    if (atrLen != nullptr)
        *atrLen = 0;
    if (atrText != nullptr)
        *atrText = '\0';
    if (isMissing(__func__, {port, icFlag}))
        return standardCode(RET_PUB_INVAL_PARAM);
    int32_t nRet = qv::openDevice(port, parameter, baud);
    if (nRet == 0)
        nRet = powerUp(*icFlag, atrLen, atrText);
    qv::closeDevice();
    return standardCode(nRet);
}

int32_t QV_APP_PowerOff(const char *port, const char *parameter, int32_t baud, const char *icFlag) noexcept
{
    if (isMissing(__func__, {port, icFlag}))
        return standardCode(RET_PUB_INVAL_PARAM);
    int32_t nRet = qv::openDevice(port, parameter, baud);
    if (nRet != 0) {
        qv::closeDevice();
        return standardCode(nRet);
    }
    switch (*icFlag) {
    case '1': COMM_Icc_CardReaderSetCardSlot(nSlotUser); break;
    case '2': COMM_Icc_CardReaderSetCardSlot(nSlotAntenna); break;
    case '3':
        if (isContactDown()) {
            qv::closeDevice();
            return standardCode(0);
        }
        break;
    default: break;
    }
    nRet = qv::powerDownDevice(nRet);
    qv::closeDevice();
    QV_LOG(kLogAppIc, "[%s] End nRet = %d  ", __func__, nRet);
    if (nRet == 0)
        nRet = static_cast<int32_t>(0U - static_cast<uint32_t>(COMM_Icc_CardReaderGetRecStatus()));
    return standardCode(nRet);
}

int32_t QV_APP_SendCommand(const char *port, const char *parameter, int32_t baud, const char *cardType, uint32_t cmdLen,
                           const uint8_t *cmd, uint32_t *outLen, uint8_t *out) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    return standardCode(
        Dev_Rdz_Ic_SendCommand(port, nReaderType, boxPort(parameter), baud, cardType, cmdLen, cmd, outLen, out));
}

int32_t QV_APP_SendCommandOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                               uint8_t *out) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    return Dev_Rdz_Ic_SendCommandOnly(cardType, cmdLen, cmd, outLen, out);
}

int32_t QV_APP_SendCommandDirect(const char *port, const char *parameter, int32_t baud, uint32_t cmdLen,
                                 const uint8_t *cmd, uint32_t *outLen, uint8_t *out) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    return standardCode(Dev_Rdz_Ic_SendCommandDirect(port, boxPort(parameter), baud, cmdLen, cmd, outLen, out));
}

int32_t QV_APP_SendCommandOnlyDirect(uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen, uint8_t *out) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    return standardCode(Dev_Rdz_Ic_SendCommandOnlyDirect(cmdLen, cmd, outLen, out));
}

int32_t QV_APP_DetectCard(const char *port, const char *parameter, int32_t baud, uint8_t *state) noexcept
{
    const int32_t nRet = Dev_Rdz_Ic_DetectCard(nReaderType, port, boxPort(parameter), baud, state);
    QV_LOG(kLogAppIc, "[%s] End nRet = %d  ", __func__, nRet);
    return standardCode(nRet);
}

int32_t QV_APP_ChkDevPresent(const char *port, const char *parameter, int32_t baud) noexcept
{
    return standardCode(Dev_Rdz_Ic_ChkDevPresent(port, boxPort(parameter), baud));
}

int32_t QV_APP_SetPowerOnTimeout(int32_t seconds) noexcept
{
    constexpr int32_t nMax = 120;
    if (seconds < 0 || seconds > nMax)
        return RET_PUB_INVAL_PARAM;
    return Dev_Rdz_SetPowerOnTime(static_cast<uint32_t>(seconds));
}

int32_t QV_APP_MulModuleReset(void) noexcept
{
    return standardCode(COMM_IC_MulModuleReset());
}

int32_t QV_APP_SetLEDStatu(const char *port, const char *parameter, int32_t baud, uint8_t state) noexcept
{
    if (isMissing(__func__, {port}))
        return RET_PUB_INVAL_PARAM;
    return onOpenPort(port, parameter, baud, [state] { return told(COMM_Icc_SetLEDStatus(state)); });
}

int32_t QV_APP_SetLEDStatuEx(const char *port, int32_t baud, uint8_t state, uint8_t mode) noexcept
{
    QV_LOG(kLogAppIc, "cLedStatu = %02x", state);
    if (isMissing(__func__, {port}))
        return RET_PUB_INVAL_PARAM;
    return onOpenPort(port, "", baud, [state, mode] { return told(COMM_Icc_SetLEDStatusEx(state, mode)); });
}

int32_t QV_APP_SetBeepStatu(const char *port, const char *parameter, int32_t baud, int32_t a, uint8_t b) noexcept
{
    if (isMissing(__func__, {port}))
        return RET_PUB_INVAL_PARAM;
    return onOpenPort(port, parameter, baud, [a, b] { return told(COMM_Icc_SetBeepStatus(a, b)); });
}

int32_t QV_APP_GetDeviceInfo(const char *port, const char *, int32_t baud, uint8_t *out) noexcept
{
    if (isMissing(__func__, {port, out}))
        return RET_PUB_INVAL_PARAM;
    return onOpenPort(port, "", baud, [out] { return told(COMM_Icc_GetDeviceInfo(out)); });
}

int32_t QV_APP_DetectMulCard(const char *port, const char *parameter, int32_t baud, int32_t kind, char *out1,
                             char *out2) noexcept
{
    if (isMissing(__func__, {port}))
        return RET_PUB_INVAL_PARAM;
    uint32_t nStatus = 0;
    const int32_t nRet = onOpenPort(port, parameter, baud, [&] {
        const int32_t nFound = COMM_Icc_detectMulCard(kind, out1, out2, &nStatus);
        QV_LOG(kLogAppIc, "nRET %d , PSTATU=%d", nFound, static_cast<int>(nStatus));
        return nFound;
    });
    return nRet == 0 ? static_cast<int32_t>(nStatus) : nRet;
}

int32_t QV_APP_GetPcscList(char *out) noexcept
{
    return Dev_Rdz_IcGetPcScList(out);
}

int32_t QV_APP_SetPcscReader(const char *name) noexcept
{
    return Dev_Rdz_Ic_SetPcscReader(name);
}

int32_t QV_APP_SetSlot(int32_t slot) noexcept
{
    return Dev_Rdz_Ic_SetSlot(slot);
}

int32_t QV_APP_GetCardSlot(void) noexcept
{
    return COMM_Icc_CardReaderGetCardSlot();
}

int32_t QV_APP_AddHID(int32_t kind, uint64_t pid, uint64_t vid) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start nPid = %02x nVid = %02x ", __func__, static_cast<unsigned>(pid),
           static_cast<unsigned>(vid));
    return Dev_Rdz_Ic_AddHid(kind, pid, vid);
}

int32_t QV_APP_Ic_RaiseBaundFlag(uint32_t flag) noexcept
{
    return Dev_Rdz_Ic_RaiseBaundFlag(flag);
}

int32_t QV_APP_SetTranseData(void *data) noexcept
{
    return qv::callKernel(QV_KERNEL_FN(Emv_Set_TranseData), data);
}
