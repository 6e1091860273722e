// The command line.
#pragma once

#include "model/slots.h"
#include "usb/descriptors.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qvsim {

// Exit code of --expect when lines are left.
constexpr int kExitNotPlayed = 3;

// The magnetic stripe head and what lies there.
struct StripeOptions {
    std::string file; // empty: no card at hand
    unsigned afterMs = 0;
    bool once = false;
    std::string channel = "A";
    bool finalSeparator = false;
};

struct Options {
    std::vector<std::string> links;
    unsigned baud = 9600;
    std::vector<std::pair<SlotCode, std::string>> cards;     // slot and kind and file or port
    std::vector<std::pair<std::string, std::string>> device; // field and value of the device record
    StripeOptions stripe;
    std::string terminal;    // name of its family; empty: none
    unsigned auxPort = 1;    // of the terminal, where the reader is
    std::string controlPath; // empty: none
    std::string traceFile;   // empty: none, "-": standard error
    std::chrono::milliseconds cardPatience{2500};
    bool quiet = false;
    bool expect = false; // leave with kExitNotPlayed unless every line of the card files has been played

    // `qvreader-sim --from-log FILE`
    std::vector<std::string> logFiles; // empty: none
    std::optional<SlotCode> logSlot;

    std::string recordFile; // of tap and --from-log; empty: none

    // `qvreader-sim --usb -- COMMAND...`
    bool isUsb = false;
    std::vector<UsbDeviceOptions> usbDevices;
    std::vector<std::string> usbSettings; // "claim busy"
    std::vector<std::string> command;     // empty: none, hosts are started by somebody else

    // `qvreader-sim tap TTY`
    bool isTap = false;
    std::string tapTty;

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
