// Card files: what is understood, and what is refused with which words.
#include "model/card_script.h"

#include <gtest/gtest.h>

#include <random>

namespace qvsim {
namespace {

CardScript parsed(std::string_view text)
{
    const CardScriptResult result = parseCardScript(text, "t.card");
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        ADD_FAILURE() << *wrong;
    return std::holds_alternative<CardScript>(result) ? std::get<CardScript>(result) : CardScript{{}, {CardPart{}}};
}

std::string refused(std::string_view text)
{
    const CardScriptResult result = parseCardScript(text, "t.card");
    const std::string *const wrong = std::get_if<std::string>(&result);
    return wrong == nullptr ? "accepted" : *wrong;
}

TEST(CardScript, EveryLineIsUnderstood)
{
    const CardScript script = parsed("# head\n"
                                     "name a card\r\n"
                                     "atr 3b00 # behind\n"
                                     "default 69 82\n"
                                     "\n"
                                     ">00A404??*\n"
                                     "<6A82\n"
                                     "<\t61 10\n"
                                     "> 00 84\n"
                                     "+ 00 00 08\n"
                                     "< 01 02\n"
                                     "+ 90 00\n"
                                     "> 00 FE 00 00\n"
                                     "< silence\n"
                                     "order two steps\n"
                                     "> 80 50 *\n"
                                     "< 90 00\n"
                                     "> 80 52 *\n"
                                     "< 90 00\n"
                                     "end"); // and no line end
    EXPECT_EQ(script.name, "a card");
    ASSERT_EQ(script.parts.size(), 1U);
    const CardPart &part = script.parts[0];
    EXPECT_EQ(part.atr, fromHex("3B 00"));
    EXPECT_EQ(part.line, 3U);
    EXPECT_EQ(toHex(part.defaultReply), "69 82");
    ASSERT_EQ(part.commands.size(), 3U);
    ASSERT_EQ(part.commands[0].replies.size(), 2U);
    EXPECT_EQ(part.commands[0].replies[1].bytes, fromHex("61 10"));
    EXPECT_EQ(part.commands[0].replies[1].line, 8U);
    EXPECT_EQ(part.commands[0].pattern.text(), "00 A4 04 ?? *");
    EXPECT_TRUE(part.commands[1].pattern.matches(*fromHex("00 84 00 00 08")));
    EXPECT_EQ(part.commands[1].replies[0].bytes, fromHex("01 02 90 00"));
    EXPECT_FALSE(part.commands[2].replies[0].bytes);
    ASSERT_EQ(part.sections.size(), 1U);
    EXPECT_EQ(part.sections[0].name, "two steps");
    EXPECT_EQ(part.sections[0].commands.size(), 2U);
}

TEST(CardScript, APartKeepsAtrAndDefaultOfThePartAboveUntilItGivesItsOwn)
{
    const CardScript script = parsed("atr 3B 00\ndefault 69 82\n> 00 84\n< 01 90 00\n"
                                     "power\n> 00 84\n< 02 90 00\n"
                                     "power\nmute\n"
                                     "power\n"
                                     "power\natr 3B 01\ndefault 6D 00\n");
    ASSERT_EQ(script.parts.size(), 5U);
    const std::optional<Bytes> atrs[] = {fromHex("3B 00"), fromHex("3B 00"), {}, {}, fromHex("3B 01")};
    const unsigned lines[] = {1, 5, 9, 10, 12};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(script.parts[i].atr, atrs[i]) << i;
        EXPECT_EQ(script.parts[i].line, lines[i]) << i;
        EXPECT_EQ(toHex(script.parts[i].defaultReply), i < 4 ? "69 82" : "6D 00") << i;
        EXPECT_EQ(script.parts[i].commands.size(), i < 2 ? 1U : 0U) << i;
    }
}

TEST(CardScript, AMuteCardHasNoAtr)
{
    EXPECT_FALSE(parsed("mute\n").parts.at(0).atr);
}

TEST(CardScript, PatternsMatchHalfBytesAndOpenEnds)
{
    const struct {
        const char *pattern;
        const char *command;
        bool matches;
    } rows[] = {
        {"00 84 00 00 08", "00 84 00 00 08", true},
        {"00 84 00 00 08", "00 84 00 00 07", false},
        {"00 84 00 00 08", "00 84 00 00", false},
        {"00 84 00 00", "00 84 00 00 08", false},
        {"00 84 ?? 0? 08", "00 84 A7 0F 08", true},
        {"00 84 ?? 0? 08", "00 84 A7 1F 08", false},
        {"00 A4 *", "00 A4", true},
        {"00 A4 *", "00 A4 04 00 01 02", true},
        {"00 A4 *", "00", false},
        {"*", "12", true},
    };
    for (const auto &row : rows) {
        const CardScript script = parsed(std::string("atr 3B\n> ") + row.pattern + "\n< 90 00\n");
        ASSERT_EQ(script.parts.at(0).commands.size(), 1U);
        EXPECT_EQ(script.parts[0].commands[0].pattern.matches(*fromHex(row.command)), row.matches)
            << row.pattern << " / " << row.command;
    }
}

TEST(CardScript, MistakesAreToldWithFileAndLine)
{
    const struct {
        const char *text;
        const char *message;
    } rows[] = {
        {"", "t.card:1: no \"atr\"; a card that gives none says \"mute\""},
        {"name x\n", "t.card:1: no \"atr\"; a card that gives none says \"mute\""},
        {"atr 3B\nART 3B\n",
         "t.card:2: unknown word; known are name, atr, mute, default, >, <, +, order, end and power"},
        {"atr 3\n", "t.card:1: the ATR is not hexadecimal"},
        {"atr\n", "t.card:1: an ATR has 1 to 33 bytes"},
        {"atr 3B\nmute\n", "t.card:2: the answer to power-on has been given already"},
        {"mute\natr 3B\n", "t.card:2: the answer to power-on has been given already"},
        {"atr 3B\n< 90 00\n", "t.card:2: a reply needs a command (>) above it"},
        {"atr 3B\n+ 90 00\n", "t.card:2: there is no command or reply to go on with"},
        {"atr 3B\n> 00 8G\n", "t.card:2: a command is hexadecimal digits, \"?\" and \"*\""},
        {"atr 3B\n> 00 84 * 00\n", "t.card:2: nothing may follow \"*\""},
        {"atr 3B\n> 00 8*\n", "t.card:2: \"*\" stands inside a byte"},
        {"atr 3B\n> 00 8\n< 90 00\n", "t.card:3: the command above has half a byte too many"},
        {"atr 3B\n>\n< 90 00\n", "t.card:3: the command above is empty"},
        {"atr 3B\n> 00 84\n", "t.card:2: the command above has no reply"},
        {"atr 3B\n> 00 84\n> 00 85\n", "t.card:3: the command above has no reply"},
        {"atr 3B\n> 00 84\n< 90\n", "t.card:3: the reply above has no two status bytes"},
        {"atr 3B\n> 00 84\n< 90\n< 90 00\n", "t.card:4: the reply above has no two status bytes"},
        {"atr 3B\n> 00 84\n< silence\n+ 90 00\n", "t.card:4: nothing may follow \"silence\""},
        {"atr 3B\n> 00 84\n< 9? 00\n", "t.card:3: a reply is hexadecimal, or the word \"silence\""},
        {"atr 3B\n> 00 84\n< 90 00\n> 00 84\n< 90 00\n",
         "t.card:5: the command above stands twice; give it several replies instead"},
        {"atr 3B\ndefault 90\n", "t.card:2: the default reply is hexadecimal and ends in two status bytes"},
        {"atr 3B\nend\n", "t.card:2: \"end\" without \"order\""},
        {"atr 3B\norder\n", "t.card:2: an ordered section needs a name"},
        {"atr 3B\norder a\norder b\n", "t.card:3: an ordered section cannot stand inside another one"},
        {"atr 3B\norder a\nend\n", "t.card:3: the ordered section has no commands"},
        {"power\natr 3B\n", "t.card:1: no \"atr\"; a card that gives none says \"mute\""},
        {"atr 3B\npower 2\n", "t.card:2: nothing may follow \"power\""},
        {"atr 3B\n> 00 84\npower\n", "t.card:3: the command above has no reply"},
        {"atr 3B\norder a\n> 00\n< 90 00\npower\n", "t.card:5: the ordered section has no \"end\""},
        {"atr 3B\npower\nmute\natr 3B\n", "t.card:4: the answer to power-on has been given already"},
        {"atr 3B\norder a\n> 00\n< 90 00\n", "t.card:4: the ordered section has no \"end\""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(refused(row.text), row.message) << row.text;
}

TEST(CardScript, HostileFilesAreRefused)
{
    EXPECT_EQ(refused(std::string(10 * 1024 * 1024, '0')), "t.card: larger than a card file may be (1 MiB)");
    EXPECT_EQ(refused("atr " + std::string(9000, '0')), "t.card:1: the line is longer than 8192 characters");
    EXPECT_EQ(refused(std::string("atr 3B\n> 00\0 84\n", 16)),
              "t.card:2: not a text file: control characters in this line");
    EXPECT_EQ(refused("\x7F"
                      "ELF\x02\x01\x01"),
              "t.card:1: not a text file: control characters in this line");
    EXPECT_EQ(refused("atr " + std::string(68, '3')), "t.card:1: an ATR has 1 to 33 bytes");

    std::string command = "atr 3B\n> 00\n";
    std::string reply = "atr 3B\n> 00\n< 00\n";
    for (int i = 0; i < 5; ++i)
        command += "+ " + std::string(512, '0') + "\n"; // 256 bytes a line
    for (int i = 0; i < 17; ++i)
        reply += "+ " + std::string(512, '0') + "\n";
    EXPECT_EQ(refused(command), "t.card:6: the command is longer than 1024 bytes");
    EXPECT_EQ(refused(reply), "t.card:19: the reply is longer than 4096 bytes");
}

TEST(CardScript, RandomTextIsAcceptedOrRefusedWithAPlace)
{
    std::mt19937 random(7);
    const std::string alphabet = "><+#*?0369ABatrmuteordendpw silence\n\n\t\r";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t i = random() % 80; i > 0; --i)
            text += alphabet[random() % alphabet.size()];
        const std::string answer = refused(text);
        EXPECT_TRUE(answer == "accepted" || answer.starts_with("t.card:")) << answer;
    }
}

} // namespace
} // namespace qvsim
