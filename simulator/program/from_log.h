// A card file out of log files of the driver library.
#pragma once

#include "program/options.h"

namespace qvsim {

// Exit code: 0, or 1 when no card file could be made; standard error says why.
int convertLogs(const Options &options);

} // namespace qvsim
