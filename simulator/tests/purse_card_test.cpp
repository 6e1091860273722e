// The purse card's files, PIN, random numbers and what it refuses; transactions are in purse_transactions_test.cpp.
#include "purse_bench.h"

#include <random>

namespace qvsim::test {
namespace {

using PurseCardTest = PurseTest;

constexpr char kPublicFile[] = "51 56 42 41 4E 4B 00 01 03 01 00 00 62 00 00 00 10 00 00 03 "
                               "20 25 01 01 20 35 12 31 00 00";

TEST_F(PurseCardTest, PowerOnIsAnsweredWithTheAtr)
{
    load();
    EXPECT_EQ(toHex(card->powerOn().bytes), "3B 00");
}

TEST_F(PurseCardTest, TheApplicationIsSelectedByItsNameOrTheBeginningOfIt)
{
    load();
    const std::string information =
        "6F 2E 84 09 51 56 50 55 52 53 45 2E 31 A5 21 9F 0C 1E " + std::string(kPublicFile) + " 90 00";
    for (const char *command :
         {"00 A4 04 00 09 51 56 50 55 52 53 45 2E 31", "00 A4 04 00 09 51 56 50 55 52 53 45 2E 31 00",
          "00 A4 04 00 07 51 56 50 55 52 53 45", "00 A4 04 00 00", "00 A4 04 00 09 51 56 50 55 52 53 45 2E 31 FF"})
        EXPECT_EQ(ask(command), information) << command;
    EXPECT_EQ(ask("00 A4 00 00 02 3F 00"), "90 00");
    EXPECT_EQ(ask("00 A4 04 00 09 51 56 50 55 52 53 45 2E 31 2F"), "6C 30");
    EXPECT_EQ(ask("00 A4 04 00 09 51 56 50 55 52 53 45 2E 32 00"), "6A 82");
    EXPECT_EQ(ask("00 A4 04 00 0A 51 56 50 55 52 53 45 2E 31 00"), "6A 82");
    EXPECT_EQ(ask("00 A4 04 02 09 51 56 50 55 52 53 45 2E 31 00"), "6A 82"); // there is no next one
    EXPECT_EQ(ask("00 A4 00 00 02 3F 01"), "6A 82");
    EXPECT_EQ(ask("00 A4 08 00 02 3F 00"), "6A 86");
}

TEST_F(PurseCardTest, FilesAreReadByTheirShortIdentifiers)
{
    load(withLine(kTestPurse, "holder " + std::string(108, '0') + "AB"));
    EXPECT_EQ(ask("00 B0 95 00 1E"), std::string(kPublicFile) + " 90 00");
    EXPECT_EQ(ask("00 B0 95 00 00"), std::string(kPublicFile) + " 90 00");
    EXPECT_EQ(ask("00 B0 95 00"), std::string(kPublicFile) + " 90 00");
    EXPECT_EQ(ask("00 B0 95 0C 08"), "62 00 00 00 10 00 00 03 90 00");
    EXPECT_EQ(ask("00 B0 95 1D 00"), "00 90 00");
    EXPECT_EQ(ask("00 B0 96 35 02"), "00 AB 90 00");
    EXPECT_EQ(ask("00 B0 95 00 1F"), "6C 1E");
    EXPECT_EQ(ask("00 B0 95 1C FF"), "6C 02");
    EXPECT_EQ(ask("00 B0 95 1E 00"), "6B 00");
    EXPECT_EQ(ask("00 B0 96 37 00"), "6B 00");
    EXPECT_EQ(ask("00 B0 97 00 00"), "6A 82");
    EXPECT_EQ(ask("00 B0 98 00 00"), "6A 82"); // the log has records
    EXPECT_EQ(ask("00 B0 00 00 00"), "69 86");
    EXPECT_EQ(ask("00 B0 D5 00 00"), "6A 86");
}

TEST_F(PurseCardTest, TheCardHolderIsWrittenByWhoKnowsThePin)
{
    load();
    EXPECT_EQ(ask("00 D6 96 34 02 12 34 00"), "69 82");
    EXPECT_EQ(askWithPin("00 D6 96 34 02 12 34 00"), "90 00");
    EXPECT_EQ(ask("00 B0 96 33 00"), "00 12 34 00 90 00");
    EXPECT_EQ(ask("00 D6 96 36 02 AB CD 00"), "6A 84");
    EXPECT_EQ(ask("00 D6 96 37 01 AB 00"), "6B 00");
    EXPECT_EQ(ask("00 B0 96 36 00"), "00 90 00");
    EXPECT_EQ(ask("00 D6 95 00 01 AB 00"), "69 82");
    EXPECT_EQ(ask("00 D6 97 00 01 AB 00"), "6A 82");
    EXPECT_EQ(ask("00 D6 16 00 01 AB 00"), "69 86");
    EXPECT_EQ(ask("00 D6 96 00"), "67 00");
}

TEST_F(PurseCardTest, TheLogIsEmptyAtFirst)
{
    load();
    EXPECT_EQ(ask("00 B2 98 01 17"), "6A 83");
    EXPECT_EQ(ask("00 B2 01 C4 00"), "6A 83");
    EXPECT_EQ(ask("00 B2 98 00 00"), "6A 83");
    EXPECT_EQ(ask("00 B2 97 01 00"), "6A 82");
    EXPECT_EQ(ask("00 B2 01 AC 00"), "6A 82");
    EXPECT_EQ(ask("00 B2 01 04 00"), "69 86");
    EXPECT_EQ(ask("00 B2 01 C5 00"), "6A 86");
    EXPECT_EQ(ask("00 B2 98 01 18"), "6C 17");
}

TEST_F(PurseCardTest, AWrongPinCostsATryAndTheLastOneBlocksTheCard)
{
    load();
    EXPECT_EQ(ask("00 20 00 00 03 12 34 57 FF"), "63 C2");
    EXPECT_EQ(ask("00 20 00 00 02 12 34"), "63 C1");
    EXPECT_EQ(ask("00 20 00 00 03 12 34 56 FF"), "90 00"); // all tries are back
    EXPECT_EQ(ask("00 20 00 80 03 99 99 99 FF"), "63 C2");
    card->powerOn(); // gives none back
    EXPECT_EQ(ask("00 20 00 00 03 99 99 99"), "63 C1");
    EXPECT_EQ(ask("00 20 00 00 03 99 99 99"), "63 C0");
    EXPECT_EQ(ask("00 20 00 00 03 12 34 56"), "69 83");
    card->powerOn();
    EXPECT_EQ(ask("00 20 00 00 03 12 34 56"), "69 83");
}

TEST_F(PurseCardTest, PinsThatCannotBeOneCostNoTry)
{
    load();
    EXPECT_EQ(ask("00 20 00 00"), "67 00");
    EXPECT_EQ(ask("00 20 00 00 01 12"), "67 00");
    EXPECT_EQ(ask("00 20 00 00 07 12 34 56 78 90 12 34"), "67 00");
    EXPECT_EQ(ask("00 20 00 88 03 12 34 57"), "6A 86");
    EXPECT_EQ(ask("00 20 01 00 03 12 34 57"), "6A 86");
    EXPECT_EQ(ask("00 20 00 00 03 12 34 57"), "63 C2");
}

TEST_F(PurseCardTest, TheVerifiedPinIsForgottenAtPowerOffAtSelectAndAtAWrongOne)
{
    load();
    const std::string needsPin = firstHalf("80 50 00 01", "00 00 00 01");
    EXPECT_EQ(ask(needsPin), "69 82");
    EXPECT_NE(askWithPin(needsPin), "69 82");
    card->powerOff();
    card->powerOn();
    EXPECT_EQ(ask(needsPin), "69 82");
    EXPECT_NE(askWithPin(needsPin), "69 82");
    card->powerOn(); // a warm reset
    EXPECT_EQ(ask(needsPin), "69 82");
    EXPECT_NE(askWithPin(needsPin), "69 82");
    EXPECT_EQ(ask("00 A4 04 00 07 51 56 50 55 52 53 46 00"), "6A 82");
    EXPECT_NE(ask(needsPin), "69 82");
    ask("00 A4 04 00 00");
    EXPECT_EQ(ask(needsPin), "69 82");
    EXPECT_NE(askWithPin(needsPin), "69 82");
    EXPECT_EQ(ask("00 20 00 00 03 12 34 57"), "63 C2");
    EXPECT_EQ(ask(needsPin), "69 82");
}

TEST_F(PurseCardTest, RandomNumbersAreAsLongAsAsked)
{
    load();
    EXPECT_EQ(ask("00 84 00 00 04"), "C0 FF EE 42 90 00");
    EXPECT_EQ(ask("00 84 00 00 00"), "C0 FF EE 42 C0 FF EE 42 90 00");
    EXPECT_EQ(ask("00 84 00 00"), "C0 FF EE 42 C0 FF EE 42 90 00");
    EXPECT_EQ(ask("00 84 00 00 FF").size(), 3U * (255 + 2) - 1);
    EXPECT_EQ(ask("00 84 00 01 04"), "6A 86");
    load(withoutLine(kTestPurse, "random"));
    EXPECT_EQ(ask("00 84 00 00 04"), "5A 5A 5A 5A 90 00"); // the bench's random source
}

TEST_F(PurseCardTest, BalancesAreToldByKind)
{
    load();
    EXPECT_EQ(balances(), kBalancesAtStart);
    EXPECT_EQ(ask("80 5C 00 02"), "00 00 13 88 90 00");
    EXPECT_EQ(ask("80 5C 00 02 00"), "00 00 13 88 90 00");
    EXPECT_EQ(ask("80 5C 00 02 05"), "6C 04");
    EXPECT_EQ(ask("80 5C 00 03 04"), "6A 86");
    EXPECT_EQ(ask("80 5C 00 00 04"), "6A 86");
    EXPECT_EQ(ask("80 5C 01 02 04"), "6A 86");
    EXPECT_EQ(card->label(), "t deposit 1000.00, purse 50.00");
}

TEST_F(PurseCardTest, UnknownCommandsAreRefused)
{
    load();
    EXPECT_EQ(ask("00 C0 00 00 10"), "6D 00");
    EXPECT_EQ(ask("80 58 00 00"), "6D 00");
    EXPECT_EQ(ask("80 B0 95 00 00"), "6D 00");
    EXPECT_EQ(ask("04 D6 96 00 01 00"), "6E 00");
    EXPECT_EQ(ask("80 50 02 01 0B 01 00 00 00 01 00 00 00 00 20 26"), "6A 86"); // cash withdrawal
}

TEST_F(PurseCardTest, AnyBytesAreAnsweredWithAStatusAndMoveNoMoney)
{
    load();
    constexpr std::uint8_t kClasses[] = {0x00, 0x80};
    constexpr std::uint8_t kInstructions[] = {0xA4, 0xB0, 0xD6, 0xB2, 0x84, 0x5C, 0x50, 0x52, 0x54};
    std::mt19937 random(7);
    for (int round = 0; round < 50'000; ++round) {
        Bytes command(random() % 24);
        for (std::uint8_t &byte : command)
            byte = static_cast<std::uint8_t>(random() % 3 == 0 ? random() : random() % 4);
        if (command.size() > 1) {
            command[0] = kClasses[random() % std::size(kClasses)];
            command[1] = kInstructions[random() % std::size(kInstructions)];
        }
        if (command.size() > 5 && random() % 2 == 0)
            command[4] = static_cast<std::uint8_t>(command.size() - 5 - random() % 2);
        const CardAnswer answer = card->transmit(command);
        ASSERT_EQ(answer.kind, CardAnswer::Kind::bytes) << toHex(command);
        ASSERT_GE(answer.bytes.size(), 2U) << toHex(command);
    }
    EXPECT_EQ(balances(), kBalancesAtStart);
}

} // namespace
} // namespace qvsim::test
