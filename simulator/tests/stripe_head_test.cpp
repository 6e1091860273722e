// The stripe head of the reader model, byte by byte: commands in, replies out, with a clock that the test turns.
#include "model/reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace qvsim {
namespace {

using std::chrono::milliseconds;
using Fault = StripeHead::Fault;

class Lines final : public Trace {
  public:
    bool wanted() const override { return true; }
    void line(std::string_view text) override { text_ += std::string(text) + "\n"; }
    bool has(std::string_view text) const { return text_.find(text) != std::string::npos; }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

std::string hexOf(std::string_view text)
{
    return toHex(Bytes(text.begin(), text.end()));
}

class StripeHeadTest : public testing::Test {
  protected:
    void raw(std::string_view hex) { reader.receive(*fromHex(hex), reader.baud(), time); }
    void framed(std::string_view hex)
    {
        reader.receive(encodeFrame(FrameKind::peripheral, *fromHex(hex)), reader.baud(), time);
    }

    // The replies since the last look as they are on the line, "1B 70 | 1B 71".
    std::string replies()
    {
        std::string text;
        for (const SentBytes &sent : reader.takeOutput())
            text += (text.empty() ? "" : " | ") + toHex(sent.bytes);
        return text;
    }
    std::string ask(std::string_view hex)
    {
        raw(hex);
        return replies();
    }
    // Status word and body of the reply to a command in a peripheral frame.
    std::string askFramed(std::string_view hex)
    {
        framed(hex);
        return decoded();
    }
    std::string decoded()
    {
        const std::vector<SentBytes> output = reader.takeOutput();
        if (output.empty())
            return "silence";
        const BytesView frame = output.front().bytes;
        EXPECT_EQ(output.size(), 1U);
        EXPECT_EQ(frame.front(), 0x01);
        EXPECT_EQ(frame.back(), 0x04);
        return toHex(decodeFrame(frame.subspan(1, frame.size() - 2)).data);
    }

