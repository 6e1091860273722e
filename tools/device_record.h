// device_record.h - the reader's device record taken apart.
#pragma once

#include "hex.h"

#include <string>

namespace qvtool {

struct DeviceRecord {
    std::string sModel;
    std::string sSerial;
    std::string sDate;     // "2024-03-15"; hexadecimal digits where the reader's are no date
    std::string sVersion;  // "1.02.03.04"
    std::string sVersion2; // the same of the second number
    std::string sMac;      // empty: this model has none
};

constexpr size_t nDeviceRecordSize = 86;
constexpr size_t nLeastDeviceRecord = 80; // all but the MAC address, which most models do not have

// record: at least nDeviceRecordSize bytes; what the reader did not send is 0.
DeviceRecord decodeDeviceRecord(BytesView record);

} // namespace qvtool
