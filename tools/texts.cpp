// Tables of texts: a row per code.
#include "texts.h"

#include "hex.h"

#include <array>

namespace qvtool {

namespace {

struct ResultRow {
    int32_t nResult;
    const char *pszText;
};

constexpr std::array<ResultRow, 10> resultTable{{
    {-1, "refused by the device or by the system"},
    {-2, "wrong argument, or no port is open"},
    {-3, "the port would not open"},
    {-4, "the reply is no valid frame (line noise, wrong speed, or another device)"},
    {-50, "this reader or this mode is not supported"},
    {-51, "the port could not be opened or set up"},
    {-54, "the command could not be sent"},
    {-55, "reading from the port failed"},
    {-56, "no complete reply in time"},
    {-57, "cancelled"},
}};

struct StatusRow {
    uint32_t nStatus;
    const char *pszText;
};

constexpr uint32_t nNoContactCard = 0x1005;
constexpr uint32_t nNoContactlessCard = 0x3001;

constexpr std::array<StatusRow, 17> readerTable{{
    {0x0000, "done"},
    {0x1001, "no such slot"},
    {0x1003, "card present but not powered"},
    {0x1004, "the card gives no answer to power-on (mute, or put in the wrong way round)"},
    {nNoContactCard, "no card"},
    {0x1006, "the card stopped answering"},
    {0x1007, "the card's answer does not fit a frame"},
    {nNoContactlessCard, "no card on the antenna"},
    {0x3004, "card present but not powered"},
    {0x3006, "contactless card not usable"},
    {0x3007, "the contactless card gives no answer to power-on"},
    {0x3008, "the contactless card stopped answering"},
    {0x3009, "the contactless card's answer does not fit a frame"},
    {0xF000, "the reader found no command in the frame"},
    {0xF001, "command not known to the reader"},
    {0xF002, "the reader knows the command, but not of this length"},
    {0xF003, "the reader knows no such kind of card"},
}};

struct CardRow {
    uint32_t nStatus;
    uint32_t nMask;
    const char *pszText;
};

// ISO/IEC 7816-4 and JR/T 0025.1; the first row that fits counts.
constexpr std::array<CardRow, 59> cardTable{{
    {0x9000, 0xFFFF, "success"},
    {0x6100, 0xFF00, "more data waits"},
    {0x6200, 0xFFFF, "warning, nothing was changed"},
    {0x6281, 0xFFFF, "warning: data may be corrupted"},
    {0x6282, 0xFFFF, "warning: end of file before the wanted length"},
    {0x6283, 0xFFFF, "warning: file or application is blocked"},
    {0x6284, 0xFFFF, "warning: file control information is not formatted as the standard says"},
    {0x6285, 0xFFFF, "warning: the file is terminated"},
    {0x6286, 0xFFFF, "warning: no input from a sensor on the card"},
    {0x6287, 0xFFFF, "warning: a record is deactivated"},
    {0x6200, 0xFF00, "warning, nothing was changed"},
    {0x6381, 0xFFFF, "warning: the file is full"},
    {0x63C0, 0xFFF0, "wrong, tries left stand in the last digit"},
    {0x6300, 0xFF00, "warning, something was changed"},
    {0x6401, 0xFFFF, "error, the card needs an immediate answer"},
    {0x6400, 0xFF00, "error, nothing was changed"},
    {0x6581, 0xFFFF, "memory failure"},
    {0x6500, 0xFF00, "error, something was changed"},
    {0x6600, 0xFF00, "security problem"},
    {0x6700, 0xFF00, "wrong length"},
    {0x6881, 0xFFFF, "logical channel not supported"},
    {0x6882, 0xFFFF, "secure messaging not supported"},
    {0x6883, 0xFFFF, "last command of a chain expected"},
    {0x6884, 0xFFFF, "command chaining not supported"},
    {0x6800, 0xFF00, "function of the class byte not supported"},
    {0x6981, 0xFFFF, "command does not fit the kind of file"},
    {0x6982, 0xFFFF, "security condition not met"},
    {0x6983, 0xFFFF, "authentication is blocked"},
    {0x6984, 0xFFFF, "referenced data not usable"},
    {0x6985, 0xFFFF, "conditions of use not met"},
    {0x6986, 0xFFFF, "no current file"},
    {0x6987, 0xFFFF, "secure messaging data missing"},
    {0x6988, 0xFFFF, "secure messaging data wrong"},
    {0x6901, 0xFFFF, "command not accepted in this state"},
    {0x6900, 0xFF00, "command not allowed"},
    {0x6A80, 0xFFFF, "wrong data"},
    {0x6A81, 0xFFFF, "function not supported"},
    {0x6A82, 0xFFFF, "file or application not found"},
    {0x6A83, 0xFFFF, "record not found"},
    {0x6A84, 0xFFFF, "not enough memory in the file"},
    {0x6A85, 0xFFFF, "length does not fit the structure of the data"},
    {0x6A86, 0xFFFF, "wrong P1 or P2"},
    {0x6A87, 0xFFFF, "length does not fit P1 and P2"},
    {0x6A88, 0xFFFF, "referenced data not found"},
    {0x6A89, 0xFFFF, "file exists already"},
    {0x6A8A, 0xFFFF, "application name exists already"},
    {0x6A00, 0xFF00, "wrong parameters"},
    {0x6B00, 0xFF00, "P1 and P2 outside the file"},
    {0x6C00, 0xFF00, "wrong Le, the right one stands in the last two digits"},
    {0x6D00, 0xFF00, "instruction not known to the card"},
    {0x6E00, 0xFF00, "class not known to the card"},
    {0x6F00, 0xFF00, "error without a diagnosis"},
    {0x9301, 0xFFFF, "not enough money"},
    {0x9302, 0xFFFF, "wrong MAC"},
    {0x9303, 0xFFFF, "the application is locked for good"},
    {0x9401, 0xFFFF, "not enough money"},
    {0x9402, 0xFFFF, "the transaction counter is at its end"},
    {0x9403, 0xFFFF, "no key of this index"},
    {0x9406, 0xFFFF, "the MAC asked for is not there"},
}};

constexpr int32_t nHighestStatus = 0xFFFF;
constexpr int32_t nLowestStatus = 0x0100; // nearer to zero are the library's own codes

} // namespace

const char *cardKindName(uint32_t nKind)
{
    constexpr std::array<const char *, 4> names{"contact", "contactless", "magnetic", "identity"}; // from kind 1 on
    return nKind >= 1 && nKind <= names.size() ? names[nKind - 1] : nullptr;
}

bool isReaderStatus(int32_t nResult)
{
    return nResult >= -nHighestStatus && nResult <= -nLowestStatus;
}

bool isNoCard(int32_t nResult)
{
    return nResult == -static_cast<int32_t>(nNoContactCard) || nResult == -static_cast<int32_t>(nNoContactlessCard);
}

std::string readerStatusText(uint32_t nStatus)
{
    for (const StatusRow &row : readerTable)
        if (row.nStatus == nStatus)
            return row.pszText;
    return {};
}

std::string resultText(int32_t nResult)
{
    if (isReaderStatus(nResult)) {
        uint32_t nStatus = static_cast<uint32_t>(-nResult);
        std::string sText = readerStatusText(nStatus);
        return "the reader reports " + hexWord(nStatus) + (sText.empty() ? "" : ": " + sText);
    }
    for (const ResultRow &row : resultTable)
        if (row.nResult == nResult)
            return row.pszText;
    return "result " + std::to_string(nResult);
}

std::string cardStatusText(uint32_t nStatus)
{
    for (const CardRow &row : cardTable)
        if ((nStatus & row.nMask) == row.nStatus)
            return row.pszText;
    return {};
}

bool isCardSuccess(uint32_t nStatus)
{
    return nStatus == 0x9000 || (nStatus & 0xFF00) == 0x6100;
}

std::string slotText(int32_t nSlot)
{
    if (nSlot == 255)
        return "the contactless antenna";
    if (nSlot >= 16 && nSlot <= 31)
        return "PSAM " + std::to_string(nSlot - 16);
    return "slot " + std::to_string(nSlot);
}

} // namespace qvtool
