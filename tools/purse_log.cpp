//   offset   bytes   field
//   0        2       counter, online or offline
//   2        3       overdraft limit, cents
//   5        4       amount, cents
//   9        1       type of transaction
//   10       6       terminal number
//   16       4       date, YYYYMMDD in BCD
//   20       3       time, hhmmss in BCD
#include "purse_log.h"

#include "amounts.h"

#include <algorithm>
#include <array>

namespace qvtool {

namespace {

struct TypeRow {
    uint8_t ucType;
    const char *pszName;
};

constexpr std::array<TypeRow, 9> typeTable{{
    {0x01, "deposit load"},
    {0x02, "purse load"},
    {0x03, "unload"},
    {0x04, "deposit cash"},
    {0x05, "deposit purchase"},
    {0x06, "purse purchase"},
    {0x07, "overdraft change"},
    {0x08, "credit purchase"},
    {0x09, "composite purchase"},
}};

struct Column {
    const char *pszHead;
    size_t nWidth;
    bool bRight; // numbers stand at the right
};

constexpr std::array<Column, 8> columns{{
    {"no", 2, true},
    {"counter", 7, true},
    {"transaction", 18, false},
    {"amount", 11, true},
    {"overdraft", 9, true},
    {"terminal", 12, false},
    {"date", 10, false},
    {"time", 8, false},
}};

using Cells = std::array<std::string, columns.size()>;

std::string tableLine(const Cells &cells)
{
    std::string sLine;
    for (size_t n = 0; n < cells.size(); ++n) {
        const std::string sFill(columns[n].nWidth - std::min(columns[n].nWidth, cells[n].size()), ' ');
        sLine += (n == 0 ? "" : "  ") + (columns[n].bRight ? sFill + cells[n] : cells[n] + sFill);
    }
    sLine.resize(sLine.find_last_not_of(' ') + 1);
    return sLine + "\n";
}

uint32_t number(BytesView data)
{
    uint32_t nValue = 0;
    for (const uint8_t uc : data)
        nValue = nValue << 8 | uc;
    return nValue;
}

} // namespace

std::optional<PurseRecord> purseRecord(int nNumber, BytesView data)
{
    if (data.size() != nPurseRecord ||
        std::all_of(data.begin(), data.end(), [&](uint8_t uc) { return uc == data.front(); }))
        return std::nullopt;
    PurseRecord record;
    record.nNumber = nNumber;
    record.nCounter = number(data.first(2));
    record.nOverdraft = number(data.subspan(2, 3));
    record.nAmount = number(data.subspan(5, 4));
    record.ucType = data[9];
    record.terminal.assign(data.begin() + 10, data.begin() + 16);
    const std::string sDate = hexText(data.subspan(16, 4));
    const std::string sTime = hexText(data.subspan(20, 3));
    record.sDate = sDate.substr(0, 4) + "-" + sDate.substr(4, 2) + "-" + sDate.substr(6);
    record.sTime = sTime.substr(0, 2) + ":" + sTime.substr(2, 2) + ":" + sTime.substr(4);
    return record;
}

std::string purseTypeName(uint8_t ucType)
{
    for (const TypeRow &row : typeTable)
        if (row.ucType == ucType)
            return row.pszName;
    return "type " + hexText(std::array<uint8_t, 1>{ucType});
}

std::string purseTable(const std::vector<PurseRecord> &records)
{
    Cells head;
    std::transform(columns.begin(), columns.end(), head.begin(), [](const Column &column) { return column.pszHead; });
    std::string sTable = tableLine(head);
    for (const PurseRecord &record : records)
        sTable += tableLine({std::to_string(record.nNumber), std::to_string(record.nCounter),
                             purseTypeName(record.ucType), amountText(record.nAmount), amountText(record.nOverdraft),
                             hexText(record.terminal), record.sDate, record.sTime});
    return sTable;
}

} // namespace qvtool
