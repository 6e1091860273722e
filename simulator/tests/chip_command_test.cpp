// How a chip card takes a command APDU apart, and which status a command gets that it cannot run.
#include "model/chip_command.h"

#include <gtest/gtest.h>

namespace qvsim {
namespace {

std::string parts(const char *hex)
{
    const Bytes bytes = fromHex(hex).value();
    const std::optional<ChipCommand> command = parseChipCommand(bytes);
    if (!command)
        return "wrong";
    return "[" + toHex(command->data) + "] " + (command->le ? std::to_string(*command->le) : "none");
}

TEST(ChipCommand, AllFourCasesAreTakenApart)
{
    const struct {
        const char *command;
        const char *parts;
    } rows[] = {
        {"00 84 00 00", "[] none"},
        {"00 84 00 00 08", "[] 8"},
        {"00 84 00 00 00", "[] 0"},
        {"00 20 00 00 02 12 34", "[12 34] none"},
        {"00 20 00 00 02 12 34 00", "[12 34] 0"},
        {"00 20 00 00 02 12 34 FF", "[12 34] 255"},
        {"00 20 00 00 01 12", "[12] none"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(parts(row.command), row.parts) << row.command;
}

TEST(ChipCommand, LengthsThatContradictEachOtherAreRefused)
{
    for (const char *command : {"", "00", "00 84 00", "00 20 00 00 03 12 34", "00 20 00 00 02 12 34 00 00",
                                "00 20 00 00 00 12", "00 20 00 00 00 00 02 12 34", "00 20 00 00 FF 12"})
        EXPECT_EQ(parts(command), "wrong") << command;
}

class Echo {
  public:
    std::string ask(const char *hex)
    {
        static constexpr ChipCommandRow<Echo> rows[] = {
            {0x00, 0x10, 0x01, 2, 3, kOwnLe, &Echo::echo},
            {0x00, 0x10, 0x02, 0, 0, 4, &Echo::four},
            {0x80, 0x20, kAnyP1, 0, 0, kOwnLe, &Echo::echo},
        };
        const Bytes bytes = fromHex(hex).value();
        return toHex(runChipCommand(*this, std::span<const ChipCommandRow<Echo>>(rows), bytes));
    }
    int runs = 0;

  private:
    Bytes echo(const ChipCommand &command)
    {
        ++runs;
        return dataAnswer(command.data);
    }
    Bytes four(const ChipCommand &)
    {
        ++runs;
        return dataAnswer(Bytes{1, 2, 3, 4});
    }
};

TEST(ChipCommand, ARowRunsOnlyWithItsClassParametersAndLengths)
{
    const struct {
        const char *command;
        const char *answer;
        bool runs;
    } rows[] = {
        {"00 10 01 00 02 AA BB", "AA BB 90 00", true},
        {"00 10 01 77 03 AA BB CC FF", "AA BB CC 90 00", true},
        {"00 10 01 00 01 AA", "67 00", false},
        {"00 10 01 00 04 AA BB CC DD", "67 00", false},
        {"00 10 01 00", "67 00", false},
        {"00 10 02 00", "01 02 03 04 90 00", true},
        {"00 10 02 00 00", "01 02 03 04 90 00", true},
        {"00 10 02 00 04", "01 02 03 04 90 00", true},
        {"00 10 02 00 03", "6C 04", false},
        {"00 10 02 00 FF", "6C 04", false},
        {"00 10 03 00", "6A 86", false},
        {"00 20 00 00", "6D 00", false},
        {"80 10 01 00 02 AA BB", "6D 00", false},
        {"80 20 FF 00", "90 00", true},
        {"04 10 01 00 02 AA BB", "6E 00", false},
        {"00 10 01", "67 00", false},
    };
    for (const auto &row : rows) {
        Echo card;
        EXPECT_EQ(card.ask(row.command), row.answer) << row.command;
        EXPECT_EQ(card.runs, row.runs ? 1 : 0) << row.command;
    }
}

} // namespace
} // namespace qvsim
