// The tool's words: bytes on the wire, answers to reset and results, and what is said about them.
#include "pty_peer.h"

#include "atr.h"
#include "decode.h"
#include "texts.h"

#include <gtest/gtest.h>

namespace {

using qvtest::bytes;
using qvtest::commandFrame;
using qvtest::replyFrame;

TEST(ToolWords, CommandsSayWhatTheyDo)
{
    struct Row {
        std::string sSent;
        const char *pszMeaning;
    };
    const Row rows[] = {
        {commandFrame("32 21 00"), "card frame, card status of slot 0"},
        {commandFrame("32 22 0B B8 00"), "card frame, power on slot 0, waits 3000 ms"},
        {commandFrame("32 22 00 00 1F"), "card frame, power on PSAM 15, does not wait"},
        {commandFrame("32 23 10"), "card frame, power off PSAM 0"},
        {commandFrame("32 24 00 01"), "card frame, power on the contactless antenna, waits 1 ms"},
        {commandFrame("32 25 00 00"), "card frame, power off the contactless antenna"},
        {commandFrame("32 26 FF 00 84 00 00"), "card frame, APDU to the contactless antenna: 00 84 00 00"},
        {commandFrame("32 30 00 05"), "card frame, which card is present, waits 5 ms"},
        {commandFrame("31 11"), "card frame, data 31 11"},
        {commandFrame("32 22 0B"), "card frame, data 32 22 0B"},
        {commandFrame(""), "card frame, no data"},
        {commandFrame("11 01", 0x01, 0x04), "peripheral frame, data 11 01"},
        {"1B 25 49 32", "line speed 38400"},
        {"1B 25 4B 1B 24 49 34", "switch box: select port K; switch box: line at 9600"},
        {"1B 24 42", "switch box: release the port"},
        {"1B 30", "module reset"},
        {"1B 7A", "unknown escape sequence"},
        {"00 00 00 00", "wake-up, 4 zero bytes"},
        {"00 1B 30", "wake-up, 1 zero bytes; module reset"},
        {"41 42", "no frame"},
        {"02 30 30", "card frame without its end byte"},
        {"02 30 30 30 31 33 32 33 31 03", "card frame, LRC wrong"},
        {"02 30 30 30 32 33 32 33 32 03", "card frame, declares 2 bytes, holds 1"},
        {"02 30 30 30 31 03", "card frame, too short"},
        {"02 03", "card frame, too short"},
        {"02 30 30 30 31 33 32 33 03", "card frame, characters that are no half-bytes"},
        {"02 30 30 30 31 41 32 33 32 03", "card frame, characters that are no half-bytes"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(qvtool::commandMeaning(bytes(row.sSent)), row.pszMeaning) << row.sSent;
}

TEST(ToolWords, RepliesAreCutHoweverTheyArrive)
{
    const std::string sFirst = replyFrame(0x9000, "01 02 03 04 05");
    const std::string sSecond = replyFrame(0x1005);
    const qvtest::Bytes all = bytes("00 41 " + sFirst + " " + sSecond);
    for (size_t nPiece = 1; nPiece <= all.size(); ++nPiece) {
        SCOPED_TRACE(nPiece);
        qvtool::ReplyCutter cutter;
        std::vector<qvtool::ReplyCutter::Reply> replies;
        for (size_t nAt = 0; nAt < all.size(); nAt += nPiece)
            for (auto &reply : cutter.feed(std::span(all).subspan(nAt, std::min(nPiece, all.size() - nAt))))
                replies.push_back(std::move(reply));
        ASSERT_EQ(replies.size(), 2U);
        EXPECT_EQ(qvtest::hex(replies[0].data), "00 41 " + sFirst);
        EXPECT_EQ(replies[0].sMeaning,
                  "2 bytes before the frame; card frame, status 9000, body 5 bytes: 01 02 03 04 05");
        EXPECT_EQ(qvtest::hex(replies[1].data), sSecond);
        EXPECT_EQ(replies[1].sMeaning, "card frame, status 1005 (no card), no body");
        EXPECT_TRUE(cutter.flush().data.empty());
    }
}

TEST(ToolWords, WhatDoesNotBecomeAReplyIsSaidOnce)
{
    qvtool::ReplyCutter cutter;
    EXPECT_TRUE(cutter.feed(bytes("02 30 30")).empty());
    qvtool::ReplyCutter::Reply reply = cutter.flush();
    EXPECT_EQ(qvtest::hex(reply.data), "02 30 30");
    EXPECT_EQ(reply.sMeaning, "frame without its end byte");
    EXPECT_TRUE(cutter.flush().data.empty());
    EXPECT_TRUE(cutter.feed(bytes("B7 E6")).empty());
    EXPECT_EQ(cutter.flush().sMeaning, "no frame");
}

TEST(ToolWords, AReplyWithoutStatusWordIsTooShort)
{
    qvtool::ReplyCutter cutter;
    EXPECT_EQ(cutter.feed(bytes(commandFrame("90")))[0].sMeaning, "card frame, too short for a status word");
}

// "TS=3B T0=02 ..."
std::string partsOf(std::string_view sAtr)
{
    std::string sText;
    for (const qvtool::AtrPart &part : qvtool::decodeAtr(bytes(sAtr)))
        sText += (sText.empty() ? "" : " ") + part.sName + "=" + qvtool::hexText(part.data);
    return sText;
}

TEST(ToolWords, AnswersToResetAreTakenApart)
{
    EXPECT_EQ(partsOf("3B 00"), "TS=3B T0=00");
    EXPECT_EQ(partsOf("3F 65 25 08 93 04 6C 90 00"), "TS=3F T0=65 TB1=25 TC1=08 historical=93046C9000");
    EXPECT_EQ(partsOf("3B 95 13 81 01 80 73 FF 01 00 0B"),
              "TS=3B T0=95 TA1=13 TD1=81 TD2=01 historical=8073FF0100 TCK=0B");
}

TEST(ToolWords, AnswersThatDoNotFitAreShownAllTheSame)
{
    EXPECT_EQ(partsOf(""), "");
    EXPECT_EQ(partsOf("3B"), "rest=3B");
    EXPECT_EQ(partsOf("78 80 70"), "rest=788070");
    EXPECT_EQ(partsOf("3B F0 11"), "TS=3B T0=F0 TA1=11");
    EXPECT_EQ(partsOf("3B 05 01 02"), "TS=3B T0=05 rest=0102");
    EXPECT_EQ(partsOf("3B 00 99"), "TS=3B T0=00 rest=99");
    EXPECT_EQ(partsOf("3B 80 80 80 80 80 80"), "TS=3B T0=80 TD1=80 TD2=80 TD3=80 TD4=80 TD5=80");
}

TEST(ToolWords, AWrongCheckByteIsTold)
{
    EXPECT_EQ(qvtool::decodeAtr(bytes("3B 80 01 81")).back().sMeaning, "check byte right");
    EXPECT_EQ(qvtool::decodeAtr(bytes("3B 80 01 82")).back().sMeaning, "check byte WRONG");
    EXPECT_EQ(qvtool::decodeAtr(bytes("3B 80 01 80 01")).back().sName, "rest");
}

TEST(ToolWords, EveryResultHasItsWords)
{
    EXPECT_EQ(qvtool::resultText(-56), "no complete reply in time");
    EXPECT_EQ(qvtool::resultText(-0x1005), "the reader reports 1005: no card");
    EXPECT_EQ(qvtool::resultText(-0x4321), "the reader reports 4321");
    EXPECT_EQ(qvtool::resultText(-99), "result -99");
    for (int32_t n : {-1, -2, -3, -4, -50, -51, -54, -55, -56, -57})
        EXPECT_FALSE(qvtool::resultText(n).starts_with("result ")) << n;
    for (int32_t n : {-255, -65536, 0, 1})
        EXPECT_FALSE(qvtool::isReaderStatus(n)) << n;
    for (int32_t n : {-256, -65535})
        EXPECT_TRUE(qvtool::isReaderStatus(n)) << n;
    EXPECT_TRUE(qvtool::isNoCard(-0x3001));
    EXPECT_FALSE(qvtool::isNoCard(-0x1004));
}

TEST(ToolWords, CardStatusWordsAreGroupedAsTheStandardHasThem)
{
    EXPECT_TRUE(qvtool::isCardSuccess(0x9000));
    EXPECT_TRUE(qvtool::isCardSuccess(0x61FF));
    EXPECT_FALSE(qvtool::isCardSuccess(0x6283));
    EXPECT_EQ(qvtool::cardStatusText(0x63C2), "wrong, tries left stand in the last digit");
    EXPECT_EQ(qvtool::cardStatusText(0x6282), "warning: end of file before the wanted length");
    EXPECT_EQ(qvtool::cardStatusText(0x1234), "");
}

TEST(ToolWords, HexadecimalIsTakenWithBlanksAndColons)
{
    EXPECT_EQ(qvtool::parseHex("00 a4:04\t00"), bytes("00 A4 04 00"));
    EXPECT_EQ(qvtool::parseHex(""), qvtool::Bytes());
    EXPECT_EQ(qvtool::parseHex("0 0A 4"), bytes("00 A4"));
    EXPECT_FALSE(qvtool::parseHex("00A"));
    EXPECT_FALSE(qvtool::parseHex("0x00"));
    EXPECT_FALSE(qvtool::parseHex("00,A4"));
}

} // namespace
