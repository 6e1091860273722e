// The purchase PSAM: its files, MAC1, the check of MAC2, and a purchase between both cards.
#include "purse_bench.h"

namespace qvsim::test {
namespace {

class PsamTest : public PurseTest {
  protected:
    void loadPsam(const std::string &text = kTestPsam)
    {
        psam.emplace(checked(parsePsamData(text, "t.psam")), "t");
        psam->powerOn();
    }
    std::string askPsam(const std::string &command) { return toHex(psam->transmit(fromHex(command).value()).bytes); }

    std::optional<PsamCard> psam;
};

// 12.34 from a purse whose offline counter is 4.
const std::string kInitialize = "80 70 00 00 1C C0 FF EE 42 00 04 00 00 04 D2 06 20 26 03 01 09 30 15 01 00 "
                                "62 00 00 00 10 00 00 03";
constexpr char kInitialized[] = "00 00 00 29 FD ED 10 FF 90 00";
constexpr char kCredit[] = "80 72 00 00 04 20 93 EC 77";

TEST_F(PsamTest, FilesTellTheTerminalNumberAndTheSamItself)
{
    loadPsam();
    EXPECT_EQ(toHex(psam->powerOn().bytes), "3B 01");
    EXPECT_EQ(askPsam("00 A4 04 00 08 51 56 50 53 41 4D 2E 31 00"),
              "6F 1D 84 08 51 56 50 53 41 4D 2E 31 A5 11 9F 0C 0E 00 00 70 00 00 00 00 00 00 12 01 00 00 00 90 00");
    EXPECT_EQ(askPsam("00 B0 96 00 06"), "00 00 00 00 20 26 90 00");
    EXPECT_EQ(askPsam("00 B0 96 00 07"), "6C 06");
    EXPECT_EQ(askPsam("00 B0 95 00 00"), "00 00 70 00 00 00 00 00 00 12 01 00 00 00 90 00");
    EXPECT_EQ(askPsam("00 B0 98 00 00"), "6A 82");
}

TEST_F(PsamTest, APurchaseTakesANumberAndGivesMac1)
{
    loadPsam();
    EXPECT_EQ(psam->label(), "t transaction 41");
    EXPECT_EQ(askPsam(kInitialize + " 08"), kInitialized);
    EXPECT_EQ(psam->label(), "t transaction 42");
    EXPECT_EQ(askPsam(kCredit), "90 00");
    EXPECT_EQ(askPsam(kCredit), "69 01");
    EXPECT_EQ(askPsam(kInitialize).substr(0, 11), "00 00 00 2A");
    psam->powerOff();
    psam->powerOn();
    EXPECT_EQ(askPsam(kInitialize).substr(0, 11), "00 00 00 2B"); // the number stays
}

TEST_F(PsamTest, AWrongMac2IsToldOnce)
{
    loadPsam();
    askPsam(kInitialize);
    EXPECT_EQ(askPsam("80 72 00 00 04 20 93 EC 76"), "93 02");
    EXPECT_EQ(askPsam(kCredit), "69 01");
}

TEST_F(PsamTest, CommandsInBetweenAndPowerOffEndAPurchase)
{
    for (const char *other : {"00 B0 96 00 06", "00", "80 72 00 01 04 20 93 EC 77", "80 70 00 00"}) {
        loadPsam();
        askPsam(kInitialize);
        askPsam(other);
        EXPECT_EQ(askPsam(kCredit), "69 01") << other;
    }
    loadPsam();
    EXPECT_EQ(askPsam(kCredit), "69 01");
    askPsam(kInitialize);
    psam->powerOff();
    psam->powerOn();
    EXPECT_EQ(askPsam(kCredit), "69 01");
}

TEST_F(PsamTest, WrongLengthsChangeNothing)
{
    loadPsam();
    EXPECT_EQ(askPsam(kInitialize + " 07"), "6C 08");
    EXPECT_EQ(askPsam("80 70 00 00 1B" + kInitialize.substr(14, 27 * 3)), "67 00");
    EXPECT_EQ(askPsam(kInitialize + " 08 00"), "67 00");
    EXPECT_EQ(askPsam(kInitialize), kInitialized); // still number 41
    EXPECT_EQ(askPsam("80 72 00 00 03 20 93 EC"), "67 00");
    EXPECT_EQ(askPsam(std::string(kCredit) + " FF"), "90 00");
}

TEST_F(PsamTest, WhatItCannotDoIsRefused)
{
    loadPsam();
    std::string other = kInitialize;
    EXPECT_EQ(askPsam(other.replace(other.find("01 00 62"), 2, "02")), "94 03"); // version of the key
    other = kInitialize;
    EXPECT_EQ(askPsam(other.replace(other.find("01 00 62") + 3, 2, "01")), "94 03"); // its algorithm
    EXPECT_EQ(askPsam("80 70 00 01" + kInitialize.substr(11)), "6A 86");
    EXPECT_EQ(askPsam("80 72 01 00 04 20 93 EC 77"), "6A 86");
    EXPECT_EQ(askPsam("80 5C 00 02 04"), "6D 00");
    EXPECT_EQ(askPsam("90 70 00 00 04"), "6E 00");
    loadPsam(withLine(kTestPsam, "transaction 4294967294"));
    EXPECT_EQ(askPsam(kInitialize).substr(0, 11), "FF FF FF FE");
    EXPECT_EQ(askPsam(kInitialize), "94 02");
}

TEST_F(PsamTest, CardAndPsamAgreeOnAPurchase)
{
    load();
    loadPsam();
    EXPECT_EQ(ask(firstHalf("80 50 01 02", "00 00 04 D2")), "00 00 13 88 00 04 00 00 00 01 00 C0 FF EE 42 90 00");
    EXPECT_EQ(askPsam(kInitialize), kInitialized);
    EXPECT_EQ(ask("80 54 01 00 0F 00 00 00 29 20 26 03 01 09 30 15 FD ED 10 FF"), "72 5B C1 82 20 93 EC 77 90 00");
    EXPECT_EQ(askPsam(kCredit), "90 00");
}

} // namespace
} // namespace qvsim::test
