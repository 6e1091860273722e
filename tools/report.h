// report.h - what goes to standard output: lines to read, or one JSON document.
#pragma once

#include "options.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

struct Report {
    Options options;
    std::string sDevice; // links resolved; empty: the port was not reached
    Bytes atr;           // empty: none came
    std::vector<Exchange> exchanges;
    std::optional<Failure> failure;

    // How the tool ends: the failure's code, else what the card's last status word says.
    int exitCode() const;
};

// The lines of the card's answers, to be printed as they come.
std::string atrText(const Bytes &atr, bool bDecode);
std::string exchangeText(const Exchange &exchange);

std::string jsonText(const Report &report);
// The document of a command line that is wrong.
std::string usageJson(const std::string &sError);

} // namespace qvtool
