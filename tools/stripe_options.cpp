#include "stripe_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace qvtool {

namespace {

constexpr int nDefaultTimeOut = 30; // seconds; somebody has to find the card and the slot
constexpr std::array<const char *, 4> usbNames{"HID", "USB", "1001", "0"};
constexpr std::array<const char *, 4> formatNames{"ISO", "IBM", "ISO-DK", "IBM-DK"}; // in the order of their numbers
constexpr std::array<const char *, 6> trackSets{"1", "2", "3", "12", "23", "123"};

constexpr char szReadFooter[] = R"(Examples:
  qvreader --port /dev/ttyUSB0 stripe read
  qvreader --port /dev/ttyUSB0 stripe read --tracks 23 --format IBM --timeout 60
  qvreader --port HID stripe read --tracks 1 --show

qvreader --help shows the options that all commands take (--port, --baud, --timeout, --trace, --json and
others; they may stand before or behind the command) and the exit codes.
)";

constexpr char szWriteFooter[] = R"(Examples:
  qvreader --port /dev/ttyUSB0 stripe write --card test.stripe --verify
  qvreader --port HID stripe write --track2 6225000011112222=29120000
  printf 'track2 6225000011112222=29120000\n' | qvreader --port /dev/ttyUSB0 stripe write --card -

A card file has a line for each track: "track2 TEXT"; "format IBM", "name ..." and lines that begin with # may stand
there, too. What stands on the command line can be seen by all users of the machine while the tool runs: use a file
for real cards.

qvreader --help shows the options that all commands take (--port, --baud, --timeout, --trace, --json and
others; they may stand before or behind the command) and the exit codes.
)";

bool sameName(const std::string &sText, const char *pszName)
{
    return CLI::detail::to_lower(sText) == CLI::detail::to_lower(pszName);
}

void addCommon(CLI::App &command, StripeOptions &options)
{
    command
        .add_option("--format", options.sFormat,
                    "How the stripe is recorded: ISO (when left out), IBM, ISO-DK or IBM-DK")
        ->type_name("NAME")
        ->check([](const std::string &sText) {
            return stripeFormatCode(sText) ? "" : "there is no format " + sText + "; write ISO, IBM, ISO-DK or IBM-DK";
        });
    command.add_option("--channel", options.sChannel, "Select this channel of a switch box first: A, B, C or K")
        ->type_name("LETTER")
        ->check(CLI::IsMember({"A", "B", "C", "K"}));
    command.add_flag("--show", options.bShow,
                     "Show card numbers and what stands behind them in clear, in the trace as well");
}

const CLI::App *chosen(const CLI::App &app)
{
    return app.get_subcommands().front()->get_subcommands().front();
}

void checkChannel(const CLI::App &app, const Options &options)
{
    const auto refuse = [&](const char *pszOption, const char *pszReason) {
        if (app.get_option(pszOption)->count() > 0)
            throw CLI::ValidationError(pszOption, pszReason);
    };
    refuse("--aux",
           "the stripe side of the library serves no aux port of a terminal; plug the reader into this machine");
    refuse("--aux-prefix", "the stripe side of the library serves no aux port of a terminal");
    refuse("--slot", "a stripe is in no slot; leave this option out");
    refuse("--box", "the stripe side selects a channel instead: --channel");
    refuse("--raise", "the stripe side raises no line; --baud alone is the speed that the line has");
    if (options.channel() == Channel::usb && !options.stripe.sChannel.empty())
        throw CLI::ValidationError("--channel", "over USB no channel is selected; leave this option out");
    if (stripeComNumber(options.sPort) && options.nBaud != 9600 && options.nBaud != 115200)
        throw CLI::ValidationError("--baud", "under the name " + options.sPort +
                                                 " the library takes 9600 or 115200 only; "
                                                 "the same port as " +
                                                 options.ttyPath() + " takes every speed");
}

} // namespace

