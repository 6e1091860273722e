// The stripe head of the running program: over a pseudo-terminal, behind a terminal, on USB; with its options, control
// commands and files.
#include "sim_process.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>

namespace qvsim::test {
namespace {

using std::chrono::milliseconds;

const std::string kDemo = QVSIM_CARDS "/demo.stripe";
constexpr char kTrack1[] = "B6225000011112222^DEMO/CARD^29120000";
constexpr char kTrack2[] = "6225000011112222=29120000";
constexpr char kTrack3[] = "996225000011112222=156";

std::string textOf(BytesView bytes)
{
    return {bytes.begin(), bytes.end()};
}

// A bare reply is read by its length: `expected` is compared with what comes.
void expectReply(HostPort &port, const std::string &expected)
{
    EXPECT_EQ(textOf(port.read(expected.size())), expected);
}

void expectSilence(HostPort &port)
{
    EXPECT_EQ(toHex(port.read(1, 50)), "");
}

void tell(HostPort &port, std::string_view bytes)
{
    port.write(BytesView(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()));
}

std::string askFramed(HostPort &port, const std::string &data)
{
    port.write(encodeFrame(FrameKind::peripheral, Bytes(data.begin(), data.end())));
    const Bytes frame = port.readFrame();
    if (frame.size() < 2 || frame.front() != 0x01)
        return "no frame: " + toHex(frame);
    return toHex(decodeFrame(BytesView(frame).subspan(1, frame.size() - 2)).data);
}

std::string file(const std::string &path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(StripeProgram, AWholeConversationRunsOverThePseudoTerminal)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--stripe", kDemo, "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    tell(port, "\x1B%A\x1B"
               "0\x1B=\x1B]");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
    tell(port, "\x1Bj");
    expectReply(port, "\x1Bp");
    tell(port, "\x1B"
               "D]");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "A" + kTrack1 + "?\x1C");
    EXPECT_EQ(askFramed(port, "\x20\x02"), "00 00 " + toHex(Bytes(std::begin(kTrack1), std::end(kTrack1) - 1)) +
                                               " 7C " + toHex(Bytes(std::begin(kTrack2), std::end(kTrack2) - 1)) +
                                               " 7C " + toHex(Bytes(std::begin(kTrack3), std::end(kTrack3) - 1)));
    tell(port, "\x1Bt12=3A45\x1D\x1B\\\x1Bj");
    expectReply(port, "\x1Bp");
    EXPECT_EQ(control(socket, {"stripe", "tracks"}),
              std::string("track 1: ") + kTrack1 + "\ntrack 2: 12=3\ntrack 3: 45\nok\n");
    EXPECT_EQ(askFramed(port, "\x20\x03||7"), "00 00");
    EXPECT_EQ(control(socket, {"stripe", "tracks"}), "track 1: \ntrack 2: \ntrack 3: 7\nok\n");
    const std::string state = control(socket, {"state"});
    EXPECT_NE(state.find("stripe card " + kDemo + " (demo card)\n"), std::string::npos) << state;
    EXPECT_NE(state.find("stripe reads 3, failed 0\nstripe writes 2, failed 0\n"), std::string::npos) << state;
}

TEST(StripeProgram, ASwipeComesLateOnceOrNever)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--stripe", kDemo, "--stripe-after", "300", "--stripe-once", "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    const auto start = std::chrono::steady_clock::now();
    tell(port, "\x1B]");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(300));
    EXPECT_EQ(askFramed(port, "\x20\x04\x01"), "00 00");
    tell(port, "\x1Bt5\x1D\x1B\\\x1Bj");
    expectReply(port, "\x1Bq");
    EXPECT_EQ(askFramed(port, "\x20\x03||7"), "40 01");
    EXPECT_EQ(control(socket, {"stripe", "after", "0"}), "ok\n");
    EXPECT_EQ(control(socket, {"stripe", "always"}), "ok\n");
    for (int round = 0; round < 2; ++round) {
        tell(port, "\x1B]");
        expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
    }
    EXPECT_EQ(control(socket, {"stripe", "none"}), "ok\n");
    tell(port, "\x1B]\x1Bj");
    expectReply(port, "\x1Bq");
    tell(port, "\x1B]");
    const auto waits = [&] {
        return control(socket, {"state"}).find("waits for a magnetic card") != std::string::npos;
    };
    EXPECT_EQ(askFramed(port, "\x20\x04\x78"), "00 00");
    tell(port, "\x1B]");
    EXPECT_TRUE(eventually(waits));
    EXPECT_EQ(control(socket, {"stripe", kDemo}), "ok\n");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
    EXPECT_EQ(control(socket, {"stripe", "once"}), "ok\n");
    tell(port, "\x1B]");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
    tell(port, "\x1B]");
    EXPECT_TRUE(eventually(waits));
    expectSilence(port);
}

