// The tool's words: bytes on the wire, answers to reset and results, and what is said about them.
#include "pty_peer.h"

#include "atr.h"
#include "decode.h"
#include "texts.h"

#include <gmock/gmock.h>

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
        {commandFrame("32 26 FF 00 84 00 00"),
         "card frame, APDU to the contactless antenna: 00 84 00 00 (GET CHALLENGE)"},
        {commandFrame("32 30 00 05"), "card frame, which card is there, waits 5 s"},
        {commandFrame("32 32 00 00 04"), "card frame, which card of kind 4 is there, does not wait"},
        {commandFrame("31 11"), "card frame, sign of life"},
        {commandFrame("31 12"), "card frame, data 31 12"},
        {commandFrame("32 22 0B"), "card frame, data 32 22 0B"},
        {commandFrame(""), "card frame, no data"},
        {commandFrame("11 01", 0x01, 0x04), "peripheral frame, device record"},
        {commandFrame("11 11 0F", 0x01, 0x04), "peripheral frame, LEDs 0F"},
        {commandFrame("11 14 01 FF", 0x01, 0x04), "peripheral frame, LED pair 01 FF"},
        {commandFrame("80 15 01 2C 02", 0x01, 0x04), "peripheral frame, buzzer, D 300, N 2"},
        {commandFrame("80 15 01 2C", 0x01, 0x04), "peripheral frame, data 80 15 01 2C"},
        {commandFrame("11 11 0F"), "card frame, data 11 11 0F"},
        {commandFrame("31 11", 0x01, 0x04), "peripheral frame, data 31 11"},
        {"1B 25 49 32", "line speed 38400"},
        {"1B 25 4B 1B 24 49 34", "switch box: select port K; switch box: line at 9600"},
        {"1B 24 42", "switch box: release the port"},
        {"1B 30", "module reset"},
        {"1B 7A", "unknown escape sequence"},
        {"00 00 00 00", "wake-up, 4 zero bytes"},
        {"00 1B 30", "wake-up, 1 zero byte; module reset"},
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

// What is said of a reply with this body (status 0000 in front) when this command was sent before it.
std::string replyTo(const std::string &sCommand, const std::string &sBody, uint8_t ucHead = 0x02, uint8_t ucEnd = 0x03)
{
    qvtool::ReplyCutter cutter;
    cutter.expect(bytes("00 00 " + commandFrame(sCommand, ucHead, ucEnd)));
    const auto replies = cutter.feed(bytes(commandFrame("00 00 " + sBody, ucHead, ucEnd)));
    return replies.size() == 1 ? replies[0].sMeaning : "no reply";
}

TEST(ToolWords, RepliesAreToldByTheCommandThatTheyAnswer)
{
    EXPECT_EQ(replyTo("32 30 00 05", "01"), "card frame, status 0000 (done), body 1 byte: 01 (contact card)");
    EXPECT_EQ(replyTo("32 32 00 05 04", "04"), "card frame, status 0000 (done), body 1 byte: 04 (identity card)");
    EXPECT_EQ(replyTo("32 30 00 05", "09"), "card frame, status 0000 (done), body 1 byte: 09 (unknown kind of card)");
    EXPECT_EQ(replyTo("32 30 00 05", "03 31 3D 32 7C 0D 0A"),
              "card frame, status 0000 (done), body 7 bytes: 03 31 3D 32 7C 0D 0A (magnetic card, text \"1=2|..\")");
    EXPECT_EQ(replyTo("32 30 00 05", ""), "card frame, status 0000 (done), no body");
    EXPECT_EQ(replyTo("32 26 00 00 84", "90 00"), "card frame, status 0000 (done), body 2 bytes: 90 00");
    EXPECT_EQ(replyTo("80 15 00 01 02", "00", 0x01, 0x04), "peripheral frame, status 0000 (done), body 1 byte: 00");
}

TEST(ToolWords, ADeviceRecordIsToldInWords)
{
    std::string sRecord;
    for (const char *pszText : {"51 56", "42 4F 58"}) { // "QV" and "BOX", each in 32 bytes
        std::string sField = pszText;
        while (sField.size() < 32 * 3 - 1)
            sField += " 20";
        sRecord += sField + " ";
    }
    sRecord += "15 03 24 20 04 03 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
    EXPECT_THAT(replyTo("11 01", sRecord, 0x01, 0x04),
                testing::EndsWith("(model QV, serial number BOX, produced 2024-03-15, firmware 1.02.03.04)"));
    EXPECT_THAT(replyTo("11 01", "51 56", 0x01, 0x04), testing::EndsWith("(too short for a device record)"));
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
