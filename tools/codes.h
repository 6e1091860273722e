// codes.h - every number that a host, a log or a trace may show, in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

struct Meaning {
    std::string sReading; // how the text was read: "-56", "SW 6A82"
    std::string sSet;     // the set of codes that it belongs to
    std::string sText;
    std::optional<int32_t> tyCode; // of a set whose codes have a message for hosts
    std::string sMessage;          // that one, where the caller has asked the library for it
};

struct Explanation {
    bool bNumber = false; // false: the text is no number at all
    std::vector<Meaning> meanings;
};

// sText: decimal with or without a sign, hexadecimal with 0x, or four hexadecimal digits. A text that can be read in more
// than one way is read in each.
Explanation explain(std::string_view sText);

} // namespace qvtool
