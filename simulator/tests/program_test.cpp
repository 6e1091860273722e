// The program as a newcomer starts it: a pseudo-terminal with a card behind it, commands while it runs.
#include "sim_process.h"

#include "control/socket_address.h"
#include "model/device_identity.h"
#include "system/io.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>

#include <filesystem>
#include <fstream>
#include <list>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

namespace qvsim::test {
namespace {

const std::string kCards = QVSIM_CARDS "/";
const std::string kDebit = "script:" + kCards + "debit-credit.card";
constexpr char kDebitAtr[] = "00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43";

TEST(Program, ACardAnswersThroughThePseudoTerminal)
{
    SimProcess sim({"--card", "0=" + kDebit, "--quiet"});
    HostPort port(sim.waitReady(), 9600);
    ASSERT_TRUE(port.isOpen());
    EXPECT_EQ(port.oldBaud(), 9600U);
    port.writeHex("02 30 30 30 35 33 32 32 32 30 30 30 30 30 30 31 30 03"); // power on slot 0
    EXPECT_EQ(toHex(port.readFrame()), "02 30 30 30 3E 30 30 30 30 33 3B 36 38 30 30 30 30 35 31 35 36 35 33 34 39 34 "
                                       "3D 32 3D 34 34 34 33 32 39 03");
    EXPECT_EQ(port.ask("32 26 00 00 84 00 00 08"), "00 00 3A 91 5C E7 08 4D B2 F6 90 00");
    EXPECT_EQ(port.ask("32 21 00"), "00 00");
    EXPECT_EQ(port.ask("32 23 00"), "00 00");
    EXPECT_EQ(sim.errors(), "");
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 0);
}

TEST(Program, ACardStaysPoweredWhileNoHostHasThePortOpen)
{
    SimProcess sim({"--card", "0=" + kDebit});
    const std::string path = sim.waitReady();
    EXPECT_EQ(HostPort(path, 9600).ask("32 22 00 00 00"), kDebitAtr);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(HostPort(path, 9600).ask("32 21 00"), "00 00");
}

TEST(Program, CardsComeAndGoByControlSocketAndStandardInput)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(port.ask("32 22 00 00 00"), "10 05");
    EXPECT_EQ(control(socket, {"insert", "0", kDebit}), "ok\n");
    EXPECT_EQ(control(socket, {"insert", "0", kDebit}), "!error: slot 0 is taken; remove its card first\n");
    EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr);
    EXPECT_EQ(control(socket, {"remove", "0"}), "ok\n");
    EXPECT_EQ(control(socket, {"remove", "0"}), "!error: slot 0 is empty\n");
    EXPECT_EQ(port.ask("32 26 00 00 84 00 00 08"), "10 05");
    sim.say("insert 255 " + kDebit);
    EXPECT_EQ(sim.readLine(), "ok");
    EXPECT_EQ(port.ask("32 24 00 00"), kDebitAtr);
    sim.say("remove 255");
    EXPECT_EQ(sim.readLine(), "ok");
    EXPECT_EQ(port.ask("32 24 00 00"), "30 01");
}

TEST(Program, PowerOnWaitsForTheCardAndControlGoesOn)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    HostPort port(sim.waitReady(), 9600);
    port.write(encodeFrame(FrameKind::card, *fromHex("32 22 75 30 00"))); // 30 seconds
    EXPECT_TRUE(
        eventually([&] { return control(socket, {"state"}).find("waits for a card in slot 0") != std::string::npos; }));
    EXPECT_EQ(control(socket, {"insert", "0", kDebit}), "ok\n");
    const Bytes reply = port.readFrame();
    EXPECT_EQ(reply.size(), 36U);
}

TEST(Program, ASwipeOrAnIdentityCardEndsADetection)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    HostPort port(sim.waitReady(), 9600);
    const auto waits = [&] { return control(socket, {"state"}).find("waits for any card") != std::string::npos; };
    port.write(encodeFrame(FrameKind::card, *fromHex("32 30 00 3C"))); // a minute
    EXPECT_TRUE(eventually(waits));
    EXPECT_EQ(control(socket, {"swipe", "12=3", "-"}), "ok\n");
    EXPECT_EQ(port.readFrame(), encodeFrame(FrameKind::card, *fromHex("00 00 03 31 32 3D 33 7C 0D 0A")));
    port.write(encodeFrame(FrameKind::card, *fromHex("32 32 00 3C 04")));
    EXPECT_TRUE(eventually(waits));
    EXPECT_EQ(control(socket, {"identity", "on"}), "ok\n");
    EXPECT_EQ(port.readFrame(), encodeFrame(FrameKind::card, *fromHex("00 00 04")));
    EXPECT_EQ(control(socket, {"identity", "off"}), "ok\n");
    EXPECT_EQ(port.ask("32 30 00 00"), "10 05");
}

