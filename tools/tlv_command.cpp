#include "tlv_command.h"

#include "charset.h"
#include "tlv_text.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace qvtool {

namespace {

constexpr size_t nMostText = 262144; // characters

// False: the failure says why.
bool readInput(std::string &sText, Outcome &outcome)
{
    std::string sInput(nMostText + 1, '\0');
    std::cin.read(sInput.data(), static_cast<std::streamsize>(sInput.size()));
    sInput.resize(static_cast<size_t>(std::cin.gcount()));
    if (std::cin.bad())
        outcome.failure =
            Failure{Exit::system, std::string("standard input cannot be read: ") + std::strerror(errno), std::nullopt};
    for (const char c : sInput)
        sText += c == '\n' || c == '\r' ? ' ' : c;
    return !outcome.failure;
}

void addItems(cJSON *pObject, const std::vector<TlvItem> &items, BytesView parent)
{
    cJSON *pList = cJSON_AddArrayToObject(pObject, "items");
    for (const TlvItem &item : items) {
        cJSON *pItem = appendObject(pList);
        addNumber(pItem, "offset", static_cast<double>(item.nOffset));
        addNumber(pItem, "length", static_cast<double>(item.nLength));
        if (item.isFiller()) {
            addFlag(pItem, "filler", true);
            continue;
        }
        addText(pItem, "tag", hexText(item.tag));
        addText(pItem, "name", tlvName(item, parent));
        if (item.isTemplate()) {
            addItems(pItem, item.items, item.tag);
            continue;
        }
        addText(pItem, "value", hexText(item.value));
        if (const std::optional<std::string> sText = tlvValueText(item, parent))
            addText(pItem, "text", *sText);
    }
}

} // namespace

void addTlv(cJSON *pObject, const TlvTree &tree)
{
    addItems(pObject, tree.items, {});
    if (!tree.nFault)
        return;
    cJSON *pFault = cJSON_AddObjectToObject(pObject, "malformed");
    addNumber(pFault, "offset", static_cast<double>(*tree.nFault));
    addText(pFault, "text", tree.sFault);
}

Outcome showTlv(const Options &options)
{
    Outcome outcome;
    std::string sHex;
    bool bRead = false;
    for (const std::string &sText : options.tlvTexts) {
        if (sText != "-")
            sHex += sText;
        else if (!bRead && !readInput(sHex, outcome))
            return outcome;
        bRead |= sText == "-";
    }
    if (sHex.size() > nMostText) {
        outcome.failure =
            Failure{Exit::usage, "tlv: more than " + std::to_string(nMostText) + " characters", std::nullopt};
        return outcome;
    }
    const std::optional<Bytes> data = parseHex(sHex);
    if (!data) {
        outcome.failure =
            Failure{Exit::usage, "tlv: the data are not hexadecimal, or half a byte is missing", std::nullopt};
        return outcome;
    }
    const TlvTree tree = parseTlv(*data);
    outcome.sLines = forTerminal(tlvLines(tree));
    addTlv(outcome.json.get(), tree);
    if (tree.nFault)
        outcome.failure = Failure{Exit::cardError, tlvFaultText(tree), std::nullopt};
    return outcome;
}

} // namespace qvtool
