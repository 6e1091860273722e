// callbacks.cpp - the library's own device operations, as the kernel calls them, and the table in which it gets them.
//
// Opening, closing and card power each have a switch, so that a kernel leaves alone what the host does itself; the
// exchange always works.

#include "device_table.h"
#include "kernel.h"

#include <algorithm>
#include <array>

using qv::kLogAppIc;

StCallBackFunc g_stCallBackFunc = {1, 1, 1, 1, 1};

namespace {

// The kernel may keep the table's address.
std::array<void *, qv::kDeviceSlots> s_table{};

template <typename Fn> void *address(Fn *pFunction) noexcept
{
    return reinterpret_cast<void *>(pFunction);
}

int32_t giveTable() noexcept
{
    return qv::callKernel(QV_KERNEL_FN(Emv_SetFunP), 0, s_table.data());
}

// A callback that is switched off says so.
bool isOff(int32_t nEnabled, const char *pszName) noexcept
{
    if (nEnabled != 0)
        return false;
    QV_LOG(kLogAppIc, "**************[%s] End   *********************** ", pszName);
    return true;
}

} // namespace

int32_t QV_APP_SetEmvFunc(uint8_t type) noexcept
{
    QV_LOG(kLogAppIc, "[%s]Start nType = %02x ", __func__, type);
    const bool bAll = type == '0';
    const int32_t nAll = bAll ? 1 : 0;
    g_stCallBackFunc = {nAll, nAll, nAll, nAll, 1};
    s_table = {nullptr,
               address(DevOpenPort),
               address(DevClosePort),
               address(DevPowerOn),
               address(DevPowerOnSlot),
               address(DevPowerOff),
               address(DevPowerOffSlot),
               address(DevSendCmd),
               bAll ? address(DevSendCmdSlot) : nullptr,
               nullptr};
    return giveTable();
}

int32_t QV_APP_SetFuncP(void *const table[10]) noexcept
{
    if (table == nullptr)
        return RET_PUB_INVAL_PARAM;
    const auto enabled = [table](size_t nSlot, size_t nOther, const char *pszAbsent) {
        if (table[nSlot] != nullptr || table[nOther] != nullptr)
            return 1;
        QV_LOG(kLogAppIc, "%s", pszAbsent);
        return 0;
    };
    g_stCallBackFunc.nOpen = enabled(qv::kSlotOpen, qv::kSlotOpen, " OpenDevice  NULL");
    g_stCallBackFunc.nClose = enabled(qv::kSlotClose, qv::kSlotClose, " CloseDevice  NULL");
    g_stCallBackFunc.nPowerUp = enabled(qv::kSlotPowerUp, qv::kSlotPowerUpSlot, " PowerUp  NULL");
    g_stCallBackFunc.nPowerDown = enabled(qv::kSlotPowerDown, qv::kSlotPowerDownSlot, " PowerDown  NULL");
    g_stCallBackFunc.nCommRW = enabled(qv::kSlotExchange, qv::kSlotExchangeSlot, " CommRW  NULL");
    std::copy_n(table, s_table.size(), s_table.begin());
    return giveTable();
}

int32_t CloseDev(void) noexcept
{
    return Dev_Rdz_Ic_ClosePort();
}

int32_t DevOpenPort(const char *port, const char *parameter, uint32_t type, uint32_t reserved, int32_t baud) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    if (isOff(g_stCallBackFunc.nOpen, __func__))
        return 0;
    return Dev_Rdz_Ic_OpenPort(port, reinterpret_cast<const uint8_t *>(parameter), type, reserved, baud);
}

int32_t DevClosePort(void) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    if (isOff(g_stCallBackFunc.nClose, __func__))
        return 0;
    return Dev_Rdz_Ic_ClosePort();
}

int32_t DevPowerOn(uint8_t slotChar, uint8_t *atr, uint32_t *atrLen) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    return g_stCallBackFunc.nPowerUp == 0 ? 0 : Dev_Rdz_IccPowerOn(slotChar, atr, atrLen);
}

int32_t DevPowerOnSlot(int32_t slot, uint8_t *atr, uint32_t *atrLen) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    return g_stCallBackFunc.nPowerUp == 0 ? 0 : Dev_Rdz_IccPowerOnSlot(slot, atr, atrLen);
}

int32_t DevPowerOff(void) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    if (isOff(g_stCallBackFunc.nPowerDown, __func__))
        return 0;
    return COMM_Icc_CardReaderPowerOff(COMM_Icc_CardReaderGetCardSlot());
}

int32_t DevPowerOffSlot(int32_t slot) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    if (isOff(g_stCallBackFunc.nPowerDown, __func__))
        return 0;
    return COMM_Icc_CardReaderPowerOff(slot);
}

int32_t DevSendCmd(const uint8_t *command, uint32_t len, uint8_t *resp, uint32_t *respLen) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    return ICC_CardCmdVisitCOS(command, len, resp, respLen);
}

int32_t DevSendCmdSlot(int32_t slot, const uint8_t *command, uint32_t len, uint8_t *resp, uint32_t *respLen) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start", __func__);
    COMM_Icc_CardReaderSetCardSlot(slot);
    return ICC_CardCmdVisitCOS(command, len, resp, respLen);
}

int32_t QV_APP_SetDevPowerOnTimeout(uint32_t seconds) noexcept
{
    if (g_stCallBackFunc.nPowerUp != 0)
        Dev_Rdz_SetPowerOnTime(seconds);
    return 0;
}
