// purse_log.h - records of an electronic purse card's transaction log (JR/T 0025.1, 2005; short file 18).
#pragma once

#include "hex.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

constexpr size_t nPurseRecord = 23; // bytes

struct PurseRecord {
    int nNumber = 0; // 1: the newest
    uint32_t nCounter = 0;
    uint32_t nOverdraft = 0; // cents
    uint32_t nAmount = 0;    // cents
    uint8_t ucType = 0;
    Bytes terminal;    // 6 bytes
    std::string sDate; // "2026-11-21"
    std::string sTime; // "21:50:00"
};

// Empty: not of that length, or a record that was never written (all bytes alike).
std::optional<PurseRecord> purseRecord(int nNumber, BytesView data);

// "purse load"; of an unknown type "type 0A".
std::string purseTypeName(uint8_t ucType);

// A head and a line for each record.
std::string purseTable(const std::vector<PurseRecord> &records);

} // namespace qvtool
