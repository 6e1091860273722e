// The transaction log of an electronic purse card (JR/T 0025.1-2005): a cyclic file of ten records.
#pragma once

#include "model/bytes.h"

#include <array>
#include <deque>

namespace qvsim {

constexpr std::size_t kLogRecords = 10;
constexpr std::size_t kLogRecordBytes = 23;

struct LogEntry {
    std::uint16_t counter;   // before the transaction raised it
    std::uint32_t overdraft; // limit, in cents
    std::uint32_t amount;    // in cents
    std::uint8_t type;
    BytesView terminal; // 6 bytes
    BytesView dateTime; // 4 bytes of date, 3 of time
};

class PurseLog {
  public:
    // The oldest record makes room.
    void add(const LogEntry &entry);
    // Number 1 is the newest. Empty: there is none.
    BytesView record(unsigned number) const;

  private:
    std::deque<Bytes> records_; // the newest in front
};

} // namespace qvsim
