// device_record.cpp - the device record of a reply frame.
//
//     frame    head | 4 length characters | 4 status characters | body characters | 2 LRC characters | end
//     record    0  32  model, blanks behind it        68  4  firmware version, lowest part first
//              32  32  serial number, the same        72  4  not used
//              64   4  production date, BCD:          76  4  a second version
//                      day, month, year low, high     80  6  MAC address (one model only)

#include "device_record.h"

#include "qvreader/devcall.h"

#include <algorithm>
#include <string_view>

namespace qv {

namespace {

constexpr size_t nBodyAt = 9; // of the frame
constexpr size_t nTail = 3;   // LRC and end byte
constexpr size_t nTextSize = 32;
constexpr size_t nSerialAt = 32, nDateAt = 64, nVersionAt = 68, nVersion2At = 76, nMacAt = 80;

constexpr std::string_view sOldModel = "VXTA-1                          ";
static_assert(sOldModel.size() == nTextSize);
constexpr const char *pszOldModelName = "RDZ-7350";
constexpr std::string_view sMacModel = "TL900";

} // namespace

DeviceRecord decodeDeviceRecord(std::span<const uint8_t> reply) noexcept
{
    std::array<uint8_t, 1024> body{};
    if (reply.size() >= nBodyAt + nTail) {
        const auto text = reply.subspan(nBodyAt, std::min(reply.size() - nBodyAt - nTail, 2 * body.size()));
        Str_RdzModeMergeData(text.data(), static_cast<int32_t>(text.size()), body.data());
    }
    DeviceRecord record{};
    std::copy_n(body.begin(), nTextSize, record.szModel.begin());
    std::copy_n(body.begin() + nSerialAt, nTextSize, record.szSerial.begin());
    std::copy_n(body.begin() + nDateAt, record.date.size(), record.date.begin());
    std::copy_n(body.begin() + nVersionAt, record.version.size(), record.version.begin());
    std::copy_n(body.begin() + nVersion2At, record.version2.size(), record.version2.begin());
    std::copy_n(body.begin() + nMacAt, record.mac.size(), record.mac.begin());
    return record;
}

const char *modelName(DeviceRecord &record) noexcept
{
    return record.szModel.data() == sOldModel ? pszOldModelName : strim(record.szModel.data());
}

bool hasMac(const DeviceRecord &record) noexcept
{
    return std::string_view(record.szModel.data()).starts_with(sMacModel);
}

} // namespace qv
