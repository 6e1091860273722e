// How a script is played.
#include "model/script_card.h"

#include <gtest/gtest.h>

namespace qvsim {
namespace {

class ScriptCardTest : public testing::Test {
  protected:
    void load(std::string_view text)
    {
        CardScriptResult result = parseCardScript(text, "t.card");
        ASSERT_TRUE(std::holds_alternative<CardScript>(result)) << std::get<std::string>(result);
        card = std::make_unique<ScriptCard>(std::move(std::get<CardScript>(result)), "t", use);
    }

    std::string ask(const char *command)
    {
        const CardAnswer answer = card->transmit(*fromHex(command));
        return answer.kind == CardAnswer::Kind::bytes ? toHex(answer.bytes) : "silence";
    }

    std::string power()
    {
        const CardAnswer answer = card->powerOn();
        return answer.kind == CardAnswer::Kind::bytes ? toHex(answer.bytes) : "mute";
    }

    std::unique_ptr<ScriptCard> card;
    std::shared_ptr<ScriptUse> use = std::make_shared<ScriptUse>();
};

TEST_F(ScriptCardTest, TheFirstPatternThatFitsAnswersInAnyOrder)
{
    load("atr 3B 00\n> 00 A4 04 *\n< 61 10\n> 00 A4 *\n< 6A 82\n> 00 84\n< 90 00\n");
    EXPECT_EQ(toHex(card->powerOn().bytes), "3B 00");
    EXPECT_EQ(ask("00 84"), "90 00");
    EXPECT_EQ(ask("00 A4 00"), "6A 82");
    EXPECT_EQ(ask("00 A4 04"), "61 10");
    EXPECT_EQ(ask("00 85"), "6D 00");
    EXPECT_EQ(ask(""), "6D 00");
}

TEST_F(ScriptCardTest, SeveralRepliesArePlayedInTurnAndTheLastRepeats)
{
    load("atr 3B\n> 00 84\n< 01 90 00\n< 02 90 00\n< silence\ndefault 6E 00\n");
    EXPECT_EQ(ask("00 84"), "01 90 00");
    EXPECT_EQ(ask("00 99"), "6E 00");
    EXPECT_EQ(ask("00 84"), "02 90 00");
    EXPECT_EQ(ask("00 84"), "silence");
    EXPECT_EQ(ask("00 84"), "silence");
    card->powerOn();
    EXPECT_EQ(ask("00 84"), "01 90 00");
}

TEST_F(ScriptCardTest, AnOrderedSectionKnowsOnlyItsNextCommand)
{
    load("atr 3B\n"
         "order load\n> 80 50\n< 01 90 00\n> 80 52\n< 02 90 00\n> 80 5C\n< 03 90 00\nend\n"
         "> 80 5C\n< 00 90 00\n> 80 52\n< 69 01\n");
    EXPECT_EQ(ask("80 52"), "69 01");
    EXPECT_EQ(ask("80 5C"), "00 90 00");
    EXPECT_EQ(ask("80 50"), "01 90 00");
    EXPECT_EQ(ask("80 5C"), "00 90 00") << "out of turn: the free command answers";
    EXPECT_EQ(ask("80 52"), "02 90 00");
    EXPECT_EQ(ask("80 5C"), "03 90 00");
    EXPECT_EQ(ask("80 5C"), "00 90 00") << "the section is over";
    EXPECT_EQ(ask("80 50"), "01 90 00");
    EXPECT_EQ(ask("80 50"), "01 90 00") << "the first command begins anew";
    EXPECT_EQ(ask("80 52"), "02 90 00");
    card->powerOn();
    EXPECT_EQ(ask("80 5C"), "00 90 00") << "power-on begins anew";
}

TEST_F(ScriptCardTest, AMuteCardGivesNoAtr)
{
    load("mute\n");
    EXPECT_EQ(card->powerOn().kind, CardAnswer::Kind::mute);
}

TEST_F(ScriptCardTest, EachPowerOnPlaysTheNextPartAndTheLastOneStays)
{
    load("atr 3B 00\n> 00 84\n< 01 90 00\n> 00 B0\n< 6A 82\n"
         "power\nmute\n"
         "power\natr 3B 01\n> 00 84\n< 02 90 00\n< 03 90 00\n");
    EXPECT_EQ(power(), "3B 00");
    EXPECT_EQ(ask("00 84"), "01 90 00");
    EXPECT_EQ(power(), "mute");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(power(), "3B 01");
        EXPECT_EQ(ask("00 84"), "02 90 00");
        EXPECT_EQ(ask("00 84"), "03 90 00");
        EXPECT_EQ(ask("00 B0"), "6D 00") << "a part knows its own commands alone";
    }
}

TEST_F(ScriptCardTest, APowerOnAfterWhichNothingWasAskedDoesNotEndAPart)
{
    load("atr 3B 00\n> 00 84\n< 01 90 00\npower\n> 00 84\n< 02 90 00\n");
    EXPECT_EQ(power(), "3B 00");
    EXPECT_EQ(power(), "3B 00");
    EXPECT_EQ(ask("00 84"), "01 90 00");
    EXPECT_EQ(power(), "3B 00");
    EXPECT_EQ(ask("00 84"), "02 90 00");
}

TEST_F(ScriptCardTest, APartWithoutCommandsLastsForOnePowerOn)
{
    load("atr 3B 00\npower\natr 3B 01\norder a\n> 00 84\n< 01 90 00\nend\npower\natr 3B 02\n");
    for (const char *atr : {"3B 00", "3B 01", "3B 01"})
        EXPECT_EQ(power(), atr);
    EXPECT_EQ(ask("00 84"), "01 90 00");
    EXPECT_EQ(power(), "3B 02");
    EXPECT_EQ(power(), "3B 02");
}

TEST_F(ScriptCardTest, WhatHasNotBeenPlayedIsKnown)
{
    load("atr 3B 00\n> 00 84 *\n< 01 90 00\n< silence\npower\norder a\n> 80 5?\n< 90 00\nend\n");
    using Lines = std::vector<std::string>;
    EXPECT_EQ(use->left(), (Lines{"1: power-on, part 1 of the card", "3: > 00 84 *, answer 1 of 2",
                                  "4: > 00 84 *, answer 2 of 2", "5: power-on, part 2 of the card", "8: > 80 5?"}));
    power();
    ask("00 84 00");
    ask("00 85");
    EXPECT_EQ(use->left(), (Lines{"4: > 00 84 *, answer 2 of 2", "5: power-on, part 2 of the card", "8: > 80 5?"}));
    ask("00 84 00");
    power();
    EXPECT_EQ(use->left(), (Lines{"8: > 80 5?"}));
    ask("80 5A");
    EXPECT_EQ(use->left(), Lines{});
    card.reset();
    load("atr 3B 00\n> 00 84 *\n< 01 90 00\n");
    EXPECT_EQ(use->left(), Lines{}) << "what was played before stays played";
}

} // namespace
} // namespace qvsim
