// device_log.h - the log to the byte, but for the time: what the lines of the device layer look like in the file.
#pragma once

#include "harness.h"

#include <string>

namespace qvtest {

// A typed line of the device layer as the file shows it.
inline std::string line(const std::string &sText)
{
    return "  T  INFO:    CommDev:  " + sText + "\r\n";
}

} // namespace qvtest
