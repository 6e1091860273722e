// The thin-client terminal: what of the host's bytes reaches the reader, what is shown, and what comes back.
#include "sim_process.h"

#include "channels/terminal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace qvsim::test {
namespace {

constexpr unsigned kSpeed = 9600;
const std::string kDebit = "0=script:" + std::string(QVSIM_CARDS) + "/debit-credit.card";
constexpr char kPowerOn[] = "32 22 00 00 00";
constexpr char kDebitAtr[] = "00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43";

// What a host has to send; {port 1, 9600}, and how its data are wrapped.
struct Speech {
    const char *family;
    std::string open;
    std::string begin;
    std::string end;
    std::string close;
};
const Speech kSpeeches[] = {
    {"star", "\x1B!0;0;0;0Y\x1B[/54l\x1B[/53h\x1B[/50h", "\x1B[/51h", "\x1B[/51l", "\x1B[/51l\x1B[/50l"},
    {"gw", "\x1B[0>", "", "", "\x1B[<"},
    {"gg", "\x1B[/1;1;8;3;1;0M", "\x1B[/|", "|", "\x1B[/M"},
    {"wyse", "\x1B!45;1m\x1B!b", "", "", "\x1B!P"},
};

class Lines final : public Trace {
  public:
    bool wanted() const override { return true; }
    void line(std::string_view text) override { text_ += std::string(text) + "\n"; }
    bool has(std::string_view text) const { return text_.find(text) != std::string::npos; }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// A terminal and what its aux port has given to the reader.
class Desk {
  public:
    explicit Desk(std::string_view family, unsigned readerPort = 1, unsigned setupSpeed = kSpeed)
        : terminal_(
              *findTerminalFamily(family), readerPort, setupSpeed,
              [this](BytesView bytes, unsigned speed) {
                  reader_.append(bytes.begin(), bytes.end());
                  speed_ = speed;
              },
              trace)
    {
    }
    void host(std::string_view bytes)
    {
        terminal_.fromHost(BytesView(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()));
    }
    std::string reply(std::string_view bytes, unsigned readerSpeed = kSpeed)
    {
        const Bytes passed = terminal_.fromReader(
            BytesView(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()), readerSpeed);
        return {passed.begin(), passed.end()};
    }
    std::string takeReader() { return std::exchange(reader_, {}); }
    unsigned speed() const { return speed_; }
    std::string state() const { return terminal_.describe(); }

    Lines trace;

