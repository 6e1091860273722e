// tool.cpp - the command-line tool through the kernel's own driver of a 16550A.
#include "serial_simulator.h"
#include "steps.h"
#include "tool_process.h"

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

using namespace qvvm;

namespace {

ToolOutcome onTheLine(const std::string &sArguments)
{
    return tool(szReaderPort, sArguments);
}

termios lineSettings()
{
    const int nFd = open(szReaderPort, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings{};
    EXPECT_EQ(tcgetattr(nFd, &settings), 0);
    close(nFd);
    return settings;
}

class Tool : public testing::Test {
  protected:
    Tool()
    {
        sim.reset();
        sim.command(std::string("insert 0 ") + szCardOutside);
    }

    SerialSimulator sim;
};

TEST_F(Tool, ShowsTheAnswerToReset)
{
    const ToolOutcome atr = onTheLine("atr");
    EXPECT_EQ(atr.nCode, 0) << atr.sOutput;
    EXPECT_TRUE(contains(atr.sOutput, szAtr)) << atr.sOutput;
}

TEST_F(Tool, SendsACommandAndPowersTheCardDown)
{
    const ToolOutcome apdu = onTheLine("apdu 0084000008 00D6000001AA");
    EXPECT_EQ(apdu.nCode, 0) << apdu.sOutput;
    EXPECT_TRUE(contains(apdu.sOutput, "0084000008 -> B72E610FD8439AC5 9000")) << apdu.sOutput;
    EXPECT_TRUE(contains(apdu.sOutput, "00D6000001AA -> 9000")) << apdu.sOutput;
    EXPECT_TRUE(sim.state("slot 0")->starts_with("unpowered"));
}

TEST_F(Tool, FindsNothingWrongWithAHealthyReader)
{
    const ToolOutcome doctor = onTheLine("doctor");
    EXPECT_EQ(doctor.nCode, 0) << doctor.sOutput;
    EXPECT_FALSE(contains(doctor.sOutput, "WRONG")) << doctor.sOutput;
}

TEST_F(Tool, TellsTheSpeedOfAReaderThatStandsAtAnother)
{
    sim.command("baud 38400");
    const ToolOutcome doctor = onTheLine("doctor");
    EXPECT_EQ(doctor.nCode, 5) << doctor.sOutput;
    EXPECT_TRUE(contains(doctor.sOutput, "38400")) << doctor.sOutput;
}

TEST_F(Tool, RaisesTheLine)
{
    const ToolOutcome atr = onTheLine("--raise --baud 115200 atr");
    EXPECT_EQ(atr.nCode, 0) << atr.sOutput;
    EXPECT_EQ(sim.state("baud"), "115200");
}

TEST_F(Tool, SaysThatThereIsNoCard)
{
    sim.command("remove 0");
    const ToolOutcome atr = onTheLine("--timeout 1 atr");
    EXPECT_EQ(atr.nCode, 4) << atr.sOutput;
}

TEST_F(Tool, SaysWhyAPortWillNotOpen)
{
    const ToolOutcome none = tool("/dev/ttyS3", "atr");
    EXPECT_EQ(none.nCode, 3) << none.sOutput;
    const ToolOutcome missing = tool("/dev/ttyUSB7", "atr");
    EXPECT_EQ(missing.nCode, 3) << missing.sOutput;
    EXPECT_TRUE(contains(missing.sOutput, "is not there")) << missing.sOutput;
    EXPECT_EQ(asNobody([] { return onTheLine("atr").nCode; }), 3);
}

TEST_F(Tool, LeavesTheLineAsItWasFoundAlsoWhenItIsInterrupted)
{
    sim.command("remove 0");
    const uint64_t nFrames = sim.count("frames");
    const termios before = lineSettings();
    const pid_t nPid = fork();
    if (nPid == 0) {
        execl(szTool, "qvreader", "--port", szReaderPort, "--timeout", "60", "atr", nullptr);
        _exit(255);
    }
    EXPECT_TRUE(waitUntil([&] { return sim.count("frames") > nFrames; }));
    EXPECT_EQ(kill(nPid, SIGINT), 0);
    int nStatus = 0;
    EXPECT_EQ(waitpid(nPid, &nStatus, 0), nPid);
    EXPECT_EQ(WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1, 130);
    const termios after = lineSettings();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

} // namespace
