// The tap between a host and a reader, which is another simulator here.
#include "sim_process.h"

#include "model/card_script.h"
#include "model/conversation.h"
#include "program/card_files.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>

namespace qvsim::test {
namespace {

const std::string kDebit = "0=script:" + std::string(QVSIM_CARDS) + "/debit-credit.card";
constexpr char kDebitAtr[] = "00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43";

class Overheard {
  public:
    void exchange(const char *question, const char *answer)
    {
        conversation.hostSays(encodeFrame(FrameKind::card, *fromHex(question)));
        conversation.readerSays(encodeFrame(FrameKind::card, *fromHex(answer)));
    }

    NoTrace trace;
    Conversation conversation{trace};
};

TEST(Tap, TheFirstCardThatAnswersIsRecorded)
{
    Overheard line;
    line.exchange("32 22 00 00 00", "10 05");
    line.exchange("32 26 00 00 84 00 00 08", "10 05");
    EXPECT_EQ(line.conversation.cardFile(), std::nullopt);
    line.exchange("32 22 00 00 00", "00 00 3B 10");
    line.exchange("32 22 00 00 10", "00 00 3B 11");
    line.exchange("32 26 00 00 84 00 00 02", "00 00 11 22 90 00");
    line.exchange("32 26 10 00 84 00 00 02", "00 00 77 77 90 00"); // another card
    line.exchange("32 26 00 00 A4 00 00", "00 00 6A 82");
    line.exchange("32 26 00 00 84 00 00 02", "00 00 33 44 90 00");
    line.exchange("32 26 00 00 84 00 00 02", "00 00 33 44 90 00");
    line.exchange("32 26 00 00 B0 00 00 00", "10 06");
    line.exchange("32 21 00", "00 00");
    const std::optional<std::string> text = line.conversation.cardFile();
    EXPECT_EQ(text, "name recorded in slot 0\natr 3B 10\n"
                    "> 00 84 00 00 02\n< 11 22 90 00\n< 33 44 90 00\n"
                    "> 00 A4 00 00\n< 6A 82\n> 00 B0 00 00 00\n< silence\n");
    EXPECT_TRUE(std::holds_alternative<CardScript>(parseCardScript(*text, "recorded")));
}

TEST(Tap, TheLongestReplyIsHeard)
{
    Overheard line;
    line.exchange("32 24 00 00", "00 00 3B 10");
    line.conversation.hostSays(encodeFrame(FrameKind::card, *fromHex("32 26 FF 00 B0 00 00 00")));
    Bytes longest(kMostReplyBody + 2, 0x00);
    line.conversation.readerSays(encodeFrame(FrameKind::card, longest));
    EXPECT_GT(line.conversation.cardFile()->size(), 3 * kMostReplyBody);
}

class Lines final : public Trace {
  public:
    bool wanted() const override { return true; }
    void line(std::string_view text) override { text_ += std::string(text) + "\n"; }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

TEST(Tap, BareCommandsAndRepliesAreTold)
{
    Lines trace;
    Conversation conversation(trace);
    conversation.hostSays(*fromHex("1B 72 41 1B 74 31 1D 1B 5C 1B 55 42 43 1B 77 01"));
    conversation.readerSays(*fromHex("1B 73 31 32 3F 1C"));
    conversation.readerSays(*fromHex("1B 70"));
    EXPECT_EQ(trace.text(), "in   1B 72 41 1B 74 31 1D 1B 5C 1B 55 42 43 1B 77 01\n"
                            "> 1B 72  read track 1\n> 1 bytes without a frame\n"
                            "> 1B 74 31 1D 1B 5C  write track 2, or 3, or 2 and 3\n"
                            "> 1B 55  unknown escape sequence\n> 2 bytes without a frame\n> a text without an end\n"
                            "out  1B 73 31 32 3F 1C\n< 1B 73  a bare reply begins\n< 4 bytes without a frame\n"
                            "out  1B 70\n< 1B 70  a bare reply begins\n");
}

TEST(Tap, BytesGoThroughBothWaysAndTheCardIsRecorded)
{
    TempDir dir;
    const std::string socket = dir / "control";
    const std::string recorded = dir / "recorded.card";
    SimProcess reader({"--card", kDebit, "--control", socket});
    SimProcess tap({"tap", reader.waitReady(), "--link", dir / "reader", "--record", recorded, "--trace", "-"});
    tap.waitReady();
    {
        HostPort port(dir / "reader", 9600);
        EXPECT_EQ(port.ask("32 22 00 00 00"), kDebitAtr);
        EXPECT_EQ(port.ask("32 26 00 00 84 00 00 08"), "00 00 3A 91 5C E7 08 4D B2 F6 90 00");
        port.writeHex("1B 25 49 32");
        EXPECT_TRUE(eventually([&] { return control(socket, {"state"}).find("baud 38400") != std::string::npos; }));
        port.setBaud(38400);
        EXPECT_EQ(port.ask("32 21 00"), "00 00");
    }
    EXPECT_NE(tap.errors().find("> 32 26 00 00 84 00 00 08"), std::string::npos);
    EXPECT_EQ(tap.signalAndWait(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "reader"));
    const CardScriptResult script = readCardFile(recorded);
    ASSERT_TRUE(std::holds_alternative<CardScript>(script));
    EXPECT_EQ(toHex(*std::get<CardScript>(script).parts.at(0).atr), std::string(kDebitAtr).substr(6));
    EXPECT_EQ(std::get<CardScript>(script).parts.at(0).commands.size(), 1U);
}

TEST(Tap, AReaderThatGoesEndsTheTap)
{
    SimProcess reader({});
    SimProcess tap({"tap", reader.waitReady()});
    tap.waitReady();
    reader.signalAndWait(SIGTERM);
    EXPECT_EQ(tap.wait(), 1);
}

TEST(Tap, ATtyThatIsNoneIsTold)
{
    EXPECT_EQ(runProgram({"tap", "/dev/null"}).exitCode, 1);
    EXPECT_EQ(runProgram({"tap", "/nowhere"}).err, "qvreader-sim: tty /nowhere: No such file or directory\n");
    EXPECT_EQ(runProgram({"tap"}).exitCode, 2);
}

} // namespace
} // namespace qvsim::test
