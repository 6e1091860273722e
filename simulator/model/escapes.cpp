// The table of escape sequences: a row each.
#include "model/escapes.h"

#include <array>

namespace qvsim {

namespace {

constexpr std::array<Escape, 11> kEscapes{{
    {"%A", EscapeKind::boxSelect, 'A', "switch box: port A selected"},
    {"%B", EscapeKind::boxSelect, 'B', "switch box: port B selected"},
    {"%C", EscapeKind::boxSelect, 'C', "switch box: port C selected"},
    {"%K", EscapeKind::boxSelect, 'K', "switch box: port K selected"},
    {"$B", EscapeKind::boxRelease, 0, "switch box: port released"},
    {"$I4", EscapeKind::boxSpeed, 9600, "switch box: line at 9600"},
    {"%I1", EscapeKind::readerSpeed, 115200, "line speed 115200 from now on"},
    {"%I2", EscapeKind::readerSpeed, 38400, "line speed 38400 from now on"},
    {"%I3", EscapeKind::readerSpeed, 19200, "line speed 19200 from now on"},
    {"%I4", EscapeKind::readerSpeed, 9600, "line speed 9600 from now on"},
    {"0", EscapeKind::moduleReset, 0, "module reset"},
}};

} // namespace

EscapeSearch findEscape(std::string_view tail)
{
    EscapeSearch found;
    for (const Escape &row : kEscapes) {
        if (row.tail == tail)
            return {EscapeMatch::whole, &row};
        if (row.tail.starts_with(tail))
            found.match = EscapeMatch::partial;
    }
    return found;
}

} // namespace qvsim
