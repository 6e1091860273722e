// What stands before the tracks, for reads and writes alike: time limits, the open, format and read time.

#include "stripe_reader.h"

#include <gmock/gmock.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

class MsrTracksSetup : public StripeReader {
  protected:
    static StripeScript readOfTrack2() { return {{szRead2, bareReply("62")}, {szStatus, szSucceeded}}; }
    static StripeScript writeOfTrack2() { return {{"1B 74 36 32 1D 1B 5C"}, {szStatus, szSucceeded}}; }
    // A read and a write of track 2 whose setting exchanges are these; both must succeed. The waits of each.
    void expectBothWork(const StripeScript &setting, int32_t nCardSeconds = 30, uint32_t nSeconds = 30)
    {
        EXPECT_EQ(read(2, setting + readOfTrack2() + readTail(), nSeconds), 0);
        EXPECT_TRUE(room(2).holds("62"));
        expectLastWaits({{szRead2, nCardSeconds, MsgDataEndCondition}, {szStatus, 2, MsgStatusEndCondition}});
        m_texts[1] = "62";
        EXPECT_EQ(write(2, setting + writeOfTrack2() + writeTail(), nSeconds), 0);
        expectLastWaits({{szStatus, nCardSeconds, MsgStatusEndCondition}});
    }
    void expectLastWaits(const std::vector<StripeWait> &expected)
    {
        std::vector<StripeWait> waits = m_line->takeWaits();
        ASSERT_GE(waits.size(), expected.size());
        waits.erase(waits.begin(), waits.end() - static_cast<long>(expected.size()));
        EXPECT_EQ(waits, expected);
    }
};

TEST_F(MsrTracksSetup, ATimeOutOutside1To120IsRefusedBeforeAnythingIsOpened)
{
    for (const uint32_t nSeconds : {0U, 121U, 122U, 255U, 256U, 257U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nSeconds);
        m_texts = {"1", "2", "3"};
        for (int32_t nMode : {1, 2, 3, 12, 23, 123, 0}) {
            EXPECT_EQ(read(nMode, {}, nSeconds), -2);
            EXPECT_TRUE(allUntouched());
            EXPECT_EQ(write(nMode, {}, nSeconds), -2);
        }
        EXPECT_EQ(g_MsgParam.nType, 0U);
        EXPECT_EQ(stBackUpParam.nType, 0U);
    }
}

TEST_F(MsrTracksSetup, ARefusedTimeOutLeavesTheTexts)
{
    m_texts = {"1", "62A1", "3"};
    EXPECT_EQ(write(2, {}, 121), -2);
    EXPECT_EQ(text(2), "62A1");
}

TEST_F(MsrTracksSetup, EveryTimeOutFrom1To120IsTold)
{
    for (const uint32_t nSeconds : {1U, 2U, 3U, 30U, 119U, 120U}) {
        SCOPED_TRACE(nSeconds);
        expectBothWork(prepared(nSeconds), static_cast<int32_t>(nSeconds), nSeconds);
    }
    EXPECT_EQ(readTime(120), "01 30 30 30 33 32 30 30 34 37 38 35 3C 04");
}

TEST_F(MsrTracksSetup, TheTimeOutsOfTheReaderAndOfTheReadAreTheHosts)
{
    for (const uint32_t nSeconds : {1U, 120U}) {
        SCOPED_TRACE(nSeconds);
        m_line->takeMillis();
        EXPECT_EQ(read(1, reading({{szRead1}}, nSeconds), nSeconds), -56);
        EXPECT_EQ(m_line->takeMillis(), (nSeconds + 1) * 1000);
        m_texts[1] = "62";
        EXPECT_EQ(write(2, writing({{"1B 74 36 32 1D 1B 5C"}, {szStatus}}, nSeconds), nSeconds), -4);
        EXPECT_EQ(m_line->takeMillis(), (nSeconds + 1) * 1000);
    }
}

TEST_F(MsrTracksSetup, TheTickCounterStartsWithARead)
{
    EXPECT_EQ(read(2, {}, 0), -2); // before the time-out is looked at
    EXPECT_EQ(g_stStartTime, int64_t{nStripeStart} * 1000);
    EXPECT_EQ(read(2, reading({{szRead2}}, 3), 3), -56);
    EXPECT_EQ(g_stStartTime, int64_t{nStripeStart} * 1000);
}

