// Four decimal digits may be a number or a status word; a negative number may be a code of the library or minus a
// status word of the reader; a small positive one depends on the function that gave it. Every set is asked.
#include "codes.h"

#include "hex.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace qvtool {

namespace {

struct CodeRow {
    int32_t nCode;
    const char *pszSet;
    const char *pszText;
};

constexpr char szTransport[] = "transport and packet layer";
constexpr char szDevice[] = "device layer";
constexpr char szScan[] = "slot scan (DealCardSlot, Dev_Rdz_Ic_DetectCard)";
constexpr char szWhich[] = "which card (ICC_RDZ73xxCHECKCARD)";
constexpr char szKind[] = "card kind (COMM_Icc_detectMulCard)";
constexpr char szAny[] = "any call";
constexpr char szEngine[] = "magnetic stripe, engine codes (APP_Msg_..., MSG_QV_...)";
constexpr char szTy[] = "magnetic stripe, TY codes (Linux_QV_...MsgCard)";
constexpr char szStandard[] = "magnetic stripe, standard codes (MS_ReadCard, MS_WriteCard)";

constexpr std::array<CodeRow, 67> codeTable{{
    {0, szAny, "done"},
    {0, szWhich, "contact card or identity card"},
    {1, szScan, "contactless card powered up; the current slot is 255"},
    {1, szWhich, "contactless card"},
    {1, szKind, "contact card"},
    {1, "LEDs (COMM_Icc_SetLEDStatus, ...Ex)", "the exchange failed"},
    {1, "line speed (COMM_Icc_CardReaderSynBps)", "the reader could not be written to"},
    {2, szScan, "contact card found"},
    {2, szWhich, "magnetic card"},
    {2, szKind, "contactless card"},
    {3, szScan, "contact card found, but it gives no answer (status 1004)"},
    {3, szKind, "magnetic card"},
    {4, szScan, "no card in the contact slot"},
    {4, szKind, "identity card"},
    {6, szScan, "contactless card not usable (status 3006)"},
    {7, szScan, "no contactless card, or it does not answer (status 3001, 3004, 3007, 3008 or 3009)"},
    {-1, szTransport, "refused by the device or by the system, or nothing was ever opened"},
    {-1, szWhich, "unknown kind of card"},
    {-1, "buzzer and device record", "the reader sent no reply byte"},
    {-1, "JSON call (DEV_CommCall)", "wrong function code, the port would not open, or no answer"},
    {-2, szTransport, "wrong argument, or no port is open"},
    {-2, szDevice, "null argument, unknown port name or invalid slot"},
    {-3, szTransport, "the port would not open"},
    {-4, szTransport, "the reply is no valid frame (line noise, wrong speed, or another device)"},
    {-4, szKind, "unknown kind of card"},
    {-50, szDevice, "this reader or this mode is not supported"},
    {-51, szDevice, "the port could not be opened or set up, or the line not be raised"},
    {-54, szTransport, "the command could not be sent"},
    {-54, "command to a card", "the command is too long"},
    {-55, szTransport, "reading from the port failed"},
    {-55, "command to a card", "the answer has 1024 bytes or more"},
    {-55, "sign of life (Dev_Rdz_Ic_ChkDevPresent)", "no answer, or none that is a frame"},
    {-56, szTransport, "no complete reply in time"},
    {-57, szTransport, "the read was cancelled"},
    {-99, szScan, "the contactless side failed in another way"},
    {-100, "JSON call (DEV_CommCall)", "null argument, or a negative port number or time-out"},
    {-1, szEngine, "a command that is not answered could not be sent"},
    {-2, szEngine, "wrong time-out, port name, buffers or text; nothing was read or written"},
    {-4, szEngine, "the reply, or the answer how it went, is not as it should be; over USB also no card"},
    {-5, szEngine, "the card was swiped but could not be read"},
    {-6, szEngine, "the card could not be written, or none came in time; or no usable set of texts"},
    {-9, szEngine, "nothing is recorded on the card"},
    {-50, szEngine, "the reader could not be opened"},
    {-54, szEngine, "the command could not be sent"},
    {-55, szEngine, "reading from the port failed, or the reader did not accept the separator"},
    {-56, szEngine, "no card came in time, or the reader did not answer"},
    {-57, szEngine, "cancelled"},
    {-100, szEngine, "the reader refused to write, with another status word"},
    {-1, szTy, "the reader could not be opened"},
    {-2, szTy, "the command could not be sent"},
    {-3, szTy, "reading from the port failed, or the reader did not accept the separator"},
    {-4, szTy, "the reply, or the answer how it went, is not as it should be; over USB also no card"},
    {-5, szTy, "the card was swiped but could not be read"},
    {-6, szTy, "the card could not be written, or none came in time; or no usable set of texts"},
    {-7, szTy, "cancelled"},
    {-8, szTy, "no card came in time, or the reader did not answer"},
    {-9, szTy, "wrong time-out, port name, buffers or text; nothing was read or written"},
    {-10, szTy, "nothing is recorded on the card; the only code here without a message of its own"},
    {-100, szTy, "anything else, also a command that could not be sent because it is not answered"},
    {-2, szStandard, "made of the engine code -8, which the engine does not give"},
    {-3, szStandard, "a command that is not answered could not be sent (engine code -1)"},
    {-6, szStandard,
     "the reply, or the answer how it went, is not as it should be (engine code -4); over USB also no card"},
    {-10, szStandard, "wrong time-out, port name, buffers or text (engine code -2)"},
    {-11, szStandard, "made of the engine code -3, which the engine does not give"},
    {-23, szStandard, "made of the engine code -7, which the engine does not give"},
    {-99, szStandard, "anything else: not opened, no card in time, cancelled, read or write fault, nothing recorded"},
    {0, szTy, "done"},
}};

struct StripeStatusRow {
    int64_t nWord;
    const char *pszText;
};

constexpr std::array<StripeStatusRow, 2> stripeStatusTable{{
    {0x4001, "no data on the card; of a write: it failed"},
    {0x4002, "the card could not be read"},
}};

constexpr int64_t nHighestWord = 0xFFFF;
constexpr int64_t nLowestWord = 0x0100;
constexpr int64_t nNoCardStatus = 0xAAAA;

void addMeaning(Explanation &out, std::string sReading, const char *pszSet, std::string sText)
{
    auto same = [&](const Meaning &meaning) { return meaning.sSet == pszSet && meaning.sText == sText; };
    if (std::none_of(out.meanings.begin(), out.meanings.end(), same))
        out.meanings.push_back({std::move(sReading), pszSet, std::move(sText), std::nullopt, {}});
}

void asCode(Explanation &out, int64_t nCode)
{
    for (const CodeRow &row : codeTable)
        if (row.nCode == nCode) {
            addMeaning(out, std::to_string(nCode), row.pszSet, row.pszText);
            if (row.pszSet == szTy && out.meanings.back().sSet == szTy)
                out.meanings.back().tyCode = row.nCode;
        }
}

void asReaderStatus(Explanation &out, int64_t nWord, const char *pszSet, const std::string &sReading)
{
    std::string sText = readerStatusText(static_cast<uint32_t>(nWord));
    if (!sText.empty())
        addMeaning(out, sReading, pszSet, sText);
}

void asWord(Explanation &out, int64_t nWord)
{
    if (nWord < 0 || nWord > nHighestWord)
        return;
    const std::string sReading = "SW " + hexWord(static_cast<uint32_t>(nWord));
    asReaderStatus(out, nWord, "status word of the reader", sReading);
    for (const StripeStatusRow &row : stripeStatusTable)
        if (row.nWord == nWord)
            addMeaning(out, sReading, "status word of the stripe head", row.pszText);
    std::string sCard = cardStatusText(static_cast<uint32_t>(nWord));
    if (!sCard.empty())
        addMeaning(out, sReading, "status word of the card (ISO 7816-4)", sCard);
    if (nWord == nNoCardStatus)
        addMeaning(out, sReading, "last card status word (ICC_CardCmdGetErrCode)", "the last exchange failed");
}

void asNumber(Explanation &out, int64_t nValue)
{
    if (nValue > INT32_MAX && nValue <= UINT32_MAX) // a negative result that was shown without its sign
        nValue -= int64_t{UINT32_MAX} + 1;
    asCode(out, nValue);
    if (nValue <= -nLowestWord && nValue >= -nHighestWord) {
        const std::string sReading = std::to_string(nValue) + ", minus " + hexWord(static_cast<uint32_t>(-nValue));
        asReaderStatus(out, -nValue, "minus the reader's status word", sReading);
        if (out.meanings.empty())
            addMeaning(out, sReading, "minus the reader's status word", "nothing is known about this word");
    }
    asWord(out, nValue);
}

std::optional<int64_t> whole(std::string_view sDigits, int nBase)
{
    int64_t nValue = 0;
    const char *pEnd = sDigits.data() + sDigits.size();
    const auto [pAt, nError] = std::from_chars(sDigits.data(), pEnd, nValue, nBase);
    if (nError != std::errc() || pAt != pEnd || nValue > int64_t{UINT32_MAX} || nValue < INT32_MIN)
        return std::nullopt;
    return nValue;
}

} // namespace

Explanation explain(std::string_view sText)
{
    constexpr size_t nWordDigits = 4;
    Explanation out;
    std::string_view sDigits = sText.starts_with('-') ? sText.substr(1) : sText;
    if (sDigits.empty() || sDigits[0] == '-')
        return out;
    const int64_t nSign = sDigits.size() < sText.size() ? -1 : 1;
    if (sDigits.starts_with("0x") || sDigits.starts_with("0X")) {
        std::string_view sHex = sDigits.substr(2);
        if (sHex.starts_with('-'))
            return out;
        if (std::optional<int64_t> nValue = whole(sHex, 16)) {
            out.bNumber = true;
            asNumber(out, nSign * *nValue);
        }
        return out;
    }
    if (nSign > 0 && sDigits.size() == nWordDigits) {
        if (std::optional<int64_t> nWord = whole(sDigits, 16)) {
            out.bNumber = true;
            asWord(out, *nWord);
        }
    }
    if (std::optional<int64_t> nValue = whole(sDigits, 10)) {
        out.bNumber = true;
        asNumber(out, nSign * *nValue);
        if (out.meanings.empty() && nSign > 0) // the sign is often lost on the way
            asCode(out, -*nValue);
    }
    return out;
}

} // namespace qvtool