bool isStripeUsbName(const std::string &sPort)
{
    return std::any_of(usbNames.begin(), usbNames.end(), [&](const char *psz) { return sameName(sPort, psz); });
}

std::optional<int> stripeComNumber(const std::string &sPort)
{
    constexpr size_t nHead = 3;
    constexpr size_t nMostDigits = 9;
    const std::string sDigits = sPort.size() > nHead ? sPort.substr(nHead) : std::string();
    if (sDigits.empty() || sDigits.size() > nMostDigits || !sameName(sPort.substr(0, nHead), "COM") ||
        sDigits.find_first_not_of("0123456789") != sDigits.npos)
        return std::nullopt;
    return std::atoi(sDigits.c_str());
}

std::optional<int> stripeFormatCode(const std::string &sName)
{
    for (size_t n = 0; n < formatNames.size(); ++n)
        if (sameName(sName, formatNames[n]))
            return static_cast<int>(n);
    return std::nullopt;
}

std::string stripeFormatName(int nCode)
{
    return formatNames.at(static_cast<size_t>(nCode));
}

void addStripeOptions(CLI::App &stripe, StripeOptions &options)
{
    stripe.require_subcommand(1, 1);
    CLI::App *pRead = stripe.add_subcommand(
        "read", "Wait until a card is swiped and show its tracks. Card number and what stands behind it are masked");
    pRead->footer(szReadFooter);
    pRead
        ->add_option_function<std::string>(
            "--tracks", [&options](const std::string &sText) { options.nTracks = std::atoi(sText.c_str()); },
            "Which tracks: 1, 2, 3, 12, 23 or 123; when left out 123, over USB 23")
        ->type_name("SET")
        ->check([](const std::string &sText) {
            const bool bKnown = std::find(trackSets.begin(), trackSets.end(), sText) != trackSets.end();
            return bKnown ? "" : "one swipe reads tracks 1, 2, 3, 12, 23 or 123, not " + sText;
        });
    addCommon(*pRead, options);

    CLI::App *pWrite = stripe.add_subcommand(
        "write", "Wait until a card is swiped and write its tracks. The texts are checked before anything is opened");
    pWrite->footer(szWriteFooter);
    for (size_t n = 0; n < nStripeTracks; ++n) {
        const std::string sTrack = std::to_string(n + 1);
        pWrite
            ->add_option_function<std::string>(
                "--track" + sTrack, [&options, n](const std::string &sText) { options.texts[n] = sText; },
                "Text of track " + sTrack + (n == 0 ? ": blank to underscore of ASCII" : ": 0 to 9 : ; < = > ?"))
            ->type_name("TEXT");
    }
    pWrite->add_option("--card", options.sCardFile, "Take the texts from this card file; -: standard input")
        ->type_name("FILE");
    pWrite->add_flag("--verify", options.bVerify, "Have the card swiped once more, read it back and compare");
    addCommon(*pWrite, options);
}

void settleStripe(const CLI::App &app, Options &options)
{
    const CLI::App *pCommand = chosen(app);
    StripeOptions &stripe = options.stripe;
    stripe.bWrite = pCommand->get_name() == "write";
    stripe.bFormat = pCommand->get_option("--format")->count() > 0;
    stripe.sFormat = stripeFormatName(*stripeFormatCode(stripe.sFormat));
    if (app.get_option("--timeout")->count() == 0)
        options.nTimeOut = nDefaultTimeOut;
    checkChannel(app, options);
    if (stripe.bWrite)
        return;
    const bool bUsb = options.channel() == Channel::usb;
    if (stripe.nTracks == 123 && bUsb)
        throw CLI::ValidationError("--tracks",
                                   "over USB the library reads one or two tracks at a time: use --tracks 23 (or "
                                   "12), then --tracks 1 (or 3) with another swipe");
    if (stripe.nTracks == 0)
        stripe.nTracks = bUsb ? 23 : 123;
}

} // namespace qvtool