TEST_F(MsrTracksSetup, AWriteThatComesToNoCardLeavesTheTickCounter)
{
    g_stStartTime = 77;
    m_texts = {"1", "2", "3"};
    EXPECT_EQ(write(2, {}, 0), -2);
    EXPECT_EQ(write(2, {}, 121), -2);
    m_texts[1] = "A";
    EXPECT_EQ(write(2, {}), -2);
    m_texts[1].reset();
    EXPECT_EQ(write(2, {}), -2);
    char sz2[] = "2";
    EXPECT_EQ(MSG_QV_WriteData("", 9600, nullptr, 0, 0, 2, 30, nullptr, sz2, nullptr), -50);
    EXPECT_EQ(g_stStartTime, 77);
}

TEST_F(MsrTracksSetup, AReadPassesOnWhyThePortWouldNotOpenAndAWriteDoesNot)
{
    struct Row {
        const char *pszPort;
        uint32_t nBaud;
        int32_t nRead;
    };
    const Row rows[] = {{"", 9600, -50},     {nullptr, 9600, -50}, {"/dev/qv-not-there", 9600, -50},
                        {"COM1", 38400, -2}, {"COM", 9600, -2},    {"/proc", 9600, -2},
                        {"PCSC", 9600, -2},  {"AUX1", 9600, -50}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszPort == nullptr ? "null" : row.pszPort);
        for (int32_t nMode : {2, 12, 123, 0}) {
            EXPECT_EQ(MSG_QV_ReadData(row.pszPort, row.nBaud, "A", 0, 0, nMode, 30, m_rooms[0].data(), 513,
                                      m_rooms[1].data(), 513, m_rooms[2].data(), 513),
                      row.nRead);
            EXPECT_TRUE(allUntouched());
            char sz1[] = "1", sz2[] = "2", sz3[] = "3";
            EXPECT_EQ(MSG_QV_WriteData(row.pszPort, row.nBaud, "A", 0, 0, nMode, 30, sz1, sz2, sz3), -50);
        }
        finish();
    }
}

TEST_F(MsrTracksSetup, AChannelThatCannotBeSelectedFailsTheOpen)
{
    play({{"1B 25 42", "", 0, false}});
    EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, "B", 0, 0, 2, 30, nullptr, 0, nullptr, 0, nullptr, 0), -50);
    finish();
    char sz2[] = "2";
    play({{"1B 25 42", "", 0, false}});
    EXPECT_EQ(MSG_QV_WriteData(m_line->path(), 9600, "B", 0, 0, 2, 30, nullptr, sz2, nullptr), -50);
    finish();
}

TEST_F(MsrTracksSetup, AfterAFailedOpenAReadResetsAndClosesWhateverIsOpen)
{
    TransPortParam param{};
    param.nType = 1;
    param.nBaud = 9600;
    std::snprintf(param.szTermPath, sizeof param.szTermPath, "%s", m_line->path());
    ASSERT_EQ(COMM_Dev_OpenTransPort(&param), 0);
    play({{szReset}});
    EXPECT_EQ(MSG_QV_ReadData("", 9600, nullptr, 0, 0, 2, 30, nullptr, 0, nullptr, 0, nullptr, 0), -50);
    finish();
    ASSERT_EQ(COMM_Dev_OpenTransPort(&param), 0);
    char sz2[] = "2";
    EXPECT_EQ(MSG_QV_WriteData("", 9600, nullptr, 0, 0, 2, 30, nullptr, sz2, nullptr), -50); // closes only
    finish();
}

TEST_F(MsrTracksSetup, AFormatThatIsNotTakenStopsNothing)
{
    // Behind a reset that did not go out the format is not sent.
    expectBothWork({{szReset, "", 0, false}, {szReadTime30, szDone}});
    expectBothWork({{szReset}, {szIso, "", 0, false}, {szReadTime30, szDone}});
}

TEST_F(MsrTracksSetup, AReadTimeThatIsRefusedStopsNothingAndTheCardHasItsTime)
{
    for (const std::string &sReply : {stripeReply(0x4001), stripeReply(1), stripeReply(0, "x"), stripeReply(1, "x"),
                                      "/" + stripeReply(0x4001), "//" + stripeReply(0x4001)}) {
        SCOPED_TRACE(sReply);
        expectBothWork({{szReset}, {szIso}, {szReadTime30, sReply}});
    }
}

