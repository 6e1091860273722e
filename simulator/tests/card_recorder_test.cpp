// Conversations that become card files: each is played back to the card that was made of it.
#include "model/card_recorder.h"

#include "model/script_card.h"

#include <gtest/gtest.h>

namespace qvsim {
namespace {

constexpr char kHead[] = "name recorded in slot 0\n";

// A power-on ("on") or an APDU to slot 0, and what came back.
struct Step {
    const char *command;
    const char *answer;
};
using Steps = std::vector<Step>;

void hear(CardRecorder &recorder, const Steps &steps)
{
    for (const Step &step : steps) {
        const bool isPowerOn = std::string(step.command) == "on";
        recorder.command(*fromHex(isPowerOn ? "32 22 00 00 00" : std::string("32 26 00") + step.command));
        const std::string answer(step.answer);
        if (answer == "mute" || answer == "silence")
            recorder.reply(*fromHex(answer == "mute" ? "10 04" : "10 06"));
        else
            recorder.reply(*fromHex("00 00" + answer));
    }
}

std::string fileOf(const Steps &steps)
{
    CardRecorder recorder;
    hear(recorder, steps);
    return recorder.cardFile(0);
}

// The card answers each step as it was heard.
void expectPlaysBack(const Steps &steps)
{
    CardScriptResult result = parseCardScript(fileOf(steps), "t.card");
    ASSERT_TRUE(std::holds_alternative<CardScript>(result)) << std::get<std::string>(result);
    ScriptCard card(std::move(std::get<CardScript>(result)), "t");
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const bool isPowerOn = std::string(steps[i].command) == "on";
        const CardAnswer answer = isPowerOn ? card.powerOn() : card.transmit(*fromHex(steps[i].command));
        const std::string text = answer.kind == CardAnswer::Kind::bytes ? toHex(answer.bytes)
                                 : isPowerOn                            ? "mute"
                                                                        : "silence";
        EXPECT_EQ(text, steps[i].answer) << "step " << i << " of\n" << fileOf(steps);
    }
}

TEST(CardRecorder, EveryConversationPlaysBackAsItWasHeard)
{
    const Steps conversations[] = {
        {{"on", "3B 00"}, {"00 84", "01 90 00"}, {"00 B0", "6A 82"}, {"00 84", "02 90 00"}, {"00 84", "02 90 00"}},
        {{"on", "3B 00"}, {"00 84", "01 90 00"}, {"on", "3B 00"}, {"00 84", "02 90 00"}},
        {{"on", "3B 00"}, {"00 84", "01 90 00"}, {"on", "3B 00"}, {"00 84", "01 90 00"}, {"00 84", "02 90 00"}},
        {{"on", "3B 00"}, {"00 84", "01 90 00"}, {"on", "3B 01"}, {"00 84", "01 90 00"}},
        {{"on", "3B 00"}, {"on", "3B 00"}, {"00 84", "01 90 00"}, {"on", "3B 00"}, {"on", "3B 00"}, {"00 84", "90 00"}},
        {{"on", "3B 00"}, {"on", "3B 01"}, {"on", "3B 00"}, {"00 84", "90 00"}, {"on", "3B 00"}},
        {{"on", "mute"}, {"on", "3B 00"}, {"00 84", "silence"}, {"on", "mute"}, {"on", "mute"}},
        {{"on", "3B 00"},
         {"00 84", "01 90 00"},
         {"on", "3B 00"},
         {"00 B0", "90 00"},
         {"on", "3B 00"},
         {"00 84", "03 90 00"}},
        {{"on", "mute"}},
    };
    for (const Steps &steps : conversations)
        expectPlaysBack(steps);
}

TEST(CardRecorder, PowerOnsThatTellNothingNewAreOnePart)
{
    const Steps steps = {{"on", "3B 00"},       {"on", "3B 00"},       {"00 84", "01 90 00"}, {"on", "3B 00"},
                         {"00 84", "01 90 00"}, {"00 84", "02 90 00"}, {"on", "3B 00"},       {"00 B0", "90 00"}};
    EXPECT_EQ(fileOf(steps), std::string(kHead) + "atr 3B 00\n> 00 84\n< 01 90 00\n< 02 90 00\n> 00 B0\n< 90 00\n");
    expectPlaysBack(steps);
}

TEST(CardRecorder, PowerOnsThatContradictEachOtherArePartsOfTheCard)
{
    EXPECT_EQ(fileOf({{"on", "3B 00"}, {"00 84", "01 90 00"}, {"on", "3B 00"}, {"00 84", "02 90 00"}, {"on", "mute"}}),
              std::string(kHead) +
                  "atr 3B 00\n> 00 84\n< 01 90 00\npower\natr 3B 00\n> 00 84\n< 02 90 00\npower\nmute\n");
}

TEST(CardRecorder, AnswersInFrontOfAnyPowerOnGetTheNextOnesAtrOrAPlainOne)
{
    CardRecorder recorder;
    hear(recorder, {{"00 84", "01 90 00"}});
    EXPECT_EQ(recorder.firstAtr(0), CardRecorder::FirstAtr::madeUp);
    EXPECT_EQ(recorder.cardFile(0),
              std::string(kHead) + "atr 3B 00 # the power-on was not heard\n> 00 84\n< 01 90 00\n");
    hear(recorder, {{"on", "3B 7F"}, {"00 84", "02 90 00"}});
    EXPECT_EQ(recorder.firstAtr(0), CardRecorder::FirstAtr::ofLaterPowerOn);
    EXPECT_EQ(recorder.cardFile(0), std::string(kHead) + "atr 3B 7F # the power-on was not heard\n> 00 84\n< 01 90 00\n"
                                                         "power\natr 3B 7F\n> 00 84\n< 02 90 00\n");
}

TEST(CardRecorder, SlotsAreKeptApart)
{
    CardRecorder recorder;
    for (const char *line : {"32 22 00 00 10", "00 00 3B 10", "32 24 00 00", "00 00 3B FF", "32 26 10 00 84",
                             "00 00 01 90 00", "32 26 FF 00 84", "30 08", "32 26 FF 00 85", "30 01"}) {
        const Bytes data = *fromHex(line);
        if (data[0] == 0x32)
            recorder.command(data);
        else
            recorder.reply(data);
    }
    EXPECT_EQ(recorder.slots(), (std::vector<SlotCode>{16, 255}));
    EXPECT_EQ(recorder.firstPowered(), 16);
    EXPECT_EQ(recorder.exchanges(255), 1U);
    EXPECT_EQ(recorder.unanswered(), 1U) << "a card that is gone answers nothing";
    EXPECT_EQ(recorder.cardFile(16), "name recorded in PSAM 0\natr 3B 10\n> 00 84\n< 01 90 00\n");
    EXPECT_EQ(recorder.cardFile(255), "name recorded in contactless card\natr 3B FF\n> 00 84\n< silence\n");
}

TEST(CardRecorder, AReplyBelongsToTheCommandInFrontOfItAlone)
{
    CardRecorder recorder;
    hear(recorder, {{"on", "3B 00"}});
    recorder.command(*fromHex("32 26 00 00 84"));
    recorder.command(*fromHex("32 26 00 00 85")); // the first one was given up
    recorder.reply(*fromHex("00 00 90 00"));
    recorder.reply(*fromHex("00 00 90 01")); // nobody asked
    recorder.command(*fromHex("32 26 00 00 86"));
    recorder.noCommand();
    recorder.reply(*fromHex("00 00 90 02"));
    recorder.command(*fromHex("32 26 00 00 87")); // still open
    EXPECT_EQ(recorder.unanswered(), 3U);
    EXPECT_EQ(recorder.cardFile(0), std::string(kHead) + "atr 3B 00\n> 00 85\n< 90 00\n");
}

TEST(CardRecorder, WhatNoCardAnsweredMakesNoCard)
{
    CardRecorder recorder;
    for (const char *reply : {"10 05", "10 01", "00 00", "00", ""}) {
        recorder.command(*fromHex("32 22 00 00 00"));
        recorder.reply(*fromHex(reply));
        recorder.command(*fromHex("32 26 00 00 84"));
        recorder.reply(*fromHex(reply));
    }
    recorder.command(*fromHex("32 22 00 00 20")); // there is no such slot
    recorder.reply(*fromHex("00 00 3B 00"));
    recorder.command(*fromHex("32 22 00 00 00"));
    recorder.reply(Bytes(2 + kMostAtr + 1, 0x00)); // longer than any ATR
    EXPECT_TRUE(recorder.slots().empty());
    EXPECT_EQ(recorder.firstPowered(), std::nullopt);
}

} // namespace
} // namespace qvsim
