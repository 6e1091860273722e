// The command line.
#pragma once

#include "model/slots.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace qvsim {

struct Options {
    std::vector<std::string> links;
    unsigned baud = 9600;
    std::vector<std::pair<SlotCode, std::string>> cards;     // slot and "script:FILE" or "vpcd:PORT"
    std::vector<std::pair<std::string, std::string>> device; // field and value of the device record
    std::string controlPath;                                 // empty: none
    std::string traceFile;                                   // empty: none, "-": standard error
    std::chrono::milliseconds cardPatience{2500};
    bool quiet = false;

    // `qvreader-sim tap TTY`
    bool isTap = false;
    std::string tapTty;
    std::string recordFile; // empty: none

    // `qvreader-sim ctl SOCKETPATH COMMAND...`
    bool isControlCall = false;
    std::string controlCallPath;
    std::string controlCallLine;
};

// Nothing to run (help was asked for, or the line is wrong): `done` is true and `exitCode` says how to leave.
struct ParsedOptions {
    Options options;
    bool done = false;
    int exitCode = 0;
};

ParsedOptions parseOptions(int argc, char **argv);

} // namespace qvsim
