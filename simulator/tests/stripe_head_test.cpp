// What the stripe head reads, writes and answers.
#include "stripe_head_bench.h"

namespace qvsim {
namespace {

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

} // namespace
} // namespace qvsim
