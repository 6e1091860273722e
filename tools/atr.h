// atr.h - an answer to reset taken apart (ISO/IEC 7816-3).
#pragma once

#include "hex.h"

#include <string>
#include <vector>

namespace qvtool {

struct AtrPart {
    std::string sName; // "TS", "TB1", "historical", ...
    Bytes data;
    std::string sMeaning; // may be empty
};

// The parts from the first byte on. What does not fit the standard (a contactless card's activation data, a cut-off
// answer) stands in a last part named "rest".
std::vector<AtrPart> decodeAtr(BytesView atr);

} // namespace qvtool
