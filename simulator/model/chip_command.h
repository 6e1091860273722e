// Command APDUs as a chip card takes them apart (ISO 7816-4, short lengths), and the table by which it finds what to do.
#pragma once

#include "model/bytes.h"

namespace qvsim {

struct ChipCommand {
    std::uint8_t cla, ins, p1, p2;
    BytesView data;                 // empty: the command has none
    std::optional<std::uint8_t> le; // 0: as much as there is
};

// Nothing when the lengths contradict each other.
std::optional<ChipCommand> parseChipCommand(BytesView bytes);

namespace sw {
constexpr std::uint16_t done = 0x9000;
constexpr std::uint16_t triesLeft = 0x63C0; // the low four bits tell how many
constexpr std::uint16_t wrongLength = 0x6700;
constexpr std::uint16_t notAccepted = 0x6901; // not in this state
constexpr std::uint16_t securityMissing = 0x6982;
constexpr std::uint16_t pinBlocked = 0x6983;
constexpr std::uint16_t conditionsMissing = 0x6985;
constexpr std::uint16_t noCurrentFile = 0x6986;
constexpr std::uint16_t noSuchFile = 0x6A82;
constexpr std::uint16_t noSuchRecord = 0x6A83;
constexpr std::uint16_t fileTooSmall = 0x6A84;
constexpr std::uint16_t wrongParameters = 0x6A86;
constexpr std::uint16_t wrongOffset = 0x6B00;
constexpr std::uint16_t rightLe = 0x6C00; // the low byte tells it
constexpr std::uint16_t unknownIns = 0x6D00;
constexpr std::uint16_t unknownCla = 0x6E00;
constexpr std::uint16_t wrongMac = 0x9302;
constexpr std::uint16_t fundsMissing = 0x9401;
constexpr std::uint16_t counterAtEnd = 0x9402;
constexpr std::uint16_t noSuchKey = 0x9403;
} // namespace sw

// A status alone; data with the status 9000 behind it.
Bytes statusAnswer(std::uint16_t status);
Bytes dataAnswer(BytesView data);

// Whether a host that sends this Le takes an answer of `size` bytes. Hosts may leave it out.
inline bool leFits(std::optional<std::uint8_t> le, std::size_t size)
{
    return le.value_or(0) == 0 || *le == size;
}

constexpr unsigned kAnyP1 = 0x100;
constexpr std::size_t kOwnLe = 0x100; // the function judges Le itself, or has no data to answer with

// A command that a card knows. A command whose lengths are wrong changes nothing on the card.
template <typename CardType> struct ChipCommandRow {
    std::uint8_t cla, ins;
    unsigned p1;
    std::size_t leastData, mostData; // bytes
    std::size_t answer;              // bytes of data in every good answer, or kOwnLe
    Bytes (CardType::*run)(const ChipCommand &command);
};

template <typename CardType>
Bytes runChipCommand(CardType &card, std::span<const ChipCommandRow<CardType>> rows, BytesView bytes)
{
    const std::optional<ChipCommand> command = parseChipCommand(bytes);
    if (!command)
        return statusAnswer(sw::wrongLength);
    std::uint16_t status = sw::unknownCla;
    for (const ChipCommandRow<CardType> &row : rows) {
        if (row.cla != command->cla)
            continue;
        if (row.ins != command->ins) {
            status = status == sw::unknownCla ? sw::unknownIns : status;
            continue;
        }
        if (row.p1 != kAnyP1 && row.p1 != command->p1) {
            status = sw::wrongParameters;
            continue;
        }
        if (command->data.size() < row.leastData || command->data.size() > row.mostData)
            return statusAnswer(sw::wrongLength);
        if (row.answer != kOwnLe && !leFits(command->le, row.answer))
            return statusAnswer(static_cast<std::uint16_t>(sw::rightLe + row.answer));
        return (card.*row.run)(*command);
    }
    return statusAnswer(status);
}

} // namespace qvsim
