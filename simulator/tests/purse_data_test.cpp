// Files of purse cards and PSAMs: what they say and what is wrong with them.
#include "model/card_text.h"
#include "purse_bench.h"

namespace qvsim::test {
namespace {

std::string purseTrouble(const std::string &text)
{
    const PurseDataResult result = parsePurseData(text, "x.purse");
    const std::string *const wrong = std::get_if<std::string>(&result);
    return wrong == nullptr ? "none" : *wrong;
}

std::string psamTrouble(const std::string &text)
{
    const PsamDataResult result = parsePsamData(text, "x.psam");
    const std::string *const wrong = std::get_if<std::string>(&result);
    return wrong == nullptr ? "none" : *wrong;
}

TEST(PurseData, AFileTellsWhatTheCardIs)
{
    const PurseData card = checked(parsePurseData(std::string("\r\n# comment\nname\tmy card # of nobody\n") +
                                                      kTestPurse + "deposit-overdraft 1.05\npin-tries 15",
                                                  "x.purse"));
    EXPECT_EQ(card.name, "my card");
    EXPECT_EQ(toHex(card.atr), "3B 00");
    EXPECT_EQ(toHex(card.aid), "51 56 50 55 52 53 45 2E 31");
    EXPECT_EQ(toHex(card.serial), "00 00 62 00 00 00 10 00 00 03");
    EXPECT_EQ(toHex(card.validFrom), "20 25 01 01");
    EXPECT_EQ(toHex(card.pin), "12 34 56");
    EXPECT_EQ(card.pinTries, 15U);
    EXPECT_EQ(card.deposit.balance, 100'000U);
    EXPECT_EQ(card.deposit.limit, 0xFFFF'FFFFU);
    EXPECT_EQ(card.deposit.overdraft, 105U);
    EXPECT_EQ(card.deposit.online, 7);
    EXPECT_EQ(card.deposit.offline, 2);
    EXPECT_EQ(card.purse.limit, 100'000U);
    ASSERT_EQ(card.loadKeys.size(), 1U);
    EXPECT_EQ(toHex(card.loadKeys[0].value), "4C 4F 41 44 2D 4B 45 59 3A 64 65 6D 6F 2D 30 31");
    EXPECT_EQ(toHex(card.tac), "54 41 43 2D 4B 45 59 2E 3A 64 65 6D 6F 2D 30 34");
    EXPECT_EQ(toHex(card.fixedRandom), "C0 FF EE 42");
}

TEST(PurseData, APurchaseKeyIsGivenItselfOrAsTheMasterItComesFrom)
{
    const PurseData card = checked(parsePurseData(
        std::string(kTestPurse) + "purchase-key 02 07 08 000102030405060708090A0B0C0D0E0F\n", "x.purse"));
    ASSERT_EQ(card.purchaseKeys.size(), 2U);
    EXPECT_EQ(toHex(card.purchaseKeys[0].value), "36 18 58 1A 1E 5A 7F C3 32 AB 78 B4 22 B6 32 9E");
    EXPECT_EQ(toHex(card.purchaseKeys[1].value), "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
    EXPECT_EQ(card.purchaseKeys[1].index, 2);
    EXPECT_EQ(card.purchaseKeys[1].version, 7);
    EXPECT_EQ(card.purchaseKeys[1].algorithm, 8);
}

TEST(PurseData, APinOfAnOddNumberOfDigitsEndsInF)
{
    EXPECT_EQ(toHex(checked(parsePurseData(withLine(kTestPurse, "pin 12345"), "x")).pin), "12 34 5F");
}

TEST(PurseData, AmountsAreWrittenWithTwoDecimals)
{
    const struct {
        const char *text;
        std::uint32_t cents;
    } rows[] = {{"0.00", 0}, {"0.07", 7}, {"1000.00", 100'000}, {"42949672.95", 0xFFFF'FFFF}};
    for (const auto &row : rows) {
        const PurseData card =
            checked(parsePurseData(withLine(kTestPurse, std::string("deposit-balance ") + row.text), "x"));
        EXPECT_EQ(card.deposit.balance, row.cents) << row.text;
        EXPECT_EQ(amountText(row.cents), row.text);
    }
    for (const char *text :
         {"", "1", "1.0", "1.000", ".50", "1.", "-1.00", "1.-1", "42949672.96", "42949673.00", "1 .00"})
        EXPECT_EQ(purseTrouble(std::string("deposit-balance ") + text),
                  "x.purse:1: an amount is written 100.00 and is at most 42949672.95")
            << text;
}

TEST(PurseData, MistakesAreToldWithTheirLine)
{
    const std::string key = " 000102030405060708090A0B0C0D0E0F";
    const struct {
        std::string text;
        const char *trouble;
    } rows[] = {
        {"\nnonsense 1", "2: unknown word nonsense"},
        {"atr 3B\n\natr 3B", "3: atr has been given already"},
        {"name", "1: a name needs its text"},
        {"atr", "1: an answer to power-on has 1 to 33 bytes"},
        {"atr 3", "1: an answer to power-on has 1 to 33 bytes"},
        {"atr " + std::string(68, '0'), "1: an answer to power-on has 1 to 33 bytes"},
        {"aid 01020304", "1: the name of an application has 5 to 16 bytes"},
        {"aid " + std::string(34, '1'), "1: the name of an application has 5 to 16 bytes"},
        {"issuer 01", "1: an issuer is 8 hexadecimal bytes"},
        {"type 0102", "1: this is one hexadecimal byte"},
        {"version x", "1: this is one hexadecimal byte"},
        {"issuer-data 01", "1: these are two hexadecimal bytes"},
        {"serial 0000620000001000000A", "1: a serial number is 20 decimal digits"},
        {"serial 62000000100000", "1: a serial number is 20 decimal digits"},
        {"valid-from 20251301", "1: a date is YYYYMMDD"},
        {"valid-from 20250132", "1: a date is YYYYMMDD"},
        {"valid-until 2025010", "1: a date is YYYYMMDD"},
        {"valid-until 2025-1-1", "1: a date is YYYYMMDD"},
        {"holder 00", "1: a card holder is 55 hexadecimal bytes"},
        {"pin 123", "1: a PIN is 4 to 12 decimal digits"},
        {"pin 1234567890123", "1: a PIN is 4 to 12 decimal digits"},
        {"pin 12F4", "1: a PIN is 4 to 12 decimal digits"},
        {"pin-tries 0", "1: a PIN has 1 to 15 tries"},
        {"pin-tries 16", "1: a PIN has 1 to 15 tries"},
        {"deposit-overdraft 167772.16", "1: an overdraft limit is written 100.00 and is at most 167772.15"},
        {"purse-online 65536", "1: a counter is 0 to 65535"},
        {"purse-offline -1", "1: a counter is 0 to 65535"},
        {"load-key 01 01" + key, "1: a key is its index, version and algorithm, a byte each, and 16 bytes"},
        {"load-key 01 01 00 00" + key, "1: a key is its index, version and algorithm, a byte each, and 16 bytes"},
        {"purchase-key 01 01 00" + key + "\npurchase-master 01 02 00" + key,
         "2: this key index has been given already"},
        {"tac-key 00", "1: this key is 16 hexadecimal bytes"},
        {"random", "1: a fixed random number has 1 to 255 bytes"},
        {"name \x01", "1: not a text file: control characters in this line"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(purseTrouble(row.text), std::string("x.purse:") + row.trouble) << row.text;
    EXPECT_EQ(purseTrouble(std::string(kMostCardFileBytes + 1, '\n')),
              "x.purse: larger than a card file may be (1 MiB)");
}

TEST(PurseData, WhatIsMissingOrContradictsItselfIsTold)
{
    for (const char *word : {"atr", "aid", "serial", "pin", "tac-key"})
        EXPECT_EQ(purseTrouble(withoutLine(kTestPurse, word)),
                  "x.purse: the line " + std::string(word) + " is missing");
    for (const char *word : {"atr", "aid", "terminal", "purchase-master"})
        EXPECT_EQ(psamTrouble(withoutLine(kTestPsam, word)), "x.psam: the line " + std::string(word) + " is missing");
    EXPECT_EQ(purseTrouble(withLine(kTestPurse, "purse-limit 49.99")), "x.purse: a balance is above its limit");
    EXPECT_EQ(purseTrouble(withLine(kTestPurse, "deposit-limit 999.99")), "x.purse: a balance is above its limit");
    EXPECT_EQ(purseTrouble(withLine(kTestPurse, "valid-until 20241231")), "x.purse: valid-until is before valid-from");
    EXPECT_EQ(purseTrouble(kTestPurse), "none");
}

TEST(PurseData, MistakesInPsamFilesAreTold)
{
    const std::string key = " 000102030405060708090A0B0C0D0E0F";
    const struct {
        std::string text;
        const char *trouble;
    } rows[] = {
        {"pin 1234", ":1: unknown word pin"},
        {"terminal 2026", ":1: a terminal number is 6 hexadecimal bytes"},
        {"serial 12", ":1: a serial number is 20 decimal digits"},
        {"transaction 4294967296", ":1: a transaction number is 0 to 4294967295"},
        {"kind", ":1: this is one hexadecimal byte"},
        {"purchase-master 01 01 00" + key, ":1: a master key is its version and algorithm, a byte each, and 16 bytes"},
        {"purchase-master 01 00" + key + "\npurchase-master 01 00" + key,
         ":2: this version and algorithm has been given already"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(psamTrouble(row.text), std::string("x.psam") + row.trouble) << row.text;
    EXPECT_EQ(psamTrouble(kTestPsam), "none");
}

} // namespace
} // namespace qvsim::test
