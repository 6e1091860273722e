// json_text.h - string members of a JSON object.
#pragma once

#include <cstdint>
#include <span>

namespace qv {

// Copies the member into out, cut where it ends and NUL-terminated; empty unless the result is 0.
// 0; -1 no string; -2 no JSON or no such member.
int32_t jsonText(const char *pszJson, const char *pszKey, std::span<char> out) noexcept;

} // namespace qv
