// The reader model: commands in, replies out, with a clock that the test turns.
#include "model/line_noise.h"
#include "model/reader.h"

#include <gtest/gtest.h>

#include <random>

namespace qvsim {
namespace {

using std::chrono::milliseconds;

// A card whose answers the test gives when it likes.
struct CardSwitches {
    CardAnswer next{CardAnswer::Kind::bytes, {0x3B, 0x00}}; // what powerOn, transmit and answer return
    int powerOns = 0;
    int powerOffs = 0;
    int givenUp = 0;
    std::vector<std::string> commands;
};

class TestCard final : public Card {
  public:
    explicit TestCard(CardSwitches &switches) : switches_(switches) {}
    CardAnswer powerOn() override
    {
        ++switches_.powerOns;
        return switches_.next;
    }
    CardAnswer transmit(BytesView command) override
    {
        switches_.commands.push_back(toHex(command));
        return switches_.next;
    }
    CardAnswer answer() override { return switches_.next; }
    void giveUp() override { ++switches_.givenUp; }
    void powerOff() override { ++switches_.powerOffs; }
    std::string label() const override { return "test"; }

  private:
    CardSwitches &switches_;
};

class ReaderTest : public testing::Test {
  protected:
    // Sends data in a card frame, at the reader's speed.
    void command(const char *data) { receive(encodeFrame(FrameKind::card, *fromHex(data))); }
    void receive(BytesView bytes) { reader.receive(bytes, reader.baud(), time); }
    void raw(const char *bytes) { receive(*fromHex(bytes)); }

    // Status word and body of the replies since the last look, "10 05 | 00 00 3B".
    std::string replies()
    {
        std::string text;
        for (const SentBytes &sent : reader.takeOutput()) {
            const BytesView frame = sent.bytes;
            const DecodedFrame decoded = decodeFrame(frame.subspan(1, frame.size() - 2));
            EXPECT_EQ(decoded.fault, FrameFault::none);
            text += (text.empty() ? "" : " | ") + toHex(decoded.data);
        }
        return text;
    }

    std::string ask(const char *data)
    {
        command(data);
        return replies();
    }

    std::string askPeripheral(const char *data)
    {
        receive(encodeFrame(FrameKind::peripheral, *fromHex(data)));
        return replies();
    }

    void insert(SlotCode slot) { EXPECT_TRUE(reader.insert(slot, std::make_unique<TestCard>(card), time)); }
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

