// open.cpp - from a port name to a reader that is open for stripe work. Letter case does not count.
//
//     HID, 1001, 0, USB     USB: the known identities are tried in turn
//     AUXn                  aux port n of the terminal; a transport type of its own, which no channel serves
//     COMn                  serial, /dev/ttyS(n-1), 9600 or 115200 baud
//     /dev...               serial, the name is the tty path
//
// On a serial link a channel of the switch box may be selected. Owns g_MsgParam and the host's USB identities.

#include "device.h"

#include "bounded_text.h"
#include "clock.h"
#include "host_identities.h"
#include "log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

using qv::kLogCommDev;

TransPortParam g_MsgParam = {};
IcHidId g_MsgHid[10] = {};
int32_t g_nMsgHidNum = 0;
int32_t g_bMsgSetHidFlag = 0;
int32_t g_bOnlyUseSetHid = 0;
int32_t g_bMsgBaundFlag = 0;

namespace {

constexpr uint32_t nTypeAux = 4;
constexpr uint32_t nComBaud = 9600;
constexpr uint32_t nComBaudFast = 115200;
constexpr size_t nPathMax = 256; // characters of a tty path
constexpr size_t nNumberAt = 3;  // behind "COM" and "AUX"; of a "/dev" name the number is looked for there as well
constexpr size_t nNameLeast = 4; // characters of a "COM" or "/dev" name
constexpr int64_t nCloseMillis = 100;

constexpr std::array<IcHidId, 6> s_MsgHID{{
#include "usb_identities_stripe.inc"
}};
constexpr int32_t nBuiltIn = static_cast<int32_t>(s_MsgHID.size());

qv::HostIdentities hostIdentities() noexcept
{
    return {g_MsgHid, g_nMsgHidNum, g_bMsgSetHidFlag, g_bOnlyUseSetHid};
}

// How many identities the next open tries; the host's count is put right on the way, whatever the port.
int32_t countIdentities() noexcept
{
    if (g_bMsgSetHidFlag == 1)
        return hostIdentities().usable() + nBuiltIn;
    g_nMsgHidNum = g_bOnlyUseSetHid == 1 ? 1 : 0;
    return g_bOnlyUseSetHid == 1 ? 1 : nBuiltIn;
}

IcHidId identityAt(int32_t i) noexcept
{
    if (g_bOnlyUseSetHid == 1)
        return hostIdentities().at(0);
    if (i >= nBuiltIn)
        return hostIdentities().at(i - nBuiltIn);
    QV_LOG(kLogCommDev, "USE default Hid");
    return s_MsgHID[static_cast<size_t>(i)];
}

// Names are ASCII, whatever the host's locale takes for the small letter of an "I".
constexpr char toSmall(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isSame(std::string_view sOne, std::string_view sOther) noexcept
{
    return std::equal(sOne.begin(), sOne.end(), sOther.begin(), sOther.end(),
                      [](char c1, char c2) { return toSmall(c1) == toSmall(c2); });
}

bool startsWith(std::string_view sName, std::string_view sPrefix) noexcept
{
    return isSame(sName.substr(0, sPrefix.size()), sPrefix);
}

bool isSerialOrAux() noexcept
{
    return g_MsgParam.nType == qv::nTypeSerial || g_MsgParam.nType == nTypeAux;
}

void useAux(const char *pszName, uint32_t nTermType) noexcept
{
    QV_LOG(kLogCommDev, "USE AUX");
    g_MsgParam.nType = nTypeAux;
    g_MsgParam.nAuxPort = std::atoi(pszName + nNumberAt);
    g_MsgParam.nTermType = nTermType;
    g_MsgParam.bAuxPrefix = 1;
}

int32_t useCom(const char *pszName, uint32_t nBaud) noexcept
{
    if (nBaud != nComBaud && nBaud != nComBaudFast) {
        QV_LOG(kLogCommDev, "no such rate on a COM port: %u", nBaud);
        return RET_PUB_INVAL_PARAM;
    }
    QV_LOG(kLogCommDev, "USE COM");
    g_MsgParam.nType = qv::nTypeSerial;
    g_MsgParam.nBaud = nBaud;
    g_MsgParam.nPort = std::atoi(pszName + nNumberAt);
    std::snprintf(g_MsgParam.szTermPath, sizeof g_MsgParam.szTermPath, "/dev/ttyS%lld", g_MsgParam.nPort - 1LL);
    return 0;
}

void useTty(const char *pszName, uint32_t nBaud) noexcept
{
    g_MsgParam.nType = qv::nTypeSerial;
    g_MsgParam.nBaud = nBaud;
    g_MsgParam.nPort = std::atoi(pszName + nNumberAt);
    qv::copyText(std::span(g_MsgParam.szTermPath).first(nPathMax + 1), pszName);
}

// Fills g_MsgParam from the name. 0, or -2 for a name of another form.
int32_t useName(const char *pszName, uint32_t nBaud, uint32_t nTermType) noexcept
{
    const bool bLong = std::strlen(pszName) >= nNameLeast;
    if (dev_msg_judgeParamHid(pszName) == 1) {
        QV_LOG(kLogCommDev, "USE HID");
        g_MsgParam.nType = TYPE_USBLIB_HID;
        return 0;
    }
    if (startsWith(pszName, "AUX")) {
        useAux(pszName, nTermType);
        return 0;
    }
    if (bLong && startsWith(pszName, "COM"))
        return useCom(pszName, nBaud);
    if (bLong && startsWith(pszName, "/dev")) {
        useTty(pszName, nBaud);
        return 0;
    }
    QV_LOG(kLogCommDev, "no name of a port: %.255s", pszName);
    return RET_PUB_INVAL_PARAM;
}

int32_t openUsb(int32_t nCount) noexcept
{
    for (int32_t i = 0; i < nCount; ++i) {
        const IcHidId identity = identityAt(i);
        g_MsgParam.nPID = static_cast<uint32_t>(identity.nPID);
        g_MsgParam.nVID = static_cast<uint32_t>(identity.nVID);
        const int32_t nRet = COMM_Msg_OpenCardReader(&g_MsgParam);
        QV_LOG(kLogCommDev, "ICC_OpenTransPort: PID=%x,VID=%x, nRet=%d", g_MsgParam.nPID, g_MsgParam.nVID, nRet);
        if (nRet == 0)
            return 0;
        COMM_Msg_CloseCardReader();
    }
    return qv::nNotOpened;
}

int32_t openSerialOrAux(const char *pszChannel) noexcept
{
    if (COMM_Msg_OpenCardReader(&g_MsgParam) != 0)
        return qv::nNotOpened;
    if (Set_RdzBp(pszChannel) == 0)
        return 0;
    QV_LOG(kLogCommDev, "the channel was not selected");
    Dev_Rdz_MsgClosePort();
    return qv::nNotOpened;
}

int32_t openPort(const char *pszName, const char *pszChannel, uint32_t nBaud, uint32_t nTermType,
                 int32_t nTimeOut) noexcept
{
    if (pszName == nullptr || *pszName == '\0') {
        QV_LOG(kLogCommDev, "no port name");
        return qv::nNotOpened;
    }
    const int32_t nIdentities = countIdentities();
    COMM_Msg_InitCardReaderParam(&g_MsgParam);
    g_MsgParam.nTimeOut = nTimeOut;
    const int32_t nNamed = useName(pszName, nBaud, nTermType);
    if (nNamed != 0)
        return nNamed;
    return isSerialOrAux() ? openSerialOrAux(pszChannel) : openUsb(nIdentities);
}

// A cancel of the Linux_QV_ family raises the flag from another thread.
std::atomic_ref<int32_t> baudFlag() noexcept
{
    static_assert(std::atomic_ref<int32_t>::is_always_lock_free);
    return std::atomic_ref<int32_t>(g_bMsgBaundFlag);
}

} // namespace

int32_t dev_msg_judgeParamHid(const char *portName) noexcept
{
    if (portName == nullptr)
        return 0;
    for (std::string_view sName : {"HID", "1001", "0", "USB"})
        if (isSame(portName, sName))
            return 1;
    return 0;
}

int32_t Dev_Rdz_MsgOpenPort(const char *portName, const char *channel, uint32_t baud, uint32_t termType,
                            int32_t timeout) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    const int32_t nRet = openPort(portName, channel, baud, termType, timeout);
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t Dev_Rdz_MsgClosePort(void) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    if (g_MsgParam.nBaud != qv::nBaseBaud && baudFlag().load(std::memory_order_relaxed) == 1 && isSerialOrAux()) {
        COMM_Msg_SetBaud(0);
        qv::pauseMillis(nCloseMillis);
    }
    const int32_t nRet = COMM_Msg_CloseCardReader();
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t Dev_Rdz_Msg_AddHid(int32_t index, uint64_t pid, uint64_t vid) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start nIndex = %d", __func__, index);
    const int32_t nRet = hostIdentities().add(index, {pid, vid});
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t Dev_Rdz_Msg_RaiseBaundFlag(uint32_t flag) noexcept
{
    baudFlag().store(static_cast<int32_t>(flag), std::memory_order_relaxed);
    return 0;
}
