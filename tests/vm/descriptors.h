// descriptors.h - what the emulated reader tells the bus about itself.
//
// Interface i has the endpoints IN 0x81 + i and OUT 0x01 + i, each of 64 bytes.
#pragma once

#include "model/bytes.h"

namespace qvvm {

using qvsim::Bytes;
using qvsim::BytesView;

constexpr std::size_t kReportSize = 64;

struct InterfaceShape {
    bool isHid = true;     // interrupt endpoints, taken by the kernel's HID driver; else bulk ones that no driver wants
    unsigned settings = 1; // alternate settings, all alike
};

struct DeviceShape {
    std::uint16_t vendor = 0x2B46;
    std::uint16_t product = 0xBE11;
    std::vector<InterfaceShape> interfaces{{}, {}};
};

Bytes deviceDescriptor(const DeviceShape &shape);
Bytes configurationDescriptor(const DeviceShape &shape);
// Empty when there is no such string.
Bytes stringDescriptor(unsigned index);
// Reports of 64 bytes both ways, without report ids.
Bytes reportDescriptor();

} // namespace qvvm
