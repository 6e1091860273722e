// options.h - the command line.
#pragma once

#include "hex.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qvtool {

enum class Command { atr, apdu, present, info, detect, led, beep, reset, explain, log, doctor };

const char *commandName(Command command);

// The way to the reader: a tty, USB, or the aux port of the terminal that standard output leads to.
enum class Channel { serial, usb, aux };

struct AuxPort {
    uint32_t nTermType; // family, as the library counts them
    uint32_t nPort;
    bool bPrefix = false;
};

struct UsbId {
    uint16_t nVendor;
    uint16_t nProduct;
    friend bool operator==(UsbId, UsbId) = default;
};

struct Options {
    Command command = Command::atr;
    std::vector<Bytes> apdus;
    bool bDecodeAtr = false;
    std::vector<int> numbers;       // of led and beep
    std::optional<int> nKind;       // of detect: request byte
    std::vector<std::string> codes; // of explain
    std::string sLogAction;         // "on", "off", "show", "tail"
    int nLogLines = 20;

    std::string sPort; // as the library takes it; of an aux port: how it is told
    std::optional<AuxPort> aux;
    std::optional<UsbId> usbId; // the only identity to be tried
    std::string sOutput;        // file for the results; empty: none
    int nBaud = 9600;
    int nSlot = 0;     // slot code: 0 to 15, 16 to 31 (PSAM), 255 (contactless)
    int nTimeOut = 10; // seconds
    bool bRaise = false;
    char cBox = 0; // 0: none
    bool bTrace = false;
    bool bJson = false;

    Channel channel() const;
};

struct ParsedOptions {
    Options options;
    // Nothing to run: help or version was asked for, or the line is wrong (then sError says why).
    bool bDone = false;
    std::string sError;
    std::string sCommand; // that the wrong line names; empty: none
};

ParsedOptions parseOptions(int nArgs, const char *const *ppArgs);

} // namespace qvtool
