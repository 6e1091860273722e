// Outcome → status word and text.
#include "model/status_words.h"

#include <array>

namespace qvsim {

namespace {

struct StatusRow {
    Outcome outcome;
    std::uint16_t contact;
    std::uint16_t contactless;
    const char *text;
};

constexpr std::array<StatusRow, 14> kStatusRows{{
    {Outcome::done, 0x0000, 0x0000, "done"},
    {Outcome::noSuchSlot, 0x1001, 0x1001, "no such slot"},
    {Outcome::notPowered, 0x1003, 0x3004, "card present but not powered"},
    {Outcome::mute, 0x1004, 0x3007, "card is mute"},
    {Outcome::noCard, 0x1005, 0x3001, "no card"},
    {Outcome::stoppedAnswering, 0x1006, 0x3008, "card stopped answering"},
    {Outcome::answerTooLong, 0x1007, 0x3009, "card's answer does not fit a frame"},
    {Outcome::noCommand, 0xF000, 0xF000, "frame without a command"},
    {Outcome::unknownCommand, 0xF001, 0xF001, "unknown command"},
    {Outcome::wrongCommandLength, 0xF002, 0xF002, "command of a wrong length"},
    {Outcome::noSuchKind, 0xF003, 0xF003, "no such kind of card"},
    {Outcome::stripeNoData, 0x4001, 0x4001, "no data on any track"},
    {Outcome::stripeReadFault, 0x4002, 0x4002, "read fault"},
    {Outcome::stripeWriteFault, 0x4001, 0x4001, "nothing was written"},
}};

constexpr bool rowsStandInOrder()
{
    for (std::size_t i = 0; i < kStatusRows.size(); ++i)
        if (static_cast<std::size_t>(kStatusRows[i].outcome) != i)
            return false;
    return true;
}
static_assert(rowsStandInOrder());

const StatusRow &rowOf(Outcome outcome)
{
    return kStatusRows[static_cast<std::size_t>(outcome)];
}

} // namespace

std::uint16_t statusWord(Outcome outcome, SlotCode slot)
{
    const StatusRow &row = rowOf(outcome);
    return slot == kContactless ? row.contactless : row.contact;
}

const char *outcomeText(Outcome outcome)
{
    return rowOf(outcome).text;
}

} // namespace qvsim