TEST(Program, TheDeviceRecordIsSetByOptionAndCommand)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--device", "model=BOX 7", "--device", "version=1.2.3.4"});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"device", "serial", "S 1"}), "ok\n");
    DeviceIdentity expected;
    expected.model = "BOX 7";
    expected.serial = "S 1";
    expected.version = {1, 2, 3, 4};
    Bytes data{0x00, 0x00};
    for (const std::uint8_t b : deviceRecord(expected))
        data.push_back(b);
    port.write(encodeFrame(FrameKind::peripheral, *fromHex("11 01")));
    EXPECT_EQ(port.readFrame(), encodeFrame(FrameKind::peripheral, data));
    EXPECT_EQ(runProgram({"--device", "date=never"}).exitCode, 1);
    EXPECT_EQ(runProgram({"--device", "date"}).exitCode, 2);
}

TEST(Program, AFaultSpoilsTheNextReplyAndTheTraceShowsIt)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--trace", "-"});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"fault", "badlrc"}), "ok\n");
    const Bytes question = encodeFrame(FrameKind::card, *fromHex("31 11"));
    port.write(question);
    EXPECT_EQ(toHex(port.readFrame()), "02 30 30 30 32 30 30 30 30 30 31 03");
    EXPECT_EQ(port.ask("31 11"), "00 00");
    EXPECT_NE(sim.errors().find("sent 02 30 30 30 32 30 30 30 30 30 31 03"), std::string::npos);
    EXPECT_EQ(control(socket, {"fault", "dance"}), "!error: unknown fault dance; try faults\n");
    EXPECT_EQ(control(socket, {"fault", "silence", "every"}), "ok\n");
    EXPECT_NE(control(socket, {"faults"}).find("[on: silence every]"), std::string::npos);
    port.write(question);
    EXPECT_TRUE(eventually([&] { return control(socket, {"state"}).find("replies 3") != std::string::npos; }));
    EXPECT_EQ(control(socket, {"fault", "off"}), "ok\n");
    EXPECT_EQ(port.ask("32 21 00"), "10 05") << "the silent reply never comes";
}

TEST(Program, ALateReplyComesLateAndInItsOrder)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"fault", "late", "300"}), "ok\n");
    const auto start = std::chrono::steady_clock::now();
    port.write(encodeFrame(FrameKind::card, *fromHex("31 11")));
    port.write(encodeFrame(FrameKind::card, *fromHex("32 21 00")));
    EXPECT_EQ(port.readFrame(), encodeFrame(FrameKind::card, *fromHex("00 00")));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(port.readFrame(), encodeFrame(FrameKind::card, *fromHex("10 05")));
}