    NoTrace trace;
    TimePoint time{};
    CardSwitches card;
    Reader reader{9600, milliseconds(2500), trace};
};

TEST_F(ReaderTest, AnEmptyReaderAnswersWithItsStatusWords)
{
    const struct {
        const char *command;
        const char *reply;
    } rows[] = {
        {"32 22 00 00 00", "10 05"}, // power on, no card
        {"32 22 00 00 10", "10 05"}, // PSAM 0
        {"32 22 00 00 1F", "10 05"},
        {"32 22 00 00 20", "10 01"}, // no such slot
        {"32 22 00 00 FF", "10 01"}, // the antenna has a command of its own
        {"32 24 00 00", "30 01"},
        {"32 21 00", "10 05"},
        {"32 21 20", "10 01"},
        {"32 23 00", "00 00"},
        {"32 23 20", "10 01"},
        {"32 25 00 00", "00 00"},
        {"32 26 00 00 84 00 00 08", "10 05"},
        {"32 26 FF 00 84 00 00 08", "30 01"},
        {"32 26 20 00 84 00 00 08", "10 01"},
        {"32 26", "F0 02"}, // the head of a slot that is none
        {"32 26 00", "F0 02"},
        {"32 22 00 00", "F0 02"},
        {"32 22 00 00 00 00", "F0 02"},
        {"32 21", "F0 02"},
        {"", "F0 00"},
        {"32", "F0 01"},
        {"32 FF", "F0 01"},
        {"11 11 00", "F0 01"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(row.command), row.reply) << row.command;
}

TEST_F(ReaderTest, RepliesAreTheBytesOfTheWire)
{
    raw("02 30 30 30 30 30 30 03");
    std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(toHex(output[0].bytes), "02 30 30 30 32 3F 30 30 30 3F 30 03");
    EXPECT_EQ(output[0].baud, 9600U);
    raw("01 30 30 30 32 31 31 30 31 31 30 04"); // a peripheral frame is answered in one
    output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].bytes.size(), 2 * (2 + 86) + 8U);
    EXPECT_EQ(output[0].bytes.front(), 0x01);
    EXPECT_EQ(output[0].bytes.back(), 0x04);
    raw("01 30 30 30 33 33 32 32 31 30 30 31 33 04"); // a card command in a peripheral frame is none
    EXPECT_EQ(replies(), "F0 01");
}

TEST_F(ReaderTest, ACardIsPoweredAskedAndSwitchedOff)
{
    insert(0);
    EXPECT_EQ(ask("32 21 00"), "10 03");
    EXPECT_EQ(ask("32 26 00 00 84 00 00 08"), "10 03");
    EXPECT_EQ(ask("32 22 00 00 00"), "00 00 3B 00");
    EXPECT_EQ(ask("32 21 00"), "00 00");
    card.next.bytes = {0x11, 0x22, 0x90, 0x00};
    EXPECT_EQ(ask("32 26 00 00 84 00 00 02"), "00 00 11 22 90 00");
    EXPECT_EQ(card.commands, std::vector<std::string>{"00 84 00 00 02"});
    EXPECT_EQ(ask("32 23 00"), "00 00");
    EXPECT_EQ(card.powerOffs, 1);
    EXPECT_EQ(ask("32 21 00"), "10 03");
    EXPECT_EQ(ask("32 23 00"), "00 00");
    EXPECT_EQ(card.powerOffs, 1) << "a card without power is not switched off again";
}

TEST_F(ReaderTest, TheContactlessCardHasItsOwnWords)
{
    insert(kContactless);
    EXPECT_EQ(ask("32 26 FF 00 84 00 00 08"), "30 04");
    EXPECT_EQ(ask("32 24 00 00"), "00 00 3B 00");
    EXPECT_EQ(ask("32 25 00 00"), "00 00");
    card.next = {};
    EXPECT_EQ(ask("32 24 00 00"), "30 07");
}

TEST_F(ReaderTest, SlotsAreSeparate)
{
    insert(0);
    insert(16);
    EXPECT_EQ(ask("32 22 00 00 10"), "00 00 3B 00");
    EXPECT_EQ(ask("32 21 10"), "00 00");
    EXPECT_EQ(ask("32 21 00"), "10 03");
    EXPECT_FALSE(reader.insert(16, std::make_unique<TestCard>(card), time)) << "the slot is taken";
}

TEST_F(ReaderTest, AMuteCardIsPresentAndWithoutPower)
{
    insert(0);
    card.next = {};
    EXPECT_EQ(ask("32 22 00 00 00"), "10 04");
    EXPECT_EQ(ask("32 21 00"), "10 03");
    card.next = CardAnswer::of({}); // an ATR of no bytes is none
    EXPECT_EQ(ask("32 22 00 00 00"), "10 04");
}

TEST_F(ReaderTest, AnAnswerFitsTheFrameOrIsRefused)
{
    insert(0);
    ask("32 22 00 00 00");
    card.next.bytes = Bytes(kMostReplyBody, 0xAB);
    command("32 26 00 00 B0 00 00 00");
    const std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].bytes.size(), 1026U);
    card.next.bytes.push_back(0xAB);
    EXPECT_EQ(ask("32 26 00 00 B0 00 00 00"), "10 07");
}

TEST_F(ReaderTest, APulledCardIsMissed)
{
    insert(0);
    ask("32 22 00 00 00");
    EXPECT_TRUE(reader.remove(0, time));
    EXPECT_FALSE(reader.remove(0, time));
    EXPECT_EQ(ask("32 26 00 00 84 00 00 08"), "10 05");
    insert(0);
    EXPECT_EQ(ask("32 26 00 00 84 00 00 08"), "10 03") << "another card has no power";
}

