#include "json.h"

#include "exit_codes.h"
#include "hex.h"
#include "texts.h"

namespace qvtool {

namespace {

const char *exitName(int nCode)
{
    for (const ExitRow &row : exitTable)
        if (static_cast<int>(row.nCode) == nCode)
            return row.pszName;
    return "cancelled"; // 128 plus a signal
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

} // namespace

void addText(cJSON *pObject, const char *pszName, std::string_view sText)
{
    cJSON_AddStringToObject(pObject, pszName, utf8(sText).c_str());
}

void addNumber(cJSON *pObject, const char *pszName, double nValue)
{
    cJSON_AddNumberToObject(pObject, pszName, nValue);
}

void addFlag(cJSON *pObject, const char *pszName, bool bValue)
{
    cJSON_AddBoolToObject(pObject, pszName, bValue ? 1 : 0);
}

void appendText(cJSON *pList, std::string_view sText)
{
    cJSON_AddItemToArray(pList, cJSON_CreateString(utf8(sText).c_str()));
}

cJSON *appendObject(cJSON *pList)
{
    cJSON *pItem = cJSON_CreateObject();
    cJSON_AddItemToArray(pList, pItem);
    return pItem;
}

void addError(cJSON *pRoot, int nCode, const std::string &sText, std::optional<int32_t> nResult,
              const std::string &sMessage)
{
    cJSON *pError = cJSON_AddObjectToObject(pRoot, "error");
    addText(pError, "name", exitName(nCode));
    addText(pError, "text", sText);
    if (!sMessage.empty())
        addText(pError, "message", sMessage);
    if (nResult)
        addNumber(pError, "result", *nResult);
    if (nResult && isReaderStatus(*nResult))
        addText(pError, "readerStatus", hexWord(static_cast<uint32_t>(-*nResult)));
}

std::string printed(const Json &root)
{
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(root.get()), &cJSON_free);
    return text ? std::string(text.get()) + "\n" : std::string();
}

int Outcome::exitCode() const
{
    return static_cast<int>(failure ? failure->nCode : nCode);
}

std::string Outcome::document()
{
    if (!warnings.empty()) {
        cJSON *pList = cJSON_AddArrayToObject(json.get(), "warnings");
        for (const std::string &sWarning : warnings)
            appendText(pList, sWarning);
    }
    if (failure)
        addError(json.get(), exitCode(), failure->sText, failure->nResult, failure->sMessage);
    addNumber(json.get(), "exitCode", exitCode());
    return printed(json);
}

} // namespace qvtool
