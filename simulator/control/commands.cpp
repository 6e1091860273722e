// Control commands.
#include "control/commands.h"

#include "program/bench.h"

#include <array>

namespace qvsim {

namespace {

using Words = std::vector<std::string_view>;
using Lines = std::vector<std::string>;

constexpr std::string_view kBlanks = " \t\r";
constexpr unsigned kHighestBaud = 10'000'000;
constexpr char kWrongSlot[] = "a slot is 0 to 15 (contact), 16 to 31 (PSAM) or 255 (contactless)";

struct Command {
    std::string_view name;
    std::string_view arguments; // as the help shows them
    std::size_t count;          // how many; the last one takes the rest of the line
    std::string_view help;
    Trouble (*run)(Bench &bench, const Words &arguments, Lines &told);
};

Trouble insertCard(Bench &bench, const Words &arguments, Lines &told)
{
    const std::optional<SlotCode> slot = parseSlot(arguments[0]);
    if (!slot)
        return kWrongSlot;
    return bench.insert(*slot, arguments[1], told);
}

Trouble removeCard(Bench &bench, const Words &arguments, Lines &)
{
    const std::optional<SlotCode> slot = parseSlot(arguments[0]);
    if (!slot)
        return kWrongSlot;
    return bench.remove(*slot);
}

Trouble showState(Bench &bench, const Words &, Lines &told)
{
    told = bench.describe();
    return std::nullopt;
}

Trouble setBaud(Bench &bench, const Words &arguments, Lines &)
{
    const std::optional<unsigned> baud = parseNumber(arguments[0], kHighestBaud);
    if (!baud)
        return "a line speed is a number of bits per second";
    return bench.setBaud(*baud);
}

Trouble swipeCard(Bench &bench, const Words &arguments, Lines &)
{
    const auto track = [](std::string_view word) { return word == "-" ? std::string_view{} : word; };
    return bench.swipe(track(arguments[0]), track(arguments[1]));
}

Trouble setStripe(Bench &bench, const Words &arguments, Lines &told)
{
    return bench.setStripe(arguments[0], told);
}

Trouble setIdentity(Bench &bench, const Words &arguments, Lines &)
{
    if (arguments[0] != "on" && arguments[0] != "off")
        return "identity is on or off";
    bench.setIdentityCard(arguments[0] == "on");
    return std::nullopt;
}

Trouble setDevice(Bench &bench, const Words &arguments, Lines &)
{
    return bench.setDevice(arguments[0], arguments[1]);
}

Trouble setFault(Bench &bench, const Words &arguments, Lines &)
{
    return bench.setFault(arguments[0]);
}

Trouble showFaults(Bench &bench, const Words &, Lines &told)
{
    told = bench.describeFaults();
    return std::nullopt;
}

Trouble expectAllPlayed(Bench &bench, const Words &, Lines &told)
{
    return bench.expectAllPlayed(told);
}

Trouble unplug(Bench &bench, const Words &, Lines &)
{
    return bench.unplug();
}

Trouble plug(Bench &bench, const Words &, Lines &)
{
    return bench.plug();
}

Trouble setUsb(Bench &bench, const Words &arguments, Lines &told)
{
    return bench.setUsb(arguments[0], told);
}

Trouble showHelp(Bench &, const Words &, Lines &told)
{
    told = commandHelp();
    return std::nullopt;
}

Trouble quit(Bench &bench, const Words &, Lines &)
{
    bench.stop();
    return std::nullopt;
}

constexpr std::array<Command, 16> kCommands{{
    {"insert", "SLOT CARD", 2, "puts a card in; CARD is script:FILE, purse:FILE, psam:FILE or vpcd:PORT", insertCard},
    {"remove", "SLOT", 1, "pulls the card out", removeCard},
    {"swipe", "TRACK2 TRACK3", 2, "a magnetic card goes through once; - is an empty track", swipeCard},
    {"stripe", "FILE|none|SETTING", 1,
     "the magnetic card at hand; or after MS, once, always, final on|off, tracks, save FILE, fault NAME [once]|off",
     setStripe},
    {"identity", "on|off", 1, "an identity card lies on the reader, or no longer does", setIdentity},
    {"device", "FIELD VALUE", 2, "model, serial, date, version, version2 or mac of the device record", setDevice},
    {"fault", "NAME [ARG] [every]|off", 1, "spoils the next reply, or every one", setFault},
    {"faults", "", 0, "the faults there are, and which are on", showFaults},
    {"unplug", "", 0, "USB: pulls the reader's plug; its cards lose power", unplug},
    {"plug", "", 0, "USB: plugs the reader in again", plug},
    {"usb", "NAME VALUE|list", 1, "USB: how the device misbehaves from now on, or what there is", setUsb},
    {"state", "", 0, "line speed, switch box, cards, stripe head, work in hand, LEDs, buzzer, counts", showState},
    {"expect", "", 0, "ok when every line of the card files has been played; tells what is left", expectAllPlayed},
    {"baud", "N", 1, "the reader's line speed from now on", setBaud},
    {"help", "", 0, "this list", showHelp},
    {"quit", "", 0, "ends the simulator", quit},
}};

// At most `most` words; the last one keeps the blanks inside it.
Words split(std::string_view line, std::size_t most)
{
    Words words;
    for (;;) {
        const std::size_t begin = line.find_first_not_of(kBlanks);
        if (begin == std::string_view::npos)
            return words;
        line.remove_prefix(begin);
        const std::size_t end = words.size() + 1 == most ? line.find_last_not_of(kBlanks) + 1
                                                         : std::min(line.find_first_of(kBlanks), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
        if (words.size() == most)
            return words;
    }
}

Lines answer(Lines told, const Trouble &trouble)
{
    told.push_back(trouble ? "error: " + *trouble : "ok");
    return told;
}

} // namespace

std::vector<std::string> runCommand(Bench &bench, std::string_view line)
{
    const Words first = split(line, 2);
    if (first.empty())
        return answer({}, "no command; try help");
    for (const Command &command : kCommands) {
        if (command.name != first[0])
            continue;
        const Words arguments = first.size() < 2 ? Words{} : split(first[1], std::max<std::size_t>(command.count, 1));
        if (arguments.size() != command.count)
            return answer({}, "usage: " + std::string(command.name) + " " + std::string(command.arguments));
        Lines told;
        const Trouble trouble = command.run(bench, arguments, told);
        return answer(std::move(told), trouble);
    }
    return answer({}, "unknown command " + std::string(first[0]) + "; try help");
}

std::vector<std::string> commandHelp()
{
    Lines lines;
    for (const Command &command : kCommands) {
        std::string text(command.name);
        if (!command.arguments.empty())
            text.append(" ").append(command.arguments);
        text.resize(std::max<std::size_t>(text.size() + 2, 20), ' ');
        lines.push_back(text.append(command.help));
    }
    return lines;
}

} // namespace qvsim
