// Bare escape sequences: commands that travel outside frames. Only the magnetic stripe head answers any, and bare.
//
//   bytes            meaning
//   1B 25 X          switch box: port X selected (X is A, B, C or K)
//   1B 24 42         switch box: port released
//   1B 24 49 34      switch box: its line runs at 9600
//   1B 25 49 C       reader's line speed: C is 1 = 115200, 2 = 38400, 3 = 19200, 4 = 9600
//   1B 30            module reset: every card loses power, the stripe head stands at ISO again
// and for the stripe head
//   1B 72, 1B 5D, 1B 54 5D         read track 1, 2, 3
//   1B 44 5D, 1B 42 5D             read tracks 1 and 2, 2 and 3
//   1B 77 text 1D 1B 5C            write track 1, or tracks 2 and 1; see stripe_commands
//   1B 74 text 1D 1B 5C            write track 2, or 3, or tracks 2 and 3
//   1B 6A                          how did the last operation go
//   1B 3D, 1B 27, 1B 4F, 1B 41     recording format ISO, IBM, ISO-DK, IBM-DK
//
// 1B 25 49 34 directly behind a port selection is the second spelling of "the box's line runs at 9600"; the reader
// model, which knows what came before, tells the two apart.
#pragma once

#include "model/bytes.h"

namespace qvsim {

enum class EscapeKind {
    boxSelect,
    boxRelease,
    boxSpeed,
    readerSpeed,
    moduleReset,
    // of the stripe head
    stripeRead,
    stripeWrite,
    stripeStatus,
    stripeFormat,
};

constexpr std::uint8_t kEscape = 0x1B;
// What ends a text: GS, ESC, "\".
constexpr std::uint8_t kTextEnds = 0x1D;
constexpr std::uint8_t kTextEnd = 0x5C;
// A sequence with its text; hosts put them together in 1024 bytes.
constexpr std::size_t kMostEscapeBytes = 1024;

struct Escape {
    std::string_view tail; // what follows 0x1B
    EscapeKind kind;
    unsigned value; // the box port's letter; bits per second; a TrackSet; 0 (1B 77) or 1 (1B 74); a StripeFormat
    const char *meaning;
    bool takesText = false; // up to GS ESC "\"
};

constexpr bool isForStripe(EscapeKind kind)
{
    return kind >= EscapeKind::stripeRead;
}

enum class EscapeMatch { none, partial, whole };

struct EscapeSearch {
    EscapeMatch match = EscapeMatch::none;
    const Escape *escape = nullptr; // set for a whole match
};

// Looks up what has come behind 0x1B so far. No sequence is the beginning of another one.
EscapeSearch findEscape(std::string_view tail);

} // namespace qvsim
