// doctor.h - what is wrong with library, log, port and reader, and what to do about it.
#pragma once

#include "json.h"
#include "port.h"
#include "watch.h"

namespace qvtool {

// Ends with the code of the first thing that is wrong.
void examine(const Options &options, Port &port, Watch &watch, Outcome &outcome);

} // namespace qvtool
