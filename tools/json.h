// json.h - JSON documents as the tool prints them.
#pragma once

#include "session.h"

#include <cjson/cJSON.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

inline Json newObject()
{
    return {cJSON_CreateObject(), &cJSON_Delete};
}

// What is not well-formed UTF-8 becomes "?".
void addText(cJSON *pObject, const char *pszName, std::string_view sText);
void addNumber(cJSON *pObject, const char *pszName, double nValue);
void addFlag(cJSON *pObject, const char *pszName, bool bValue);
// A text at the end of a list.
void appendText(cJSON *pList, std::string_view sText);
// A new object at the end of a list.
cJSON *appendObject(cJSON *pList);
// The member "error".
void addError(cJSON *pRoot, int nCode, const std::string &sText, std::optional<int32_t> nResult,
              const std::string &sMessage = {});

std::string printed(const Json &root);

// What a command has to say: lines to read and the same as JSON members.
struct Outcome {
    std::string sLines;
    Json json = newObject();
    std::vector<std::string> warnings;
    Exit nCode = Exit::ok; // where nothing failed
    std::optional<Failure> failure;

    int exitCode() const;
    // The whole document; warnings, "error" and "exitCode" at its end.
    std::string document();
};

} // namespace qvtool
