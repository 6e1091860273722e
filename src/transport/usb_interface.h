// usb_interface.h - which interface of a USB reader carries its channel, and by which endpoints.
#pragma once

#include "qvreader/transport.h"

namespace qv {

// Fills g_inep and g_outep and the number of the interface as far as the device's descriptors tell them. False: the
// device has no active configuration.
bool learnInterface(libusb_device *pDevice, uint32_t nVID, uint32_t nPID, uint8_t &ucInterface) noexcept;

} // namespace qv