  private:
    std::string reader_;
    unsigned speed_ = 0;
    Terminal terminal_;
};

TEST(Terminal, EveryFamilyIsFoundByItsNameAndNoOther)
{
    for (const char *name : {"star", "gw", "gg", "wyse"})
        EXPECT_NE(findTerminalFamily(name), nullptr) << name;
    for (const char *name : {"", "Star", "vt100", "st"})
        EXPECT_EQ(findTerminalFamily(name), nullptr) << name;
    EXPECT_EQ(terminalFamilyNames(), "star, gw, gg or wyse");
}

TEST(Terminal, AWholeConversationReachesTheReaderWithoutTheSequences)
{
    for (const Speech &speech : kSpeeches)
        for (const bool screenKept : {false, true}) {
            SCOPED_TRACE(speech.family);
            Desk bench(speech.family);
            bench.host((screenKept ? "\x1B[2h" : "") + speech.open);
            EXPECT_EQ(bench.state(), std::string(speech.family) + ", reader at aux port 1, port 1 on at 9600" +
                                         (screenKept ? ", screen kept" : "") + ", 0 bytes shown");
            bench.host(speech.begin +
                       "\x02"
                       "12\x03" +
                       speech.end);
            bench.host(speech.begin + "\x1B%I2" + speech.end);
            EXPECT_EQ(bench.takeReader(), "\x02"
                                          "12\x03\x1B%I2");
            EXPECT_EQ(bench.speed(), kSpeed);
            EXPECT_EQ(bench.reply("\x02"
                                  "45\x1B[/50l\x03"),
                      "\x02"
                      "45\x1B[/50l\x03")
                << "plain";
            bench.host(speech.close + (screenKept ? "\x1B[2l" : ""));
            EXPECT_EQ(bench.state(), std::string(speech.family) + ", reader at aux port 1, off, 0 bytes shown");
            EXPECT_EQ(bench.reply("late"), "");
            bench.host("text");
            EXPECT_EQ(bench.takeReader(), "");
            EXPECT_EQ(bench.state(), std::string(speech.family) + ", reader at aux port 1, off, 4 bytes shown");
        }
}

TEST(Terminal, SequencesMayComeInPieces)
{
    for (const Speech &speech : kSpeeches)
        for (std::size_t piece = 1; piece < 9; ++piece) {
            SCOPED_TRACE(std::string(speech.family) + " " + std::to_string(piece));
            const std::string all = "a\x1B[2h" + speech.open + speech.begin +
                                    "\x02\x1B"
                                    "0\x1B\x1B%I2\x03" +
                                    speech.end + speech.begin + "\x1B" + speech.end + speech.close +
                                    "\x1B[2l"
                                    "z";
            Desk bench(speech.family);
            for (std::size_t at = 0; at < all.size(); at += piece)
                bench.host(std::string_view(all).substr(at, piece));
            EXPECT_EQ(bench.takeReader(), "\x02\x1B"
                                          "0\x1B\x1B%I2\x03\x1B");
            EXPECT_EQ(bench.state(), std::string(speech.family) + ", reader at aux port 1, off, 2 bytes shown");
        }
}

TEST(Terminal, AWrappingFamilyShowsWhatIsNotWrapped)
{
    for (const char *family : {"star", "gg"}) {
        SCOPED_TRACE(family);
        const Speech &speech = kSpeeches[family == std::string_view("star") ? 0 : 2];
        Desk bench(family);
        bench.host(speech.open);
        bench.host("\x02"
                   "AB\x03");
        EXPECT_EQ(bench.takeReader(), "");
        EXPECT_TRUE(bench.trace.has("terminal: shows 4 bytes on the screen: 02 41 42 03")) << bench.trace.text();
        bench.host("C" + speech.begin + "D" + speech.end + "E");
        EXPECT_EQ(bench.takeReader(), "D");
        EXPECT_NE(bench.state().find(", 6 bytes shown"), std::string::npos) << bench.state();
    }
}

TEST(Terminal, ABarOutsideAGgsDataIsText)
{
    Desk bench("gg");
    bench.host("a|b");
    bench.host(kSpeeches[2].open + "|");
    EXPECT_NE(bench.state().find(", 4 bytes shown"), std::string::npos) << bench.state();
    bench.host("\x1B[/|1|2");
    EXPECT_EQ(bench.takeReader(), "1");
}

TEST(Terminal, NothingReachesTheReaderBeforeTheOpen)
{
    for (const Speech &speech : kSpeeches) {
        SCOPED_TRACE(speech.family);
        Desk bench(speech.family);
        bench.host(speech.begin + "A" + speech.end + "\x1B%I2");
        EXPECT_EQ(bench.takeReader(), "");
        EXPECT_EQ(bench.reply("B"), "");
        EXPECT_TRUE(bench.trace.has("1 byte of the reader lost: its aux port is off"));
    }
}

TEST(Terminal, AnotherFamilysSequencesSwitchNothingOn)
{
    for (const Speech &speaks : kSpeeches)
        for (const Speech &is : kSpeeches) {
            if (&speaks == &is)
                continue;
            SCOPED_TRACE(std::string(speaks.family) + " to " + is.family);
            Desk bench(is.family);
            bench.host(speaks.open + speaks.begin + "\x02\x03" + speaks.end);
            EXPECT_NE(bench.state().find(", off, "), std::string::npos) << bench.state();
            EXPECT_EQ(bench.takeReader(), "");
        }
}

TEST(Terminal, EachPortHasItsCodeAndOnlyTheReadersOneLeadsToIt)
{
    const struct {
        const char *family;
        const char *open[4];
    } rows[] = {
        {"star",
         {"\x1B!0;0;0;0Y\x1B[/54l\x1B[/53h\x1B[/50h", "\x1B!0;0;0;0Z\x1B[/54l\x1B[/53h\x1B[/50h",
          "\x1B!0;0;0;0X\x1B[/54l\x1B[/53h\x1B[/50h", "\x1B!0;0;0;0V\x1B[/54l\x1B[/53h\x1B[/50h"}},
        {"gw", {"\x1B[0>", "\x1B[1>", "\x1B[2>", "\x1B[3>"}},
        {"gg", {"\x1B[/1;1;8;3;1;0M", "\x1B[/2;1;8;3;1;0M", "\x1B[/3;1;8;3;1;0M", "\x1B[/4;1;8;3;1;0M"}},
        {"wyse", {"\x1B!45;1m\x1B!b", "\x1B!54;1m\x1B!b", "\x1B!60;1m\x1B!b", "\x1B!45;1m\x1B!b"}},
    };
    for (const auto &row : rows)
        for (unsigned readerPort = 1; readerPort <= 4; ++readerPort)
            for (unsigned port = 1; port <= 4; ++port) {
                SCOPED_TRACE(std::string(row.family) + " " + std::to_string(readerPort) + " " + std::to_string(port));
                const Speech &speech =
                    *std::find_if(std::begin(kSpeeches), std::end(kSpeeches),
                                  [&](const Speech &one) { return one.family == std::string_view(row.family); });
                Desk bench(row.family, readerPort);
                bench.host(row.open[port - 1] + speech.begin + "A" + speech.end);
                const bool leads = std::string_view(row.open[port - 1]) == row.open[readerPort - 1];
                EXPECT_EQ(bench.takeReader(), leads ? "A" : "");
                EXPECT_EQ(bench.reply("B"), leads ? "B" : "");
                EXPECT_EQ(bench.trace.has(", where no reader is"), !leads) << bench.trace.text();
            }
}

TEST(Terminal, APortThatTheTerminalDoesNotHaveStaysOff)
{
    for (const auto &[family, open] : {std::pair{"star", "\x1B!0;0;0;0W\x1B[/54l\x1B[/53h\x1B[/50h"},
                                       {"gw", "\x1B[4>"},
                                       {"gg", "\x1B[/5;1;8;3;1;0M"},
                                       {"wyse", "\x1B!46;1m\x1B!b"}}) {
        SCOPED_TRACE(family);
        Desk bench(family);
        bench.host(open);
        EXPECT_NE(bench.state().find(", off, 0 bytes shown"), std::string::npos) << bench.state();
        EXPECT_TRUE(bench.trace.has("terminal: has no such aux port")) << bench.trace.text();
    }
}

TEST(Terminal, TheSpeedOfTheOpenIsThatOfThePort)
{
    const struct {
        const char *family;
        const char *open;
        unsigned setupSpeed;
        unsigned speed; // 0: refused
    } rows[] = {
        {"star", "\x1B!0;0;0;0Y", kSpeed, 9600},      {"star", "\x1B!1;0;0;0Y", kSpeed, 4800},
        {"star", "\x1B!2;0;0;0Y", kSpeed, 2400},      {"star", "\x1B!3;0;0;0Y", kSpeed, 1200},
        {"star", "\x1B!5;0;0;0Y", kSpeed, 600},       {"star", "\x1B!6;0;0;0Y", kSpeed, 300},
        {"star", "\x1B!8;0;0;0Y", kSpeed, 230400},    {"star", "\x1B!10;0;0;0Y", kSpeed, 19200},
        {"star", "\x1B!11;0;0;0Y", kSpeed, 38400},    {"star", "\x1B!12;0;0;0Y", kSpeed, 115200},
        {"star", "\x1B!4;0;0;0Y", kSpeed, 0},         {"star", "\x1B!0;0;0;0Y", 38400, 9600},
        {"gg", "\x1B[/1;1;3;3;1;0M", kSpeed, 300},    {"gg", "\x1B[/1;1;4;3;1;0M", kSpeed, 600},
        {"gg", "\x1B[/1;1;5;3;1;0M", kSpeed, 1200},   {"gg", "\x1B[/1;1;6;3;1;0M", kSpeed, 2400},
        {"gg", "\x1B[/1;1;7;3;1;0M", kSpeed, 4800},   {"gg", "\x1B[/1;1;8;3;1;0M", kSpeed, 9600},
        {"gg", "\x1B[/1;1;9;3;1;0M", kSpeed, 19200},  {"gg", "\x1B[/1;1;8;3;1;0M", 38400, 38400},
        {"gg", "\x1B[/1;1;8;3;1;0M", 115200, 115200}, {"gg", "\x1B[/1;1;8;3;1;0M", 19200, 9600},
        {"gg", "\x1B[/1;1;2;3;1;0M", kSpeed, 0},      {"gw", "\x1B[0>", 38400, 38400},
        {"wyse", "\x1B!45;1m\x1B!b", 1200, 1200},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.family) + " " + std::to_string(row.speed));
        Desk bench(row.family, 1, row.setupSpeed);
        bench.host(row.open);
        if (row.family == std::string_view("star"))
            bench.host("\x1B[/54l\x1B[/53h\x1B[/50h");
        const std::string expected = row.speed == 0 ? ", off," : ", port 1 on at " + std::to_string(row.speed) + ",";
        EXPECT_NE(bench.state().find(expected), std::string::npos) << bench.state();
        EXPECT_EQ(bench.trace.has("knows no such speed"), row.speed == 0);
    }
}

