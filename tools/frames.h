// frames.h - the reader's frames taken apart.
#pragma once

#include "hex.h"

#include <string>

namespace qvtool {

struct FrameKind {
    uint8_t ucHead;
    uint8_t ucEnd;
    const char *pszName;
};

// Null: no frame begins so.
const FrameKind *kindOfHead(uint8_t ucHead);

struct Frame {
    const FrameKind *pKind = nullptr;
    Bytes data;
    std::string sFault; // empty: none
};

// whole: from the head to the end byte.
Frame openFrame(BytesView whole);

// "1 byte", "2 bytes".
std::string countText(size_t nCount, const char *pszOne);

} // namespace qvtool
