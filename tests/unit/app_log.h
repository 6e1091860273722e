// app_log.h - the lines of the application layer in the log, to the byte but for the time.
#pragma once

#include "device_log.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace qvtest {

// A line of the card commands / of sessions and callbacks.
inline std::string commandLine(const std::string &sText)
{
    return "  T  INFO:    Loginc   " + sText + "\r\n";
}
inline std::string appLine(const std::string &sText)
{
    return "  T  INFO:    AppIc    " + sText + "\r\n";
}

// A hex dump.
inline std::string dump(const std::string &sTitle, std::string_view sHex)
{
    const Bytes data = bytes(sHex);
    std::string sDigits;
    for (char c : hex(data))
        if (c != ' ')
            sDigits += c;
    return " T  " + sTitle + "  LEN=" + std::to_string(data.size()) + "   HEX: " + sDigits + "\r\n";
}

// Success when the log since logOn() holds these lines in this order; others may stand between them.
inline testing::AssertionResult wroteLines(std::initializer_list<std::string> lines)
{
    const std::string sLog = logWithoutTime();
    size_t nAt = 0;
    for (const std::string &sLine : lines) {
        for (nAt = sLog.find(sLine, nAt); nAt != std::string::npos && nAt > 0 && sLog[nAt - 1] != '\n';)
            nAt = sLog.find(sLine, nAt + 1);
        if (nAt == std::string::npos)
            return testing::AssertionFailure() << "missing, or not in this order: \"" << sLine << "\" in\n" << sLog;
        nAt += sLine.size();
    }
    return testing::AssertionSuccess();
}

} // namespace qvtest