TEST(Terminal, AReplyAtAnotherSpeedThanThePortsIsGarbage)
{
    Desk bench("gw");
    bench.host("\x1B[0>");
    EXPECT_EQ(bench.reply("AB", 19200).size(), 2U);
    EXPECT_NE(bench.reply("AB", 19200), "AB");
    EXPECT_TRUE(bench.trace.has("the aux port is at 9600, the reader at 19200")) << bench.trace.text();
}

TEST(Terminal, AStarsOpenSequenceHasToComeInItsOrder)
{
    for (const char *open : {"\x1B[/50h", "\x1B[/54l\x1B[/53h\x1B[/50h", "\x1B!0;0;0;0Y\x1B[/50h",
                             "\x1B!0;0;0;0Y\x1B[/53h\x1B[/54l\x1B[/50h", "\x1B!0;0;0;0Y\x1B[/54l\x1B[/50h"}) {
        SCOPED_TRACE(toHex(BytesView(reinterpret_cast<const std::uint8_t *>(open), std::string_view(open).size())));
        Desk bench("star");
        bench.host(open);
        EXPECT_NE(bench.state().find(", off, 0 bytes shown"), std::string::npos) << bench.state();
        EXPECT_TRUE(bench.trace.has("out of turn")) << bench.trace.text();
        bench.host(kSpeeches[0].open);
        EXPECT_NE(bench.state().find(", port 1 on at 9600,"), std::string::npos) << bench.state();
    }
    Desk wyse("wyse");
    wyse.host("\x1B!b");
    EXPECT_TRUE(wyse.trace.has("out of turn")) << wyse.trace.text();
}

