// tlv.h - BER-TLV data as a tree (ISO 7816-4; EMV Book 3, Annex B).
//
// Tags of one to three bytes; lengths of one byte up to 7F, or 81 to 84 and as many bytes. Bytes 00 where a tag may
// stand are filler, and so are bytes FF up to the end of the template.
#pragma once

#include "hex.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

struct TlvItem {
    size_t nOffset = 0; // of its first byte, from the start of the whole
    Bytes tag;          // empty: filler
    size_t nLength = 0; // as announced; of filler: its bytes
    Bytes value;        // empty for a template
    std::vector<TlvItem> items;

    bool isFiller() const { return tag.empty(); }
    bool isTemplate() const;
};

struct TlvTree {
    std::vector<TlvItem> items;   // what is whole in front of the fault
    std::optional<size_t> nFault; // offset; none: the data are well-formed
    std::string sFault;           // what is wrong there
};

TlvTree parseTlv(BytesView data);

} // namespace qvtool
