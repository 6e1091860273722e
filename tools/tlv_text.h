// tlv_text.h - a tree of BER-TLV data in lines.
#pragma once

#include "tlv.h"

#include <optional>
#include <string>

namespace qvtool {

// The value of an item whose format is text: in UTF-8, where it is printable ASCII or GBK. None: it is not.
std::optional<std::string> tlvValueText(const TlvItem &item, BytesView parent);

// "unknown tag" where it is one.
std::string tlvName(const TlvItem &item, BytesView parent);

// A line for each item, indented by two blanks a level. nIndent: blanks in front of all lines.
std::string tlvLines(const TlvTree &tree, size_t nIndent = 0);

// "malformed at offset 5: ...".
std::string tlvFaultText(const TlvTree &tree);

} // namespace qvtool