TEST(Terminal, AnUnknownSequenceIsTextToTheScreenAndDataToThePort)
{
    Desk bench("wyse");
    bench.host("\x1B[7m\x1B!77");
    EXPECT_NE(bench.state().find(", off, 4 bytes shown"), std::string::npos)
        << "the second may still become one: " << bench.state();
    bench.host("x");
    EXPECT_NE(bench.state().find(", off, 9 bytes shown"), std::string::npos) << bench.state();
    bench.host("\x1B!45;1m\x1B!b\x1B[2h\x1B!45;1m");
    EXPECT_EQ(bench.takeReader(), "\x1B[2h\x1B!45;1m") << "it passes all that is not its end";
    bench.host("\x1B");
    EXPECT_EQ(bench.takeReader(), "");
    bench.host("0");
    EXPECT_EQ(bench.takeReader(), "\x1B"
                                  "0");
}

TEST(Terminal, AnOverlongNumberIsText)
{
    Desk bench("gw");
    bench.host("\x1B[" + std::string(5000, '1') + ">");
    EXPECT_NE(bench.state().find(", off, 5003 bytes shown"), std::string::npos) << bench.state();
}

TEST(Terminal, ACloseOfAPortThatIsOffChangesNothing)
{
    for (const Speech &speech : kSpeeches) {
        SCOPED_TRACE(speech.family);
        Desk bench(speech.family);
        bench.host(speech.close);
        EXPECT_NE(bench.state().find(", off, 0 bytes shown"), std::string::npos) << bench.state();
        EXPECT_TRUE(bench.trace.has("is told to switch the aux port off, but it is off"));
    }
}

TEST(Terminal, TheTraceShowsTheHostsBytesAndWhatBecomesOfThem)
{
    Desk bench("gg", 2);
    bench.host("\x1B[/1;1;8;3;1;0M");
    bench.host("\x1B[/|A|");
    bench.host("\x1B[/M");
    EXPECT_EQ(bench.trace.text(), "host 1B 5B 2F 31 3B 31 3B 38 3B 33 3B 31 3B 30 4D\n"
                                  "     terminal: aux port 1 on at 9600; the reader is at port 2\n"
                                  "host 1B 5B 2F 7C 41 7C\n"
                                  "     terminal: 1 byte to aux port 1, where no reader is\n"
                                  "host 1B 5B 2F 4D\n"
                                  "     terminal: aux port 1 off\n");
}