TEST_F(ReaderTest, PowerOnWaitsForACard)
{
    EXPECT_EQ(ask("32 22 0B B8 00"), "");
    EXPECT_EQ(reader.deadline(), time + milliseconds(3000));
    pass(2999);
    EXPECT_EQ(replies(), "");
    insert(1);
    EXPECT_EQ(replies(), "") << "the wrong slot";
    insert(0);
    EXPECT_EQ(replies(), "00 00 3B 00");
    EXPECT_EQ(reader.deadline(), std::nullopt);
}

TEST_F(ReaderTest, PowerOnGivesUpWhenItsTimeIsOver)
{
    EXPECT_EQ(ask("32 24 00 64"), "");
    pass(99);
    EXPECT_EQ(replies(), "");
    pass(1);
    EXPECT_EQ(replies(), "30 01");
    insert(kContactless);
    EXPECT_EQ(replies(), "");
}

TEST_F(ReaderTest, ANewCommandOrAResetEndsTheWaiting)
{
    ask("32 22 FF FF 00");
    EXPECT_EQ(ask("32 21 00"), "10 05") << "one answer, to the new command";
    ask("32 22 FF FF 00");
    raw("1B 30");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    insert(0);
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(card.powerOns, 0);
}

TEST_F(ReaderTest, ASlowCardIsWaitedFor)
{
    insert(0);
    card.next.kind = CardAnswer::Kind::pending;
    EXPECT_EQ(ask("32 22 00 00 00"), "");
    pass(2499);
    EXPECT_EQ(ask("32 21 00"), "") << "the next command waits its turn";
    card.next = CardAnswer::of({0x3B, 0x10});
    pass(0);
    EXPECT_EQ(replies(), "00 00 3B 10 | 00 00");
}

TEST_F(ReaderTest, ACardThatStopsAnsweringIsGivenUp)
{
    insert(0);
    ask("32 22 00 00 00");
    card.next.kind = CardAnswer::Kind::pending;
    EXPECT_EQ(ask("32 26 00 00 84 00 00 08"), "");
    pass(2500);
    EXPECT_EQ(replies(), "10 06");
    EXPECT_EQ(card.givenUp, 1);
    EXPECT_EQ(ask("32 22 00 00 00"), "");
    pass(2500);
    EXPECT_EQ(replies(), "10 04");
}

TEST_F(ReaderTest, ACardThatGoesWhileItWorksIsToldAtOnce)
{
    insert(0);
    ask("32 22 00 00 00");
    card.next.kind = CardAnswer::Kind::pending;
    ask("32 26 00 00 84 00 00 08");
    reader.remove(0, time);
    EXPECT_EQ(replies(), "10 05");
}

TEST_F(ReaderTest, AResetSwitchesEveryCardOffWithoutAReply)
{
    insert(0);
    insert(kContactless);
    ask("32 22 00 00 00");
    ask("32 24 00 00");
    raw("1B 30");
    EXPECT_EQ(replies(), "");
    EXPECT_EQ(card.powerOffs, 2);
    EXPECT_EQ(ask("32 21 00"), "10 03");
}

TEST_F(ReaderTest, AResetDropsTheAnswerOfACardAtWork)
{
    insert(0);
    card.next.kind = CardAnswer::Kind::pending;
    ask("32 22 00 00 00");
    ask("32 21 00");
    raw("1B 30");
    EXPECT_EQ(card.givenUp, 1);
    EXPECT_EQ(card.powerOffs, 1);
    card.next = CardAnswer::of({0x3B, 0x10});
    pass(0);
    EXPECT_EQ(replies(), "");
}

TEST_F(ReaderTest, BadFramesAreAnsweredWithSilence)
{
    for (const char *bytes : {
             "02 30 30 30 33 33 32 32 31 30 30 31 34 03", // LRC
             "02 30 30 30 34 33 32 32 31 30 30 31 33 03", // length
             "02 30 30 30 33 33 32 32 31 30 41 31 33 03", // a letter
             "02 30 30 30 33 33 32 32 31 30 30 31 33 02", // end byte lost
             "03",
             "02 03",
         })
        raw(bytes);
    EXPECT_EQ(replies(), "");
    EXPECT_TRUE(describes("frames 0"));
    EXPECT_EQ(ask("32 21 00"), "10 05");
    EXPECT_TRUE(describes("rejected 6"));
}

