#include "report.h"

#include "atr.h"
#include "card_message.h"
#include "json.h"
#include "texts.h"

#include <algorithm>

namespace qvtool {

namespace {

void addExchanges(cJSON *pRoot, const std::vector<Exchange> &exchanges)
{
    cJSON *pList = cJSON_AddArrayToObject(pRoot, "exchanges");
    for (const Exchange &exchange : exchanges) {
        cJSON *pItem = appendObject(pList);
        addText(pItem, "command", hexText(exchange.command));
        addText(pItem, "data", hexText(exchange.data()));
        addText(pItem, "sw", hexWord(exchange.status()));
        addText(pItem, "meaning", cardStatusText(exchange.status()));
        addText(pItem, "text", cardMessage(exchange.status()));
        addNumber(pItem, "milliseconds", static_cast<double>(exchange.nMillis));
    }
}

void addAtrParts(cJSON *pRoot, const Bytes &atr)
{
    cJSON *pList = cJSON_AddArrayToObject(pRoot, "atrParts");
    for (const AtrPart &part : decodeAtr(atr)) {
        cJSON *pItem = appendObject(pList);
        addText(pItem, "name", part.sName);
        addText(pItem, "data", hexText(part.data));
        addText(pItem, "meaning", part.sMeaning);
    }
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
    return sText + statusLine(exchange.status()) + "\n";
}

std::string jsonText(const Report &report)
{
    Json root = newObject();
    addText(root.get(), "command", commandName(report.options.command));
    addText(root.get(), "port", report.options.sPort);
    if (!report.sDevice.empty())
        addText(root.get(), "device", report.sDevice);
    if (report.options.channel() != Channel::usb)
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
    Json root = newObject();
    addError(root.get(), nCode, sError, std::nullopt);
    addNumber(root.get(), "exitCode", nCode);
    return printed(root);
}

} // namespace qvtool
