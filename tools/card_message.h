// card_message.h - what the library says of a card's status word, as hosts show it.
#pragma once

#include <cstdint>
#include <string>

namespace qvtool {

// "ErrCode: 6A82: ...", in UTF-8. What is no GBK text is told as "?".
std::string cardMessage(uint32_t nStatus);

// For a line to be read: "6A82  (file or application not found)  "ErrCode: 6A82: ..."", in the terminal's charset.
std::string statusLine(uint32_t nStatus);

} // namespace qvtool
