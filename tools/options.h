// options.h - the command line.
#pragma once

#include "hex.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qvtool {

// In the order of the help.
enum class Command {
    atr,
    apdu,
    present,
    info,
    detect,
    led,
    beep,
    reset,
    stripe,
    select,
    purse,
    tlv,
    explain,
    log,
    doctor
};

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

constexpr size_t nStripeTracks = 3;

// Texts by track; none: the track is not meant.
using TrackTexts = std::array<std::optional<std::string>, nStripeTracks>;

struct StripeOptions {
    bool bWrite = false;
    int nTracks = 0; // to be read: 1, 2, 3, 12, 23 or 123
    std::string sFormat = "ISO";
    bool bFormat = false;  // it was asked for; otherwise a card file may tell it
    std::string sChannel;  // empty: none is selected
    TrackTexts texts;      // to be written
    std::string sCardFile; // with the texts; "-": standard input; empty: none
    bool bVerify = false;
    bool bShow = false; // card data in clear
};

struct SelectOptions {
    Bytes aid;
    bool bNext = false;
};

enum class PurseAction { balance, load, buy, log };

struct PurseOptions {
    PurseAction action = PurseAction::balance;
    Bytes aid;
    bool bDeposit = false;
    uint32_t nAmount = 0; // cents
    uint8_t ucKeyIndex = 1;
    Bytes key;      // that loads, 16 bytes
    Bytes tacKey;   // 16 bytes; empty: the TAC is not checked
    Bytes pin;      // as the card takes it; empty: none is verified
    Bytes terminal; // number, 6 bytes
    int nPsamSlot = 16;
    Bytes psamAid; // empty: nothing is selected there
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
    int nTimeOut = 10; // seconds; of stripe 30
    bool bRaise = false;
    char cBox = 0; // 0: none
    bool bTrace = false;
    bool bJson = false;
    StripeOptions stripe;
    SelectOptions select;
    PurseOptions purse;
    std::vector<std::string> tlvTexts; // hexadecimal, in pieces; "-": from standard input

    Channel channel() const;
    // Of a serial port: the tty that the library will open.
    std::string ttyPath() const;
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
