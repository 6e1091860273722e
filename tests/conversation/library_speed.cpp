// The line's speed and the switch box in front of it.
#include "conversation.h"

#include <thread>

using namespace qvtest;

namespace {

// Raises the line and powers the card up. A flush may overtake the sequence that switches the speed, and a
// pseudo-terminal then loses it (a real line has sent it by then): done again, as a host would.
Answer raiseAndPowerOn(const SimBench &sim, int nBaud)
{
    Answer atr{RET_PUB_TIMEOUT, {}};
    for (int i = 0; i < 5 && atr.nResult == RET_PUB_TIMEOUT; ++i) {
        OpenReader reader(sim, nBaud);
        EXPECT_EQ(reader.result(), 0);
        atr = powerOn(0, 0, 1);
    }
    return atr;
}

class LibrarySpeed : public testing::Test {
  protected:
    ~LibrarySpeed() override { Dev_Rdz_Ic_RaiseBaundFlag(0); }
};

TEST_F(LibrarySpeed, ARaisedLineWorksAtTheNewSpeed)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    for (int nBaud : {19200, 38400, 115200}) {
        SCOPED_TRACE(nBaud);
        SimBench sim({"--card", "0=" + cardFile("purse")});
        EXPECT_EQ(raiseAndPowerOn(sim, nBaud).sHex, szPurseAtr);
        EXPECT_EQ(sim.state("baud"), std::to_string(nBaud));
        EXPECT_GE(std::stoi(*sim.state("escapes")), 2); // at the old speed and at the new one
    }
}

TEST_F(LibrarySpeed, ARaisedReaderIsMetAgainByTheNextRaise)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(raiseAndPowerOn(sim, 115200).sHex, szPurseAtr);
    EXPECT_EQ(sim.state("baud"), "115200");
}

TEST_F(LibrarySpeed, RaisingTo9600SendsNothing)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    OpenReader reader(sim, 9600);
    EXPECT_EQ(powerOn(0).sHex, szPurseAtr);
    EXPECT_EQ(sim.state("escapes"), "0");
    EXPECT_EQ(sim.state("garbage"), "0");
}

TEST_F(LibrarySpeed, AWrongSpeedGivesATimeOutAndNoRubbish)
{
    SimBench sim({"--baud", "38400", "--card", "0=" + cardFile("purse")});
    {
        OpenReader reader(sim, 9600);
        ASSERT_EQ(reader.result(), 0);
        Answer atr = powerOn(0, 0, 1);
        EXPECT_EQ(atr.nResult, RET_PUB_TIMEOUT);
        EXPECT_EQ(atr.sHex, "");
    }
    OpenReader reader(sim, 38400);
    EXPECT_EQ(powerOn(0).sHex, szPurseAtr);
}

TEST_F(LibrarySpeed, RepliesThatComeAtAnotherSpeedAreNoFrames)
{
    SimBench sim;
    OpenReader reader(sim, 9600);
    Answer atr{0, {}};
    std::thread host([&] { atr = powerOn(0, 30'000, 2); });
    EXPECT_TRUE(waitUntil([&] { return sim.state("waits for a card in slot").has_value(); }));
    sim.command("baud 19200");
    sim.insert(0, "purse"); // the answer goes out at 19200
    host.join();
    EXPECT_EQ(atr.nResult, RET_PUB_TIMEOUT);
    EXPECT_EQ(atr.sHex, "");
}

TEST_F(LibrarySpeed, ASwitchBoxPortIsSelectedAndReleased)
{
    for (const char *pszBox : {"A", "B", "C", "K"}) {
        SCOPED_TRACE(pszBox);
        SimBench sim({"--card", "0=" + cardFile("purse")});
        Dev_Rdz_Ic_RaiseBaundFlag(1);
        {
            OpenReader reader(sim, 115200, pszBox);
            ASSERT_EQ(reader.result(), 0);
            EXPECT_EQ(powerOn(0).sHex, szPurseAtr); // behind a box the line stays at 9600
            EXPECT_EQ(sim.state("box"), std::string(pszBox) + " at 9600");
            EXPECT_EQ(sim.state("baud"), "9600");
        }
        EXPECT_TRUE(waitUntil([&] { return sim.state("box") == "none"; }));
    }
}

TEST_F(LibrarySpeed, WithoutTheRaiseFlagASwitchBoxPortStaysSelected)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    {
        OpenReader reader(sim, 9600, "A");
        EXPECT_EQ(powerOn(0).sHex, szPurseAtr);
    }
    EXPECT_EQ(sim.state("box"), "A at 9600");
}

} // namespace
