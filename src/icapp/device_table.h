// device_table.h - the way from the application layer to the reader: the kernel's device operation table, or the library's
// own reader functions while there is none.
#pragma once

#include "qvreader/icapp.h"

#include <cstddef>

namespace qv {

// Places in the table; the first and the last are reserved.
enum DeviceSlot : size_t {
    kSlotOpen = 1,
    kSlotClose,
    kSlotPowerUp,
    kSlotPowerUpSlot,
    kSlotPowerDown,
    kSlotPowerDownSlot,
    kSlotExchange,
    kSlotExchangeSlot,
    kDeviceSlots = 10
};

// Opens the reader (type 1). The operation's result; 0 where the table has no such operation.
int32_t openDevice(const char *pszPort, const char *pszParameter, int32_t nBaud) noexcept;

// Closes the reader. As above.
int32_t closeDevice() noexcept;

// Powers down the current slot. nBefore is the result so far, which stays where the table has no such operation.
int32_t powerDownDevice(int32_t nBefore) noexcept;

// One command and its response. -1 where the table has no such operation.
int32_t exchangeWithCard(const uint8_t *pCommand, uint32_t nLen, uint8_t *pResponse, uint32_t *pnResponse) noexcept;

} // namespace qv
