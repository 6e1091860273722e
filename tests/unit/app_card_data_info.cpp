// Card data and the card's application list: what the kernel is asked, in which order, and what becomes of each failure.

#include "app_kernel.h"

using namespace qvtest;

namespace {

constexpr char szAidList[] = "A0000003330101";

struct Output {
    uint32_t nLen = 0xA5A5A5A5;
    char sz[2100] = "untouched";
};
Output s_out;

int32_t readInfo(const char *pszTags, const char *pszCardType = "2")
{
    return QV_APP_getIcInfo(szPort, szParameter, nBaud, pszCardType, pszTags, &s_out.nLen, s_out.sz);
}

int32_t listAids()
{
    return QV_APP_GetIcAidList(szPort, szParameter, nBaud, "2", &s_out.nLen, s_out.sz);
}

class CardData : public KernelSession {
  protected:
    void SetUp() override
    {
        KernelSession::SetUp();
        s_out = {};
    }
};
using AidList = CardData;

const std::vector<Case> s_infoCases = {
    {"success",
     nothing,
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"success with power-off",
     [] { QV_APP_SetInfoPowerOffFlag(1); },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)",
      "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"a power-off flag of 2 is not 1",
     [] { QV_APP_SetInfoPowerOffFlag(2); },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"power-down and close fail after a success",
     [] {
         QV_APP_SetInfoPowerOffFlag(1);
         s_device.nPowerDown = -31;
         s_device.nClose = -3;
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)",
      "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"opening has a positive result", [] { s_device.nOpen = 1; }, {szOpen, "TY_ConvertErr(1)"}, -8999},
    {"the open fails", [] { s_device.nOpen = -51; }, {szOpen, "TY_ConvertErr(-51)"}, -9051},
    {"the lists fail",
     [] { testKernel()->nPackAidList = testKernel()->nDealAidList = -4; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"the start fails",
     [] {
         testKernel()->nStart = -7;
         s_device.nPowerDown = -31;
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "powerDown()", "close()",
      "TY_ConvertErr(-7)"},
     -9007},
    {"the start fails with power-off",
     [] {
         testKernel()->nStart = -7;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "powerDown()", "close()",
      "TY_ConvertErr(-7)"},
     -9007},
    {"a positive result is a failure",
     [] { testKernel()->nStart = 5; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "powerDown()", "close()",
      "TY_ConvertErr(5)"},
     -8995},
    {"saving fails",
     [] { testKernel()->nSaveInfoTag = -8; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)", "close()",
      "TY_ConvertErr(-8)"},
     -9008},
    {"saving fails with power-off",
     [] {
         testKernel()->nSaveInfoTag = -8;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)",
      "powerDown()", "close()", "TY_ConvertErr(-8)"},
     -9008},
    {"the conversion's own result does not count",
     [] {
         testKernel()->nConvertErr = 77;
         testKernel()->nSaveInfoTag = -8;
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)", "TY_SaveInfoTag(AB)", "close()",
      "TY_ConvertErr(-8)"},
     -9008},
    {"without PPSE the start gets the card type",
     [] { QV_APP_SetPpseSelect(0); },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 50)", "TY_SaveInfoTag(AB)",
      "close()", "TY_ConvertErr(0)"},
     0},
    {"a PPSE flag of 2 is not 1",
     [] { QV_APP_SetPpseSelect(2); },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 50)", "TY_SaveInfoTag(AB)",
      "close()", "TY_ConvertErr(0)"},
     0},
};

TEST_F(CardData, EachCaseMakesItsCallsInOrder)
{
    runCases([] { return readInfo("AB"); }, s_infoCases);
}

TEST_F(CardData, TheKernelsOwnListBecomesTheCandidateList)
{
    for (const std::string &sList : {std::string(szAidList), std::string(1, '1'), std::string(1023, 'F')}) {
        beginSession();
        std::copy(sList.begin(), sList.end(), testKernel()->szAidList);
        EXPECT_EQ(readInfo("AB"), 0);
        EXPECT_EQ(takeCalls().at(2), "TY_DealAidList(" + sList + ", " + std::to_string(sList.size()) + ")");
    }
}

