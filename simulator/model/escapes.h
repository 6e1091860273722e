// Bare escape sequences: commands that travel outside frames and get no reply.
//
//   bytes            meaning
//   1B 25 X          switch box: port X selected (X is A, B, C or K)
//   1B 24 42         switch box: port released
//   1B 24 49 34      switch box: its line runs at 9600
//   1B 25 49 C       reader's line speed: C is 1 = 115200, 2 = 38400, 3 = 19200, 4 = 9600
//   1B 30            module reset: every card loses power
//
// 1B 25 49 34 directly behind a port selection is the second spelling of "the box's line runs at 9600"; the reader
// model, which knows what came before, tells the two apart.
#pragma once

#include "model/bytes.h"

namespace qvsim {

enum class EscapeKind { boxSelect, boxRelease, boxSpeed, readerSpeed, moduleReset };

constexpr std::uint8_t kEscape = 0x1B;

struct Escape {
    std::string_view tail; // what follows 0x1B
    EscapeKind kind;
    unsigned value; // the box port's letter, or bits per second
    const char *meaning;
};

enum class EscapeMatch { none, partial, whole };

struct EscapeSearch {
    EscapeMatch match = EscapeMatch::none;
    const Escape *escape = nullptr; // set for a whole match
};

// Looks up what has come behind 0x1B so far. No sequence is the beginning of another one.
EscapeSearch findEscape(std::string_view tail);

} // namespace qvsim
