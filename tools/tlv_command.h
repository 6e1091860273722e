// tlv_command.h - BER-TLV data from the command line, standard input or a card.
#pragma once

#include "json.h"
#include "options.h"
#include "tlv.h"

namespace qvtool {

// The tree as JSON members of the object: "items", and where the data are malformed "malformed" (offset, text).
void addTlv(cJSON *pObject, const TlvTree &tree);

Outcome showTlv(const Options &options);

} // namespace qvtool
