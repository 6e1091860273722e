//   offset   bytes   field
//   0        2       transaction counter, online or offline
//   2        3       overdraft limit
//   5        4       amount
//   9        1       transaction type
//   10       6       terminal number
//   16       4       date, YYYYMMDD
//   20       3       time, hhmmss
#include "model/purse_log.h"

#include "model/big_endian.h"

namespace qvsim {

void PurseLog::add(const LogEntry &entry)
{
    Bytes record;
    record.reserve(kLogRecordBytes);
    appendNumber(record, entry.counter, 2);
    appendNumber(record, entry.overdraft, 3);
    appendNumber(record, entry.amount, 4);
    record.push_back(entry.type);
    appendBytes(record, entry.terminal);
    appendBytes(record, entry.dateTime);
    records_.push_front(std::move(record));
    if (records_.size() > kLogRecords)
        records_.pop_back();
}

BytesView PurseLog::record(unsigned number) const
{
    if (number == 0 || number > records_.size())
        return {};
    return records_[number - 1];
}

} // namespace qvsim
