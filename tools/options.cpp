#include "options.h"

#include "exit_codes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>

namespace qvtool {

namespace {

constexpr char szDescription[] = "Talks to a card reader on a serial port and to the card in it.";
constexpr char szPortVariable[] = "QVREADER_PORT";
constexpr int nMostSeconds = 120;
constexpr size_t nLeastApdu = 4;
constexpr size_t nMostApdu = 505; // what a frame of the reader holds
constexpr int nContactless = 255;

struct CommandRow {
    Command command;
    const char *pszName;
    const char *pszHelp;
};

constexpr std::array<CommandRow, 11> commandTable{{
    {Command::atr, "atr", "Power the card up and show its answer to reset"},
    {Command::apdu, "apdu",
     "Power the card up, send it commands in turn, power it down. Each command and its answer is one line: "
     "COMMAND -> DATA SW. Answers 61xx, 62xx and 6Cxx without data are followed up once"},
    {Command::present, "present", "Ask for a sign of life: does a reader answer on the port?"},
    {Command::info, "info", "Show the reader's device record: model, serial number, date, version"},
    {Command::detect, "detect", "Wait up to --timeout seconds until the reader finds a card, and show of which kind"},
    {Command::led, "led", "Switch the reader's LEDs; what the numbers mean is the reader firmware's affair"},
    {Command::beep, "beep", "Sound the buzzer; what the numbers mean is the reader firmware's affair"},
    {Command::reset, "reset", "Reset the reader's card module; no answer is awaited"},
    {Command::explain, "explain",
     "Say what a result or status word means. Without a port. CODE is decimal, 0x and hexadecimal, or a status word "
     "such as 6A82"},
    {Command::log, "log", "The library's log: on, off, show (where it is), tail (its last lines). Without a port"},
    {Command::doctor, "doctor", "Check library, log, port and reader, and say what to do about what is wrong"},
}};

constexpr int nMostByte = 0xFF;
constexpr int nMostWord = 0xFFFF;
constexpr int nMostLogLines = 100'000;

constexpr std::array<int, 10> speeds{300, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400};
constexpr std::array<int, 4> raiseSpeeds{9600, 19200, 38400, 115200};

constexpr char szExamples[] = R"(Examples:
  qvreader --port /dev/ttyUSB0 atr
      powers the card up and shows its answer to reset
  qvreader --port /dev/ttyUSB0 apdu "00 A4 04 00 0E 315041592E5359532E4444463031" 00B2010C00
      two commands one after the other; blanks (in quotes) and colons may stand between the bytes
  qvreader --port /dev/ttyS0 --slot psam1 --timeout 3 atr
      the PSAM in slot PSAM 1, waiting 3 seconds at most
  qvreader --port /dev/ttyUSB0 --baud 115200 --raise --trace apdu 0084000008
      raises the line to 115200 and shows every byte on it (on standard error)
  qvreader doctor --port /dev/ttyUSB0
      what is wrong here, and what to do about it
  qvreader explain -56 6A82
      a result and a status word in words
  qvreader --json --port /dev/ttyUSB0 apdu 0084000008 | python3 -m json.tool
      for scripts: one JSON document on standard output, also when something fails
)";

std::string footer()
{
    std::string sText = szExamples;
    sText += "\nExit codes:\n";
    for (const ExitRow &row : exitTable) {
        std::string sCode = std::to_string(static_cast<int>(row.nCode));
        sText += std::string(5 - sCode.size(), ' ') + sCode + "  " + row.pszHelp + "\n";
    }
    return sText;
}

std::optional<int> number(std::string_view sText, int nMost)
{
    int nValue = 0;
    if (sText.empty() || sText.size() > 6)
        return std::nullopt;
    for (char c : sText) {
        if (c < '0' || c > '9')
            return std::nullopt;
        nValue = nValue * 10 + (c - '0');
    }
    if (nValue > nMost)
        return std::nullopt;
    return nValue;
}

// "0", "psam1", "contactless", or a slot code.
int slotCode(const std::string &sText)
{
    constexpr std::string_view sPsam = "psam";
    if (sText == "contactless")
        return nContactless;
    if (sText.starts_with(sPsam)) {
        if (std::optional<int> nPsam = number(std::string_view(sText).substr(sPsam.size()), 15))
            return 16 + *nPsam;
    } else if (std::optional<int> nSlot = number(sText, nContactless); nSlot && (*nSlot < 32 || *nSlot == 255)) {
        return *nSlot;
    }
    throw CLI::ValidationError("--slot", sText + " is no slot: write 0 to 15, psam0 to psam15 or contactless");
}

Bytes apduBytes(const std::string &sText)
{
    std::optional<Bytes> bytes = parseHex(sText);
    if (!bytes)
        throw CLI::ValidationError("apdu", "\"" + sText + "\" is not hexadecimal, or half a byte is missing");
    if (bytes->size() < nLeastApdu)
        throw CLI::ValidationError("apdu", "\"" + sText +
                                               "\" is too short: a command has at least 4 bytes; with blanks "
                                               "between the bytes, put it in quotes");
    if (bytes->size() > nMostApdu)
        throw CLI::ValidationError("apdu", "a command has at most " + std::to_string(nMostApdu) + " bytes, this one " +
                                               std::to_string(bytes->size()));
    return *bytes;
}

// Decimal, or hexadecimal with 0x.
int smallNumber(const char *pszName, const std::string &sText, int nMost)
{
    std::optional<int> nValue = number(sText, nMost);
    if (sText.starts_with("0x") && sText.size() > 2 && sText.size() <= 6 &&
        sText.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos)
        nValue = std::stoi(sText, nullptr, 16);
    if (!nValue || *nValue > nMost)
        throw CLI::ValidationError(pszName, "\"" + sText + "\" is no number from 0 to " + std::to_string(nMost));
    return *nValue;
}

// A log or a code needs no reader; doctor has something to say about a missing port, too.
bool needsPort(Command command)
{
    return command != Command::explain && command != Command::log && command != Command::doctor;
}

void checkTogether(const Options &options)
{
    if (options.sPort.empty() && needsPort(options.command))
        throw CLI::RequiredError(std::string("--port PATH (or the variable ") + szPortVariable + ")");
    if (options.bRaise && std::find(raiseSpeeds.begin(), raiseSpeeds.end(), options.nBaud) == raiseSpeeds.end())
        throw CLI::ValidationError("--raise", "a line is raised to 19200, 38400 or 115200");
    if (options.cBox != 0 && (options.nBaud != 9600 || options.bRaise))
        throw CLI::ValidationError("--box", "behind a switch box the line stays at 9600");
}

} // namespace

