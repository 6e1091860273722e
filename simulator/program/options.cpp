// The command line's options, with their help.
#include "program/options.h"

#include "channels/terminal_families.h"
#include "control/commands.h"
#include "program/bench.h"
#include "program/stripe_options.h"
#include "program/usb_options.h"
#include "system/tty_speeds.h"

#include <CLI/CLI.hpp>

#include <span>

namespace qvsim {

namespace {

constexpr char kDescription[] =
    "A simulated card reader on a pseudo-terminal.\n\n"
    "Start it with a card in the user's slot and watch the line:\n"
    "  qvreader-sim --link /tmp/reader --card 0=script:cards/debit-credit.card --trace -\n"
    "It prints \"ready /dev/pts/N\"; open that path (or the link) as the reader's serial port.\n"
    "Or let a host find it on USB, without hardware:\n"
    "  qvreader-sim --usb --card 0=script:cards/debit-credit.card -- COMMAND ARGUMENTS...\n"
    "While it runs, commands are taken on standard input and on the control socket, a line each;\n"
    "the answer ends with \"ok\" or \"error: ...\". The end of standard input ends nothing.\n\n"
    "Exit codes: 0 done, 1 failed, 2 wrong command line, 3 with --expect: lines of a card file are left.";

constexpr const char *kNeverCtl[] = {"--link", "--baud", "--trace"};
constexpr const char *kOnlyReader[] = {"--card",    "--card-patience", "--device",   "--terminal",
                                       "--control", "--expect",        "--from-log", "--usb"};

// "0=script:cards/purse.card" → slot and card. Throws CLI's error with the reason.
std::pair<SlotCode, std::string> splitCard(const std::string &text)
{
    const std::size_t equals = text.find('=');
    const std::optional<SlotCode> slot =
        equals == std::string::npos ? std::nullopt : parseSlot(std::string_view(text).substr(0, equals));
    if (!slot)
        throw CLI::ValidationError(
            "--card", text + ": write SLOT=script:FILE, SLOT=purse:FILE, SLOT=psam:FILE or SLOT=vpcd:PORT, SLOT "
                             "being 0 to 15 (contact), 16 to 31 (PSAM) or 255 (contactless)");
    return {*slot, text.substr(equals + 1)};
}

// "model=X" → field and value; the bench judges them.
std::pair<std::string, std::string> splitField(const std::string &text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw CLI::ValidationError("--device", text + ": write FIELD=VALUE");
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// A variable of a shell script that was never set would else switch the option off silently.
std::string isGiven(const std::string &text)
{
    return text.empty() ? "a file name is missing" : std::string();
}

// Options that would be ignored are mistakes.
void refuse(const CLI::App &app, const std::string &word, std::span<const char *const> names)
{
    for (const char *const name : names)
        if (app.get_option(name)->count() != 0)
            throw CLI::ValidationError(name, "means nothing to " + word);
}

std::string footer()
{
    std::string text = "Commands while it runs:\n";
    for (const std::string &line : commandHelp())
        text += "  " + line + "\n";
    return text;
}

} // namespace

ParsedOptions parseOptions(int argc, char **argv)
{
    ParsedOptions parsed;
    Options &options = parsed.options;
    std::vector<std::string> cards;
    std::vector<std::string> fields;
    std::vector<std::string> words;
    std::string logSlot;
    UsbOptions usb;
    unsigned patience = static_cast<unsigned>(options.cardPatience.count());

    CLI::App app(kDescription, "qvreader-sim");
    app.footer(footer());
    app.add_option("--link", options.links,
                   "Symbolic link to the pseudo-terminal at a fixed path; may be given several times. Replaces "
                   "an old link, never anything else, and is removed at the end")
        ->type_name("PATH")
        ->allow_extra_args(false);
    app.add_option("--baud", options.baud, "The reader's line speed at start")
        ->type_name("N")
        ->capture_default_str()
        ->check([](const std::string &text) {
            const std::optional<unsigned> baud = parseNumber(text, 10'000'000);
            return baud && speedCode(*baud) ? std::string() : "no tty runs at " + text + " bits per second";
        });
    app.add_option("--card", cards,
                   "A card in a slot from the start: 0=script:FILE plays a card file, 0=purse:FILE is an electronic "
                   "purse card, 16=psam:FILE a PSAM that takes purchases from it, 0=vpcd:PORT waits for a virtual "
                   "card of another program on 127.0.0.1 (port 0: any, told as \"vpcd SLOT PORT\"). Slots: 0-15 "
                   "contact, 16-31 PSAM, 255 contactless")
        ->type_name("SLOT=KIND:WHAT")
        ->allow_extra_args(false);
    app.add_option("--device", fields,
                   "A field of the device record: model, serial (text), date (YYYYMMDD), version, version2 (1.0.2.10, "
                   "hexadecimal) or mac (six hexadecimal bytes)")
        ->type_name("FIELD=VALUE")
        ->allow_extra_args(false);
    addStripeOptions(app, options.stripe);
    CLI::Option *const terminal =
        app.add_option("--terminal", options.terminal,
                       "The pseudo-terminal is the line of a thin-client terminal with the reader on its aux port: " +
                           terminalFamilyNames())
            ->type_name("FAMILY")
            ->check([](const std::string &text) {
                return findTerminalFamily(text) ? std::string() : text + ": a terminal is " + terminalFamilyNames();
            });
    app.add_option("--aux-port", options.auxPort, "The terminal's aux port that the reader is plugged into")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1U, kMostAuxPorts))
        ->needs(terminal);
    app.add_option("--control", options.controlPath, "Unix socket on which control commands are taken")
        ->type_name("SOCKETPATH");
    app.add_option("--trace", options.traceFile,
                   "One line per event, with the time: bytes in and out and what they mean; - is standard error")
        ->type_name("FILE");
    app.add_option("--card-patience", patience,
                   "How long a card may take for one answer before it counts as silent, in milliseconds")
        ->type_name("MS")
        ->capture_default_str()
        ->check(CLI::Range(1U, 600'000U));
    CLI::Option *const expect = app.add_flag(
        "--expect", options.expect,
        "At the end leave with exit code 3, and say on standard error which lines are left, unless every answer in "
        "the card files of --card and of the command insert has been given");
    CLI::Option *const fromLog =
        app.add_option("--from-log", options.logFiles,
                       "Simulate nothing: make a card file of what a card has answered in this log file of the driver "
                       "library, and print it. Given several times, the files are read as one log")
            ->type_name("FILE")
            ->allow_extra_args(false)
            ->excludes(expect);
    app.add_option("--slot", logSlot, "Of which slot, when cards in several slots have answered in the log")
        ->type_name("SLOT")
        ->needs(fromLog);
    app.add_option("--record", options.recordFile, "With --from-log: write the card file there")
        ->type_name("FILE")
        ->needs(fromLog);
    for (const char *const name :
         {"--link", "--baud", "--card", "--device", "--terminal", "--control", "--trace", "--card-patience"})
        fromLog->excludes(app.get_option(name));
    for (const char *const name : kStripeOptions)
        fromLog->excludes(app.get_option(name));
    for (const char *const name : {"--control", "--trace", "--from-log", "--record"})
        app.get_option(name)->check(isGiven);
    app.add_flag("--quiet", options.quiet, "No remarks on standard error, only errors");

    usb.addTo(app, options);

    CLI::App *const ctl = app.add_subcommand("ctl", "Send one command to a running simulator and print its answer");
    ctl->add_option("SOCKETPATH", options.controlCallPath, "The socket given with --control")->required();
    ctl->add_option("COMMAND", words, "The command and its arguments")->required();
    ctl->prefix_command(false);
    ctl->footer(footer());

    CLI::App *const tap = app.add_subcommand(
        "tap", "Sit between a host and a reader on a real tty: bytes go through both ways and are shown by --trace");
    tap->add_option("TTY", options.tapTty, "The reader's serial port")->required();
    tap->add_option("--record", options.recordFile, "At the end, write what the first card answered as a card file")
        ->type_name("FILE")
        ->check(isGiven);
    tap->fallthrough(); // --baud, --link, --trace and --quiet behind the word as well

    try {
        const int behind = findUsbCommand(argc, argv);
        app.parse(behind, argv);
        if (behind < argc)
            options.command.assign(argv + behind + 1, argv + argc);
        usb.finish(app, options);
        for (const std::string &card : cards)
            options.cards.push_back(splitCard(card));
        for (const std::string &field : fields)
            options.device.push_back(splitField(field));
        if (!logSlot.empty() && !(options.logSlot = parseSlot(logSlot)))
            throw CLI::ValidationError("--slot", logSlot + ": a slot is 0 to 15 (contact), 16 to 31 (PSAM) or 255 "
                                                           "(contactless)");
        if (ctl->parsed())
            refuse(app, "ctl", kNeverCtl);
        if (ctl->parsed() || tap->parsed()) {
            refuse(app, ctl->parsed() ? "ctl" : "tap", kOnlyReader);
            refuse(app, ctl->parsed() ? "ctl" : "tap", kStripeOptions);
        }
    } catch (const CLI::ParseError &error) {
        parsed.done = true;
        parsed.exitCode = app.exit(error) == 0 ? 0 : 2;
        return parsed;
    }
    options.cardPatience = std::chrono::milliseconds(patience);
    options.isControlCall = ctl->parsed();
    options.isTap = tap->parsed();
    for (const std::string &word : words)
        options.controlCallLine += (options.controlCallLine.empty() ? "" : " ") + word;
    return parsed;
}

} // namespace qvsim
