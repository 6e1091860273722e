// How a byte stream falls into frames, escape sequences and rubbish.
#include "model/line_parser.h"

#include <gtest/gtest.h>

#include <random>

namespace qvsim {
namespace {

// One word per event: "frame:3230", "bad", "esc:box A", "esc?:24 51", "rubbish".
std::string story(LineParser &parser, BytesView bytes)
{
    std::string text;
    const auto add = [&text](const std::string &word) { text += (text.empty() ? "" : " | ") + word; };
    for (const std::uint8_t b : bytes) {
        const LineEvent event = parser.feed(b);
        if (event.lostText != 0)
            add("lost " + std::to_string(event.lostText));
        switch (event.kind) {
        case LineEvent::Kind::nothing: break;
        case LineEvent::Kind::frame:
            add((event.frame == FrameKind::card ? "card " : "peripheral ") + toHex(event.data));
            break;
        case LineEvent::Kind::badFrame: add(std::string("bad: ") + faultText(event.fault)); break;
        case LineEvent::Kind::escape:
            add(event.escape->meaning + std::string(event.escape->takesText ? ": " + toHex(event.data) : ""));
            break;
        case LineEvent::Kind::unknownEscape: add("unknown escape " + toHex(event.data)); break;
        case LineEvent::Kind::rubbish: add("rubbish"); break;
        }
    }
    return text;
}

std::string story(const char *hex)
{
    LineParser parser;
    return story(parser, *fromHex(hex));
}

#define GOOD "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03"

TEST(LineParser, CutsTheStreamIntoEvents)
{
    const struct {
        const char *what;
        const char *bytes;
        const char *events;
    } rows[] = {
        {"a frame", GOOD, "card 32 30 00 10"},
        {"two frames back to back", GOOD GOOD, "card 32 30 00 10 | card 32 30 00 10"},
        {"zeros around a frame mean nothing", "00 00 00 00 " GOOD " 00", "card 32 30 00 10"},
        {"a peripheral frame", "01 30 30 30 32 31 31 30 31 31 30 04", "peripheral 11 01"},
        {"a frame without data", "02 30 30 30 30 30 30 03", "card "},
        {"bytes outside", "41 42 03 " GOOD " 04", "rubbish | rubbish | rubbish | card 32 30 00 10 | rubbish"},
        {"a lost end byte", "02 30 30 30 34 33 32 33 30 " GOOD, "bad: cut off before its end byte | card 32 30 00 10"},
        {"letters in a frame are one fault", "02 30 30 30 31 41 42 41 42 03 " GOOD,
         "bad: a character between the marks is not a half-byte character | card 32 30 00 10"},
        {"a zero inside a frame", "02 30 30 00 30 31 41 42 41 42 03",
         "bad: a character between the marks is not a half-byte character"},
        {"the other kind's end byte ends nothing", "02 30 30 30 30 30 30 04 03",
         "bad: a character between the marks is not a half-byte character"},
        {"a frame begins inside a frame", "01 30 30 " GOOD, "bad: cut off before its end byte | card 32 30 00 10"},
        {"an escape sequence inside a frame", "02 30 30 1B 30", "bad: cut off before its end byte | module reset"},
        {"escape box ports", "1B 25 41 1B 25 42 1B 25 43 1B 25 4B",
         "switch box: port A selected | switch box: port B selected | switch box: port C selected | "
         "switch box: port K selected"},
        {"escape speeds", "1B 25 49 31 1B 25 49 32 1B 25 49 33 1B 25 49 34",
         "line speed 115200 from now on | line speed 38400 from now on | line speed 19200 from now on | "
         "line speed 9600 from now on"},
        {"escape box speed and release", "1B 24 49 34 1B 24 42",
         "switch box: line at 9600 | switch box: port released"},
        {"reset", "1B 30", "module reset"},
        {"an unknown port", "1B 25 44", "unknown escape 25 44"},
        {"an unknown speed", "1B 25 49 35 " GOOD, "unknown escape 25 49 35 | card 32 30 00 10"},
        {"a frame cuts an escape short", "1B 25 " GOOD, "unknown escape 25 | card 32 30 00 10"},
        {"an escape cuts an escape short", "1B 1B 30", "unknown escape  | module reset"},
        {"a zero inside an escape", "1B 25 00 41", "unknown escape 25 00 | rubbish"},
        {"reads of a magnetic card", "1B 72 1B 5D 1B 54 5D 1B 44 5D 1B 42 5D 1B 6A",
         "read track 1 | read track 2 | read track 3 | read tracks 1 and 2 | read tracks 2 and 3 | "
         "how did the last operation go"},
        {"recording formats", "1B 3D 1B 27 1B 4F 1B 41",
         "recording format ISO | recording format IBM | recording format ISO-DK | recording format IBM-DK"},
        {"texts", "1B 77 42 31 1D 1B 5C 1B 74 1D 1B 5C 1B 74 41 31 1D 1B 5C",
         "write track 1, or 2 and 1: 42 31 | write track 2, or 3, or 2 and 3:  | write track 2, or 3, or 2 and 3: 41 "
         "31"},
        {"any other byte belongs to the text", "1B 74 00 03 04 5C 80 FF 1D 1B 5C",
         "write track 2, or 3, or 2 and 3: 00 03 04 5C 80 FF"},
        {"a frame cuts a text short", "1B 74 31 32 " GOOD, "lost 4 | card 32 30 00 10"},
        {"an escape cuts a text short", "1B 74 31 32 1B 30", "lost 4 | module reset"},
        {"half an end mark and a frame", "1B 74 31 1D " GOOD, "lost 4 | card 32 30 00 10"},
        {"half an end mark and a byte", "1B 74 31 1D 5C", "lost 4 | rubbish"},
        {"an end mark that becomes a reset", "1B 74 31 1D 1B 30", "lost 4 | module reset"},
        {"an end mark that becomes a longer escape", "1B 74 31 1D 1B 25 41", "lost 4 | switch box: port A selected"},
        {"an end mark that becomes another text", "1B 74 31 1D 1B 77 42 1D 1B 5C",
         "lost 4 | write track 1, or 2 and 1: 42"},
        {"an end mark that becomes nothing known", "1B 74 31 1D 1B 55", "lost 4 | unknown escape 55"},
        {"an end mark cut short by an escape", "1B 74 31 1D 1B 1B 30", "lost 4 | unknown escape  | module reset"},
        {"an end mark cut short by a frame", "1B 74 31 1D 1B " GOOD, "lost 4 | unknown escape  | card 32 30 00 10"},
        {"a mark begun twice", "1B 74 31 1D 1D 1B 5C", "lost 4 | rubbish | unknown escape 5C"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(story(row.bytes), row.events) << row.what;
}

TEST(LineParser, AnEndlessFrameIsToldOnceAndTakesNoMemory)
{
    LineParser parser;
    Bytes bytes{0x02};
    bytes.insert(bytes.end(), 1'000'000, 0x35);
    EXPECT_EQ(story(parser, bytes), "");
    EXPECT_EQ(story(parser, *fromHex("03 " GOOD)), "bad: longer than a command may be | card 32 30 00 10");
}

TEST(LineParser, AnEscapeSequenceWithItsTextHasAtMost1024Bytes)
{
    for (const auto &[size, isTaken] : {std::pair{1024 - 5, true}, {1024 - 4, false}}) {
        LineParser parser;
        Bytes bytes = *fromHex("1B 77");
        bytes.insert(bytes.end(), static_cast<std::size_t>(size), 'B');
        const std::string before = story(parser, bytes);
        EXPECT_EQ(before, isTaken ? "" : "lost 1021 | rubbish");
        const std::string after = story(parser, *fromHex("1D 1B 5C " GOOD));
        EXPECT_EQ(after.starts_with("write track 1, or 2 and 1: 42 42"), isTaken) << after;
        EXPECT_TRUE(after.ends_with("card 32 30 00 10"));
    }
}

TEST(LineParser, ADisturbedLineLosesWhatHadBegun)
{
    LineParser parser;
    EXPECT_EQ(parser.disturb().kind, LineEvent::Kind::nothing);
    story(parser, *fromHex("02 30 30 30 34"));
    EXPECT_EQ(parser.disturb().fault, FrameFault::cutOff);
    EXPECT_EQ(story(parser, *fromHex(GOOD)), "card 32 30 00 10");
    story(parser, *fromHex("1B 25"));
    EXPECT_EQ(parser.disturb().kind, LineEvent::Kind::unknownEscape);
    for (const char *text : {"1B 77 42 43", "1B 77 42 1D", "1B 77 1D 1B"}) {
        EXPECT_EQ(story(parser, *fromHex(text)), "");
        EXPECT_EQ(parser.disturb().lostText, 4U) << text;
        EXPECT_EQ(parser.disturb().lostText, 0U) << text;
    }
    EXPECT_EQ(story(parser, *fromHex("41")), "rubbish");
}

TEST(LineParser, AFrameGetsThroughBehindAnyRubbish)
{
    std::mt19937 random(20260301);
    for (int round = 0; round < 2000; ++round) {
        LineParser parser;
        Bytes bytes(random() % 64);
        for (std::uint8_t &b : bytes)
            b = static_cast<std::uint8_t>(random());
        story(parser, bytes);
        EXPECT_TRUE(story(parser, *fromHex(GOOD)).ends_with("card 32 30 00 10")) << toHex(bytes);
    }
}

} // namespace
} // namespace qvsim
