// device_log.h - the log to the byte, but for the time: what the lines of the device layer look like in the file.
#pragma once

#include "harness.h"

#include <regex>
#include <string>

namespace qvtest {

// The log since logOn() with every time stamp written as "T".
inline std::string logWithoutTime()
{
    static const std::regex time(R"(\d\d-\d\d \d\d:\d\d:\d\d\(\d{3}\))");
    return std::regex_replace(rawLog(), time, "T");
}

// A typed line of the device layer as the file shows it.
inline std::string line(const std::string &sText)
{
    return "  T  INFO:    CommDev:  " + sText + "\r\n";
}

} // namespace qvtest
