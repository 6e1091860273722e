// Line speeds: what a host at another speed than the reader's gets, and how both come together again.
#include "sim_process.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace qvsim::test {
namespace {

const std::string kDebit = "script:" QVSIM_CARDS "/debit-credit.card";
constexpr char kDebitAtr[] = "00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43";

class LineSpeed : public testing::Test {
  protected:
    bool stateHas(const std::string &line) { return control(socket, {"state"}).find(line + "\n") != std::string::npos; }

    TempDir dir;
    std::string socket = dir / "control";
};

TEST_F(LineSpeed, BytesAtAnotherSpeedAreGarbageToTheReader)
{
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit});
    HostPort port(sim.waitReady(), 38400);
    port.write(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")));
    EXPECT_TRUE(eventually([&] { return stateHas("garbage 18"); }));
    EXPECT_TRUE(stateHas("frames 0"));
    port.setBaud(9600);
    EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr);
}

TEST_F(LineSpeed, RepliesAtAnotherSpeedAreGarbageToTheHost)
{
    SimProcess sim({"--control", socket});
    HostPort port(sim.waitReady(), 9600);
    port.write(encodeFrame(FrameKind::card, *fromHex("32 22 75 30 00"))); // waits for a card
    EXPECT_TRUE(
        eventually([&] { return control(socket, {"state"}).find("waits for a card in slot 0") != std::string::npos; }));
    port.setBaud(19200);
    EXPECT_EQ(control(socket, {"insert", "0", kDebit}), "ok\n");
    const Bytes expected = encodeFrame(FrameKind::card, *fromHex(kDebitAtr));
    const Bytes got = port.read(expected.size());
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < got.size(); ++i)
        EXPECT_NE(got[i], expected[i]) << i;
    EXPECT_EQ(port.read(1, 50).size(), 0U) << "not one byte more";
}

TEST_F(LineSpeed, TheReaderStartsAtTheSpeedOfTheCommandLine)
{
    SimProcess sim({"--baud", "115200", "--card", "0=" + kDebit, "--control", socket});
    const std::string path = sim.waitReady();
    {
        HostPort port(path, 115200);
        EXPECT_EQ(port.oldBaud(), 115200U) << "the terminal's own settings";
        EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr);
    }
    EXPECT_EQ(control(socket, {"baud", "9600"}), "ok\n");
    HostPort port(path, 9600);
    EXPECT_EQ(port.oldBaud(), 115200U);
    EXPECT_EQ(port.ask("32 21 00"), "00 00");
}

// What hosts do to raise the speed: escape at the old one, close, open at the new one, escape again. Nobody waits for
// anybody: the reader has to have taken the first escape before the host's flush.
TEST_F(LineSpeed, AHostRaisesTheSpeedByReopening)
{
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit});
    const std::string path = sim.waitReady();
    const struct {
        unsigned baud;
        const char *escape;
    } rows[] = {
        {38400, "1B 25 49 32"},
        {19200, "1B 25 49 33"},
        {115200, "1B 25 49 31"},
        {9600, "1B 25 49 34"},
    };
    unsigned current = 9600;
    for (int round = 0; round < 5; ++round) {
        for (const auto &row : rows) {
            {
                HostPort port(path, current);
                port.writeHex("00 00 00 00");
                port.writeHex(row.escape);
                EXPECT_TRUE(eventually([&] { return stateHas("baud " + std::to_string(row.baud)); }));
            }
            HostPort port(path, row.baud);
            port.writeHex(row.escape);
            EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr) << row.baud;
            current = row.baud;
        }
    }
    EXPECT_TRUE(stateHas("garbage 0"));
    EXPECT_TRUE(stateHas("escapes 40"));
}

// The host closes right behind the escape, opens again and flushes a millisecond later, and nobody waits for anybody. On a
// busy machine the kernel itself may hand the bytes over later than that; they are lost then, as the flush wants it.
TEST_F(LineSpeed, TheFirstEscapeIsMostlyTakenBeforeTheHostFlushes)
{
    constexpr int kRounds = 20;
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit});
    const std::string path = sim.waitReady();
    int raised = 0;
    for (int round = 0; round < kRounds; ++round) {
        {
            HostPort port(path, 9600);
            port.writeHex("00 00 00 00");
            port.writeHex("1B 25 49 32");
        }
        {
            HostPort port(path, 38400);
            port.writeHex("1B 25 49 32");
            port.write(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")));
            raised += port.readFrame(300) == encodeFrame(FrameKind::card, *fromHex(kDebitAtr)) ? 1 : 0;
        }
        EXPECT_EQ(control(socket, {"baud", "9600"}), "ok\n");
    }
    EXPECT_GT(raised, kRounds / 2);
}

// The old terminal interface: 16-bit words, speeds above 38400 need a bit of their own.
TEST_F(LineSpeed, HostsWithTheOldTerminalInterfaceAreUnderstood)
{
    for (const auto &[baud, code] : {std::pair{"9600", B9600}, {"38400", B38400}, {"115200", B115200}}) {
        SimProcess sim({"--baud", baud, "--card", "0=" + kDebit});
        const std::string path = sim.waitReady();
        HostPort port(path, 1200);
        termio old{};
        ASSERT_EQ(::ioctl(port.fd(), TCGETA, &old), 0);
        termio settings = old;
        settings.c_iflag = 0;
        settings.c_oflag = 0;
        settings.c_cflag = static_cast<unsigned short>(code | CS8 | CREAD | CLOCAL);
        settings.c_lflag = static_cast<unsigned short>(old.c_lflag & ~0x8B);
        settings.c_cc[5] = 1; // a tenth of a second
        settings.c_cc[6] = 0;
        ASSERT_EQ(::ioctl(port.fd(), TCSETAF, &settings), 0);
        EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr) << baud;
        EXPECT_EQ(::ioctl(port.fd(), TCSETAF, &old), 0);
    }
}

TEST_F(LineSpeed, AHungUpSpeedIsNoSpeed)
{
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit});
    HostPort port(sim.waitReady(), 9600);
    port.setBaud(0);
    port.write(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")));
    EXPECT_TRUE(eventually([&] { return stateHas("garbage 18"); }));
}

} // namespace
} // namespace qvsim::test
