// usb_steps.h - what the checks of the USB channels share.
#pragma once

#include "steps.h"
#include "usb_reader.h"

#include "qvreader/qvreader.h"

namespace qvvm {

constexpr uint16_t nVendor = 0x2B46;   // the product that has its reader
constexpr uint16_t nProduct = 0xBE11;  // channel on its first interface
constexpr uint16_t nVendor2 = 0x0403;  // one that has it
constexpr uint16_t nProduct2 = 0xBCD5; // on its second

inline DeviceShape firstInterface()
{
    return {};
}
inline DeviceShape secondInterface()
{
    return {.vendor = nVendor2, .product = nProduct2};
}

} // namespace qvvm
