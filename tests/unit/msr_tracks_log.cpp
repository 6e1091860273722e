// What the track engine writes to the log, and that the log changes no result.

#include "device_log.h"
#include "stripe_reader.h"

#include <gmock/gmock.h>

using namespace qvtest;
using testing::HasSubstr;
using testing::Not;

namespace {

// A line of the engine as the file shows it.
std::string engineLine(const std::string &sText)
{
    return "  T  INFO:    BusiMsg:  " + sText + "\r\n";
}

size_t occurrences(const std::string &sText)
{
    const std::string sLog = logWithoutTime();
    size_t n = 0;
    for (size_t nAt = sLog.find(sText); nAt != std::string::npos; nAt = sLog.find(sText, nAt + sText.size()))
        ++n;
    return n;
}

using Rooms = std::vector<std::string>;

// The room for a reply that each exchange was given, in turn.
Rooms rooms()
{
    static const std::string sTitle = "nMaxReciveBufLen ";
    Rooms found;
    for (const std::string &sText : logTexts())
        if (sText.starts_with(sTitle))
            found.push_back(sText.substr(sTitle.size(), sText.find(',') - sTitle.size()));
    return found;
}

class MsrTracksLog : public StripeReader {
  protected:
    void SetUp() override
    {
        StripeReader::SetUp();
        logOn();
    }
    static constexpr char szWrite2[] = "1B 74 36 32 1D 1B 5C";
    static constexpr char szWrongForm[] = "磁条卡格式错误", szWrongText[] = "输入数据有误";
};

TEST_F(MsrTracksLog, AReadIsLoggedFromItsStartToItsEndWithItsResult)
{
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("62")}, {szStatus, szSucceeded}})), 0);
    EXPECT_TRUE(
        logged({"[MSG_QV_ReadData] Start ", "g_stStartTime= 1800000000000", "[MSG_QV_ReadData] End nRet = 0  "}));
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("[MSG_QV_ReadData] Start ")));
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("[MSG_QV_ReadData] End nRet = 0  ")));
    EXPECT_THAT(logWithoutTime(), Not(HasSubstr(szWrongForm)));
    logOn();
    EXPECT_EQ(read(2, {}, 0), -2);
    EXPECT_TRUE(
        logged({"[MSG_QV_ReadData] Start ", "g_stStartTime= 1800000000000", "[MSG_QV_ReadData] End nRet = -2  "}));
}

TEST_F(MsrTracksLog, AWriteIsLoggedFromItsStartToItsEndWithItsResult)
{
    m_texts[1] = "62";
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szSucceeded}})), 0);
    EXPECT_TRUE(
        logged({"[MSG_QV_WriteData] Start ", "g_stStartTime= 1800000000000", "[MSG_QV_WriteData] End nRet = 0  "}));
    EXPECT_THAT(logWithoutTime(), Not(HasSubstr(szWrongText)));
    EXPECT_THAT(logWithoutTime(), Not(HasSubstr("szTrackData")));
    EXPECT_THAT(logWithoutTime(), Not(HasSubstr("TimeOut\r\n")));
    logOn();
    EXPECT_EQ(write(2, {}, 121), -2);
    EXPECT_TRUE(logged({"[MSG_QV_WriteData] Start ", "[MSG_QV_WriteData] End nRet = -2  "}));
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("[MSG_QV_WriteData] End nRet = -2  ")));
}

TEST_F(MsrTracksLog, ACancelIsLogged)
{
    MSG_QV_CancelRead();
    EXPECT_TRUE(
        logged({"[MSG_QV_CancelRead] Start ", "[COMM_Rdz_Cancel] Start ", "[MSG_QV_CancelRead] End nRet = -1  "}));
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("[MSG_QV_CancelRead] Start ")));
}

TEST_F(MsrTracksLog, AReplyInAnotherFormIsLogged)
{
    EXPECT_EQ(read(2, reading({{szRead2, "31 3F 1C"}})), -4);
    EXPECT_EQ(occurrences(engineLine(szWrongForm)), 1U);
    EXPECT_TRUE(logged({"[MSG_QV_ReadData] Start ", szWrongForm, "[MSG_QV_ReadData] End nRet = -4  "}));
}

TEST_F(MsrTracksLog, TheCheckItselfTellsTheWrongForm)
{
    const Bytes whole = bytes("1B 73 31 3F 1C");
    EXPECT_EQ(tFuncCheckTrackFormat(whole.data(), 5), 0);
    EXPECT_EQ(occurrences(szWrongForm), 0U);
    EXPECT_EQ(tFuncCheckTrackFormat(whole.data(), 4), -4);
    EXPECT_EQ(occurrences(engineLine(szWrongForm)), 1U);
}

TEST_F(MsrTracksLog, AFramedWriteHasRoomForAReplyOf1024Bytes)
{
    m_texts = {"1", "2", "3"};
    EXPECT_EQ(write(123, writing({{stripeCommand("20 03 31 7C 32 7C 33"), szDone}})), 0);
    EXPECT_TRUE(logged({"nSendLen 7 ", "nMaxReciveBufLen 1024,cHead =\x01,cHead = \x01"}));
}