    void offer(const char *track1, const char *track2, const char *track3, StripeFormat format = StripeFormat::iso)
    {
        StripeCard card;
        card.tracks = {StripeTrack{track1, format}, {track2, format}, {track3, format}};
        reader.stripe().offer(std::move(card), "test card");
        reader.tick(time);
    }
    std::string tracks()
    {
        const auto &all = reader.stripe().card()->tracks;
        return all[0].text + "/" + all[1].text + "/" + all[2].text;
    }
    void pass(int ms)
    {
        time += milliseconds(ms);
        reader.tick(time);
    }
    bool describes(const std::string &line)
    {
        const std::vector<std::string> lines = reader.describe(time);
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    Lines trace;
    TimePoint time{};
    Reader reader{9600, milliseconds(2500), trace};
};

constexpr char kStatus[] = "1B 6A";
constexpr char kDone[] = "1B 70";
constexpr char kFailed[] = "1B 71";

TEST_F(StripeHeadTest, EveryReadIsAnsweredWithTheTracksThatItAsksFor)
{
    offer("B1^X", "12=3", "99=4");
    const struct {
        const char *command;
        const char *reply;
    } rows[] = {
        {"1B 72", "1B 73 42 31 5E 58 3F 1C"},                   // track 1
        {"1B 5D", "1B 73 31 32 3D 33 3F 1C"},                   // track 2
        {"1B 54 5D", "1B 73 41 39 39 3D 34 3F 1C"},             // track 3, behind one more byte
        {"1B 44 5D", "1B 73 31 32 3D 33 41 42 31 5E 58 3F 1C"}, // tracks 1 and 2: 2 comes first
        {"1B 42 5D", "1B 73 31 32 3D 33 41 39 39 3D 34 3F 1C"}, // tracks 2 and 3
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ask(row.command), row.reply) << row.command;
        EXPECT_EQ(ask(kStatus), kDone) << row.command;
        EXPECT_EQ(ask(kStatus), kDone) << "as often as it is asked";
    }
    EXPECT_EQ(askFramed("20 02"), "00 00 " + hexOf("B1^X|12=3|99=4"));
    EXPECT_EQ(ask(kStatus), kDone);
    EXPECT_TRUE(describes("stripe reads 6, failed 0"));
}

TEST_F(StripeHeadTest, AnEmptyTrackIsMarkedWhereTwoAreRead)
{
    offer("12", "", "");
    EXPECT_EQ(ask("1B 44 5D"), "1B 73 7F 41 31 32 3F 1C");
    EXPECT_EQ(ask(kStatus), kDone);
    EXPECT_EQ(ask("1B 42 5D"), "1B 73 7F 41 7F 3F 1C");
    EXPECT_EQ(ask(kStatus), kFailed) << "none of the two has data";
    EXPECT_EQ(ask("1B 5D"), "1B 73 3F 1C");
    EXPECT_EQ(ask(kStatus), kFailed);
    EXPECT_EQ(ask("1B 54 5D"), "1B 73 41 3F 1C");
    EXPECT_EQ(askFramed("20 02"), "00 00 31 32 7C 7C");
    offer("", "12", "");
    EXPECT_EQ(ask("1B 44 5D"), "1B 73 31 32 41 7F 3F 1C");
    EXPECT_EQ(askFramed("20 02"), "00 00 7C 31 32 7C");
    offer("", "", "");
    EXPECT_EQ(askFramed("20 02"), "40 01");
    EXPECT_EQ(ask(kStatus), kFailed);
    EXPECT_TRUE(describes("stripe reads 8, failed 4"));
}

TEST_F(StripeHeadTest, EveryWriteReplacesItsTracksWithoutAReply)
{
    const struct {
        const char *what;
        std::string command;
        std::string tracks;
    } rows[] = {
        {"track 1", "1B 77 42 39 1D 1B 5C", "B9/2/3"},
        {"track 2", "1B 74 39 3D 1D 1B 5C", "1/9=/3"},
        {"track 3", "1B 74 41 39 3D 1D 1B 5C", "1/2/9="},
        {"tracks 1 and 2: 2 comes first", "1B 77 31 32 33 41 41 42 43 1D 1B 5C", "ABC/123/3"},
        {"tracks 2 and 3", "1B 74 34 34 41 35 35 1D 1B 5C", "1/44/55"},
        {"track 1 without an A behind its digits", "1B 77 31 32 33 1D 1B 5C", "123/2/3"},
        {"track 1 that begins with an A", "1B 77 41 31 1D 1B 5C", "A1/2/3"},
        {"track 1 with something else before its A", "1B 77 31 20 41 1D 1B 5C", "1 A/2/3"},
        {"the first A parts the tracks", "1B 77 31 41 41 41 1D 1B 5C", "AA/1/3"},
        {"an empty track 1", "1B 77 1D 1B 5C", "/2/3"},
        {"an empty track 2", "1B 74 1D 1B 5C", "1//3"},
        {"an empty track 3", "1B 74 41 1D 1B 5C", "1/2/"},
        {"an empty track 3 behind track 2", "1B 74 35 41 1D 1B 5C", "1/5/"},
        {"the longest tracks", "1B 74 " + hexOf(std::string(40, '4') + "A" + std::string(107, '5')) + " 1D 1B 5C",
         "1/" + std::string(40, '4') + "/" + std::string(107, '5')},
        {"the longest track 1", "1B 77 " + hexOf(std::string(79, '_')) + " 1D 1B 5C", std::string(79, '_') + "/2/3"},
        {"every character of track 1 but the first A", "1B 77 20 21 22 2F 40 5B 5C 5D 5E 5F 1D 1B 5C",
         " !\"/@[\\]^_/2/3"},
    };
    for (const auto &row : rows) {
        offer("1", "2", "3");
        EXPECT_EQ(ask(row.command), "") << row.what;
        EXPECT_EQ(tracks(), row.tracks) << row.what;
        EXPECT_EQ(ask(kStatus), kDone) << row.what;
    }
    EXPECT_TRUE(describes("stripe writes 16, failed 0"));
}

TEST_F(StripeHeadTest, AFramedWriteReplacesAllThreeTracks)
{
    offer("1", "2", "3");
    EXPECT_EQ(askFramed("20 03 42 7C 35 35 7C 36"), "00 00");
    EXPECT_EQ(tracks(), "B/55/6");
    EXPECT_EQ(ask(kStatus), kDone);
    EXPECT_EQ(askFramed("20 03 7C 35 35 7C"), "00 00");
    EXPECT_EQ(tracks(), "/55/");
    EXPECT_EQ(askFramed("20 02"), "00 00 7C 35 35 7C");
    EXPECT_EQ(askFramed("20 03 7C 7C"), "00 00");
    EXPECT_EQ(tracks(), "//");
}

TEST_F(StripeHeadTest, WhatATrackCannotHoldIsNotWritten)
{
    const std::string tail = " 1D 1B 5C";
    offer("1", "2", "3");
    for (const std::string &command : {
             "1B 77 61" + tail, // a small letter
             "1B 77 7F" + tail,
             "1B 77 80" + tail,
             "1B 77 00" + tail,
             "1B 74 42" + tail,
             "1B 74 20" + tail,
             "1B 74 35 41 36 41" + tail,                    // a second A: track 3 cannot hold it
             "1B 77 35 41 60" + tail,                       // track 2 is good, track 1 is not
             "1B 77 " + hexOf(std::string(80, '_')) + tail, //
             "1B 74 " + hexOf(std::string(41, '5')) + tail, //
             "1B 74 41 " + hexOf(std::string(108, '5')) + tail,
         }) {
        EXPECT_EQ(ask(command), "") << command;
        EXPECT_EQ(ask(kStatus), kFailed) << command;
    }
    EXPECT_EQ(askFramed("20 03 7C 42 7C"), "40 01");
    EXPECT_EQ(askFramed("20 03 7C 35"), "40 01") << "two tracks";
    EXPECT_EQ(askFramed("20 03 7C 35 7C 7C"), "40 01") << "four tracks";
    EXPECT_EQ(ask(kStatus), kFailed);
    EXPECT_EQ(tracks(), "1/2/3");
    EXPECT_TRUE(describes("stripe writes 14, failed 14"));
    EXPECT_TRUE(trace.has("write fault: track 2 holds at most 40 characters"));
}

TEST_F(StripeHeadTest, ABareReadThatNobodySwipesForIsAnsweredWithSilence)
{
    EXPECT_EQ(ask("1B 72"), "");
    EXPECT_EQ(reader.deadline(), time + milliseconds(10'000));
    EXPECT_TRUE(describes("waits for a magnetic card, 10000 ms left"));
    pass(10'000);
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    EXPECT_EQ(ask(kStatus), kFailed);
    EXPECT_TRUE(trace.has("nobody swiped a magnetic card in 10 s"));
}

TEST_F(StripeHeadTest, AFramedReadIsSilentAndAFramedWriteRefusedAtTheEndOfTheReadTime)
{
    EXPECT_EQ(askFramed("20 04 02"), "00 00");
    EXPECT_EQ(askFramed("20 02"), "silence");
    pass(1999);
    EXPECT_EQ(reader.deadline(), time + milliseconds(1));
    pass(1);
    EXPECT_EQ(decoded(), "silence");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    EXPECT_EQ(askFramed("20 03 31 7C 32 7C 33"), "silence");
    pass(1999);
    EXPECT_EQ(decoded(), "silence");
    pass(1);
    EXPECT_EQ(decoded(), "40 01");
    EXPECT_EQ(ask(kStatus), kFailed);
}

TEST_F(StripeHeadTest, TheStatusOfAWriteWaitsForItsSwipe)
{
    offer("1", "2", "3");
    reader.stripe().setSwipeDelay(milliseconds(700));
    EXPECT_EQ(ask("1B 74 35 1D 1B 5C 1B 6A"), "");
    EXPECT_EQ(reader.deadline(), time + milliseconds(700));
    EXPECT_EQ(ask(kStatus), "") << "asked twice, answered once";
    pass(699);
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(tracks(), "1/2/3");
    pass(1);
    EXPECT_EQ(replies(), kDone);
    EXPECT_EQ(tracks(), "1/5/3");
    reader.stripe().takeAway();
    EXPECT_EQ(ask("1B 74 36 1D 1B 5C 1B 6A"), "");
    pass(9'999);
    EXPECT_EQ(replies(), "");
    pass(1);
    EXPECT_EQ(replies(), kFailed);
}

TEST_F(StripeHeadTest, ACardIsSwipedWhenItsDelayIsOverAndNotBehindTheReadTime)
{
    offer("1", "", "");
    askFramed("20 04 01");
    reader.stripe().setSwipeDelay(milliseconds(1000));
    EXPECT_EQ(ask("1B 72"), "");
    pass(999);
    EXPECT_EQ(replies(), "");
    pass(1);
    EXPECT_EQ(replies(), "1B 73 31 3F 1C");
    reader.stripe().setSwipeDelay(milliseconds(1001));
    EXPECT_EQ(ask("1B 72"), "");
    pass(1000);
    EXPECT_EQ(replies(), "");
    pass(1000);
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(ask(kStatus), kFailed);
}

TEST_F(StripeHeadTest, ACardThatComesWhileTheHeadWaitsIsSwiped)
{
    EXPECT_EQ(ask("1B 72"), "");
    pass(5'000);
    offer("1", "", "");
    EXPECT_EQ(replies(), "1B 73 31 3F 1C");
}

TEST_F(StripeHeadTest, ACardMayBeSwipedOnceAndThenNeverAgain)
{
    reader.stripe().swipeOnce();
    offer("1", "2", "");
    EXPECT_TRUE(describes("stripe card test card, swiped once"));
    EXPECT_EQ(ask("1B 72"), "1B 73 31 3F 1C");
    EXPECT_TRUE(describes("stripe card test card, swiped once and never again"));
    EXPECT_EQ(ask("1B 72"), "");
    reader.stripe().swipeOnce();
    reader.tick(time);
    EXPECT_EQ(replies(), "1B 73 31 3F 1C") << "once more";
    EXPECT_EQ(ask("1B 5D"), "");
    offer("1", "3", "");
    EXPECT_EQ(replies(), "1B 73 33 3F 1C") << "another card";
    reader.stripe().swipeAlways();
    EXPECT_EQ(ask("1B 5D"), "1B 73 33 3F 1C");
    EXPECT_EQ(ask("1B 5D"), "1B 73 33 3F 1C");
}

TEST_F(StripeHeadTest, ACardIsReadInTheFormatInWhichItWasRecorded)
{
    const struct {
        const char *command;
        StripeFormat format;
    } rows[] = {
        {"1B 3D", StripeFormat::iso},
        {"1B 27", StripeFormat::ibm},
        {"1B 4F", StripeFormat::isoDk},
        {"1B 41", StripeFormat::ibmDk},
    };
    for (const auto &head : rows)
        for (const auto &card : rows) {
            SCOPED_TRACE(std::string(head.command) + " " + formatName(card.format));
            offer("", "12", "34", card.format);
            EXPECT_EQ(ask(head.command), "");
            const bool fits = head.format == card.format;
            EXPECT_EQ(ask("1B 5D"), fits ? "1B 73 31 32 3F 1C" : "1B 73 3F 1C");
            EXPECT_EQ(ask(kStatus), fits ? kDone : kFailed);
            EXPECT_EQ(ask("1B 42 5D"), fits ? "1B 73 31 32 41 33 34 3F 1C" : "1B 73 7F 41 7F 3F 1C");
            EXPECT_EQ(askFramed("20 02"), fits ? "00 00 7C 31 32 7C 33 34" : "40 02");
            EXPECT_TRUE(describes("stripe head " + std::string(formatName(head.format)) +
                                  ", separator |, read time 10 s, channel A"));
        }
    EXPECT_TRUE(trace.has("read fault: track 2 is recorded as ISO, the head stands at IBM-DK"));
}

TEST_F(StripeHeadTest, AWrittenTrackIsRecordedInTheFormatOfTheHead)
{
    offer("1", "2", "3");
    ask("1B 27 1B 74 35 1D 1B 5C");
    EXPECT_EQ(ask("1B 5D"), "1B 73 35 3F 1C");
    EXPECT_EQ(ask("1B 72"), "1B 73 3F 1C") << "track 1 is still ISO";
    ask("1B 3D");
    EXPECT_EQ(ask("1B 72"), "1B 73 31 3F 1C");
    EXPECT_EQ(ask("1B 5D"), "1B 73 3F 1C");
    EXPECT_EQ(askFramed("20 02"), "40 02");
}

TEST_F(StripeHeadTest, TheSeparatorStandsBetweenTheTracks)
{
    offer("1", "2", "3");
    EXPECT_EQ(askFramed("20 01 23"), "00 00");
    EXPECT_EQ(askFramed("20 02"), "00 00 31 23 32 23 33");
    EXPECT_EQ(askFramed("20 01 3C 3E"), "00 00");
    EXPECT_EQ(askFramed("20 02"), "00 00 31 3C 3E 32 3C 3E 33");
    reader.stripe().setFinalSeparator(true);
    EXPECT_EQ(askFramed("20 02"), "00 00 31 3C 3E 32 3C 3E 33 3C 3E");
    EXPECT_EQ(askFramed("20 03 34 7C 35 7C 36"), "00 00") << "a write has marks of its own";
    EXPECT_EQ(tracks(), "4/5/6");
    EXPECT_EQ(askFramed("20 01 " + hexOf(std::string(16, '-'))), "00 00");
    EXPECT_EQ(askFramed("20 01 " + hexOf(std::string(17, '-'))), "F0 02");
}

TEST_F(StripeHeadTest, TheFullestCardFitsAReply)
{
    offer(std::string(79, 'A').c_str(), std::string(40, '1').c_str(), std::string(107, '2').c_str());
    reader.stripe().setFinalSeparator(true);
    askFramed("20 01 " + hexOf(std::string(kMostSeparator, '-')));
    framed("20 02");
    const std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].bytes.size(), 2 * (2 + 79 + 40 + 107 + 3 * kMostSeparator) + 8);
    EXPECT_LE(79 + 40 + 107 + 3 * kMostSeparator, kMostReplyBody);
}

TEST_F(StripeHeadTest, WrongFramesOfTheGroupAreRefused)
{
    offer("1", "2", "3");
    for (const char *command : {"20 01", "20 02 00", "20 03", "20 03 7C", "20 04", "20 04 01 02"})
        EXPECT_EQ(askFramed(command), "F0 02") << command;
    for (const char *command : {"20", "20 00", "20 05"})
        EXPECT_EQ(askFramed(command), "F0 01") << command;
    reader.receive(encodeFrame(FrameKind::card, *fromHex("20 02")), 9600U, time);
    EXPECT_EQ(replies(), toHex(encodeFrame(FrameKind::card, *fromHex("F0 01")))) << "in a card frame";
    EXPECT_EQ(tracks(), "1/2/3");
}

TEST_F(StripeHeadTest, AResetEndsTheWaitingAndSetsIso)
{
    ask("1B 27");
    EXPECT_EQ(ask("1B 74 35 1D 1B 5C 1B 6A"), "");
    raw("1B 30");
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    EXPECT_TRUE(trace.has("waiting for a magnetic card given up: module reset"));
    offer("1", "2", "3");
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(tracks(), "1/2/3");
    EXPECT_EQ(ask("1B 5D"), "1B 73 32 3F 1C");
    raw("1B 30");
    EXPECT_EQ(ask(kStatus), kDone) << "nothing waited";
}

TEST_F(StripeHeadTest, ANewCommandEndsTheWaiting)
{
    for (const char *next : {"1B 72", "1B 74 35 1D 1B 5C", "1B 3D"}) {
        ask("1B 5D");
        EXPECT_EQ(ask(next), "") << next;
        raw("1B 30");
        EXPECT_EQ(reader.deadline(), std::nullopt);
        EXPECT_EQ(ask(kStatus), kFailed);
    }
    ask("1B 5D");
    EXPECT_EQ(askFramed("20 04 05"), "00 00");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    ask("1B 5D");
    raw("02 30 30 30 32 33 31 31 31 32 30 03"); // is a reader there
    EXPECT_EQ(replies(), "02 30 30 30 32 30 30 30 30 30 30 03");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    // And the other way round: the head's command ends what a slot waits for.
    reader.receive(encodeFrame(FrameKind::card, *fromHex("32 22 FF FF 00")), 9600U, time);
    EXPECT_NE(reader.deadline(), std::nullopt);
    EXPECT_EQ(ask(kStatus), kFailed);
    EXPECT_EQ(reader.deadline(), std::nullopt);
}

TEST_F(StripeHeadTest, TheStatusFailsUntilSomethingHasSucceeded)
{
    EXPECT_EQ(ask(kStatus), kFailed);
    offer("1", "", "");
    ask("1B 72");
    EXPECT_EQ(ask(kStatus), kDone);
    reader.losePower();
    EXPECT_EQ(ask(kStatus), kFailed);
}

TEST_F(StripeHeadTest, WithoutPowerTheSettingsAreForgottenAndTheCardIsNot)
{
    offer("1", "", "", StripeFormat::ibm);
    askFramed("20 04 63");
    askFramed("20 01 2D");
    ask("1B 27");
    EXPECT_TRUE(describes("stripe head IBM, separator -, read time 99 s, channel A"));
    reader.losePower();
    EXPECT_TRUE(describes("stripe head ISO, separator |, read time 10 s, channel A"));
    EXPECT_EQ(tracks(), "1//");
}

TEST_F(StripeHeadTest, AnotherChannelOfTheSwitchBoxDoesNotLeadToTheHead)
{
    offer("1", "2", "3");
    EXPECT_EQ(ask("1B 72"), "1B 73 31 3F 1C") << "without a switch box";
    for (const char *channel : {"1B 25 42", "1B 25 43", "1B 25 4B"}) {
        raw(channel);
        EXPECT_EQ(ask("1B 72"), "") << channel;
        EXPECT_EQ(ask("1B 74 35 1D 1B 5C"), "") << channel;
        EXPECT_EQ(ask("1B 6A 1B 27"), "") << channel;
        EXPECT_EQ(askFramed("20 02"), "silence") << channel;
        EXPECT_EQ(askFramed("20 05"), "silence") << channel;
        EXPECT_EQ(reader.deadline(), std::nullopt) << channel;
    }
    EXPECT_TRUE(trace.has("the stripe head hangs at channel A, selected is K"));
    raw("1B 25 41");
    EXPECT_EQ(ask("1B 5D"), "1B 73 32 3F 1C") << "nothing was written, the format is ISO";
    raw("1B 25 4B 1B 24 42");
    EXPECT_EQ(ask("1B 5D"), "1B 73 32 3F 1C") << "released";
    reader.stripe().setChannel('K');
    raw("1B 25 41");
    EXPECT_EQ(ask("1B 5D"), "");
    raw("1B 25 4B");
    EXPECT_EQ(ask("1B 5D"), "1B 73 32 3F 1C");
}

TEST_F(StripeHeadTest, AnAnswerGetsLostWhenAnotherChannelIsSelectedMeanwhile)
{
    offer("1", "2", "3");
    reader.stripe().setSwipeDelay(milliseconds(100));
    ask("1B 27 1B 74 35 1D 1B 5C 1B 6A 1B 25 42 1B 30");
    pass(100);
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(tracks(), "1/5/3") << "the reset did not reach the head";
    raw("1B 25 41");
    EXPECT_EQ(ask(kStatus), kDone);
}

TEST_F(StripeHeadTest, FaultsStrikeUntilTheyAreSwitchedOff)
{
    const struct {
        Fault fault;
        const char *read;   // of track 2
        const char *two;    // of tracks 2 and 3
        const char *all;    // framed
        const char *status; // of a read
    } rows[] = {
        {Fault::noData, "1B 73 3F 1C", "1B 73 7F 41 7F 3F 1C", "40 01", kFailed},
        {Fault::read, "1B 73 3F 1C", "1B 73 7F 41 7F 3F 1C", "40 02", kFailed},
        {Fault::write, "1B 73 32 3F 1C", "1B 73 32 41 33 3F 1C", "00 00 31 7C 32 7C 33", kDone},
        {Fault::garbled, "1B 73 32", "1B 73 32 41 33", "00 00 31 7C 32 7C 33", kDone},
        {Fault::status, "1B 73 32 3F 1C", "1B 73 32 41 33 3F 1C", "00 00 31 7C 32 7C 33", "1B 78"},
        {Fault::silent, "", "", "silence", ""},
        {Fault::none, "1B 73 32 3F 1C", "1B 73 32 41 33 3F 1C", "00 00 31 7C 32 7C 33", kDone},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(stripeFaultName(row.fault));
        offer("1", "2", "3");
        reader.stripe().setFault(row.fault, false);
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(ask("1B 5D"), row.read);
            EXPECT_EQ(ask("1B 42 5D"), row.two);
            EXPECT_EQ(askFramed("20 02"), row.all);
            EXPECT_EQ(ask(kStatus), row.status);
        }
        const bool writes = row.fault != Fault::write;
        EXPECT_EQ(ask("1B 74 35 1D 1B 5C"), "");
        EXPECT_EQ(tracks(), writes ? "1/5/3" : "1/2/3");
        if (row.fault != Fault::silent) {
            EXPECT_EQ(askFramed("20 03 7C 7C"), writes ? "00 00" : "40 01");
            EXPECT_EQ(askFramed("20 04 0A"), "00 00");
        } else {
            EXPECT_EQ(askFramed("20 04 0A"), "silence");
            EXPECT_EQ(askFramed("20 01 7C"), "silence");
        }
    }
}

TEST_F(StripeHeadTest, AFaultOfOneTimeIsOverWhenItHasStruck)
{
    offer("1", "2", "3");
    const struct {
        Fault fault;
        const char *command;
        const char *struck;
        const char *after;
    } rows[] = {
        {Fault::noData, "1B 5D 1B 6A", "1B 73 3F 1C | 1B 71", "1B 73 32 3F 1C | 1B 70"},
        {Fault::read, "1B 5D 1B 6A", "1B 73 3F 1C | 1B 71", "1B 73 32 3F 1C | 1B 70"},
        {Fault::garbled, "1B 5D 1B 6A", "1B 73 32 | 1B 70", "1B 73 32 3F 1C | 1B 70"},
        {Fault::status, "1B 5D 1B 6A", "1B 73 32 3F 1C | 1B 78", "1B 73 32 3F 1C | 1B 70"},
        {Fault::silent, "1B 5D 1B 6A", "1B 70", "1B 73 32 3F 1C | 1B 70"},
        {Fault::write, "1B 74 32 1D 1B 5C 1B 6A", "1B 71", "1B 70"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(stripeFaultName(row.fault));
        reader.stripe().setFault(row.fault, true);
        EXPECT_TRUE(describes("stripe fault " + std::string(stripeFaultName(row.fault)) + " once"));
        if (row.fault == Fault::write) {
            ask("1B 5D"); // no write: the fault stays
        }
        EXPECT_EQ(ask(row.command), row.struck);
        EXPECT_EQ(ask(row.command), row.after);
    }
}

TEST_F(StripeHeadTest, TheTraceSaysWhatEveryCommandMeans)
{
    offer("B1", "2", "3");
    ask("1B 3D 1B 27 1B 4F 1B 41 1B 3D 1B 72 1B 5D 1B 54 5D 1B 44 5D 1B 42 5D 1B 6A");
    ask("1B 77 31 41 41 1D 1B 5C 1B 74 35 1D 1B 5C 1B 74 41 01");
    ask("30 30 30 32 32 30 30 32 32 32 04"); // the rest of 20 02
    framed("20 01 23");
    framed("20 04 1E");
    framed("20 03 31 7C 32 7C");
    framed("20 03 31");
    for (const char *line : {
             "> 1B 3D  recording format ISO\n",
             "> 1B 27  recording format IBM\n",
             "> 1B 4F  recording format ISO-DK\n",
             "> 1B 41  recording format IBM-DK\n",
             "> 1B 72  read track 1\n     magnetic card swiped: test card\n< 1B 73 42 31 3F 1C  track 1\n"
             "out  1B 73 42 31 3F 1C\n",
             "> 1B 5D  read track 2\n",
             "> 1B 54 5D  read track 3\n",
             "> 1B 44 5D  read tracks 1 and 2\n",
             "> 1B 42 5D  read tracks 2 and 3\n",
             "> 1B 6A  how did the last operation go\n< 1B 70  the last operation succeeded\n",
             "> 1B 77 31 41 41 1D 1B 5C  write track 1: A, track 2: 1\n",
             "> 1B 74 35 1D 1B 5C  write track 2: 5\n",
             "     3 bytes of a text without an end are garbage\n",
             "> 20 02  read all tracks\n",
             "> 20 01 23  track separator #\n< 00 00  done\n",
             "> 20 04 1E  read time 30 s\n",
             "> 20 03 31 7C 32 7C  write track 1: 1, track 2: 2, track 3: empty\n",
         })
        EXPECT_TRUE(trace.has(line)) << line << "not in\n" << trace.text();
}

TEST_F(StripeHeadTest, ATextWithoutAnEndIsGarbageAndBounded)
{
    offer("1", "2", "3");
    Bytes endless = *fromHex("1B 77");
    endless.insert(endless.end(), 1'000'000, 'B');
    reader.receive(endless, 9600U, time);
    EXPECT_TRUE(describes("garbage 1000002"));
    EXPECT_EQ(ask("1B 5D"), "1B 73 32 3F 1C");
    EXPECT_EQ(tracks(), "1/2/3");
}

TEST_F(StripeHeadTest, CommandsComeInAnyPieces)
{
    offer("1", "2", "3");
    for (const Bytes bytes = *fromHex("1B 74 35 41 36 1D 1B 5C 1B 42 5D 1B 6A"); const std::uint8_t b : bytes)
        reader.receive(BytesView(&b, 1), 9600U, time);
    EXPECT_EQ(replies(), "1B 73 35 41 36 3F 1C | 1B 70");
}

TEST_F(StripeHeadTest, AReplyLeavesAtTheSpeedOfTheReader)
{
    offer("1", "2", "3");
    raw("1B 25 49 32 ");
    raw("1B 72");
    const std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].baud, 38400U);
}

TEST_F(StripeHeadTest, ACommandThatDoesNotReachTheHeadEndsNothing)
{
    reader.receive(encodeFrame(FrameKind::card, *fromHex("32 30 00 08")), 9600U, time);
    raw("1B 25 42 1B 72 1B 6A");
    EXPECT_EQ(reader.deadline(), time + std::chrono::seconds(8));
}

// A card in a slot that is still thinking.
class SlowCard final : public Card {
  public:
    CardAnswer powerOn() override { return {CardAnswer::Kind::pending, {}}; }
    CardAnswer transmit(BytesView) override { return {CardAnswer::Kind::pending, {}}; }
    CardAnswer answer() override { return {CardAnswer::Kind::pending, {}}; }
    void giveUp() override {}
    void powerOff() override {}
    std::string label() const override { return "slow"; }
};

TEST_F(StripeHeadTest, CommandsWaitTheirTurnBehindACardAtWork)
{
    offer("1", "2", "3");
    reader.insert(0, std::make_unique<SlowCard>(), time);
    reader.receive(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")), 9600U, time);
    EXPECT_EQ(ask("1B 72 1B 6A"), "");
    pass(2500);
    EXPECT_EQ(replies(), "02 30 30 30 32 31 30 30 34 31 34 03 | 1B 73 31 3F 1C | 1B 70");
}

TEST_F(StripeHeadTest, AFrameThatHadToWaitEndsTheWaitingOfACommandBeforeIt)
{
    reader.insert(0, std::make_unique<SlowCard>(), time);
    reader.receive(encodeFrame(FrameKind::card, *fromHex("32 22 00 00 00")), 9600U, time);
    raw("1B 72");
    reader.receive(encodeFrame(FrameKind::card, *fromHex("32 21 10")), 9600U, time);
    pass(2500);
    EXPECT_EQ(replies(), "02 30 30 30 32 31 30 30 34 31 34 03 | 02 30 30 30 32 31 30 30 35 31 35 03");
    EXPECT_EQ(reader.deadline(), std::nullopt) << "nothing waits any more";
    EXPECT_TRUE(trace.has("waiting for a magnetic card given up: a new command came"));
}

TEST_F(StripeHeadTest, AnyBytesLeaveTheHeadAtWork)
{
    offer("1", "2", "3");
    std::mt19937 random(7);
    const Bytes likely = *fromHex("1B 77 74 72 5D 54 44 42 6A 30 3D 27 4F 41 1D 5C 31 01 02 03 04 32 20");
    for (int round = 0; round < 5'000; ++round) {
        Bytes bytes(random() % 40);
        for (std::uint8_t &b : bytes)
            b = random() % 4 == 0 ? static_cast<std::uint8_t>(random()) : likely[random() % likely.size()];
        reader.receive(bytes, std::nullopt, time);
        pass(11'000);
        reader.takeOutput();
        reader.receive(*fromHex("1B 30 1B 25 41 1B 3D 1B 77 42 1D 1B 5C 1B 72 1B 6A"), std::nullopt, time);
        EXPECT_EQ(replies(), "1B 73 42 3F 1C | 1B 70") << toHex(bytes);
    }
}

} // namespace
} // namespace qvsim