TEST(StripeProgram, FaultsAreSwitchedOnAndOff)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--stripe", kDemo, "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"stripe", "fault", "read", "once"}), "ok\n");
    EXPECT_NE(control(socket, {"state"}).find("stripe fault read once\n"), std::string::npos);
    EXPECT_EQ(askFramed(port, "\x20\x02"), "40 02");
    EXPECT_EQ(askFramed(port, "\x20\x02").substr(0, 5), "00 00");
    EXPECT_EQ(control(socket, {"stripe", "fault", "nodata"}), "ok\n");
    EXPECT_EQ(askFramed(port, "\x20\x02"), "40 01");
    EXPECT_EQ(askFramed(port, "\x20\x02"), "40 01");
    EXPECT_EQ(control(socket, {"stripe", "fault", "off"}), "ok\n");
    EXPECT_EQ(askFramed(port, "\x20\x02").substr(0, 5), "00 00");
    EXPECT_EQ(control(socket, {"fault", "badlrc"}), "ok\n"); // a fault of the line: not for bare replies
    tell(port, "\x1B]\x1Bj");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C\x1Bp");
    EXPECT_EQ(askFramed(port, "\x20\x04\x05"), "");
}

TEST(StripeProgram, TheHeadHangsAtItsChannel)
{
    SimProcess sim({"--stripe", kDemo, "--stripe-channel", "K"});
    HostPort port(sim.waitReady(), 9600);
    tell(port, "\x1B%A\x1B]\x1Bj");
    expectSilence(port);
    tell(port, "\x1B%K\x1B]");
    expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
}

TEST(StripeProgram, TheReadOfAllTracksMayEndInASeparator)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--stripe", kDemo, "--stripe-final", "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_TRUE(askFramed(port, "\x20\x02").ends_with(" 31 35 36 7C"));
    EXPECT_EQ(control(socket, {"stripe", "final", "off"}), "ok\n");
    EXPECT_TRUE(askFramed(port, "\x20\x02").ends_with(" 31 35 36"));
    EXPECT_EQ(control(socket, {"stripe", "final", "on"}), "ok\n");
    EXPECT_TRUE(askFramed(port, "\x20\x02").ends_with(" 31 35 36 7C"));
}

