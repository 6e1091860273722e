// offset | bytes | content
//      0 |    32 | model, padded with blanks
//     32 |    32 | serial number, padded with blanks
//     64 |     4 | production date, BCD: day, month, year low, year high
//     68 |     4 | firmware version, lowest part first
//     76 |     4 | second version, lowest part first
//     80 |     6 | MAC address (TL900 only)
#include "device_record.h"

#include <array>
#include <cstdio>

namespace qvtool {

namespace {

constexpr size_t nTextSize = 32;
constexpr size_t nSerialAt = 32;
constexpr size_t nDateAt = 64;
constexpr size_t nVersionAt = 68;
constexpr size_t nVersion2At = 76;
constexpr size_t nMacAt = 80;
constexpr size_t nMacSize = 6;

std::string textAt(BytesView record, size_t nAt)
{
    std::string sText;
    for (uint8_t uc : record.subspan(nAt, nTextSize)) {
        if (uc == 0)
            break;
        sText += uc >= 0x20 && uc < 0x7F ? static_cast<char>(uc) : '?';
    }
    const size_t nBegin = sText.find_first_not_of(' ');
    if (nBegin == std::string::npos)
        return {};
    return sText.substr(nBegin, sText.find_last_not_of(' ') - nBegin + 1);
}

std::string versionAt(BytesView record, size_t nAt)
{
    std::array<char, 32> szText{};
    std::snprintf(szText.data(), szText.size(), "%x.%02x.%02x.%02x", record[nAt + 3], record[nAt + 2], record[nAt + 1],
                  record[nAt]);
    return szText.data();
}

std::string dateAt(BytesView record, size_t nAt)
{
    std::array<char, 32> szText{};
    std::snprintf(szText.data(), szText.size(), "%02x%02x-%02x-%02x", record[nAt + 3], record[nAt + 2], record[nAt + 1],
                  record[nAt]);
    return szText.data();
}

} // namespace

DeviceRecord decodeDeviceRecord(BytesView record)
{
    DeviceRecord decoded{textAt(record, 0),
                         textAt(record, nSerialAt),
                         dateAt(record, nDateAt),
                         versionAt(record, nVersionAt),
                         versionAt(record, nVersion2At),
                         {}};
    if (decoded.sModel.starts_with("TL900"))
        decoded.sMac = hexText(record.subspan(nMacAt, nMacSize));
    return decoded;
}

} // namespace qvtool
