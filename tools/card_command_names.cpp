// ISO 7816-4, EMV Book 3, JR/T 0025.1 and .2. A number that several commands share is told by its class and P1.
#include "card_command_names.h"

#include <array>

namespace qvtool {

namespace {

constexpr int nAny = -1;

struct NameRow {
    uint8_t ucClass;
    uint8_t ucIns;
    int nP1;
    const char *pszName;
};

constexpr std::array<NameRow, 23> nameTable{{
    {0x00, 0xA4, nAny, "SELECT"},
    {0x00, 0xB0, nAny, "READ BINARY"},
    {0x00, 0xB2, nAny, "READ RECORD"},
    {0x00, 0xD6, nAny, "UPDATE BINARY"},
    {0x00, 0x20, nAny, "VERIFY"},
    {0x00, 0x82, nAny, "EXTERNAL AUTHENTICATE"},
    {0x00, 0x84, nAny, "GET CHALLENGE"},
    {0x00, 0x88, nAny, "INTERNAL AUTHENTICATE"},
    {0x00, 0xC0, nAny, "GET RESPONSE"},
    {0x80, 0xA8, nAny, "GET PROCESSING OPTIONS"},
    {0x80, 0xAE, nAny, "GENERATE AC"},
    {0x80, 0xCA, nAny, "GET DATA"},
    {0x80, 0x5C, nAny, "GET BALANCE"},
    {0x80, 0x50, 0x00, "INITIALIZE FOR LOAD"},
    {0x80, 0x50, 0x01, "INITIALIZE FOR PURCHASE"},
    {0x80, 0x50, 0x02, "INITIALIZE FOR CASH WITHDRAW"},
    {0x80, 0x50, 0x05, "INITIALIZE FOR UNLOAD"},
    {0x80, 0x52, nAny, "CREDIT FOR LOAD"},
    {0x80, 0x54, 0x01, "DEBIT FOR PURCHASE / CASH WITHDRAW"},
    {0x80, 0x54, 0x03, "DEBIT FOR UNLOAD"},
    {0x80, 0x5A, nAny, "GET TRANSACTION PROVE"},
    {0x80, 0x70, nAny, "INIT SAM FOR PURCHASE"},
    {0x80, 0x72, nAny, "CREDIT SAM FOR PURCHASE"},
}};

} // namespace

const char *cardCommandName(BytesView command)
{
    constexpr size_t nHeader = 4;
    if (command.size() < nHeader)
        return nullptr;
    for (const NameRow &row : nameTable)
        if (row.ucClass == command[0] && row.ucIns == command[1] && (row.nP1 == nAny || row.nP1 == command[2]))
            return row.pszName;
    return nullptr;
}

} // namespace qvtool
