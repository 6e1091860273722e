// open.cpp - from a port name to an open reader.
//
//     /dev...                  serial, the name is the tty path
//     COM..., AUX...           serial, the name is a path too; the number behind it is kept
//     1001..., USB..., HID...  USB: the known identities are tried in turn
//     PCSC...                  refused
//
// A serial link may lead through an external switch box (a port of it is selected by an escape sequence) or be raised
// from 9600 baud to the requested rate; the box skips the raise.

#include "qvreader/emv_kernel.h"

#include "bounded_text.h"
#include "host_ids.h"
#include "kernel_link.h"
#include "log.h"
#include "reader_state.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

using qv::kLogCommDev;

IcOpenRecord g_sParam = {};
int32_t g_bIcBaundFlag = 0;
int32_t g_useBpBox = 0;
char g_szPcscReader[256] = {};

// The kernel's own, where the loader found one.
#pragma weak Instr_IC_M1PowerOn

namespace {

constexpr uint32_t nBaseBaud = 9600;    // of links that are raised later
constexpr size_t nPathMax = 256;        // characters of a tty path
constexpr uint32_t nTermTypeOfBox2 = 2; // the terminal family whose switch box takes another sequence

enum class NameKind { Device, Numbered, Usb, Pcsc };

struct NameRow {
    std::string_view sPrefix;
    NameKind kind;
};

constexpr std::array<NameRow, 7> s_names{{
    {"/dev", NameKind::Device},
    {"COM", NameKind::Numbered},
    {"AUX", NameKind::Numbered},
    {"1001", NameKind::Usb},
    {"USB", NameKind::Usb},
    {"HID", NameKind::Usb},
    {"PCSC", NameKind::Pcsc},
}};
constexpr size_t nNumberAt = 3; // behind "COM" and "AUX"

const NameRow *findName(std::string_view sName) noexcept
{
    for (const NameRow &row : s_names)
        if (sName.starts_with(row.sPrefix))
            return &row;
    return nullptr;
}

bool isSerial() noexcept
{
    return g_sParam.stParam.nType == qv::nTypeSerial;
}

int32_t openSerial(const char *pszName, NameKind kind, int32_t nBaud) noexcept
{
    TransPortParam &param = g_sParam.stParam;
    param.nType = qv::nTypeSerial;
    param.nBaud = g_bIcBaundFlag == 1 ? nBaseBaud : static_cast<uint32_t>(nBaud);
    param.nAuxPort = 0;
    if (kind == NameKind::Numbered)
        param.nPort = std::atoi(pszName + nNumberAt);
    qv::copyText(std::span(param.szTermPath).first(nPathMax + 1), pszName);
    return COMM_Icc_OpenCardReader(&param) == 0 ? 0 : qv::nPortNotOpened;
}

int32_t openPcsc() noexcept
{
    g_sParam.stParam.nType = qv::nTypePcsc;
    g_sParam.stParam.nWord4 = 1;
    qv::copyText(g_sParam.szPcscReader, g_szPcscReader);
    QV_LOG(kLogCommDev, "Open Pcsc");
    return COMM_Icc_OpenCardReader(&g_sParam.stParam);
}

int32_t openUsb(int32_t nCount) noexcept
{
    TransPortParam &param = g_sParam.stParam;
    param.nType = TYPE_USBLIB_HID;
    qv::IdentityOrder identities(nCount);
    for (int32_t i = 0; i < nCount; ++i) {
        const IcHidId identity = identities.at(i);
        param.nPID = static_cast<uint32_t>(identity.nPID);
        param.nVID = static_cast<uint32_t>(identity.nVID);
        if (COMM_Icc_OpenCardReader(&param) == 0)
            return 0;
        if (i + 1 < nCount)
            Dev_Rdz_Ic_ClosePort();
    }
    return qv::nPortNotOpened;
}

int32_t openByName(const char *pszName, int32_t nBaud, int32_t nIdentities) noexcept
{
    const NameRow *pRow = findName(pszName);
    if (pRow == nullptr)
        return RET_PUB_INVAL_PARAM;
    switch (pRow->kind) {
    case NameKind::Usb: return openUsb(nIdentities);
    case NameKind::Pcsc: return openPcsc();
    default: return openSerial(pszName, pRow->kind, nBaud);
    }
}

// True: a port of the switch box was selected.
bool selectBoxPort(const uint8_t *pszBox) noexcept
{
    if (pszBox == nullptr || *pszBox == 0 || std::strchr("ABCK", *pszBox) == nullptr || !isSerial())
        return false;
    const uint8_t ucFamily = g_sParam.stParam.nTermType == nTermTypeOfBox2 ? 0x25 : 0x24;
    const std::array<uint8_t, 7> select{0x1B, 0x25, *pszBox, 0x1B, ucFamily, 0x49, 0x34};
    COMM_Icc_CardReaderCmd(select.data(), select.size());
    g_useBpBox = 1;
    return true;
}

// 0: nothing to raise, or raised.
int32_t raiseBaud(int32_t nBaud) noexcept
{
    if (!isSerial() || g_bIcBaundFlag != 1)
        return 0;
    QV_LOG(kLogCommDev, "open 9600");
    if (nBaud == static_cast<int32_t>(nBaseBaud))
        return 0;
    TransPortParam &param = g_sParam.stParam;
    param.nBaud = static_cast<uint32_t>(nBaud);
    const int32_t nRaised = COMM_Icc_CardReaderSynBps(&param, 0);
    if (nRaised == 0)
        return 0;
    // The port is opened once more as the record now stands; the failure is reported all the same.
    if (nRaised > 0)
        COMM_Icc_CloseCardReader();
    COMM_Icc_OpenCardReader(&param);
    return qv::nPortNotOpened;
}

int32_t openPort(const char *pszName, const uint8_t *pszBox, uint32_t nTermType, int32_t nBaud) noexcept
{
    const int32_t nIdentities = qv::countIdentities();
    if (pszName == nullptr || *pszName == '\0')
        return RET_PUB_INVAL_PARAM;
    COMM_Icc_InitCardReaderParam(&g_sParam.stParam);
    g_sParam.stParam.nTermType = nTermType;
    const int32_t nOpened = openByName(pszName, nBaud, nIdentities);
    if (nOpened != 0)
        return nOpened;
    g_useBpBox = 0;
    if (!selectBoxPort(pszBox)) {
        const int32_t nRaised = raiseBaud(nBaud);
        if (nRaised != 0)
            return nRaised;
    }
    COMM_Rdz_SetHidClearZero(1);
    return 0;
}

} // namespace

