// The table of line speeds.
#include "system/tty_speeds.h"

#include <array>

namespace qvsim {

namespace {

struct SpeedRow {
    unsigned baud;
    speed_t code;
};

constexpr std::array<SpeedRow, 12> kSpeeds{{
    {300, B300},
    {600, B600},
    {1200, B1200},
    {2400, B2400},
    {4800, B4800},
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
    {230400, B230400},
    {460800, B460800},
}};

} // namespace

std::optional<speed_t> speedCode(unsigned baud)
{
    for (const SpeedRow &row : kSpeeds)
        if (row.baud == baud)
            return row.code;
    return std::nullopt;
}

unsigned baudOf(speed_t code)
{
    for (const SpeedRow &row : kSpeeds)
        if (row.code == code)
            return row.baud;
    return 0;
}

} // namespace qvsim
