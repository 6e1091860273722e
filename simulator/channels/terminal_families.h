// What the four families of thin-client terminals understand.
//
//   family   aux port on                                       data between    aux port off
//   star     ESC !s;0;0;0c  ESC [/54l  ESC [/53h  ESC [/50h    ESC [/51h/l     ESC [/50l
//   gw       ESC [p>                                           all that comes  ESC [<
//   gg       ESC [/p;1;s;3;1;0M                                ESC [/| and |   ESC [/M
//   wyse     ESC !p;1m  ESC !b                                 all that comes  ESC !P
//
// p and c tell the port, s its speed; gw and wyse terminals have the speed in their set-up. ESC [2h in front and ESC [2l
// behind keep the screen out of it, in every family.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qvsim {

constexpr unsigned kMostAuxPorts = 4;

enum class TerminalAct { keepScreen, releaseScreen, open, beginData, endData, close };

// `text`: %p stands for a decimal port code, %c for one letter that is a port code, %s for a decimal speed code.
struct TerminalSequence {
    std::string_view text;
    TerminalAct act;
};

// A code and what it means; a code that has several meanings has several rows.
struct TerminalCode {
    unsigned code;
    unsigned meaning;
};

struct TerminalFamily {
    std::string_view name;
    std::span<const TerminalSequence> sequences; // those that open stand in the order in which they must come
    std::span<const TerminalCode> ports;
    std::span<const TerminalCode> speeds; // empty: the speed is in the terminal's set-up
    bool wraps;                           // only what stands between beginData and endData goes to the aux port

    std::size_t openSteps() const;
};

// "star", "gw", "gg", "wyse"; null: no such family.
const TerminalFamily *findTerminalFamily(std::string_view name);
// "star, gw, gg or wyse".
std::string terminalFamilyNames();

enum class SequenceMatch { none, partial, whole };

struct SequenceNumbers {
    std::optional<unsigned> port;
    std::optional<unsigned> speed;
};

// How the bytes that came so far fit a sequence. No sequence of a family is the beginning of another one.
SequenceMatch matchSequence(std::string_view text, std::string_view bytes, SequenceNumbers &numbers);

} // namespace qvsim
