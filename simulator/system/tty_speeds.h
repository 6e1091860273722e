// Bits per second ↔ the tty's speed codes.
#pragma once

#include <termios.h>

#include <optional>

namespace qvsim {

// Nothing for a rate that ttys have no code for.
std::optional<speed_t> speedCode(unsigned baud);

// 0 for a code that is not in the table (a hung-up line, for one).
unsigned baudOf(speed_t code);

} // namespace qvsim