TEST_F(CardData, AListWithoutAnEndIsCutAtItsRoom)
{
    std::fill(std::begin(testKernel()->szAidList), std::end(testKernel()->szAidList), 'F');
    EXPECT_EQ(readInfo("AB"), 0);
    EXPECT_EQ(takeCalls().at(2), "TY_DealAidList(" + std::string(1023, 'F') + ", 1023)");
}

TEST_F(CardData, TheKernelWritesTheHostsOutput)
{
    kernelText("A0036225");
    EXPECT_EQ(readInfo("A"), 0);
    EXPECT_EQ(s_out.nLen, 8U);
    EXPECT_STREQ(s_out.sz, "A0036225");
}

TEST_F(CardData, AFailureLeavesTheHostsOutput)
{
    testKernel()->nStart = -7;
    EXPECT_EQ(readInfo("A"), -9007);
    s_device.nOpen = -51;
    EXPECT_EQ(readInfo("A"), -9051);
    EXPECT_EQ(s_out.nLen, 0xA5A5A5A5);
    EXPECT_STREQ(s_out.sz, "untouched");
}

TEST_F(CardData, TheRecordIsClearedAndHoldsWhatTheKernelNeeds)
{
    EXPECT_EQ(readInfo("AB", "1"), 0);
    EXPECT_EQ(seenAgainst(startedRecord(0, '1').u32(EMV_PROC_PPSE, 1).u8(EMV_PROC_MODE, '1')), "");
    EXPECT_TRUE(testKernel()->bBufferClear);
    EXPECT_EQ(icType(), '1');
    for (uint32_t nFlag : {0U, 2U, 0xFFFFFFFFU}) {
        beginSession();
        QV_APP_SetPpseSelect(nFlag);
        EXPECT_EQ(readInfo("AB", "3 and more"), 0);
        EXPECT_EQ(seenAgainst(startedRecord(0, '3').u8(EMV_PROC_MODE, '1')), "") << nFlag;
    }
}

TEST_F(CardData, AFailedOpenLeavesRecordBufferAndCardType)
{
    s_device.nOpen = -51;
    EXPECT_EQ(readInfo("AB"), -9051);
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
    EXPECT_EQ(g_szEmvbuf[0], ucPattern);
    EXPECT_EQ(icType(), 0xEE);
}

TEST_F(CardData, OnlyTheCardNumberAloneWithTheFlagOneIsReadFast)
{
    struct {
        uint32_t nFlag;
        const char *pszTags;
        bool bFast;
    } rows[] = {{1, "A", true},  {0, "A", false},  {2, "A", false},  {1, "AB", false}, {1, "B", false},
                {1, "a", false}, {1, "BA", false}, {1, "AA", false}, {1, "A ", false}};
    for (const auto &row : rows) {
        beginSession();
        QV_APP_SetFastReadFlag(row.nFlag);
        EXPECT_EQ(readInfo(row.pszTags), 0);
        Calls expected = {szOpen,
                          "PackAidList(cleared)",
                          "TY_DealAidList(, 0)",
                          "Emv_QV_Start(record, 1)",
                          std::string("TY_SaveInfoTag(") + row.pszTags + ")",
                          "close()",
                          "TY_ConvertErr(0)"};
        if (row.bFast)
            expected.insert(expected.begin() + 3, "SetRead5AFlag(1)");
        EXPECT_EQ(takeCalls(), expected) << row.nFlag << " " << row.pszTags;
    }
}

TEST_F(CardData, AnEmptyTagListIsRefusedBeforeTheReaderIsTouched)
{
    logOn();
    EXPECT_EQ(readInfo(""), -9002);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-2)"});
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_getIcInfo] Start ") + appLine("[icFlag = 2]") +
                                    appLine("[pszTaglist NULL ]") + appLine("====> nRetConVert  = -9002 "));
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
    EXPECT_EQ(icType(), 0xEE);
}

