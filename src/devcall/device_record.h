// device_record.h - a reader's identity, as it tells it.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace qv {

// The decoded device record; what the reply does not hold is zero.
struct DeviceRecord {
    std::array<char, 33> szModel;  // with its blanks, NUL-terminated
    std::array<char, 33> szSerial; // the same
    std::array<uint8_t, 4> date;   // BCD: day, month, year low, year high
    std::array<uint8_t, 4> version;
    std::array<uint8_t, 4> version2;
    std::array<uint8_t, 6> mac;
};

// Takes the record out of a raw reply frame; its status word and LRC are not looked at.
DeviceRecord decodeDeviceRecord(std::span<const uint8_t> reply) noexcept;

// The model under the name that it is sold by, without blanks at its ends.
const char *modelName(DeviceRecord &record) noexcept;

// True: the only model that tells its MAC address.
bool hasMac(const DeviceRecord &record) noexcept;

} // namespace qv