TEST_F(MsrTracksLog, EachReplyHasTheRoomOfItsCommand)
{
    struct Row {
        int32_t nMode;
        StripeScript middle;
        Rooms rooms; // behind that for the read time
    };
    const Row reads[] = {
        {1, {{szRead1, bareReply("1")}, {szStatus, szSucceeded}}, {"516", "128"}},
        {2, {{szRead2, bareReply("2")}, {szStatus, szSucceeded}}, {"512", "128"}},
        {3, {{szRead3, bareReply("X3")}, {szStatus, szSucceeded}}, {"512", "128"}},
        {12, {{szRead12, bareReply("2A1")}, {szStatus, szSucceeded}}, {"1028", "128"}},
        {23, {{szRead23, bareReply("2A3")}, {szStatus, szSucceeded}}, {"1028", "128"}},
        {123, {{szSeparator, szDone}, {szReadAll, stripeReply(0, "1|2|3|")}}, {"1024", "1028"}},
    };
    for (const Row &row : reads) {
        SCOPED_TRACE(row.nMode);
        Rooms expected = row.rooms;
        expected.insert(expected.begin(), "1024");
        logOn();
        EXPECT_EQ(read(row.nMode, reading(row.middle)), 0);
        EXPECT_EQ(rooms(), expected);
    }
    m_texts[1] = "62";
    logOn();
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szSucceeded}})), 0);
    EXPECT_EQ(rooms(), (Rooms{"1024", "128"}));
}

TEST_F(MsrTracksLog, TheStatusGetsItsEndConditionFirstAndThenItsTimeOut)
{
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("62")}, {szStatus, szSucceeded}})), 0);
    EXPECT_TRUE(logged({"[COMM_Rdz_SetEndCondition ] Start",
                        "nMaxReciveBufLen 512,cHead =", "[COMM_Rdz_SetEndCondition ] Start",
                        "COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 2 ", "nMaxReciveBufLen 128,cHead ="}));
}

TEST_F(MsrTracksLog, OtherFailuresAreNoWrongForm)
{
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("1")}, {szStatus, szFailed}})), -5);
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("1")}, {szStatus}})), -4);
    EXPECT_EQ(read(2, reading({{szRead2}})), -56);
    EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, stripeReply(0x4001)}})), -9);
    EXPECT_EQ(occurrences(szWrongForm), 0U);
}

TEST_F(MsrTracksLog, ATextThatIsCutIsLoggedWithTheCharacter)
{
    m_texts = {std::nullopt, "62A1", std::nullopt};
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szSucceeded}})), 0);
    EXPECT_EQ(occurrences(engineLine("szTrackData A format error\n")), 1U);
    EXPECT_EQ(occurrences(szWrongText), 0U);
}

TEST_F(MsrTracksLog, ATextThatIsRefusedIsLoggedWithTheCharacterAndAsWrong)
{
    m_texts = {std::nullopt, "62", "\3441"};
    EXPECT_EQ(write(2, {}), -2);
    EXPECT_EQ(occurrences(engineLine("szTrackData \xE4 format error\n") + engineLine(szWrongText)), 1U);
    EXPECT_TRUE(logged({"[MSG_QV_WriteData] Start ", szWrongText, "[MSG_QV_WriteData] End nRet = -2  "}));
}

TEST_F(MsrTracksLog, AFailureAfterItsTimeIsLogged)
{
    m_texts = {std::nullopt, "62", std::nullopt};
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szFailed, 31'000}})), -6);
    EXPECT_TRUE(logged({"g_stStartTime= 1800000000000", "g_stEndTime= 1800000031000", "31000 "}));
    EXPECT_EQ(occurrences(engineLine("TimeOut")), 0U);
    logOn();
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szFailed, 31'001}})), -56);
    EXPECT_TRUE(logged({"g_stStartTime= 1800000031000", "g_stEndTime= 1800000062001", "31001 ", "TimeOut",
                        "[MSG_QV_WriteData] End nRet = -56  "}));
    EXPECT_EQ(occurrences(engineLine("TimeOut")), 1U);
}

TEST_F(MsrTracksLog, TheLinesOfTheEngineCanBeSwitchedOffByTheirType)
{
    StDebugTip allButType8{{1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1}};
    const StDebugTip before = g_stDebugTip;
    Dbg_SetDebugLevel(&allButType8);
    g_DbgSetFlag = 1;
    EXPECT_EQ(read(2, reading({{szRead2, "31 3F 1C"}})), -4);
    g_DbgSetFlag = 0;
    Dbg_SetDebugLevel(&before);
    EXPECT_EQ(occurrences("BusiMsg"), 0U);
    EXPECT_GT(occurrences("CommDev:"), 0U);
}

TEST_F(MsrTracksLog, AFramedReadNamesItsFault)
{
    EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, stripeReply(0x4001)}})), -9);
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("MAG_ERR_NO_DATA")));
    EXPECT_THAT(logWithoutTime(), Not(HasSubstr("MAG_ERR_OTHER")));
    logOn();
    EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, stripeReply(0x4002)}})), -5);
    EXPECT_THAT(logWithoutTime(), HasSubstr(engineLine("MAG_ERR_OTHER")));
}

TEST_F(MsrTracksLog, TheLogChangesNoResultAndNothingOnTheWire)
{
    for (const bool bLog : {true, false}) {
        SCOPED_TRACE(bLog);
        if (bLog)
            logOn();
        else
            logOff();
        EXPECT_EQ(read(12, reading({{szRead12, bareReply("22AB1")}, {szStatus, szSucceeded}})), 0);
        EXPECT_TRUE(room(1).holds("B1"));
        EXPECT_TRUE(room(2).holds("22"));
        EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, stripeReply(0x4003, "12345")}})), 5);
        EXPECT_EQ(read(3, reading({{szRead3, "!"}})), -55);
        m_texts = {"B1", "62A", "33"};
        EXPECT_EQ(write(123, writing({{stripeCommand("20 03 " + hexOf("B1|62|33")), stripeReply(0x4002)}})), -100);
        EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, szFailed}})), -6);
        EXPECT_EQ(read(2, reading({{szRead2}}, 1), 1), -56);
    }
}

} // namespace
