// The table of escape sequences: a row each.
#include "model/escapes.h"

#include "model/stripe_card.h"

#include <array>

namespace qvsim {

namespace {

constexpr unsigned valueOf(StripeFormat format)
{
    return static_cast<unsigned>(format);
}

constexpr std::array<Escape, 23> kEscapes{{
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
    {"r", EscapeKind::stripeRead, kTrack1, "read track 1"},
    {"]", EscapeKind::stripeRead, kTrack2, "read track 2"},
    {"T]", EscapeKind::stripeRead, kTrack3, "read track 3"},
    {"D]", EscapeKind::stripeRead, kTrack1 | kTrack2, "read tracks 1 and 2"},
    {"B]", EscapeKind::stripeRead, kTrack2 | kTrack3, "read tracks 2 and 3"},
    {"w", EscapeKind::stripeWrite, 0, "write track 1, or 2 and 1", true},
    {"t", EscapeKind::stripeWrite, 1, "write track 2, or 3, or 2 and 3", true},
    {"j", EscapeKind::stripeStatus, 0, "how did the last operation go"},
    {"=", EscapeKind::stripeFormat, valueOf(StripeFormat::iso), "recording format ISO"},
    {"'", EscapeKind::stripeFormat, valueOf(StripeFormat::ibm), "recording format IBM"},
    {"O", EscapeKind::stripeFormat, valueOf(StripeFormat::isoDk), "recording format ISO-DK"},
    {"A", EscapeKind::stripeFormat, valueOf(StripeFormat::ibmDk), "recording format IBM-DK"},
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