TEST(Program, AHangUpEndsTheLineAndTheSimulator)
{
    TempDir dir;
    const std::string socket = dir / "control";
    const std::string link = dir / "reader";
    SimProcess sim({"--control", socket, "--link", link});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"fault", "hangup"}), "ok\n");
    port.write(encodeFrame(FrameKind::card, *fromHex("31 11")));
    EXPECT_EQ(sim.wait(), 0);
    EXPECT_EQ(port.readFrame(), Bytes{});
    pollfd polled{port.fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&polled, 1, 0), 1);
    EXPECT_NE(polled.revents & POLLHUP, 0);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(Program, StateTellsWhatTheReaderHolds)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit, "--card", "17=script:" + kCards + "mute.card",
                    "--card", "255=vpcd:0"});
    const std::string vpcd = sim.readLine();
    ASSERT_TRUE(vpcd.starts_with("vpcd 255 ")) << vpcd;
    const std::string path = sim.waitReady();
    HostPort port(path, 9600);
    port.writeHex("00 00 1B 25 4B 1B 24 49 34");
    port.ask("32 22 00 00 00");
    port.ask("32 22 00 00 11");
    port.writeHex("41 42");
    EXPECT_TRUE(eventually([&] { return control(socket, {"state"}).find("garbage 2") != std::string::npos; }));
    EXPECT_EQ(control(socket, {"state"}), "pty " + path +
                                              "\nbaud 9600\nbox K at 9600\n"
                                              "slot 0 powered " +
                                              kDebit +
                                              " (debit-credit test card)\n"
                                              "slot 17 unpowered script:" +
                                              kCards +
                                              "mute.card (mute card)\n"
                                              "stripe card none\n"
                                              "stripe head ISO, separator |, read time 10 s, channel A\n"
                                              "stripe reads 0, failed 0\nstripe writes 0, failed 0\n"
                                              "led 00, pair 00 00\nbuzzer 0\n"
                                              "frames 2\nrejected 0\nescapes 2\nreplies 2\ngarbage 2\n"
                                              "slot 255 empty vpcd:" +
                                              vpcd.substr(9) + " (no card has connected)\nok\n");
}

