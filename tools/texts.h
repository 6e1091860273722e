// texts.h - results of the library, status words of the reader and of the card, in words.
#pragma once

#include <cstdint>
#include <string>

namespace qvtool {

// Result of a library call; a minus status word is told as what the reader reports.
std::string resultText(int32_t nResult);

// True when the result is minus a status word of the reader.
bool isReaderStatus(int32_t nResult);
// True when the reader says that the slot is empty.
bool isNoCard(int32_t nResult);

// Status word of a reply frame: "no card"; empty when nothing is known about it.
std::string readerStatusText(uint32_t nStatus);

// SW1 SW2 of a card: "file or application not found"; empty when nothing is known about it.
std::string cardStatusText(uint32_t nStatus);
// 9000 and 61xx.
bool isCardSuccess(uint32_t nStatus);

// Kind as the reader reports it: "contact", "contactless", "magnetic", "identity"; null: unknown.
const char *cardKindName(uint32_t nKind);

// "slot 0", "PSAM 2", "the contactless antenna".
std::string slotText(int32_t nSlot);

} // namespace qvtool