int32_t Dev_Rdz_Ic_OpenPort(const char *portName, const uint8_t *boxPort, uint32_t termType, uint32_t,
                            int32_t baud) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    const int32_t nRet = openPort(portName, boxPort, termType, baud);
    QV_LOG(kLogCommDev, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t Dev_Rdz_Ic_ClosePort(void) noexcept
{
    QV_LOG(kLogCommDev, "===>[%s] Start ", __func__);
    if (isSerial() && g_bIcBaundFlag == 1) {
        if (g_sParam.stParam.nBaud != nBaseBaud)
            COMM_Icc_CardReaderResetSynBps(0);
        constexpr std::array<uint8_t, 3> release{0x1B, 0x24, 0x42};
        if (g_useBpBox == 1)
            COMM_Icc_CardReaderCmd(release.data(), release.size());
    }
    return COMM_Icc_CloseCardReader();
}

int32_t Dev_Rdz_Ic_RaiseBaundFlag(uint32_t nFlag) noexcept
{
    g_bIcBaundFlag = static_cast<int32_t>(nFlag);
    return 0;
}

int32_t Dev_Rdz_Ic_SetPcscReader(const char *name) noexcept
{
    qv::copyText(g_szPcscReader, name);
    return 0;
}

int32_t Dev_Rdz_IcGetPcScList(char *) noexcept
{
    return RET_PUB_INVAL_PARAM;
}

int32_t Dev_Rdz_IcMulCancel(void) noexcept
{
    return 0;
}

int32_t Dev_Rdz_M1PowerOn(uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7,
                          uint64_t a8) noexcept
{
    void *pFound = qv::kernelFunction("Instr_IC_M1PowerOn", reinterpret_cast<void *>(&Instr_IC_M1PowerOn));
    if (pFound == nullptr) {
        QV_LOG(kLogCommDev, "no kernel offers Instr_IC_M1PowerOn");
        return RET_PUB_FAIL;
    }
    return reinterpret_cast<decltype(&Instr_IC_M1PowerOn)>(pFound)(a1, a2, a3, a4, a5, a6, a7, a8);
}
