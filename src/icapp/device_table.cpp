// device_table.cpp - the device operations, through the table that the kernel owns and fills. It is read anew at each
// call. While every slot is null there is no kernel, and the operations are the reader's own.

#include "device_table.h"

#include <algorithm>
#include <iterator>

void *stICOp[qv::kDeviceSlots] = {};

namespace {

constexpr uint32_t nReaderType = 1;

bool isEmpty() noexcept
{
    return std::all_of(std::begin(stICOp), std::end(stICOp), [](const void *p) { return p == nullptr; });
}

// The operation in a slot; null: the table has none.
template <typename Fn> Fn *operation(qv::DeviceSlot slot) noexcept
{
    return reinterpret_cast<Fn *>(stICOp[slot]);
}

} // namespace

namespace qv {

int32_t openDevice(const char *pszPort, const char *pszParameter, int32_t nBaud) noexcept
{
    if (pszParameter == nullptr)
        pszParameter = ""; // an operation of a host or kernel may not expect a null pointer
    if (isEmpty())
        return Dev_Rdz_Ic_OpenPort(pszPort, reinterpret_cast<const uint8_t *>(pszParameter), nReaderType, 0, nBaud);
    const auto pOpen = operation<int32_t(const char *, const char *, uint32_t, uint32_t, int32_t)>(kSlotOpen);
    return pOpen == nullptr ? 0 : pOpen(pszPort, pszParameter, nReaderType, 0, nBaud);
}

int32_t closeDevice() noexcept
{
    if (isEmpty())
        return Dev_Rdz_Ic_ClosePort();
    const auto pClose = operation<int32_t()>(kSlotClose);
    return pClose == nullptr ? 0 : pClose();
}

int32_t powerDownDevice(int32_t nBefore) noexcept
{
    if (isEmpty())
        return COMM_Icc_CardReaderPowerOff(COMM_Icc_CardReaderGetCardSlot());
    const auto pPowerDown = operation<int32_t()>(kSlotPowerDown);
    return pPowerDown == nullptr ? nBefore : pPowerDown();
}

int32_t exchangeWithCard(const uint8_t *pCommand, uint32_t nLen, uint8_t *pResponse, uint32_t *pnResponse) noexcept
{
    if (isEmpty())
        return ICC_CardCmdVisitCOS(pCommand, nLen, pResponse, pnResponse);
    const auto pExchange = operation<int32_t(const uint8_t *, uint32_t, uint8_t *, uint32_t *)>(kSlotExchange);
    return pExchange == nullptr ? static_cast<int32_t>(RET_PUB_FAIL) : pExchange(pCommand, nLen, pResponse, pnResponse);
}

} // namespace qv
