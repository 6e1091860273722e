// json_text.cpp - see json_text.h. The text is parsed anew for every member.

#include "json_text.h"

#include "bounded_text.h"
#include "qvreader/devcall.h"

#include <cjson/cJSON.h>
#include <memory>

namespace {

struct DeleteJson {
    void operator()(cJSON *pJson) const noexcept { cJSON_Delete(pJson); }
};
using Json = std::unique_ptr<cJSON, DeleteJson>;

// The member's text within json; null with the reason in nRet.
const char *findText(const Json &json, const char *pszKey, int32_t &nRet) noexcept
{
    const cJSON *pItem = json == nullptr ? nullptr : cJSON_GetObjectItem(json.get(), pszKey);
    if (pItem == nullptr) {
        nRet = RET_PUB_INVAL_PARAM;
        return nullptr;
    }
    nRet = cJSON_IsString(pItem) != 0 && pItem->valuestring != nullptr ? 0 : static_cast<int32_t>(RET_PUB_FAIL);
    return nRet == 0 ? pItem->valuestring : nullptr;
}

Json parse(const char *pszJson) noexcept
{
    return Json(pszJson == nullptr ? nullptr : cJSON_Parse(pszJson));
}

} // namespace

namespace qv {

int32_t jsonText(const char *pszJson, const char *pszKey, std::span<char> out) noexcept
{
    const Json json = parse(pszJson);
    int32_t nRet = 0;
    copyText(out, findText(json, pszKey, nRet));
    return nRet;
}

} // namespace qv

int32_t func_GetStringFromJson(const char *json, const char *key, char *out) noexcept
{
    if (key == nullptr || out == nullptr)
        return RET_PUB_INVAL_PARAM;
    const Json document = parse(json);
    int32_t nRet = 0;
    if (const char *pszText = findText(document, key, nRet))
        qv::copyText(std::span(out, std::strlen(pszText) + 1), pszText);
    return nRet;
}
