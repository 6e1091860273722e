// Loads, unloads and purchases of the purse card. Every code was computed by another implementation of DES.
#include "purse_bench.h"

namespace qvsim::test {
namespace {

using PurseTransactions = PurseTest;

constexpr char kDateTime[] = "20 26 03 01 09 30 15";

std::string online(const std::string &header, const std::string &mac2)
{
    return header + " 0B " + kDateTime + " " + mac2;
}

std::string debit(const std::string &terminalSerial, const std::string &mac1)
{
    return "80 54 01 00 0F " + terminalSerial + " " + kDateTime + " " + mac1;
}

// 100.00 into the purse; 12.34 from it.
const std::string kBeginLoad = firstHalf("80 50 00 02", "00 00 27 10");
const std::string kLoad = online("80 52 00 00", "B1 C7 05 06");
const std::string kBeginPurchase = firstHalf("80 50 01 02", "00 00 04 D2");
const std::string kPurchase = debit("00 00 00 29", "FD ED 10 FF");

TEST_F(PurseTransactions, LoadsAndUnloadsMoveTheBalanceAndProveIt)
{
    const struct {
        const char *name;
        const char *begin; // header of the first half
        const char *amount;
        const char *begun;
        const char *end; // header of the second half
        const char *mac2;
        const char *done;
        const char *balances;
        const char *record;
    } rows[] = {
        {"load the purse", "80 50 00 02", "00 00 27 10", "00 00 13 88 00 03 01 00 C0 FF EE 42 C4 E6 71 81 90 00",
         "80 52 00 00", "B1 C7 05 06", "AE 7F B3 AB 90 00", "00 01 86 A0 90 00, 00 00 3A 98 90 00",
         "00 03 00 00 00 00 00 27 10 02 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00"},
        {"load the deposit", "80 50 00 01", "00 00 09 C4", "00 01 86 A0 00 07 01 00 C0 FF EE 42 6D 16 C7 A2 90 00",
         "80 52 00 00", "AC C6 EB 5C", "C8 F8 B6 65 90 00", "00 01 90 64 90 00, 00 00 13 88 90 00",
         "00 07 00 00 00 00 00 09 C4 01 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00"},
        {"unload the deposit", "80 50 05 01", "00 00 75 30", "00 01 86 A0 00 07 01 00 C0 FF EE 42 E3 4A A8 A9 90 00",
         "80 54 03 00", "E3 79 91 27", "03 47 91 48 90 00", "00 01 11 70 90 00, 00 00 13 88 90 00",
         "00 07 00 00 00 00 00 75 30 03 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00"},
        {"unload the purse", "80 50 05 02", "00 00 04 D2", "00 00 13 88 00 03 01 00 C0 FF EE 42 CC FC E1 54 90 00",
         "80 54 03 00", "7E D3 AC 7D", "A6 63 FA 8F 90 00", "00 01 86 A0 90 00, 00 00 0E B6 90 00",
         "00 03 00 00 00 00 00 04 D2 03 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        load();
        EXPECT_EQ(askWithPin(firstHalf(row.begin, row.amount) + " 10"), row.begun);
        EXPECT_EQ(ask(online(row.end, row.mac2) + " 04"), row.done);
        EXPECT_EQ(balances(), row.balances);
        EXPECT_EQ(ask("00 B2 98 01 17"), row.record);
        EXPECT_EQ(ask("00 B2 01 C4 17"), row.record);
        EXPECT_EQ(ask(online(row.end, row.mac2) + " 04"), "69 01");
        EXPECT_EQ(balances(), row.balances);
    }
}

TEST_F(PurseTransactions, APurchaseMovesTheBalanceAndProvesIt)
{
    load();
    EXPECT_EQ(ask(kBeginPurchase + " 0F"), "00 00 13 88 00 04 00 00 00 01 00 C0 FF EE 42 90 00"); // without a PIN
    EXPECT_EQ(ask(kPurchase + " 08"), "72 5B C1 82 20 93 EC 77 90 00");
    EXPECT_EQ(balances(), "00 01 86 A0 90 00, 00 00 0E B6 90 00");
    EXPECT_EQ(ask("00 B2 98 01 17"), "00 04 00 00 00 00 00 04 D2 06 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00");
    EXPECT_EQ(ask(firstHalf("80 50 01 02", "00 00 00 42")), "00 00 0E B6 00 05 00 00 00 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(ask(debit("00 00 00 2A", "58 0C 9D E0")), "3E 25 A3 0C CB 60 5A 47 90 00");
}

TEST_F(PurseTransactions, APurchaseFromTheDepositNeedsThePin)
{
    load(withLine(kTestPurse, "deposit-overdraft 655.37"));
    const std::string begin = firstHalf("80 50 01 01", "00 00 00 FA");
    EXPECT_EQ(ask(begin), "69 82");
    EXPECT_EQ(askWithPin(begin), "00 01 86 A0 00 02 01 00 01 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(ask(debit("12 34 56 78", "C6 D0 9D C0")), "F6 C8 63 8F F5 F0 74 F1 90 00");
    EXPECT_EQ(ask("80 5C 00 01 04"), "00 01 85 A6 90 00");
    EXPECT_EQ(ask("00 B2 98 01 17"), "00 02 01 00 01 00 00 00 FA 05 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00");
}

TEST_F(PurseTransactions, FirstHalvesAreRefusedForTheirReason)
{
    load();
    const struct {
        const char *header;
        const char *amount;
        const char *answer;
    } rows[] = {
        {"80 50 00 03", "00 00 00 01", "6A 86"}, // no such kind
        {"80 50 00 02", "00 01 73 19", "69 85"}, // 0.01 above the purse's limit
        {"80 50 00 01", "FF FF FF FF", "69 85"}, // the sum fits no 32 bits
        {"80 50 05 01", "00 01 86 A1", "94 01"}, {"80 50 05 02", "00 00 13 89", "94 01"},
        {"80 50 01 01", "00 01 86 A1", "94 01"}, {"80 50 01 02", "00 00 13 89", "94 01"},
        {"80 50 01 02", "FF FF FF FF", "94 01"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(askWithPin(firstHalf(row.header, row.amount)), row.answer) << row.header << " " << row.amount;
    for (const char *header : {"80 50 00 02", "80 50 05 01", "80 50 01 02"})
        EXPECT_EQ(askWithPin(std::string(header) + " 0B 02 00 00 00 01 00 00 00 00 20 26"), "94 03") << header;
    card->powerOn();
    for (const char *header : {"80 50 00 01", "80 50 00 02", "80 50 05 01", "80 50 05 02", "80 50 01 01"})
        EXPECT_EQ(ask(firstHalf(header, "00 00 00 01")), "69 82") << header;
}

TEST_F(PurseTransactions, AmountsUpToTheLimitAndDownToNothingAreTaken)
{
    load();
    EXPECT_EQ(askWithPin(firstHalf("80 50 00 02", "00 01 73 18")),
              "00 00 13 88 00 03 01 00 C0 FF EE 42 AE 44 73 8B 90 00");
    EXPECT_EQ(ask(online("80 52 00 00", "2B 41 A4 54")).substr(12), "90 00");
    EXPECT_EQ(ask("80 5C 00 02 04"), "00 01 86 A0 90 00"); // the limit
    load();
    EXPECT_EQ(ask(firstHalf("80 50 01 02", "00 00 13 88")), "00 00 13 88 00 04 00 00 00 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(ask(debit("00 00 00 29", "F3 6F 3E 78")).substr(24), "90 00");
    EXPECT_EQ(ask("80 5C 00 02 04"), "00 00 00 00 90 00");
}

TEST_F(PurseTransactions, AWrongMacMovesNothingAndEndsTheTransaction)
{
    load();
    askWithPin(kBeginLoad);
    EXPECT_EQ(ask(online("80 52 00 00", "B1 C7 05 07")), "93 02");
    EXPECT_EQ(ask(kLoad), "69 01");
    askWithPin(firstHalf("80 50 05 02", "00 00 04 D2"));
    EXPECT_EQ(ask(online("80 54 03 00", "7E D3 AC 7C")), "93 02");
    ask(kBeginPurchase);
    EXPECT_EQ(ask(debit("00 00 00 28", "FD ED 10 FF")), "93 02"); // another serial number, so another key
    EXPECT_EQ(ask(kPurchase), "69 01");
    EXPECT_EQ(balances(), kBalancesAtStart);
    EXPECT_EQ(ask("00 B2 98 01 17"), "6A 83");
    EXPECT_EQ(askWithPin(kBeginLoad).substr(12, 5), "00 03"); // the counter has not moved
}

TEST_F(PurseTransactions, SecondHalvesWithoutTheirFirstOneAreNotAccepted)
{
    load();
    const std::string unload = online("80 54 03 00", "7E D3 AC 7D");
    for (const std::string &second : {kLoad, unload, kPurchase})
        EXPECT_EQ(askWithPin(second), "69 01") << second;
    askWithPin(kBeginLoad);
    EXPECT_EQ(ask(unload), "69 01");
    EXPECT_EQ(ask(kLoad), "69 01"); // the wrong second half has ended it
    ask(kBeginPurchase);
    EXPECT_EQ(ask(kLoad), "69 01");
    EXPECT_EQ(ask(online("80 52 00 01", "B1 C7 05 06")), "6A 86");
    EXPECT_EQ(ask(online("80 54 03 01", "7E D3 AC 7D")), "6A 86");
    EXPECT_EQ(ask("80 54 01 01" + kPurchase.substr(11)), "6A 86");
    EXPECT_EQ(balances(), kBalancesAtStart);
}

TEST_F(PurseTransactions, AnyOtherCommandEndsATransaction)
{
    for (const char *other : {"80 5C 00 02 04", "00 84 00 00 04", "00 B0 95 00 00", "00 B2 98 01 00", "FF FF FF FF",
                              "00", "80 54 01 01 00", "00 54 01 00 00"}) {
        load();
        ask(kBeginPurchase);
        ask(other);
        EXPECT_EQ(ask(kPurchase), "69 01") << other;
    }
    load();
    askWithPin(kBeginLoad);
    ask(firstHalf("80 50 00 02", "FF FF FF FF")); // a first half that is refused
    EXPECT_EQ(ask(kLoad), "69 01");
    EXPECT_EQ(balances(), kBalancesAtStart);
}

TEST_F(PurseTransactions, PowerOffBetweenTheHalvesEndsATransaction)
{
    load();
    ask(kBeginPurchase);
    card->powerOff();
    card->powerOn();
    EXPECT_EQ(ask(kPurchase), "69 01");
    askWithPin(kBeginLoad);
    card->powerOn(); // a warm reset
    EXPECT_EQ(askWithPin(kLoad), "69 01");
    EXPECT_EQ(balances(), kBalancesAtStart);
}

TEST_F(PurseTransactions, PowerOffKeepsBalancesCountersAndLog)
{
    load();
    ask(kBeginPurchase);
    ask(kPurchase);
    card->powerOff();
    card->powerOn();
    EXPECT_EQ(ask(kBeginPurchase), "00 00 0E B6 00 05 00 00 00 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(ask("00 B2 98 01 17").substr(0, 5), "00 04");
}

TEST_F(PurseTransactions, ASecondHalfOfWrongLengthsCanBeSaidAgain)
{
    load();
    ask(kBeginPurchase);
    EXPECT_EQ(ask(kPurchase + " 09"), "6C 08");
    EXPECT_EQ(ask(kPurchase + " FF"), "6C 08");
    EXPECT_EQ(ask(kPurchase + " 00 00"), "67 00");
    EXPECT_EQ(ask("80 54 01 00 0B 00 00 00 29 20 26 03 01 09 30 15"), "67 00");
    EXPECT_EQ(ask("80 54 01 00"), "67 00");
    EXPECT_EQ(ask(kPurchase + " 00"), "72 5B C1 82 20 93 EC 77 90 00");
}

TEST_F(PurseTransactions, FirstHalvesOfWrongLengthsAreRefused)
{
    load();
    EXPECT_EQ(askWithPin(kBeginLoad + " 0F"), "6C 10");
    EXPECT_EQ(ask(kBeginPurchase + " 10"), "6C 0F");
    EXPECT_EQ(ask("80 50 00 02 0A 01 00 00 27 10 00 00 00 00 20"), "67 00");
    EXPECT_EQ(ask("80 50 00 02 0C 01 00 00 27 10 00 00 00 00 20 26 00"), "67 00");
    EXPECT_EQ(ask("80 50 00 02"), "67 00");
    EXPECT_EQ(ask("80 50 00 02 10"), "67 00");
    EXPECT_EQ(ask(kLoad), "69 01");
    EXPECT_EQ(ask(kPurchase), "69 01");
}

TEST_F(PurseTransactions, AtTheEndOfACounterNothingBeginsAnyMore)
{
    load(withLine(withLine(kTestPurse, "purse-online 65534"), "purse-offline 65534"));
    EXPECT_EQ(askWithPin(firstHalf("80 50 00 02", "00 00 00 01")),
              "00 00 13 88 FF FE 01 00 C0 FF EE 42 CA 49 87 1D 90 00");
    EXPECT_EQ(ask(online("80 52 00 00", "BF 51 54 86")).substr(12), "90 00");
    EXPECT_EQ(askWithPin(firstHalf("80 50 00 02", "00 00 00 01")), "94 02");
    EXPECT_EQ(ask(firstHalf("80 50 05 02", "00 00 00 01")), "94 02");

    EXPECT_EQ(ask(firstHalf("80 50 01 02", "00 00 00 01")), "00 00 13 89 FF FE 00 00 00 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(ask(debit("00 00 00 29", "F9 54 BE C0")).substr(24), "90 00");
    EXPECT_EQ(ask(firstHalf("80 50 01 02", "00 00 00 01")), "94 02");
    EXPECT_EQ(askWithPin(firstHalf("80 50 01 01", "00 00 00 01")).substr(12, 5), "00 02"); // the deposit's own counter
}

// The MACs come from the PSAM here; other tests hold them against literals.
TEST_F(PurseTransactions, OfTwelvePurchasesTheLastTenAreInTheLog)
{
    load();
    PsamCard psam(checked(parsePsamData(kTestPsam, "t.psam")), "t");
    psam.powerOn();
    for (int cents = 1; cents <= 12; ++cents) {
        Bytes amount(3);
        amount.push_back(static_cast<std::uint8_t>(cents));
        const std::string begun = ask(firstHalf("80 50 01 02", toHex(amount)));
        const std::string counter = begun.substr(12, 5);
        const std::string answer =
            toHex(psam.transmit(*fromHex("80 70 00 00 1C C0 FF EE 42 " + counter + " " + toHex(amount) + " 06 " +
                                         kDateTime + " 01 00 62 00 00 00 10 00 00 03"))
                      .bytes);
        EXPECT_EQ(
            ask("80 54 01 00 0F " + answer.substr(0, 11) + " " + kDateTime + " " + answer.substr(12, 11)).substr(24),
            "90 00");
    }
    for (int number = 1; number <= 10; ++number) {
        const int cents = 13 - number;
        const Bytes place{static_cast<std::uint8_t>(number)};
        const Bytes amount{static_cast<std::uint8_t>(cents)};
        const Bytes counter{static_cast<std::uint8_t>(cents + 3)};
        EXPECT_EQ(ask("00 B2 98 " + toHex(place) + " 17"), "00 " + toHex(counter) + " 00 00 00 00 00 00 " +
                                                               toHex(amount) +
                                                               " 06 00 00 00 00 20 26 20 26 03 01 09 30 15 90 00");
    }
    EXPECT_EQ(ask("00 B2 98 0B 17"), "6A 83");
    EXPECT_EQ(ask("80 5C 00 02 04"), "00 00 13 3A 90 00"); // 50.00 - 0.78
}

} // namespace
} // namespace qvsim::test
