// What the JSON call logs of its conversation.
//
// Every /dev/COM name leads to the pseudo-terminal of the test.

#include "devcall_record.h"
#include "failing_writes.h"

#include <utility>

using namespace qvtest;

namespace {

class DeviceCallLog : public AnsweredCall, public FailingWrites {
  protected:
    void TearDown() override
    {
        s_bWritesFail = false;
        AnsweredCall::TearDown();
    }
};

TEST_F(DeviceCallLog, ASuccessIsLogged)
{
    freshLog();
    const std::string sAnswer = answerTo(Record{});
    takeLog();
    EXPECT_TRUE(
        logged({"initDriver", "DEV_CommCall Start", "[Dev_Rdz_Ic_OpenPort] Start ", "===>[Dev_Rdz_Ic_ClosePort] Start ",
                "outJson = " + sAnswer + ", *outlen = " + std::to_string(sAnswer.size()) + ", nRet = 0"}));
    EXPECT_TRUE(logged({"version2=5.06.07.08"}));
    EXPECT_FALSE(logged({"tl900"}));
}

TEST_F(DeviceCallLog, TheCallsOwnLinesAreTyped)
{
    Record record;
    record.sModel = padded("TL900");
    freshLog();
    answerTo(record);
    takeLog();
    for (const char *pszText :
         {"DEV_CommCall Start", "tl900", "szMac=0123456789AB", "version2=5.06.07.08", "outJson = "}) {
        SCOPED_TRACE(pszText);
        EXPECT_NE(logLine(pszText).find(std::string("  INFO:    CommDev:  ") + pszText), std::string::npos)
            << logLine(pszText);
    }
}

TEST_F(DeviceCallLog, OneModelsMacIsLoggedOnly)
{
    for (const char *pszModel : {"TL900", "TL900-A", "TL9000"}) {
        SCOPED_TRACE(pszModel);
        Record record;
        record.sModel = padded(pszModel);
        freshLog();
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", pszModel));
        takeLog();
        EXPECT_TRUE(logged({"DEV_CommCall Start", "tl900", "szMac=0123456789AB", "===>[Dev_Rdz_Ic_ClosePort] Start "}));
        logOff();
    }
    const std::pair<const char *, const char *> others[] = {
        {"TL90", "TL90"}, {"tl900", "tl900"}, {"XTL900", "XTL900"}, {" TL900", "TL900"}};
    for (auto [pszModel, pszText] : others) {
        SCOPED_TRACE(pszModel);
        Record record;
        record.sModel = padded(pszModel);
        freshLog();
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", pszText));
        takeLog();
        EXPECT_FALSE(logged({"tl900"}));
        EXPECT_TRUE(logged({"szMac=FFFFFFFFFFFF"}));
        EXPECT_EQ(rawLog().find("szMac=0123456789AB"), std::string::npos);
        logOff();
    }
}

TEST_F(DeviceCallLog, WhatARecordThatIsCutShortLacksIsLoggedAsZeros)
{
    struct Row {
        size_t nLen;
        const char *pszVersion2;
        const char *pszMac;
    };
    const Row rows[] = {{76, "version2=0.00.00.00", "szMac=000000000000"},
                        {79, "version2=0.06.07.08", "szMac=000000000000"},
                        {80, "version2=5.06.07.08", "szMac=000000000000"},
                        {85, "version2=5.06.07.08", "szMac=012345678900"}};
    Record record;
    record.sModel = padded("TL900");
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nLen);
        freshLog();
        answerTo(record.cutFrame(row.nLen));
        takeLog();
        EXPECT_TRUE(logged({"tl900", row.pszMac}));
        EXPECT_TRUE(logged({row.pszVersion2}));
        logOff();
    }
}

TEST_F(DeviceCallLog, WhereNothingCanBeWrittenAnEmptyAnswerIsLogged)
{
    s_bWritesFail = true;
    freshLog();
    EXPECT_EQ(call(), 0);
    takeLog();
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(
        logged({"DEV_CommCall Start", "===>[Dev_Rdz_Ic_ClosePort] Start ", "outJson = , *outlen = 0, nRet = 0"}));
    EXPECT_EQ(logLine("GetDeviceInfo Failed"), "");
    EXPECT_EQ(m_peer->wire(), "");
}

} // namespace
