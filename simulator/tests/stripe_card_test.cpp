// Magnetic card files: what they say, what is wrong with them, and how they are written.
#include "model/stripe_card.h"

#include "model/card_text.h"

#include <gtest/gtest.h>

#include <random>

namespace qvsim {
namespace {

StripeCard parse(const std::string &text)
{
    StripeCardResult result = parseStripeCard(text, "x.stripe");
    if (const std::string *const wrong = std::get_if<std::string>(&result)) {
        ADD_FAILURE() << *wrong;
        return {};
    }
    return std::get<StripeCard>(result);
}

std::string troubleOf(const std::string &text)
{
    const StripeCardResult result = parseStripeCard(text, "x.stripe");
    const std::string *const wrong = std::get_if<std::string>(&result);
    return wrong == nullptr ? "none" : *wrong;
}

TEST(StripeCard, AFileTellsNameFormatAndTracks)
{
    const StripeCard card = parse("# a comment\r\n\n  name   demo card  # of nobody\nformat IBM-DK\n"
                                  "track1 B62^DEMO/CARD #1^29 # comment\ntrack3\t99=156\n");
    EXPECT_EQ(card.name, "demo card");
    EXPECT_EQ(card.tracks[0], (StripeTrack{"B62^DEMO/CARD", StripeFormat::ibmDk}));
    EXPECT_EQ(card.tracks[1], StripeTrack{});
    EXPECT_EQ(card.tracks[2], (StripeTrack{"99=156", StripeFormat::ibmDk}));
}

TEST(StripeCard, AFormatIsThatOfTheTracksBelowIt)
{
    const StripeCard card = parse("track2 1\nformat IBM\ntrack1 A#B\nformat ISO-DK\ntrack3 3");
    EXPECT_EQ(card.tracks[0], (StripeTrack{"A#B", StripeFormat::ibm}));
    EXPECT_EQ(card.tracks[1], (StripeTrack{"1", StripeFormat::iso}));
    EXPECT_EQ(card.tracks[2], (StripeTrack{"3", StripeFormat::isoDk}));
}

TEST(StripeCard, AnEmptyFileIsABlankCard)
{
    for (const char *text : {"", "\n", "# nothing", "name blank"})
        EXPECT_EQ(parse(text).tracks, StripeCard().tracks) << text;
}

TEST(StripeCard, QuotationMarksKeepBlanksAndMarksOfComments)
{
    const struct {
        const char *line;
        const char *track;
    } rows[] = {
        {"track1 \" A #1 \"", " A #1 "}, {"track1 \"A\"\"B\"", "A\"B"}, {"track1 \"\"\"\"", "\""},
        {"track1 \"A\"   # \"B\"", "A"}, {"track1 A\"B", "A\"B"},       {"track1 A\"\"", "A\"\""},
        {"track1 \"A\"\"\" # x", "A\""}, {"track1 A#", "A#"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(parse(row.line).tracks[0].text, row.track) << row.line;
}

TEST(StripeCard, MistakesAreToldWithTheirLine)
{
    const struct {
        std::string text;
        const char *trouble;
    } rows[] = {
        {"\ntrack 1", "x.stripe:2: unknown word; known are name, format, track1, track2 and track3"},
        {"track4 1", "x.stripe:1: unknown word; known are name, format, track1, track2 and track3"},
        {"format iso", "x.stripe:1: a format is ISO, IBM, ISO-DK or IBM-DK"},
        {"format", "x.stripe:1: a format is ISO, IBM, ISO-DK or IBM-DK"},
        {"track2 1\ntrack2 2", "x.stripe:2: this track has been given already"},
        {"track1", "x.stripe:1: a track needs its text; an empty one has no line"},
        {"track1 # x", "x.stripe:1: a track needs its text; an empty one has no line"},
        {"track1 \"\"", "x.stripe:1: a track needs its text; an empty one has no line"},
        {"track1 \"A", "x.stripe:1: the closing quotation mark is missing"},
        {"track1 \"", "x.stripe:1: the closing quotation mark is missing"},
        {"track1 \"A\"\"", "x.stripe:1: the closing quotation mark is missing"},
        {"track1 \"A\" B", "x.stripe:1: something stands behind the quotation marks"},
        {"track1 abc", "x.stripe:1: track 1 holds characters from \" \" to \"_\""},
        {"track1 \xC3\x84", "x.stripe:1: track 1 holds characters from \" \" to \"_\""},
        {"track2 12A", "x.stripe:1: track 2 holds characters from \"0\" to \"?\""},
        {"track3 1/2", "x.stripe:1: track 3 holds characters from \"0\" to \"?\""},
        {"track1 " + std::string(80, 'A'), "x.stripe:1: track 1 holds at most 79 characters"},
        {"track2 " + std::string(41, '1'), "x.stripe:1: track 2 holds at most 40 characters"},
        {"track3 " + std::string(108, '1'), "x.stripe:1: track 3 holds at most 107 characters"},
        {"name\x01", "x.stripe:1: not a text file: control characters in this line"},
        {"name " + std::string(kMostCardLine, 'x'), "x.stripe:1: the line is longer than 8192 characters"},
        {std::string(kMostCardFileBytes + 1, '\n'), "x.stripe: larger than a card file may be (1 MiB)"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(troubleOf(row.text), row.trouble) << row.text.substr(0, 80);
    EXPECT_EQ(troubleOf("track1 " + std::string(79, 'A') + "\ntrack2 " + std::string(40, '1') + "\ntrack3 " +
                        std::string(107, '1')),
              "none");
}

TEST(StripeCard, AWrittenFileSaysWhatTheCardHolds)
{
    StripeCard card;
    EXPECT_EQ(stripeCardText(card), "");
    card.name = "demo card";
    card.tracks = {StripeTrack{" A #\"1\"", StripeFormat::iso}, {"12=3", StripeFormat::ibm}, {"4", StripeFormat::ibm}};
    EXPECT_EQ(stripeCardText(card), "name   demo card\ntrack1 \" A #\"\"1\"\"\"\nformat IBM\ntrack2 12=3\ntrack3 4\n");
}

TEST(StripeCard, AnyCardIsTheSameAfterBeingWrittenAndRead)
{
    constexpr std::string_view kLetters = " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_";
    constexpr std::string_view kDigits = "0123456789:;<=>?";
    constexpr std::string_view kAwkward = " #\"";
    std::mt19937 random(11);
    for (int round = 0; round < 5'000; ++round) {
        StripeCard card;
        for (std::size_t track = 0; track < kTracks; ++track) {
            std::string text(random() % (track == 1 ? 41 : 80), ' ');
            for (char &c : text) {
                c = track == 0 ? kLetters[random() % kLetters.size()] : kDigits[random() % kDigits.size()];
                if (track == 0 && random() % 3 == 0)
                    c = kAwkward[random() % kAwkward.size()];
            }
            if (!text.empty())
                card.tracks[track] = {text, static_cast<StripeFormat>(random() % 4)};
        }
        const std::string text = stripeCardText(card);
        EXPECT_EQ(parse(text).tracks, card.tracks) << text;
    }
}

} // namespace
} // namespace qvsim
