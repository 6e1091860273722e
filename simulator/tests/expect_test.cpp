// The option --expect and the command of that name: has the whole conversation taken place?
#include "sim_process.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <fstream>

namespace qvsim::test {
namespace {

class Expect : public testing::Test {
  protected:
    Expect() { std::ofstream(card) << "atr 3B 00\n> 00 84 *\n< 01 90 00\n< 02 90 00\n> 00 B0\n< 6A 82\n"; }

    TempDir dir;
    std::string card = dir / "t.card";
    std::string socket = dir / "control";
};

TEST_F(Expect, ACardThatWasPlayedToItsEndLeavesWithZero)
{
    SimProcess sim({"--expect", "--control", socket, "--card", "0=script:" + card});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_TRUE(control(socket, {"expect"}).starts_with("!error: 4 lines of card files not played"));
    for (const char *question : {"32 22 00 00 00", "32 26 00 00 84", "32 26 00 00 84", "32 26 00 00 B0"})
        EXPECT_TRUE(port.ask(question).starts_with("00 00 "));
    EXPECT_EQ(control(socket, {"expect"}), "ok\n");
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 0);
    EXPECT_EQ(sim.errors().find("not played"), std::string::npos);
}

TEST_F(Expect, LinesThatAreLeftAreToldAndLeaveWithThree)
{
    for (const bool byQuit : {true, false}) {
        SimProcess sim({"--expect", "--quiet", "--control", socket, "--card", "0=script:" + card});
        HostPort port(sim.waitReady(), 9600);
        port.ask("32 22 00 00 00");
        port.ask("32 26 00 00 84");
        const RunResult asked = runProgram({"ctl", socket, "expect"});
        EXPECT_EQ(asked.exitCode, 1);
        EXPECT_EQ(asked.out, "slot 0: " + card + ":4: > 00 84 *, answer 2 of 2\nslot 0: " + card + ":6: > 00 B0\n");
        EXPECT_EQ(asked.err, "error: 2 lines of card files not played\n");
        if (byQuit) {
            EXPECT_EQ(control(socket, {"quit"}), "ok\n");
        }
        EXPECT_EQ(byQuit ? sim.wait() : sim.signalAndWait(SIGINT), 3);
        EXPECT_EQ(sim.errors(), "qvreader-sim: not played: slot 0: " + card +
                                    ":4: > 00 84 *, answer 2 of 2\n"
                                    "qvreader-sim: not played: slot 0: " +
                                    card + ":6: > 00 B0\nqvreader-sim: 2 lines of card files not played\n");
    }
}

TEST_F(Expect, WithoutTheOptionWhatIsLeftDoesNotMatter)
{
    SimProcess sim({"--quiet", "--card", "0=script:" + card});
    sim.waitReady();
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 0);
    EXPECT_EQ(sim.errors(), "");
}

TEST_F(Expect, ACardThatIsPulledOutAndPutInAgainGoesOnCounting)
{
    SimProcess sim({"--expect", "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"expect"}), "!error: no card file has been in a slot\n");
    EXPECT_EQ(control(socket, {"insert", "0", "script:" + card}), "ok\n");
    for (const char *question : {"32 22 00 00 00", "32 26 00 00 84", "32 26 00 00 84"})
        port.ask(question);
    EXPECT_EQ(control(socket, {"remove", "0"}), "ok\n");
    EXPECT_EQ(control(socket, {"expect"}), "!error: 1 line of card files not played\n") << "pulled out, not forgotten";
    EXPECT_EQ(control(socket, {"insert", "0", "script:" + card}), "ok\n");
    port.ask("32 22 00 00 00");
    port.ask("32 26 00 00 B0");
    EXPECT_EQ(control(socket, {"expect"}), "ok\n");
    EXPECT_EQ(control(socket, {"insert", "16", "script:" + card}), "ok\n");
    EXPECT_TRUE(control(socket, {"expect"}).starts_with("!error: 4 lines")) << "another slot is another card";
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 3);
}

TEST_F(Expect, NothingToPlayIsNotEverythingPlayed)
{
    SimProcess sim({"--expect", "--quiet"});
    sim.waitReady();
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 3);
    EXPECT_EQ(sim.errors(), "qvreader-sim: no card file has been in a slot\n");
}

TEST_F(Expect, ALongListIsCutShort)
{
    std::ofstream file(card);
    file << "atr 3B 00\n> 00 84\n";
    for (int i = 0; i < 500; ++i)
        file << "< 90 00\n";
    file.close();
    SimProcess sim({"--control", socket, "--card", "0=script:" + card});
    sim.waitReady();
    const RunResult asked = runProgram({"ctl", socket, "expect"});
    EXPECT_NE(asked.out.find(":101: > 00 84, answer 99 of 500\nand 401 more\n"), std::string::npos) << asked.out;
    EXPECT_EQ(asked.err, "error: 501 lines of card files not played\n");
}

} // namespace
} // namespace qvsim::test