TEST(StripeProgram, ACardIsSavedForItsOwnerAloneAndReadAgain)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--stripe", kDemo, "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    tell(port, "\x1B'\x1BwA B\x1D\x1B\\\x1Bj");
    expectReply(port, "\x1Bp");
    EXPECT_EQ(control(socket, {"stripe", "save", dir / "saved card"}), "ok\n");
    EXPECT_EQ(file(dir / "saved card"), "name   demo card\nformat IBM\ntrack1 A B\nformat ISO\ntrack2 " +
                                            std::string(kTrack2) + "\ntrack3 " + kTrack3 + "\n");
    struct stat info {};
    ASSERT_EQ(::stat((dir / "saved card").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_EQ(control(socket, {"stripe", kDemo}), "ok\n");
    EXPECT_EQ(control(socket, {"stripe", dir / "saved card"}), "ok\n");
    tell(port, "\x1Br");
    expectReply(port, "\x1BsA B?\x1C");
}

TEST(StripeProgram, MistakesAreAnswered)
{
    TempDir dir;
    const std::string socket = dir / "control";
    std::ofstream(dir / "bad.stripe") << "name x\ntrack2 ABC\n";
    SimProcess sim({"--control", socket});
    sim.waitReady();
    const struct {
        std::vector<std::string> words;
        std::string answer;
    } rows[] = {
        {{"stripe"}, "usage: stripe FILE|none|SETTING"},
        {{"stripe", dir / "none"}, dir / "none" + ": No such file or directory"},
        {{"stripe", dir / "bad.stripe"}, dir / "bad.stripe" + ":2: track 2 holds characters from \"0\" to \"?\""},
        {{"stripe", "after"}, "usage: stripe after MS"},
        {{"stripe", "after", "soon"}, "stripe after takes milliseconds, 0 to 600000"},
        {{"stripe", "once", "more"}, "usage: stripe once"},
        {{"stripe", "final", "maybe"}, "stripe final is on or off"},
        {{"stripe", "fault"}, "usage: stripe fault NAME [once]|off"},
        {{"stripe", "fault", "dance"},
         "a stripe fault is nodata, read, write, garbled, status or silent, with or without once, or off"},
        {{"stripe", "fault", "off", "once"},
         "a stripe fault is nodata, read, write, garbled, status or silent, with or without once, or off"},
        {{"stripe", "tracks"}, "no magnetic card is at hand"},
        {{"stripe", "save", dir / "x"}, "no magnetic card is at hand"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(control(socket, row.words), "!error: " + row.answer + "\n");
    EXPECT_EQ(control(socket, {"stripe", kDemo}), "ok\n");
    EXPECT_EQ(control(socket, {"stripe", "save", dir / "no/such"}),
              "!error: save " + dir / "no/such" + ": No such file or directory\n");
    EXPECT_EQ(control(socket, {"stripe", dir / "bad.stripe"}),
              "!error: " + dir / "bad.stripe" + ":2: track 2 holds characters from \"0\" to \"?\"\n");
    EXPECT_TRUE(control(socket, {"stripe", "tracks"}).starts_with("track 1: B6225"))
        << "the card at hand stays when another one cannot be read";
}

TEST(StripeProgram, EveryTerminalPassesTheHeadsCommands)
{
    const struct {
        const char *family;
        std::string open, begin, end;
    } rows[] = {
        {"star", "\x1B!0;0;0;0Y\x1B[/54l\x1B[/53h\x1B[/50h", "\x1B[/51h", "\x1B[/51l"},
        {"gw", "\x1B[0>", "", ""},
        {"gg", "\x1B[/1;1;8;3;1;0M", "\x1B[/|", "|"},
        {"wyse", "\x1B!45;1m\x1B!b", "", ""},
    };
    for (const auto &row : rows)
        for (const char *delay : {"0", "100"}) {
            SCOPED_TRACE(std::string(row.family) + " " + delay);
            SimProcess sim({"--terminal", row.family, "--stripe", kDemo, "--stripe-after", delay});
            HostPort port(sim.waitReady(), 9600);
            const auto say = [&](const std::string &bytes) { tell(port, row.begin + bytes + row.end); };
            tell(port, row.open);
            say("\x1B"
                "0\x1B=");
            say("\x1B]");
            expectReply(port, std::string("\x1Bs") + kTrack2 + "?\x1C");
            say("\x1Bj");
            expectReply(port, "\x1Bp");
            say("\x1BwB9[/51L?\x1D\x1B\\");
            say("\x1Bj");
            expectReply(port, "\x1Bp");
            say("\x1Br");
            expectReply(port, "\x1BsB9[/51L??\x1C");
        }
}

TEST(StripeProgram, TheHeadAnswersOnUsb)
{
    TempDir dir;
    ::setenv("TMPDIR", (dir / "").c_str(), 1);
    const std::string long1(79, 'Z');
    const std::string hexLong = toHex(Bytes(long1.begin(), long1.end()));
    const std::string demo2 = toHex(Bytes(std::begin(kTrack2), std::end(kTrack2) - 1));
    for (const char *way : {"libusb", "hidapi"})
        for (const char *delay : {"0", "100"}) {
            SCOPED_TRACE(std::string(way) + " " + delay);
            const RunResult run = runProgram({"--usb",
                                              "--quiet",
                                              "--stripe",
                                              kDemo,
                                              "--stripe-after",
                                              delay,
                                              "--",
                                              QVSIM_USB_CLIENT,
                                              way,
                                              "2B46:BE11",
                                              "0",
                                              "tell:1B301B3D",
                                              "bare:1B5D",
                                              "bare:1B6A",
                                              "tell:1B77" + hexLong + "1D1B5C",
                                              "bare:1B6A",
                                              "bare:1B72",
                                              "peripheral:200405",
                                              "peripheral:20037C357C36",
                                              "peripheral:2002"});
            EXPECT_EQ(run.out, "1B 73 " + demo2 + " 3F 1C\n1B 70\n1B 70\n1B 73 " + hexLong +
                                   " 3F 1C\n00 00\n00 00\n00 00 7C 35 7C 36\n");
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(run.exitCode, 0);
        }
    ::unsetenv("TMPDIR");
}

} // namespace
} // namespace qvsim::test
