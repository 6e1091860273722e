// log_switch.h - the library's log: where it is, whether it is on, switching it, its last lines.
#pragma once

#include "json.h"
#include "options.h"

#include <string>

namespace qvtool {

struct LogPlace {
    std::string sFolder; // of the library that is really loaded
    std::string sIni;
    std::string sLogFile; // the newest one; empty: none yet
    bool bOn = false;
};

LogPlace logPlace();

Outcome switchLog(const Options &options);

} // namespace qvtool
