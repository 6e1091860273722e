#include "report.h"

#include "atr.h"
#include "texts.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace qvtool {

namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

const char *exitName(int nCode)
{
    for (const ExitRow &row : exitTable)
        if (static_cast<int>(row.nCode) == nCode)
            return row.pszName;
    return "cancelled"; // 128 plus a signal
}

void addText(cJSON *pObject, const char *pszName, const std::string &sText)
{
    cJSON_AddStringToObject(pObject, pszName, sText.c_str());
}

void addNumber(cJSON *pObject, const char *pszName, double nValue)
{
    cJSON_AddNumberToObject(pObject, pszName, nValue);
}

// "\xE9" in a port name is no JSON: everything outside ASCII that is not well-formed UTF-8 becomes "?".
std::string utf8(std::string_view sText)
{
    std::string sOut;
    for (size_t n = 0; n < sText.size();) {
        auto at = [&](size_t i) { return i < sText.size() ? static_cast<unsigned char>(sText[i]) : 0U; };
        unsigned nLead = at(n);
        size_t nLen = nLead < 0x80                     ? 1
                      : nLead >= 0xC2 && nLead <= 0xDF ? 2
                      : nLead >= 0xE0 && nLead <= 0xEF ? 3
                      : nLead >= 0xF0 && nLead <= 0xF4 ? 4
                                                       : 0;
        bool bGood = nLen > 0;
        for (size_t i = 1; i < nLen; ++i)
            bGood = bGood && (at(n + i) & 0xC0) == 0x80;
        bool bOverlong = (nLead == 0xE0 && at(n + 1) < 0xA0) || (nLead == 0xF0 && at(n + 1) < 0x90) ||
                         (nLead == 0xED && at(n + 1) > 0x9F) || (nLead == 0xF4 && at(n + 1) > 0x8F);
        if (!bGood || bOverlong) {
            sOut += '?';
            ++n;
            continue;
        }
        sOut += sText.substr(n, nLen);
        n += nLen;
    }
    return sOut;
}

void addError(cJSON *pRoot, int nCode, const std::string &sText, std::optional<int32_t> nResult)
{
    cJSON *pError = cJSON_AddObjectToObject(pRoot, "error");
    addText(pError, "name", exitName(nCode));
    addText(pError, "text", utf8(sText));
    if (nResult)
        addNumber(pError, "result", *nResult);
    if (nResult && isReaderStatus(*nResult))
        addText(pError, "readerStatus", hexWord(static_cast<uint32_t>(-*nResult)));
}

void addExchanges(cJSON *pRoot, const std::vector<Exchange> &exchanges)
{
    cJSON *pList = cJSON_AddArrayToObject(pRoot, "exchanges");
    for (const Exchange &exchange : exchanges) {
        cJSON *pItem = cJSON_CreateObject();
        cJSON_AddItemToArray(pList, pItem);
        addText(pItem, "command", hexText(exchange.command));
        addText(pItem, "data", hexText(exchange.data()));
        addText(pItem, "sw", hexWord(exchange.status()));
        addText(pItem, "meaning", cardStatusText(exchange.status()));
        addNumber(pItem, "milliseconds", static_cast<double>(exchange.nMillis));
    }
}

void addAtrParts(cJSON *pRoot, const Bytes &atr)
{
    cJSON *pList = cJSON_AddArrayToObject(pRoot, "atrParts");
    for (const AtrPart &part : decodeAtr(atr)) {
        cJSON *pItem = cJSON_CreateObject();
        cJSON_AddItemToArray(pList, pItem);
        addText(pItem, "name", part.sName);
        addText(pItem, "data", hexText(part.data));
        addText(pItem, "meaning", part.sMeaning);
    }
}

std::string printed(const Json &root)
{
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(root.get()), &cJSON_free);
    return text ? std::string(text.get()) + "\n" : std::string();
}

} // namespace

int Report::exitCode() const
{
    if (failure)
        return static_cast<int>(failure->nCode);
    if (!exchanges.empty() && !isCardSuccess(exchanges.back().status()))
        return static_cast<int>(Exit::cardError);
    return static_cast<int>(Exit::ok);
}

std::string atrText(const Bytes &atr, bool bDecode)
{
    std::string sText = "ATR " + spacedHex(atr) + "\n";
    if (!bDecode)
        return sText;
    for (const AtrPart &part : decodeAtr(atr)) {
        std::string sLine = "  " + part.sName;
        sLine.resize(std::max<size_t>(sLine.size() + 1, 13), ' ');
        sText += sLine + spacedHex(part.data) + (part.sMeaning.empty() ? "" : "  " + part.sMeaning) + "\n";
    }
    return sText;
}

std::string exchangeText(const Exchange &exchange)
{
    std::string sText = hexText(exchange.command) + " -> ";
    if (exchange.response.size() > 2)
        sText += hexText(exchange.data()) + " ";
    sText += hexWord(exchange.status());
    std::string sMeaning = cardStatusText(exchange.status());
    if (exchange.status() != 0x9000 && !sMeaning.empty())
        sText += "  (" + sMeaning + ")";
    return sText + "\n";
}

std::string jsonText(const Report &report)
{
    Json root(cJSON_CreateObject(), &cJSON_Delete);
    addText(root.get(), "command", report.options.command == Command::atr ? "atr" : "apdu");
    addText(root.get(), "port", utf8(report.options.sPort));
    if (!report.sDevice.empty())
        addText(root.get(), "device", utf8(report.sDevice));
    addNumber(root.get(), "baud", report.options.nBaud);
    addNumber(root.get(), "slot", report.options.nSlot);
    if (!report.atr.empty()) {
        addText(root.get(), "atr", hexText(report.atr));
        if (report.options.bDecodeAtr)
            addAtrParts(root.get(), report.atr);
    }
    if (report.options.command == Command::apdu)
        addExchanges(root.get(), report.exchanges);
    if (report.failure)
        addError(root.get(), report.exitCode(), report.failure->sText, report.failure->nResult);
    addNumber(root.get(), "exitCode", report.exitCode());
    return printed(root);
}

std::string usageJson(const std::string &sError)
{
    constexpr int nCode = static_cast<int>(Exit::usage);
    Json root(cJSON_CreateObject(), &cJSON_Delete);
    addError(root.get(), nCode, sError, std::nullopt);
    addNumber(root.get(), "exitCode", nCode);
    return printed(root);
}

} // namespace qvtool
