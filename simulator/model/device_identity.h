// What the reader tells about itself, and the record in which it tells it.
//
//   offset  length  content
//   0       32      model, padded with blanks
//   32      32      serial number, padded with blanks
//   64      4       production date, binary-coded decimal: day, month, year low, year high
//   68      4       firmware version, last part first
//   72      4       zero
//   76      4       second version, last part first
//   80      6       MAC address
#pragma once

#include "model/bytes.h"

#include <array>

namespace qvsim {

constexpr std::size_t kDeviceRecordBytes = 86;
constexpr std::size_t kDeviceTextBytes = 32;

// Numbers stand in the order of speech: year before day, first part of a version first.
struct DeviceIdentity {
    std::string model = "QVSIM";
    std::string serial = "SIM00000001";
    std::array<std::uint8_t, 4> date{0x20, 0x26, 0x03, 0x01};
    std::array<std::uint8_t, 4> version{0x01, 0x00, 0x00, 0x00};
    std::array<std::uint8_t, 4> version2{0x01, 0x00, 0x00, 0x00};
    std::array<std::uint8_t, 6> mac{0x02, 0x51, 0x56, 0x53, 0x49, 0x4D};
};

// `field`: model, serial, date (YYYYMMDD), version, version2 (four hexadecimal bytes with dots) or mac (six bytes).
// Returns what is wrong with it; the identity is then as it was.
std::optional<std::string> setDeviceField(DeviceIdentity &device, std::string_view field, std::string_view value);

Bytes deviceRecord(const DeviceIdentity &device);

} // namespace qvsim