// ---- the program

class TerminalProgram : public testing::Test {
  protected:
    std::string state(const std::string &key)
    {
        const std::string all = "\n" + control(socket, {"state"});
        const std::size_t at = all.find("\n" + key + " ");
        return at == std::string::npos ? ""
                                       : all.substr(at + key.size() + 2, all.find('\n', at + 1) - at - key.size() - 2);
    }
    static std::string frame(const char *data)
    {
        const Bytes bytes = encodeFrame(FrameKind::card, *fromHex(data));
        return {bytes.begin(), bytes.end()};
    }
    static void send(HostPort &port, const std::string &text)
    {
        port.write(BytesView(reinterpret_cast<const std::uint8_t *>(text.data()), text.size()));
    }
    static std::string data(const Bytes &frame)
    {
        if (frame.size() < 2)
            return "silence";
        return toHex(decodeFrame(BytesView(frame).subspan(1, frame.size() - 2)).data);
    }

    TempDir dir;
    std::string socket = dir / "control";
};

TEST_F(TerminalProgram, ACardIsPoweredThroughEachFamilysTerminal)
{
    for (const Speech &speech : kSpeeches) {
        SCOPED_TRACE(speech.family);
        SimProcess sim({"--terminal", speech.family, "--card", kDebit, "--control", socket});
        HostPort port(sim.waitReady(), 115200); // the line to the terminal has a speed of its own
        send(port, speech.open + speech.begin + frame(kPowerOn) + speech.end);
        EXPECT_EQ(data(port.readFrame()), kDebitAtr);
        send(port, speech.close);
        EXPECT_TRUE(eventually([&] { return state("terminal").ends_with(", off, 0 bytes shown"); }))
            << state("terminal");
        send(port, speech.begin + frame("32 21 00") + speech.end + "!");
        EXPECT_TRUE(eventually([&] { return state("terminal").find(", off, 0 bytes") == std::string::npos; }));
        EXPECT_EQ(state("frames"), "1");
    }
}

TEST_F(TerminalProgram, TheReaderIsWhereTheCommandLineSays)
{
    SimProcess sim({"--terminal", "gw", "--aux-port", "3", "--card", kDebit, "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    send(port, "\x1B[0>" + frame(kPowerOn) + "\x1B[<");
    EXPECT_TRUE(eventually([&] { return state("terminal") == "gw, reader at aux port 3, off, 0 bytes shown"; }));
    EXPECT_EQ(state("frames"), "0");
    send(port, "\x1B[2>" + frame(kPowerOn));
    EXPECT_EQ(data(port.readFrame()), kDebitAtr);
}

TEST_F(TerminalProgram, AnAuxPortAtTheWrongSpeedIsGarbageToTheReader)
{
    SimProcess sim({"--terminal", "star", "--card", kDebit, "--control", socket});
    HostPort port(sim.waitReady(), 9600);
    send(port, "\x1B!11;0;0;0Y\x1B[/54l\x1B[/53h\x1B[/50h\x1B[/51h" + frame(kPowerOn) + "\x1B[/51l");
    EXPECT_TRUE(eventually([&] { return state("garbage") == "18"; })) << state("garbage");
    EXPECT_EQ(state("frames"), "0");
    EXPECT_EQ(control(socket, {"baud", "38400"}), "ok\n");
    send(port, "\x1B[/51h" + frame(kPowerOn) + "\x1B[/51l");
    EXPECT_EQ(data(port.readFrame()), kDebitAtr);
}

TEST_F(TerminalProgram, WrongOptionsAreRefused)
{
    EXPECT_NE(runProgram({"--terminal", "vt100"}).err.find("a terminal is star, gw, gg or wyse"), std::string::npos);
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--terminal", "vt100"},
                                                      {"--terminal", "gw", "--aux-port", "5"},
                                                      {"--terminal", "gw", "--aux-port", "0"},
                                                      {"--aux-port", "1"},
                                                      {"tap", "/dev/null", "--terminal", "gw"},
                                                      {"--terminal", "gw", "tap", "/dev/null"},
                                                      {"--terminal", "gw", "--from-log", "/dev/null"}})
        EXPECT_EQ(runProgram(arguments).exitCode, 2) << arguments[0] << " " << arguments[1];
}

} // namespace
} // namespace qvsim::test
