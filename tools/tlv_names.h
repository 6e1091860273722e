// tlv_names.h - what the tags of payment cards are called.
#pragma once

#include "hex.h"

namespace qvtool {

struct TagName {
    const char *pszName; // null: unknown
    bool bText;          // its value is text
};

// parent: the tag of the template around it, empty: none. Within file control parameters tags have names of their own.
TagName tagName(BytesView tag, BytesView parent);

} // namespace qvtool