TEST_F(MsrTracksSetup, AReadTimeThatIsNotAnsweredCountsAsDone)
{
    m_line->takeMillis();
    for (const char *psz : {"", "01 30 30", "31 32"}) {
        SCOPED_TRACE(psz);
        expectBothWork({{szReset}, {szIso}, {szReadTime30, psz}});
        EXPECT_EQ(m_line->takeMillis(), 2 * 3'000);
    }
    for (const char *psz :
         {"01 30 04", "01 30 30 30 32 30 30 30 30 30 31 04", "!", "//01 30 30 30 32 30 30 30 30 30 30 04"}) {
        SCOPED_TRACE(psz);
        expectBothWork({{szReset}, {szIso}, {szReadTime30, psz}});
    }
    expectBothWork({{szReset}, {szIso}, {szReadTime30, "", 0, false}});
}

TEST_F(MsrTracksSetup, ALateAnswerToTheReadTimeStandsInFrontOfTheNextOne)
{
    const StripeScript setting = {{szReset}, {szIso}, {szReadTime30, "////" + std::string(szDone)}};
    // A bare reply must begin with its own first byte; a status may have anything in front of it.
    EXPECT_EQ(read(2, setting + StripeScript{{szRead2, bareReply("62")}} + readTail()), -4);
    m_texts[1] = "62";
    EXPECT_EQ(write(2, setting + writeOfTrack2() + writeTail()), 0);
    EXPECT_EQ(write(2, setting + StripeScript{{"1B 74 36 32 1D 1B 5C"}, {szStatus, szFailed}} + writeTail()), -6);
}

// Frames cannot be told apart: a late answer to the read time stands for the next one, whatever the reader says then.
TEST_F(MsrTracksSetup, ALateAnswerToTheReadTimeCountsAsThatOfAFramedCommand)
{
    const StripeScript setting = {{szReset}, {szIso}, {szReadTime30, "////" + std::string(szDone)}};
    m_texts = {"1", "2", "3"};
    EXPECT_EQ(
        write(123, setting + StripeScript{{stripeCommand("20 03 31 7C 32 7C 33"), stripeReply(0x4001)}} + writeTail()),
        0);
    EXPECT_EQ(read(123, setting + StripeScript{{szSeparator, szDone}, {szReadAll, stripeReply(0x4001)}} + readTail()),
              0);
    for (size_t nTrack : {1U, 2U, 3U})
        EXPECT_TRUE(room(nTrack).holds(""));
}

TEST_F(MsrTracksSetup, TheTerminalFamilyReachesTheOpenRecord)
{
    play({});
    std::array<char, 8> track{};
    std::string sText = "1";
    EXPECT_EQ(MSG_QV_ReadData("AUX1", 9600, nullptr, 0, 5, 2, 30, nullptr, 0, track.data(), 8, nullptr, 0), -50);
    EXPECT_EQ(g_MsgParam.nTermType, 5U);
    EXPECT_EQ(MSG_QV_WriteData("AUX1", 9600, nullptr, 0, 3, 2, 30, nullptr, sText.data(), nullptr), -50);
    EXPECT_EQ(g_MsgParam.nTermType, 3U);
}

TEST_F(MsrTracksSetup, WithoutAReadTimeTheFramedCommandsHaveTheirTimeToo)
{
    for (const std::string &sReply : {stripeReply(0x4001), std::string(), stripeReply(0, "x")}) {
        SCOPED_TRACE(sReply);
        const StripeScript setting = {{szReset}, {szIso}, {szReadTime30, sReply}};
        EXPECT_EQ(read(123, setting + StripeScript{{szSeparator, szDone}, {szReadAll, stripeReply(0, "1|2|3|")}} +
                                readTail()),
                  0);
        expectLastWaits({{szSeparator, 2, ChangeEndCondition}, {szReadAll, 30, ChangeEndCondition}});
        m_texts = {"1", "2", "3"};
        const std::string sWrite = stripeCommand("20 03 31 7C 32 7C 33");
        EXPECT_EQ(write(123, setting + StripeScript{{sWrite, szDone}} + writeTail()), 0);
        expectLastWaits({{hex(bytes(sWrite)), 30, ChangeEndCondition}});
    }
}

TEST_F(MsrTracksSetup, WhatCannotBeSentAtTheEndChangesNoResult)
{
    const StripeScript tail = {{szReset, "", 0, false}, {szChannelA, "", 0, false}, {szReset, "", 0, false}};
    EXPECT_EQ(read(2, prepared() + readOfTrack2() + tail), 0);
    EXPECT_TRUE(room(2).holds("62"));
    m_texts[1] = "62";
    EXPECT_EQ(write(2, prepared() + writeOfTrack2() + StripeScript(tail.begin(), tail.end() - 1)), 0);
}

} // namespace
