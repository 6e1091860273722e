// app_steps.h - the steps of a card conversation, each ready to be called on a port.
#pragma once

#include "qvreader/icapp.h"

#include <functional>
#include <string_view>
#include <vector>

namespace qvtest {

inline uint32_t s_nOut;
inline char s_szOut[17000];
inline char s_szScript[810];

struct Step {
    const char *pszName;
    std::function<int32_t(const char *pszPort)> call;
};

inline const std::vector<Step> s_steps = {
    {"getIcInfo", [](const char *p) { return QV_APP_getIcInfo(p, "", 9600, "1", "A", &s_nOut, s_szOut); }},
    {"GetIcAidList", [](const char *p) { return QV_APP_GetIcAidList(p, "", 9600, "1", &s_nOut, s_szOut); }},
    {"SelectAid", [](const char *p) { return QV_APP_SelectAid(p, "", 9600, "1", "A0"); }},
    {"SelectAidNoGpo", [](const char *p) { return QV_APP_SelectAidNoGpo(p, "", 9600, "1", "A0"); }},
    {"SelectGpo", [](const char *p) { return QV_APP_SelectGpo(p, "", 9600, "1"); }},
    {"ReadRecord", [](const char *p) { return QV_APP_ReadRecord(p, "", 9600, "1", "A", &s_nOut, s_szOut); }},
    {"genARQC", [](const char *p) { return QV_APP_genARQC(p, "", 9600, "", "T", &s_nOut, s_szOut); }},
    {"CtlScriptData",
     [](const char *p) { return QV_APP_CtlScriptData(p, "", 9600, "", "T", "", &s_nOut, s_szOut, s_szScript); }},
    {"GetTranDetail", [](const char *p) { return QV_APP_GetTranDetail(p, "", 9600, "1", 1, &s_nOut, s_szOut); }},
};

} // namespace qvtest