TEST_F(ReaderTest, FramesAreTakenInAnyPieces)
{
    const Bytes frame = encodeFrame(FrameKind::card, *fromHex("32 21 00"));
    for (const std::uint8_t b : frame)
        receive(BytesView(&b, 1));
    EXPECT_EQ(replies(), "10 05");
}

TEST_F(ReaderTest, TheSpeedChangesBehindItsEscape)
{
    raw("00 00 00 00 1B 25 49 32");
    EXPECT_EQ(reader.baud(), 38400U);
    EXPECT_EQ(ask("32 21 00"), "10 05");
    raw("1B 25 49 31");
    EXPECT_EQ(reader.baud(), 115200U);
    raw("1B 25 49 33");
    EXPECT_EQ(reader.baud(), 19200U);
    raw("1B 25 49 34");
    EXPECT_EQ(reader.baud(), 9600U);
    // Whatever stands behind the escape in the same piece came at the old speed.
    const Bytes piece = *fromHex("1B 25 49 32 02 30 30");
    reader.receive(piece, 9600U, time);
    EXPECT_TRUE(describes("garbage 3"));
}

TEST_F(ReaderTest, BytesAtAnotherSpeedAreGarbage)
{
    const Bytes frame = encodeFrame(FrameKind::card, *fromHex("32 21 00"));
    reader.receive(frame, 38400U, time);
    EXPECT_EQ(replies(), "");
    EXPECT_TRUE(describes("garbage 14"));
    reader.receive(BytesView(frame).first(5), 9600U, time);
    reader.receive(BytesView(frame).subspan(5, 1), 0U, time); // a hung-up line
    reader.receive(BytesView(frame).subspan(6), 9600U, time);
    EXPECT_EQ(replies(), "") << "a frame with a hole is none";
    EXPECT_EQ(ask("32 21 00"), "10 05");
    reader.receive(frame, std::nullopt, time);
    EXPECT_EQ(replies(), "10 05") << "a channel without a speed is never wrong";
}

TEST_F(ReaderTest, TheReplyGoesOutAtTheSpeedOfItsTime)
{
    Bytes piece = encodeFrame(FrameKind::card, *fromHex("32 21 00"));
    for (const Bytes tail = *fromHex("1B 25 49 32"); const std::uint8_t b : tail)
        piece.push_back(b);
    reader.receive(piece, 9600U, time);
    const std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].baud, 9600U);
}

TEST_F(ReaderTest, TheSwitchBoxIsSelectedAndReleased)
{
    EXPECT_TRUE(describes("box none"));
    raw("1B 25 41 1B 24 49 34");
    EXPECT_TRUE(describes("box A at 9600"));
    raw("1B 25 4B");
    raw("1B 25 49 34"); // the other spelling of the box's speed
    EXPECT_TRUE(describes("box K at 9600"));
    raw("1B 24 42");
    EXPECT_TRUE(describes("box none"));
}

TEST_F(ReaderTest, TheBoxSpeedDoesNotTouchTheReaders)
{
    reader.setBaud(38400);
    raw("1B 25 42 1B 25 49 34");
    EXPECT_EQ(reader.baud(), 38400U);
    EXPECT_TRUE(describes("box B at 9600"));
    raw("1B 25 42");
    ask("32 21 00");
    raw("1B 25 49 34"); // not behind a selection any more
    EXPECT_EQ(reader.baud(), 9600U);
}

TEST_F(ReaderTest, DetectionReportsTheCardOfTheLowestKind)
{
    EXPECT_EQ(ask("32 30 00 00"), "10 05");
    reader.setIdentityCard(true);
    EXPECT_EQ(ask("32 30 00 00"), "00 00 04");
    EXPECT_TRUE(reader.swipe("1234=5678", "9999"));
    EXPECT_EQ(ask("32 30 00 00"), "00 00 03 31 32 33 34 3D 35 36 37 38 7C 39 39 39 39 0D 0A");
    EXPECT_EQ(ask("32 30 00 00"), "00 00 04") << "a swipe is reported once";
    insert(kContactless);
    EXPECT_EQ(ask("32 30 00 00"), "00 00 02");
    insert(1);
    insert(16);
    EXPECT_EQ(ask("32 30 00 00"), "00 00 02") << "only the user's slot counts";
    insert(0);
    EXPECT_EQ(ask("32 30 00 00"), "00 00 01");
    EXPECT_EQ(ask("32 21 00"), "10 03") << "detection gives no power";
    EXPECT_EQ(card.powerOns, 0);
}