TEST_F(CardData, TheLogHoldsStartCardTypeAndConvertedResult)
{
    logOn();
    EXPECT_EQ(readInfo("AB"), 0);
    EXPECT_EQ(logWithoutTime(),
              appLine("[QV_APP_getIcInfo] Start ") + appLine("[icFlag = 2]") + appLine("====> nRetConVert  = 0 "));
    logOn();
    testKernel()->nStart = -7;
    EXPECT_EQ(readInfo("AB"), -9007);
    EXPECT_TRUE(logged({"[QV_APP_getIcInfo] Start ", "[icFlag = 2]", "====> nRetConVert  = -9007 "}));
}

TEST_F(CardData, TheOtherNameTakesItsArgumentsFromTenPlaces)
{
    kernelText("A0036225");
    EXPECT_EQ(QV_APP_GetIccInfo(szPort, szParameter, nBaud, "1", nullptr, "X", "AB", nullptr, &s_out.nLen, s_out.sz),
              0);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 1)",
                                  "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(0)"}));
    EXPECT_EQ(seenAgainst(startedRecord(0, '1').u32(EMV_PROC_PPSE, 1).u8(EMV_PROC_MODE, '1')), "");
    EXPECT_EQ(s_out.nLen, 8U);
    EXPECT_STREQ(s_out.sz, "A0036225");
}

const std::vector<Case> s_aidCases = {
    {"success",
     nothing,
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "TY_SaveAidListInfo()", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"neither PPSE nor fast read count",
     [] {
         QV_APP_SetPpseSelect(0);
         QV_APP_SetFastReadFlag(1);
     },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "TY_SaveAidListInfo()", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"success with power-off",
     [] {
         QV_APP_SetInfoPowerOffFlag(1);
         s_device.nPowerDown = -31;
     },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "TY_SaveAidListInfo()", "powerDown()", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"opening has a positive result", [] { s_device.nOpen = 1; }, {szOpen, "TY_ConvertErr(1)"}, -8999},
    {"the open fails", [] { s_device.nOpen = -51; }, {szOpen, "TY_ConvertErr(-51)"}, -9051},
    {"the start fails",
     [] {
         testKernel()->nStart = -7;
         s_device.nPowerDown = -31;
         s_device.nClose = -3;
     },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "powerDown()", "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"the start fails with power-off",
     [] {
         testKernel()->nStart = -7;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "powerDown()", "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"saving fails",
     [] { testKernel()->nSaveAidListInfo = -8; },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "TY_SaveAidListInfo()", "close()",
      "TY_ConvertErr(-8)"},
     -9008},
    {"saving fails with power-off",
     [] {
         testKernel()->nSaveAidListInfo = -8;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "TY_DealAidList(null, 0)", "Emv_QV_Start(record, 1)", "TY_SaveAidListInfo()", "powerDown()", "close()",
      "TY_ConvertErr(-8)"},
     -9008},
};

TEST_F(AidList, EachCaseMakesItsCallsInOrder)
{
    runCases(listAids, s_aidCases);
}

TEST_F(AidList, TheKernelGetsAClearedRecordAndTheHostsOutputs)
{
    kernelText("A0000003330101");
    logOn();
    EXPECT_EQ(listAids(), 0);
    EXPECT_EQ(logWithoutTime(),
              appLine("[QV_APP_GetIcAidList] Start ") + appLine("[icFlag = 2]") + appLine("====> nRetConVert  = 0 "));
    EXPECT_EQ(seenAgainst(startedRecord(1, '2').u8(EMV_PROC_MODE, '1')), "");
    EXPECT_TRUE(testKernel()->bBufferClear);
    EXPECT_EQ(icType(), '2');
    EXPECT_EQ(s_out.nLen, 14U);
    EXPECT_STREQ(s_out.sz, "A0000003330101");
}

} // namespace
