// fuzz_json.cpp - func_GetStringFromJson, and what DEV_CommCall refuses.
//
// input: which key, JSON text
//
// DEV_CommCall deletes old log files, so this runs in a folder of its own; requests that it would take to a reader are
// not handed to it.

#include "fuzz_support.h"
#include "qvreader/devcall.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr std::array<const char *, 5> keys{"FunctionCode", "RequestPort", "RequestTimeOut", "k", ""};
constexpr uint32_t nMark = 0xDEADBEEF;

// The member as the library finds it; the result is never longer than the text that it came from.
int32_t member(const Bytes &json, const char *pszKey, std::string &sValue)
{
    Area out(json.size());
    const int32_t nRet = func_GetStringFromJson(reinterpret_cast<const char *>(json.data()), pszKey, out.text());
    QV_HOLDS(nRet == 0 || nRet == -1 || nRet == -2);
    if (nRet != 0) {
        QV_HOLDS(out.intactBehind(0));
        return nRet;
    }
    const size_t nLen = strnlen(out.text(), json.size());
    QV_HOLDS(nLen < json.size());
    QV_HOLDS(out.intactBehind(nLen + 1));
    sValue = out.text();
    return 0;
}

void refuse(const Bytes &json)
{
    std::string sFunction;
    if (member(json, "FunctionCode", sFunction) == 0 && sFunction.starts_with("0001"))
        return;
    Area out(512);
    uint32_t nOut = nMark;
    QV_HOLDS(DEV_CommCall(reinterpret_cast<const char *>(json.data()), "", out.text(), &nOut) == -1);
    QV_HOLDS(nOut == nMark && out.intactBehind(0));
}

// A member that was written by us comes back as it was.
void findOwn(std::span<const uint8_t> text, const char *pszKey)
{
    static constexpr char szDigits[] = "0123456789abcdef";
    std::string sPlain;
    std::string sJson = "{\"other\":[1,{}],\"" + std::string(pszKey) + "\":\"";
    for (uint8_t uc : text.first(std::min<size_t>(text.size(), 300))) {
        const auto c = static_cast<char>(uc & 0x7F);
        if (c == 0)
            continue;
        sPlain += c;
        if (c < ' ' || uc > 0x7F)
            sJson += std::string("\\u00") + szDigits[c >> 4] + szDigits[c & 15];
        else if (c == '"' || c == '\\')
            sJson += std::string("\\") + c;
        else
            sJson += c;
    }
    sJson += "\"}";
    Bytes json(sJson.begin(), sJson.end());
    json.push_back(0);
    std::string sValue;
    QV_HOLDS(member(json, pszKey, sValue) == 0 && sValue == sPlain);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***pppArgs)
{
    qvfuzz::enterSandbox(*pppArgs);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const char *pszKey = keys[input.byte() % keys.size()];
    const auto text = input.rest();
    Bytes json(text.begin(), std::find(text.begin(), text.end(), uint8_t{0}));
    json.push_back(0);
    std::string sValue;
    member(json, pszKey, sValue);
    refuse(json);
    findOwn(text, pszKey);
    return 0;
}