TEST_F(ReaderTest, DetectionOfOneKindSeesNoOther)
{
    insert(0);
    insert(kContactless);
    EXPECT_TRUE(reader.swipe("", ""));
    const struct {
        const char *command;
        const char *reply;
    } rows[] = {
        {"32 32 00 00 02", "00 00 02"}, {"32 32 00 00 04", "10 05"},    {"32 32 00 00 03", "00 00 03 7C 0D 0A"},
        {"32 32 00 00 03", "10 05"},    {"32 32 00 00 01", "00 00 01"}, {"32 32 00 00 00", "00 00 01"},
        {"32 32 00 00 05", "F0 03"},    {"32 32 00 00", "F0 02"},       {"32 30 00", "F0 02"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(row.command), row.reply) << row.command;
}

TEST_F(ReaderTest, DetectionWaitsSecondsForACard)
{
    EXPECT_EQ(ask("32 30 00 08"), "");
    EXPECT_EQ(reader.deadline(), time + std::chrono::seconds(8));
    EXPECT_TRUE(describes("waits for any card, 8000 ms left"));
    insert(1);
    EXPECT_EQ(replies(), "");
    insert(0);
    EXPECT_EQ(replies(), "00 00 01");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    EXPECT_EQ(ask("32 32 00 01 03"), "");
    pass(999);
    EXPECT_EQ(replies(), "");
    EXPECT_TRUE(reader.swipe("12", "34"));
    EXPECT_EQ(replies(), "00 00 03 31 32 7C 33 34 0D 0A");
    EXPECT_EQ(ask("32 32 00 01 04"), "");
    reader.setIdentityCard(true);
    EXPECT_EQ(replies(), "00 00 04");
    EXPECT_EQ(ask("32 32 00 01 02"), "");
    pass(1000);
    EXPECT_EQ(replies(), "10 05");
}

TEST_F(ReaderTest, ANewCommandOrAResetEndsADetection)
{
    ask("32 30 00 08");
    EXPECT_EQ(ask("32 21 00"), "10 05") << "one answer, to the new command";
    ask("32 30 00 08");
    raw("1B 30");
    EXPECT_EQ(reader.deadline(), std::nullopt);
    insert(0);
    EXPECT_EQ(replies(), "");
}

TEST_F(ReaderTest, TracksThatDoNotFitAreRefused)
{
    EXPECT_FALSE(reader.swipe("12|34", ""));
    EXPECT_FALSE(reader.swipe("", "\n"));
    EXPECT_FALSE(reader.swipe("", std::string(251, '1')));
    EXPECT_EQ(ask("32 30 00 00"), "10 05");
    EXPECT_TRUE(reader.swipe(std::string(250, '1'), std::string(250, '2')));
    command("32 30 00 00");
    const std::vector<SentBytes> output = reader.takeOutput();
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(output[0].bytes.size(), 2 * (2 + 1 + 501 + 2) + 8U);
}

TEST_F(ReaderTest, APresenceCheckIsAnsweredWithoutABody)
{
    EXPECT_EQ(ask("31 11"), "00 00");
    EXPECT_EQ(ask("31 11 00"), "F0 02");
}

TEST_F(ReaderTest, LedsAndBuzzerKeepWhatTheyWereTold)
{
    EXPECT_TRUE(describes("led 00, pair 00 00"));
    EXPECT_TRUE(describes("buzzer 0"));
    EXPECT_EQ(askPeripheral("11 11 05"), "00 00");
    EXPECT_EQ(askPeripheral("11 14 0A 0B"), "00 00");
    EXPECT_TRUE(describes("led 05, pair 0A 0B"));
    EXPECT_EQ(askPeripheral("80 15 01 F4 03"), "00 00 00");
    EXPECT_EQ(askPeripheral("80 15 00 64 02"), "00 00 00");
    EXPECT_TRUE(describes("buzzer 2, last 00 64 02"));
    EXPECT_EQ(askPeripheral("11 11"), "F0 02");
    EXPECT_EQ(askPeripheral("80 15 00 64"), "F0 02");
    EXPECT_EQ(askPeripheral("32 21 00"), "F0 01");
    EXPECT_EQ(ask("80 15 00 64 02"), "F0 01");
}

TEST_F(ReaderTest, TheDeviceRecordHoldsItsFieldsWhereTheyBelong)
{
    const auto set = [this](const char *field, const char *value) {
        EXPECT_EQ(setDeviceField(reader.device(), field, value), std::nullopt) << field;
    };
    set("model", "AB");
    set("serial", "C 1");
    set("date", "20240315");
    set("version", "1.2.3.10");
    set("version2", "a.0B.0.ff");
    set("mac", "0102030405aF");
    std::string text = "00 00 41 42";
    for (int i = 2; i < 32; ++i)
        text += " 20";
    text += " 43 20 31";
    for (int i = 3; i < 32; ++i)
        text += " 20";
    EXPECT_EQ(askPeripheral("11 01"), text + " 15 03 24 20 10 03 02 01 00 00 00 00 FF 00 0B 0A 01 02 03 04 05 AF");
}

TEST_F(ReaderTest, WrongDeviceFieldsChangeNothing)
{
    const Bytes before = deviceRecord(reader.device());
    const struct {
        const char *field;
        std::string value;
    } rows[] = {
        {"colour", "red"},      {"model", std::string(33, 'x')},
        {"serial", "\x80"},     {"date", "2024031"},
        {"date", "20241315"},   {"date", "20240300"},
        {"date", "2024-3-1"},   {"version", "1.2.3"},
        {"version", "1.2.3."},  {"version", "1.2.3.100"},
        {"version", "1.2.3.g"}, {"version2", "1.2.3.4.5"},
        {"mac", "01020304"},    {"mac", "x"},
    };
    for (const auto &row : rows)
        EXPECT_NE(setDeviceField(reader.device(), row.field, row.value), std::nullopt) << row.field << row.value;
    EXPECT_EQ(deviceRecord(reader.device()), before);
    EXPECT_EQ(before.size(), kDeviceRecordBytes);
}

TEST_F(ReaderTest, NoiseIsDifferentBytesOfTheSameNumber)
{
    Bytes all;
    for (int b = 0; b < 256; ++b)
        all.push_back(static_cast<std::uint8_t>(b));
    const Bytes noise = lineNoise(all);
    ASSERT_EQ(noise.size(), all.size());
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_NE(noise[i], all[i]);
}

TEST_F(ReaderTest, EveryGoodFrameIsAnsweredOnce)
{
    insert(0);
    insert(kContactless);
    std::mt19937 random(99);
    for (int round = 0; round < 20'000; ++round) {
        Bytes data(random() % 12);
        for (std::uint8_t &b : data)
            b = static_cast<std::uint8_t>(random());
        if (data.size() > 1 && random() % 4 != 0) { // mostly commands that exist
            data[0] = 0x32;
            data[1] = static_cast<std::uint8_t>(0x20 + random() % 8);
        }
        if (data.size() > 3 && (data[1] == 0x22 || data[1] == 0x24))
            data[2] = data[3] = 0; // no waiting
        card.next = random() % 2 == 0 ? CardAnswer::of(Bytes(random() % 600, 0x3B)) : CardAnswer{};
        receive(encodeFrame(random() % 4 == 0 ? FrameKind::peripheral : FrameKind::card, data));
        EXPECT_EQ(reader.takeOutput().size(), 1U) << toHex(data);
    }
    EXPECT_TRUE(describes("replies 20000"));
}

TEST_F(ReaderTest, AHostThatSendsWithoutReadingIsBounded)
{
    insert(0);
    card.next.kind = CardAnswer::Kind::pending;
    ask("32 22 00 00 00");
    for (int i = 0; i < 1000; ++i)
        ask("32 21 00");
    card.next = CardAnswer::of({0x3B, 0x10});
    pass(0);
    EXPECT_EQ(reader.takeOutput().size(), 17U);
}

} // namespace
} // namespace qvsim