TEST(Program, ControlMistakesAreAnswered)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    sim.waitReady();
    const struct {
        std::vector<std::string> words;
        const char *answer;
    } rows[] = {
        {{"dance"}, "!error: unknown command dance; try help\n"},
        {{""}, "!error: no command; try help\n"},
        {{"insert"}, "!error: usage: insert SLOT CARD\n"},
        {{"insert", "0"}, "!error: usage: insert SLOT CARD\n"},
        {{"insert", "32", "script:x"}, "!error: a slot is 0 to 15 (contact), 16 to 31 (PSAM) or 255 (contactless)\n"},
        {{"insert", "0", "tape:x"}, "!error: a card is script:FILE, purse:FILE, psam:FILE or vpcd:PORT\n"},
        {{"insert", "0", "script:/nowhere"}, "!error: /nowhere: No such file or directory\n"},
        {{"insert", "0", "vpcd:65536"}, "!error: vpcd:PORT takes a port from 0 (any) to 65535\n"},
        {{"remove", "x"}, "!error: a slot is 0 to 15 (contact), 16 to 31 (PSAM) or 255 (contactless)\n"},
        {{"baud", "12345"}, "!error: no tty runs at 12345 bits per second\n"},
        {{"baud", "fast"}, "!error: a line speed is a number of bits per second\n"},
        {{"swipe", "1"}, "!error: usage: swipe TRACK2 TRACK3\n"},
        {{"swipe", "1|", "-"},
         "!error: a track is at most 250 printable ASCII characters without |, or - when it is empty\n"},
        {{"identity", "maybe"}, "!error: identity is on or off\n"},
        {{"device", "colour", "red"}, "!error: a device field is model, serial, date, version, version2 or mac\n"},
        {{"device", "date", "today"}, "!error: device date takes YYYYMMDD\n"},
        {{"state", "now"}, "!error: usage: state \n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(control(socket, row.words), row.answer);
    EXPECT_NE(control(socket, {"help"}).find("insert SLOT CARD"), std::string::npos);
    EXPECT_EQ(control(socket, {"quit"}), "ok\n");
    EXPECT_EQ(sim.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(socket));
    EXPECT_TRUE(control(socket, {"state"}).starts_with("!qvreader-sim: control socket"));
}

// A controller that speaks the socket's language itself.
class Controller {
  public:
    explicit Controller(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress address(path);
        EXPECT_EQ(::connect(socket_.get(), address.get(), address.length()), 0);
    }

    void send(std::string_view text)
    {
        int error = 0;
        while (!text.empty() && error == 0) {
            text.remove_prefix(sendSome(socket_.get(), asBytes(text), error));
            pollfd polled{socket_.get(), POLLOUT, 0};
            ::poll(&polled, 1, 100);
        }
    }

    // What comes up to `end`, or until the simulator hangs up.
    std::string readTo(std::string_view end)
    {
        std::string text;
        std::uint8_t byte = 0;
        pollfd polled{socket_.get(), POLLIN, 0};
        while (!text.ends_with(end) && ::poll(&polled, 1, 10'000) == 1 &&
               readSome(socket_.get(), {&byte, 1}).kind == ReadResult::Kind::bytes)
            text += static_cast<char>(byte);
        return text;
    }

  private:
    UniqueFd socket_;
};

TEST(Program, ManyControllersAreServed)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    sim.waitReady();
    const std::size_t descriptors = sim.openDescriptors();
    {
        std::list<Controller> first;
        for (int i = 0; i < 16; ++i)
            first.emplace_back(socket).send("remove 0\nremove 1\n");
        for (Controller &controller : first)
            EXPECT_EQ(controller.readTo("slot 1 is empty\n"), "error: slot 0 is empty\nerror: slot 1 is empty\n");
        Controller late(socket);
        late.send("remove 2\n");
        first.pop_front(); // makes room
        EXPECT_EQ(late.readTo("\n"), "error: slot 2 is empty\n");
    }
    EXPECT_TRUE(eventually([&] { return sim.openDescriptors() == descriptors; }));
}

TEST(Program, ALineWithoutEndIsHungUpOn)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket});
    sim.waitReady();
    Controller rude(socket);
    rude.send(std::string(200'000, 'x'));
    EXPECT_EQ(rude.readTo("\n"), "");
    Controller deaf(socket); // asks and asks and never reads
    for (int i = 0; i < 20; ++i)
        deaf.send("state\nstate\nstate\nhelp\n");
    EXPECT_EQ(control(socket, {"remove", "0"}), "!error: slot 0 is empty\n");
}

TEST(Program, TheControlSocketIsItsOwnersAloneAndReplacesOnlyADeadOne)
{
    TempDir dir;
    const std::string socket = dir / "control";
    {
        SimProcess sim({"--control", socket});
        sim.waitReady();
        struct stat info {};
        ASSERT_EQ(::stat(socket.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700U);
        EXPECT_NE(runProgram({"--control", socket}).err.find("another simulator answers there"), std::string::npos);
    } // killed: the file stays
    EXPECT_TRUE(std::filesystem::exists(socket));
    SimProcess sim({"--control", socket});
    sim.waitReady();
    EXPECT_EQ(control(socket, {"remove", "0"}), "!error: slot 0 is empty\n");
    std::ofstream(dir / "file") << "x";
    const RunResult refused = runProgram({"--control", dir / "file"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("exists and is no socket"), std::string::npos);
}

TEST(Program, LinksLeadToTheTerminalAndGoWithTheProgram)
{
    TempDir dir;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        std::filesystem::create_symlink("/nowhere", dir / "COM7"); // an old one
        SimProcess sim({"--link", dir / "COM7", "--link", dir / "reader", "--card", "0=" + kDebit});
        const std::string path = sim.waitReady();
        EXPECT_EQ(std::filesystem::read_symlink(dir / "COM7"), path);
        EXPECT_EQ(HostPort(dir / "reader", 9600).ask("32 22 00 00 00"), kDebitAtr);
        EXPECT_EQ(sim.signalAndWait(signal), 0);
        EXPECT_FALSE(std::filesystem::is_symlink(dir / "COM7"));
        EXPECT_FALSE(std::filesystem::is_symlink(dir / "reader"));
    }
}

TEST(Program, ALinkReplacesNothingButALink)
{
    TempDir dir;
    std::ofstream(dir / "COM7") << "precious";
    const RunResult refused = runProgram({"--link", dir / "COM7"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("exists and is no symbolic link"), std::string::npos) << refused.err;
    EXPECT_TRUE(std::filesystem::is_regular_file(dir / "COM7"));
    const RunResult nowhere = runProgram({"--link", dir / "no/such/folder"});
    EXPECT_EQ(nowhere.exitCode, 1);
    // A link that another simulator has taken over stays.
    SimProcess first({"--link", dir / "reader"});
    first.waitReady();
    SimProcess second({"--link", dir / "reader"});
    const std::string path = second.waitReady();
    first.signalAndWait(SIGTERM);
    EXPECT_EQ(std::filesystem::read_symlink(dir / "reader"), path);
}

TEST(Program, WrongCommandLinesAreRefusedWithTheReason)
{
    const struct {
        std::vector<std::string> arguments;
        const char *words;
    } rows[] = {
        {{"--card", "0"}, "write SLOT=script:FILE"},   {{"--card", "40=script:x"}, "write SLOT=script:FILE"},
        {{"--baud", "12345"}, "no tty runs at 12345"}, {{"--nonsense"}, "--nonsense"},
        {{"ctl"}, "SOCKETPATH is required"},
    };
    for (const auto &row : rows) {
        const RunResult result = runProgram(row.arguments);
        EXPECT_EQ(result.exitCode, 2) << row.words;
        EXPECT_NE((result.out + result.err).find(row.words), std::string::npos) << result.out << result.err;
    }
    TempDir dir;
    std::ofstream(dir / "bad.card") << "atr 3B\nnonsense\n";
    const RunResult card = runProgram({"--card", "0=script:" + dir / "bad.card"});
    EXPECT_EQ(card.exitCode, 1);
    EXPECT_NE(card.err.find("bad.card:2: unknown word"), std::string::npos) << card.err;
}

TEST(Program, TheEndOfStandardInputEndsNothing)
{
    for (const StandardInput input : {StandardInput::atEnd, StandardInput::closed}) {
        SimProcess sim({"--card", "0=" + kDebit}, input);
        HostPort port(sim.waitReady(), 9600);
        EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr);
        const long before = sim.cpuMilliseconds();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        EXPECT_LE(sim.cpuMilliseconds() - before, 50) << "an idle simulator sleeps";
        EXPECT_EQ(port.ask("32 21 00"), "00 00");
    }
}

TEST(Program, TheTraceTellsBytesAndMeaning)
{
    TempDir dir;
    SimProcess sim({"--trace", dir / "trace", "--card", "0=" + kDebit});
    {
        HostPort port(sim.waitReady(), 9600);
        port.ask("32 22 0B B8 00");
        port.writeHex("02 30 30 30 33 33 32 32 31 30 30 31 34 03");
        port.ask("32 21 01");
    }
    sim.signalAndWait(SIGTERM);
    std::ifstream file(dir / "trace");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    for (const char *line : {
             " in   02 30 30 30 35 33 32 32 32 30 3B 3B 38 30 30 3A 33 03\n",
             " > 32 22 0B B8 00  power on slot 0, waits 3000 ms\n",
             " < 00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43  done\n",
             " out  02 30 30 30 3E",
             " > frame answered with silence: wrong LRC\n",
             " > 32 21 01  card status of slot 1\n",
             " < 10 05  no card\n",
         })
        EXPECT_NE(text.find(line), std::string::npos) << line << "\nnot in\n" << text;
    const std::regex line(
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} (in   |out  |> |< |     ).+");
    std::istringstream lines(text);
    for (std::string one; std::getline(lines, one);)
        EXPECT_TRUE(std::regex_match(one, line)) << one;
}

TEST(Program, RubbishAndHostsThatNeverReadDoNoHarm)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--card", "0=" + kDebit, "--trace", "-"}); // nobody reads the trace
    const std::string path = sim.waitReady();
    const std::size_t descriptors = sim.openDescriptors();
    std::mt19937 random(42);
    {
        HostPort port(path, 9600);
        Bytes rubbish(64 * 1024);
        for (int i = 0; i < 32; ++i) { // 2 MiB
            for (std::uint8_t &b : rubbish)
                b = static_cast<std::uint8_t>(random());
            port.write(rubbish);
        }
        const Bytes frame = encodeFrame(FrameKind::card, *fromHex("32 21 00"));
        for (int i = 0; i < 20'000; ++i) // 220 KB of replies that nobody takes
            port.write(frame);
    }
    EXPECT_NE(control(socket, {"state"}).find("ok\n"), std::string::npos);
    EXPECT_TRUE(eventually([&] {
        HostPort port(path, 9600);
        port.writeHex("00 00 00 03 1B 25 49 34"); // ends whatever had begun; the rubbish may have changed the speed
        control(socket, {"baud", "9600"});
        ::tcflush(port.fd(), TCIOFLUSH);
        port.write(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")));
        return port.readFrame(200).size() == 36;
    }));
    EXPECT_TRUE(eventually([&] { return sim.openDescriptors() == descriptors; }));
    EXPECT_EQ(control(socket, {"quit"}), "ok\n");
    EXPECT_EQ(sim.wait(), 0);
}

} // namespace
} // namespace qvsim::test
