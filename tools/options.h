// options.h - the command line.
#pragma once

#include "hex.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

enum class Command { atr, apdu, present, info, detect, led, beep, reset, explain, log, doctor };

const char *commandName(Command command);

struct Options {
    Command command = Command::atr;
    std::vector<Bytes> apdus;
    bool bDecodeAtr = false;
    std::vector<int> numbers;       // of led and beep
    std::optional<int> nKind;       // of detect: request byte
    std::vector<std::string> codes; // of explain
    std::string sLogAction;         // "on", "off", "show", "tail"
    int nLogLines = 20;

    std::string sPort;
    int nBaud = 9600;
    int nSlot = 0;     // slot code: 0 to 15, 16 to 31 (PSAM), 255 (contactless)
    int nTimeOut = 10; // seconds
    bool bRaise = false;
    char cBox = 0; // 0: none
    bool bTrace = false;
    bool bJson = false;
};

struct ParsedOptions {
    Options options;
    // Nothing to run: help or version was asked for, or the line is wrong (then sError says why).
    bool bDone = false;
    std::string sError;
};

ParsedOptions parseOptions(int nArgs, const char *const *ppArgs);

} // namespace qvtool
