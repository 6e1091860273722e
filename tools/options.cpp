#include "options.h"

#include "card_options.h"
#include "exit_codes.h"
#include "option_values.h"
#include "stripe_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>

namespace qvtool {

namespace {

constexpr char szDescription[] =
    "Talks to a card reader on a serial port, USB or a terminal's aux port, and to the card in it.";
constexpr char szPortVariable[] = "QVREADER_PORT";
constexpr int nMostSeconds = 120;

constexpr std::array<std::string_view, 3> usbNames{"HID", "USB",
                                                   "1001"}; // beginnings of what the library takes for USB

struct CommandRow {
    Command command;
    const char *pszName;
    const char *pszHelp;
    const char *pszExamples; // a line each, behind "qvreader "
};

constexpr std::array<CommandRow, 15> commandTable{{
    {Command::atr, "atr", "Power the card up and show its answer to reset",
     "--port /dev/ttyUSB0 atr --decode\n--port /dev/ttyS0 --slot psam1 --timeout 3 atr"},
    {Command::apdu, "apdu",
     "Power the card up, send it commands in turn, power it down. Each command and its answer is one line: "
     "COMMAND -> DATA SW. Answers 61xx, 62xx and 6Cxx without data are followed up once",
     "--port /dev/ttyUSB0 apdu \"00 A4 04 00 0E 315041592E5359532E4444463031\" 00B2010C00"},
    {Command::present, "present", "Ask for a sign of life (up to 3 seconds): does a reader answer on the port?",
     "--port /dev/ttyUSB0 --baud 115200 present"},
    {Command::info, "info", "Show the reader's device record: model, serial number, date, version",
     "--port /dev/ttyUSB0 info"},
    {Command::detect, "detect",
     "Wait up to --timeout seconds until the reader finds a card, and show of which kind it is: contact, contactless, "
     "magnetic (with its tracks) or identity",
     "--port /dev/ttyUSB0 --timeout 30 detect"},
    {Command::led, "led",
     "Switch the reader's LEDs by one byte or by a pair of bytes; what they mean is the reader firmware's affair",
     "--port /dev/ttyUSB0 led 0x01\n--port /dev/ttyUSB0 led 1 0"},
    {Command::beep, "beep", "Sound the reader's buzzer; what the two numbers mean is the reader firmware's affair",
     "--port /dev/ttyUSB0 beep 200 2"},
    {Command::reset, "reset", "Reset the reader's card module: all cards lose power. No answer is awaited",
     "--port /dev/ttyUSB0 reset"},
    {Command::stripe, "stripe", "Read or write the magnetic stripe of a card that is swiped",
     "--port /dev/ttyUSB0 stripe read\n--port HID stripe read --tracks 2 --show\n--port /dev/ttyUSB0 stripe write "
     "--card "
     "test.stripe --verify"},
    {Command::select, "select",
     "Power the card up, select an application by its name, show the card's answer as a tree, power the card down",
     "--port /dev/ttyUSB0 select 315041592E5359532E4444463031\n--port /dev/ttyUSB0 --slot contactless select "
     "A000000333 --next"},
    {Command::purse, "purse", "An electronic deposit or purse: its balance, its log, load it, buy with it",
     "--port /dev/ttyUSB0 purse balance\n--port /dev/ttyUSB0 purse buy 2.50"},
    {Command::tlv, "tlv", "Show BER-TLV data as a tree, the tags with their names. Without a port",
     "tlv 6F0A840851565055525345A500\ntlv - <answer.txt"},
    {Command::explain, "explain",
     "Say what a result or status word means. Without a port. CODE is decimal, 0x and hexadecimal, or a status word "
     "such as 6A82",
     "explain -56 6A82"},
    {Command::log, "log", "The library's log: on, off, show (where it is), tail (its last lines). Without a port",
     "log show\nlog tail -n 50"},
    {Command::doctor, "doctor", "Check library, log, port and reader, and say what to do about what is wrong",
     "--port /dev/ttyUSB0 doctor"},
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
  qvreader --port HID atr
      the reader on USB
  qvreader --aux gg:2 --output answer.txt atr
      the reader at aux port 2 of the terminal on which this is typed; the answer goes to a file
  qvreader --port /dev/ttyUSB0 stripe read
      waits for a card to be swiped and shows its tracks, the card number masked
  qvreader tlv 6F0A840851565055525345A500
      a card's data as a tree, the tags with their names
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

std::string commandFooter(const CommandRow &row)
{
    std::string sText = "Examples:\n";
    for (const std::string &sLine : CLI::detail::split(row.pszExamples, '\n'))
        sText += "  qvreader " + sLine + "\n";
    return sText + "\nqvreader --help shows the options that all commands take (--port, --baud, --timeout, --trace, "
                   "--json and\nothers; they may stand before or behind the command) and the exit codes.\n";
}

std::string commandNames()
{
    std::string sText;
    for (const CommandRow &row : commandTable)
        sText += (sText.empty() ? "" : ", ") + std::string(row.pszName);
    return sText;
}

// Which port is meant; one of the environment gives way to an option. bNamed: --port stands on the command line.
void choosePort(Options &options, bool bNamed, const std::string &sAux, const std::string &sUsbId, bool bPrefix)
{
    if (!sAux.empty()) {
        if (bNamed || !sUsbId.empty())
            throw CLI::ValidationError("--aux", std::string("the reader is at one port only; leave out ") +
                                                    (bNamed ? "--port" : "--usb-id"));
        options.aux = auxPort(sAux);
        options.aux->bPrefix = bPrefix;
        options.sPort = "aux " + sAux;
    }
    if (!sUsbId.empty()) {
        options.usbId = usbIdentity(sUsbId);
        if (bNamed && options.channel() != Channel::usb)
            throw CLI::ValidationError("--usb-id", "goes with --port HID");
        if (options.channel() != Channel::usb)
            options.sPort = usbNames[0];
    }
}

// A log or a code needs no reader; doctor has something to say about a missing port, too.
bool needsPort(Command command)
{
    return command != Command::tlv && command != Command::explain && command != Command::log &&
           command != Command::doctor;
}

bool needsSlot(Command command)
{
    return command == Command::atr || command == Command::apdu || command == Command::select ||
           command == Command::purse;
}

// What would be given in vain is refused, so that nobody counts on it.
void checkCounts(const CLI::App &app, Command command)
{
    const auto refuse = [&](const char *pszOption, const char *pszReason) {
        if (app.get_option(pszOption)->count() > 0)
            throw CLI::ValidationError(pszOption, std::string(commandName(command)) + " " + pszReason);
    };
    if (needsPort(command) && !needsSlot(command))
        refuse("--slot", "asks the reader, not a slot; leave this option out");
    if (command != Command::doctor)
        return;
    refuse("--slot", "looks at no slot; leave this option out");
    refuse("--timeout", "has a time limit of its own for each speed; leave this option out");
    refuse("--raise", "tries each speed as it is, raised or not; leave this option out");
}

// What only a serial line has.
void checkChannel(const CLI::App &app, const Options &options)
{
    const auto refuse = [&](const char *pszOption, const char *pszReason) {
        if (app.get_option(pszOption)->count() > 0)
            throw CLI::ValidationError(pszOption, pszReason);
    };
    if (options.channel() == Channel::usb)
        for (const char *pszOption : {"--baud", "--raise", "--box"})
            refuse(pszOption, "a reader on USB has no serial line; leave this option out");
    if (options.channel() == Channel::aux) {
        refuse("--raise", "the terminal's aux port runs at --baud from the start; leave this option out");
        refuse("--box", "a switch box is selected on a serial port only");
    } else {
        refuse("--aux-prefix", "goes with --aux");
    }
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

Channel Options::channel() const
{
    if (aux)
        return Channel::aux;
    if (command == Command::stripe)
        return isStripeUsbName(sPort) ? Channel::usb : Channel::serial;
    const auto fits = [&](std::string_view sName) { return sPort.starts_with(sName); };
    return std::any_of(usbNames.begin(), usbNames.end(), fits) ? Channel::usb : Channel::serial;
}

std::string Options::ttyPath() const
{
    const std::optional<int> nCom = command == Command::stripe ? stripeComNumber(sPort) : std::nullopt;
    return nCom ? "/dev/ttyS" + std::to_string(*nCom - 1) : sPort;
}

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
    std::array<std::optional<std::string>, 2> numbers;
    std::string sKind;
    std::string sAux;
    std::string sUsbId;
    bool bAuxPrefix = false;

    CLI::App app(szDescription, "qvreader");
    app.footer(footer());
    app.set_version_flag("--version", std::string("qvreader " QVTOOL_VERSION));
    app.require_subcommand(1, 1);
    app.fallthrough();
    app.add_option(
           "--port", options.sPort,
           "The reader's serial port, such as /dev/ttyUSB0, or a link to it; HID, USB or 1001: the reader on USB")
        ->envname(szPortVariable)
        ->type_name("PATH");
    app.add_option("--usb-id", sUsbId, "The reader on USB of these vendor and product ids only, hexadecimal: 0403:BCD5")
        ->type_name("VID:PID");
    app.add_option(
           "--aux", sAux,
           "The reader is plugged into an aux port of the terminal that standard output leads to. TYPE: star, gw, "
           "gg, wyse or a number; PORT: 1 to 4. Results go to --output, else to standard error at the end")
        ->type_name("TYPE:PORT");
    app.add_flag("--aux-prefix", bAuxPrefix, "With --aux: tell the terminal to keep its screen out of it");
    app.add_option("--output", options.sOutput, "Write the results to this file instead of standard output")
        ->type_name("FILE");
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
    app.add_option(
           "--timeout", options.nTimeOut,
           "How long to wait for a card, and for each answer: 1 to 120 seconds; stripe waits 30 where this is left out")
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
    for (size_t n = 0; n < commandTable.size(); ++n)
        subcommands[n]->footer(commandFooter(commandTable[n]));
    auto sub = [&](Command command) { return subcommands[static_cast<size_t>(command)]; };
    sub(Command::atr)->add_flag("--decode", options.bDecodeAtr, "Also take the answer apart");
    sub(Command::apdu)
        ->add_option("HEX", apdus, "A command, such as 00A4040000, 4 to 505 bytes")
        ->required()
        ->expected(-1);
    sub(Command::detect)
        ->add_option(
            "--kind", sKind,
            "Ask for certain kinds of card only: 0 to 255; which kinds a number means is the reader firmware's affair")
        ->type_name("BYTE");
    sub(Command::led)
        ->add_option("A", numbers[0], "The state, or with B the first of two bytes: 0 to 255, also 0x01")
        ->type_name("BYTE")
        ->required();
    sub(Command::led)->add_option("B", numbers[1], "The second of two bytes")->type_name("BYTE");
    sub(Command::beep)->add_option("D", numbers[0], "0 to 65535, also 0x01")->type_name("NUMBER")->required();
    sub(Command::beep)->add_option("N", numbers[1], "0 to 255, also 0x01")->type_name("NUMBER")->required();
    addStripeOptions(*sub(Command::stripe), options.stripe);
    addSelectOptions(*sub(Command::select), options.select);
    addPurseOptions(*sub(Command::purse), options.purse);
    sub(Command::tlv)
        ->add_option("HEX", options.tlvTexts, "The data, hexadecimal, in one piece or more; -: from standard input")
        ->required()
        ->expected(-1);
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
        const bool bNamed = std::any_of(ppArgs, ppArgs + nArgs,
                                        [](std::string_view s) { return s == "--port" || s.starts_with("--port="); });
        choosePort(options, bNamed, sAux, sUsbId, bAuxPrefix);
        options.nSlot = slotCode(sSlot);
        options.cBox = sBox.empty() ? '\0' : sBox[0];
        std::transform(apdus.begin(), apdus.end(), std::back_inserter(options.apdus), apduBytes);
        const int nMostFirst = options.command == Command::beep ? nMostWord : nMostByte;
        if (numbers[0])
            options.numbers.push_back(smallNumber(commandName(options.command), *numbers[0], nMostFirst));
        if (numbers[1])
            options.numbers.push_back(smallNumber(commandName(options.command), *numbers[1], nMostByte));
        if (!sKind.empty())
            options.nKind = smallNumber("--kind", sKind, nMostByte);
        if (options.command == Command::stripe)
            settleStripe(app, options);
        if (options.command == Command::purse)
            settlePurse(app, options);
        checkCounts(app, options.command);
        checkChannel(app, options);
        checkTogether(options);
    } catch (const CLI::ParseError &error) {
        parsed.bDone = true;
        if (error.get_exit_code() == 0)
            app.exit(error, std::cout, std::cerr);
        else
            parsed.sError = error.what();
        for (const CLI::App *pNamed = &app; !pNamed->get_subcommands().empty();) {
            pNamed = pNamed->get_subcommands().front();
            parsed.sCommand += (parsed.sCommand.empty() ? "" : " ") + pNamed->get_name();
        }
        if (parsed.sCommand == commandName(Command::stripe) && error.get_name() == "RequiredError")
            parsed.sError = "stripe what? Its commands are read and write";
        else if (parsed.sCommand == commandName(Command::purse) && error.get_name() == "RequiredError")
            parsed.sError = "purse what? Its commands are balance, load, buy and log";
        else if (parsed.sCommand.empty() && error.get_name() == "RequiredError") {
            const std::vector<std::string> rest = app.remaining();
            parsed.sError = (rest.empty() ? "no command was given" : "there is no command \"" + rest.front() + "\"") +
                            std::string("; the commands are ") + commandNames();
        }
    }
    return parsed;
}

} // namespace qvtool
