// The settings, a row each.
#include "usb/behaviour.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr unsigned kMostBytes = 4096;

using Out = UsbBehaviour::Out;
using In = UsbBehaviour::In;

struct Row {
    std::string_view name;  // what it concerns
    std::string_view value; // N stands for a number of bytes
    std::string_view help;
    void (*set)(UsbBehaviour &behaviour, unsigned number);
    bool (*isSet)(const UsbBehaviour &behaviour); // null: this is the way back
};

void setIn(UsbBehaviour &b, In in, std::size_t most, bool emptyFirst)
{
    b.in = in;
    b.inMost = most;
    b.emptyReportFirst = emptyFirst;
}

void setOut(UsbBehaviour &b, Out out, std::size_t most)
{
    b.out = out;
    b.outMost = most;
}

constexpr Row kRows[] = {
    {"claim", "busy", "claiming an interface fails: another program has it",
     [](UsbBehaviour &b, unsigned) { b.claimBusy = true; }, [](const UsbBehaviour &b) { return b.claimBusy; }},
    {"claim", "ok", "", [](UsbBehaviour &b, unsigned) { b.claimBusy = false; }, nullptr},
    {"detach", "refused", "the kernel's driver cannot be detached: no right to it",
     [](UsbBehaviour &b, unsigned) { b.detachRefused = true; }, [](const UsbBehaviour &b) { return b.detachRefused; }},
    {"detach", "ok", "", [](UsbBehaviour &b, unsigned) { b.detachRefused = false; }, nullptr},
    {"reset", "fail", "a reset fails", [](UsbBehaviour &b, unsigned) { b.resetFails = true; },
     [](const UsbBehaviour &b) { return b.resetFails; }},
    {"reset", "ok", "", [](UsbBehaviour &b, unsigned) { b.resetFails = false; }, nullptr},
    {"config", "none", "the device has no active configuration",
     [](UsbBehaviour &b, unsigned) { b.unconfigured = true; }, [](const UsbBehaviour &b) { return b.unconfigured; }},
    {"config", "ok", "", [](UsbBehaviour &b, unsigned) { b.unconfigured = false; }, nullptr},
    {"open", "fail", "the device cannot be opened", [](UsbBehaviour &b, unsigned) { b.cannotOpen = true; },
     [](const UsbBehaviour &b) { return b.cannotOpen; }},
    {"open", "ok", "", [](UsbBehaviour &b, unsigned) { b.cannotOpen = false; }, nullptr},
    {"out", "stuck", "transfers to the reader never complete",
     [](UsbBehaviour &b, unsigned) { setOut(b, Out::stuck, 0); },
     [](const UsbBehaviour &b) { return b.out == Out::stuck; }},
    {"out", "stall", "transfers to the reader fail with a stalled endpoint",
     [](UsbBehaviour &b, unsigned) { setOut(b, Out::stalled, 0); },
     [](const UsbBehaviour &b) { return b.out == Out::stalled; }},
    {"out", "short N", "transfers to the reader move at most N bytes",
     [](UsbBehaviour &b, unsigned number) { setOut(b, Out::taken, number); },
     [](const UsbBehaviour &b) { return b.outMost != 0; }},
    {"out", "ok", "", [](UsbBehaviour &b, unsigned) { setOut(b, Out::taken, 0); }, nullptr},
    {"in", "stall", "transfers from the reader fail with a stalled endpoint",
     [](UsbBehaviour &b, unsigned) { setIn(b, In::stalled, 0, false); },
     [](const UsbBehaviour &b) { return b.in == In::stalled; }},
    {"in", "overflow", "transfers from the reader fail: more bytes came than were asked for",
     [](UsbBehaviour &b, unsigned) { setIn(b, In::overflows, 0, false); },
     [](const UsbBehaviour &b) { return b.in == In::overflows; }},
    {"in", "short N", "replies go in reports of N bytes, and fewer at the end, not padded",
     [](UsbBehaviour &b, unsigned number) { setIn(b, In::sent, number, false); },
     [](const UsbBehaviour &b) { return b.inMost != 0; }},
    {"in", "empty", "a report of no bytes goes before each reply",
     [](UsbBehaviour &b, unsigned) { setIn(b, In::sent, 0, true); },
     [](const UsbBehaviour &b) { return b.emptyReportFirst; }},
    {"in", "ok", "", [](UsbBehaviour &b, unsigned) { setIn(b, In::sent, 0, false); }, nullptr},
};

} // namespace

std::optional<std::string> setUsbBehaviour(UsbBehaviour &behaviour, std::string_view words)
{
    const std::size_t blank = words.find(' ');
    const std::string_view name = words.substr(0, blank);
    const std::string_view value = blank == std::string_view::npos ? std::string_view{} : words.substr(blank + 1);
    std::string known;
    for (const Row &row : kRows) {
        if (row.name != name)
            continue;
        known += (known.empty() ? "" : ", ") + std::string(row.value);
        const std::size_t placeholder = row.value.find(" N");
        if (placeholder == std::string_view::npos) {
            if (value != row.value)
                continue;
            row.set(behaviour, 0);
            return std::nullopt;
        }
        if (!value.starts_with(row.value.substr(0, placeholder + 1)))
            continue;
        const std::optional<unsigned> number = parseNumber(value.substr(placeholder + 1), kMostBytes);
        if (!number || *number == 0)
            return std::string(name) + " short takes 1 to " + std::to_string(kMostBytes) + " bytes";
        row.set(behaviour, *number);
        return std::nullopt;
    }
    if (known.empty())
        return "nothing about USB is called " + std::string(name) + "; try usb list";
    return std::string(name) + " is one of: " + known;
}

std::vector<std::string> describeUsbBehaviour(const UsbBehaviour &behaviour)
{
    std::vector<std::string> lines;
    for (const Row &row : kRows) {
        if (row.isSet == nullptr)
            continue;
        std::string text = std::string(row.name) + " " + std::string(row.value);
        text.resize(std::max<std::size_t>(text.size() + 2, 16), ' ');
        text += row.help;
        if (row.isSet(behaviour))
            text += " [on]";
        lines.push_back(std::move(text));
    }
    return lines;
}

} // namespace qvsim