const char *commandName(Command command)
{
    for (const CommandRow &row : commandTable)
        if (row.command == command)
            return row.pszName;
    return "";
}

ParsedOptions parseOptions(int nArgs, const char *const *ppArgs)
{
    ParsedOptions parsed;
    Options &options = parsed.options;
    std::string sSlot = "0";
    std::string sBox;
    std::vector<std::string> apdus;
    std::vector<std::string> numbers;
    std::string sKind;

    CLI::App app(szDescription, "qvreader");
    app.footer(footer());
    app.set_version_flag("--version", std::string("qvreader " QVTOOL_VERSION));
    app.require_subcommand(1, 1);
    app.fallthrough();
    app.add_option("--port", options.sPort, "The reader's serial port, such as /dev/ttyUSB0, or a link to it")
        ->envname(szPortVariable)
        ->type_name("PATH");
    app.add_option("--baud", options.nBaud, "Line speed: " + CLI::detail::join(speeds, ", "))
        ->type_name("N")
        ->capture_default_str()
        ->check([](const std::string &sText) {
            auto fits = [&](int n) { return std::to_string(n) == sText; };
            return std::any_of(speeds.begin(), speeds.end(), fits) ? "" : "no reader runs at " + sText;
        });
    app.add_option(
           "--slot", sSlot,
           "Where the card is: 0 to 15 (0: the user's card), psam0 to psam15 (codes 16 to 31), contactless (255)")
        ->type_name("SLOT")
        ->capture_default_str();
    app.add_option("--timeout", options.nTimeOut, "How long to wait for a card, and for each answer: 1 to 120 seconds")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(1, nMostSeconds));
    app.add_flag("--raise", options.bRaise,
                 "Open at 9600 and raise the line to --baud. The reader keeps that speed until it is switched off");
    app.add_option("--box", sBox, "Select this port of a switch box on the line: A, B, C or K")
        ->type_name("PORT")
        ->check(CLI::IsMember({"A", "B", "C", "K"}));
    app.add_flag("--trace", options.bTrace,
                 "Show every byte on the line and what it means, on standard error. Mind that card data show");
    app.add_flag("--json", options.bJson, "One JSON document on standard output, also for a failure");

    std::array<CLI::App *, commandTable.size()> subcommands{};
    for (size_t n = 0; n < commandTable.size(); ++n)
        subcommands[n] = app.add_subcommand(commandTable[n].pszName, commandTable[n].pszHelp);
    auto sub = [&](Command command) { return subcommands[static_cast<size_t>(command)]; };
    sub(Command::atr)->add_flag("--decode", options.bDecodeAtr, "Also take the answer apart");
    sub(Command::apdu)
        ->add_option("HEX", apdus, "A command, such as 00A4040000, 4 to 505 bytes")
        ->required()
        ->expected(-1);
    sub(Command::detect)
        ->add_option("--kind", sKind, "Ask for certain kinds of card only: the request byte, 0 to 255")
        ->type_name("BYTE");
    sub(Command::led)
        ->add_option("BYTE", numbers, "State, or two bytes A and B: 0 to 255, also 0x01")
        ->required()
        ->expected(1, 2);
    sub(Command::beep)->add_option("NUMBER", numbers, "D (0 to 65535) and N (0 to 255)")->required()->expected(2);
    sub(Command::explain)
        ->add_option("CODE", options.codes, "A code, such as -56, 0x1005 or 6A82")
        ->required()
        ->expected(-1);
    sub(Command::log)
        ->add_option("ACTION", options.sLogAction, "on, off, show or tail")
        ->required()
        ->check(CLI::IsMember({"on", "off", "show", "tail"}));
    sub(Command::log)
        ->add_option("-n", options.nLogLines, "How many lines tail shows")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1, nMostLogLines));

    options.bJson =
        std::any_of(ppArgs, ppArgs + nArgs, [](const char *psz) { return std::strcmp(psz, "--json") == 0; });
    try {
        app.parse(nArgs, ppArgs);
        for (const CommandRow &row : commandTable)
            if (sub(row.command)->parsed())
                options.command = row.command;
        options.nSlot = slotCode(sSlot);
        options.cBox = sBox.empty() ? '\0' : sBox[0];
        std::transform(apdus.begin(), apdus.end(), std::back_inserter(options.apdus), apduBytes);
        for (const std::string &sNumber : numbers)
            options.numbers.push_back(
                smallNumber(commandName(options.command), sNumber,
                            options.command == Command::beep && options.numbers.empty() ? nMostWord : nMostByte));
        if (!sKind.empty())
            options.nKind = smallNumber("--kind", sKind, nMostByte);
        checkTogether(options);
    } catch (const CLI::ParseError &error) {
        parsed.bDone = true;
        if (error.get_exit_code() == 0)
            app.exit(error, std::cout, std::cerr);
        else
            parsed.sError = error.what();
    }
    return parsed;
}

} // namespace qvtool
