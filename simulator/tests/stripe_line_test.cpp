// The stripe head on its line: channels, faults, the trace, commands in pieces and in turn.
#include "stripe_head_bench.h"

#include <random>

namespace qvsim {
namespace {

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
