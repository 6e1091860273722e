#include "options.h"

#include "exit_codes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>

namespace qvtool {

namespace {

constexpr char szDescription[] = "Talks to the card in a card reader on a serial port.";
constexpr char szPortVariable[] = "QVREADER_PORT";
constexpr int nMostSeconds = 120;
constexpr size_t nLeastApdu = 4;
constexpr size_t nMostApdu = 505; // what a frame of the reader holds
constexpr int nContactless = 255;

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

void checkTogether(const Options &options)
{
    if (options.sPort.empty())
        throw CLI::RequiredError(std::string("--port PATH (or the variable ") + szPortVariable + ")");
    if (options.bRaise && std::find(raiseSpeeds.begin(), raiseSpeeds.end(), options.nBaud) == raiseSpeeds.end())
        throw CLI::ValidationError("--raise", "a line is raised to 19200, 38400 or 115200");
    if (options.cBox != 0 && (options.nBaud != 9600 || options.bRaise))
        throw CLI::ValidationError("--box", "behind a switch box the line stays at 9600");
}

} // namespace

ParsedOptions parseOptions(int nArgs, const char *const *ppArgs)
{
    ParsedOptions parsed;
    Options &options = parsed.options;
    std::string sSlot = "0";
    std::string sBox;
    std::vector<std::string> apdus;

    CLI::App app(szDescription, "qvreader");
    app.footer(footer());
    app.set_version_flag("--version", std::string("qvreader " QVTOOL_VERSION));
    app.require_subcommand(1);
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

    CLI::App *const pAtr = app.add_subcommand("atr", "Power the card up and show its answer to reset");
    pAtr->add_flag("--decode", options.bDecodeAtr, "Also take the answer apart");
    CLI::App *const pApdu = app.add_subcommand(
        "apdu", "Power the card up, send it commands in turn, power it down. Each command and its answer is one line: "
                "COMMAND -> DATA SW. Answers 61xx, 62xx and 6Cxx without data are followed up once");
    pApdu->add_option("HEX", apdus, "A command, such as 00A4040000, 4 to 505 bytes")->required()->expected(-1);

    options.bJson =
        std::any_of(ppArgs, ppArgs + nArgs, [](const char *psz) { return std::strcmp(psz, "--json") == 0; });
    try {
        app.parse(nArgs, ppArgs);
        options.command = pApdu->parsed() ? Command::apdu : Command::atr;
        options.nSlot = slotCode(sSlot);
        options.cBox = sBox.empty() ? '\0' : sBox[0];
        std::transform(apdus.begin(), apdus.end(), std::back_inserter(options.apdus), apduBytes);
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
