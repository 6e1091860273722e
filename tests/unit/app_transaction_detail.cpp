// The card's logs, and the host's registration of tags.

#include "app_kernel.h"

using namespace qvtest;

namespace {

uint32_t s_nOutLen;
char s_szOut[16];

int32_t readLog(int32_t nKind = 1)
{
    return QV_APP_GetTranDetail(szPort, szParameter, nBaud, "2", nKind, &s_nOutLen, s_szOut);
}

using CardLog = KernelSession;
using TagList = KernelSession;

const std::vector<Case> s_cases = {
    {"success",
     nothing,
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "EMV_GetPbocDetail(1, 1)",
      "Emv_QV_End(0)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"PPSE and fast read do not count",
     [] {
         QV_APP_SetPpseSelect(0);
         QV_APP_SetFastReadFlag(1);
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "EMV_GetPbocDetail(1, 1)",
      "Emv_QV_End(0)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"ending, power-down and close fail",
     [] {
         testKernel()->nEnd = -9;
         s_device.nPowerDown = -31;
         s_device.nClose = -3;
     },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "EMV_GetPbocDetail(1, 1)",
      "Emv_QV_End(0)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"opening has a positive result",
     [] { s_device.nOpen = 1; },
     {szOpen, "Emv_QV_End(1)", "powerDown()", "close()", "TY_ConvertErr(1)"},
     -8999},
    {"the open fails",
     [] { s_device.nOpen = -51; },
     {szOpen, "Emv_QV_End(-51)", "powerDown()", "close()", "TY_ConvertErr(-51)"},
     -9051},
    {"the start fails",
     [] { testKernel()->nStart = -7; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "Emv_QV_End(-7)", "powerDown()",
      "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"reading the log fails",
     [] { testKernel()->nGetPbocDetail = -8; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "EMV_GetPbocDetail(1, 1)",
      "Emv_QV_End(-8)", "powerDown()", "close()", "TY_ConvertErr(-8)"},
     -9008},
    {"the card's log has entries",
     [] { testKernel()->nGetPbocDetail = 3; },
     {szOpen, "PackAidList(cleared)", "TY_DealAidList(, 0)", "Emv_QV_Start(record, 0)", "EMV_GetPbocDetail(1, 1)",
      "Emv_QV_End(3)", "powerDown()", "close()", "TY_ConvertErr(3)"},
     -8997},
};

TEST_F(CardLog, EachCaseMakesItsCallsInOrder)
{
    runCases([] { return readLog(); }, s_cases);
}

TEST_F(CardLog, EachKindMarksTheRecordAndIsHandedOn)
{
    struct {
        int32_t nKind;
        int nMark;
    } rows[] = {{1, 0x0A}, {2, 0x0B}, {0, 0}, {3, 0}, {-1, 0}};
    for (const auto &row : rows) {
        beginSession();
        EXPECT_EQ(readLog(row.nKind), 0);
        EXPECT_EQ(seenAgainst(startedRecord(0, '2').u8(EMV_PROC_MODE, '1').u8(EMV_PROC_DETAIL, row.nMark)), "")
            << row.nKind;
        EXPECT_TRUE(testKernel()->bBufferClear);
        EXPECT_EQ(takeCalls().at(4), "EMV_GetPbocDetail(" + std::to_string(row.nKind) + ", 1)");
        EXPECT_EQ(testKernel()->pDetail, s_szOut);
        EXPECT_EQ(testKernel()->pDetailLen, &s_nOutLen);
        EXPECT_EQ(icType(), '2');
    }
}

TEST_F(CardLog, TheKernelsOwnListBecomesTheCandidateList)
{
    testKernel()->szAidList[0] = 'X';
    EXPECT_EQ(readLog(), 0);
    EXPECT_EQ(takeCalls().at(2), "TY_DealAidList(X, 1)");
}

TEST_F(CardLog, TheLogHoldsStartCardTypeAndConvertedResult)
{
    logOn();
    EXPECT_EQ(readLog(), 0);
    EXPECT_EQ(logWithoutTime(),
              appLine("[QV_APP_GetTranDetail] Start ") + appLine("[icFlag = 2]") + appLine("====> nRetConVert  = 0 "));
}

TEST_F(TagList, ItsEndDecidesTheFlagAndWhatStandsBehindTheLastItemTheResult)
{
    struct {
        const char *pszList;
        char cSeparator, cEnd;
        int32_t nResult;
        uint32_t nFlag;
    } rows[] = {
        {"9F02,5A,57;", ',', ';', -9002, 1},  // no separator behind the last item
        {"9F02,5A,57,;", ',', ';', -9002, 1}, // the last item is empty
        {"9F02;", ',', ';', -9002, 1},
        {"9F02,;", ',', ';', -9002, 1},
        {"9F02;5A,57;", ',', ';', -9002, 1},
        {"9F02,5A,", ',', ',', 0, 1}, // the end is a separator
        {",", ',', ',', 0, 1},
        {"9F02;5A;", ';', ';', 0, 1},
        {";", ',', ';', -9002, 1},
        {"9F02,5A", ',', ';', -9002, 0},
        {"9F02,5A,", ',', ';', -9002, 0},
        {"9F02;5A", ',', ';', -9002, 0},
        {"", ',', ';', -9002, 0},
        {nullptr, ',', ';', -9002, 0},
    };
    for (const auto &row : rows) {
        const char *pszShown = row.pszList == nullptr ? "null" : row.pszList;
        beginSession();
        EXPECT_EQ(QV_APP_SaveTlvTag(row.pszList, row.cSeparator, row.cEnd), row.nResult) << pszShown;
        EXPECT_EQ(takeCalls(), Calls{row.nResult == 0 ? "TY_ConvertErr(0)" : "TY_ConvertErr(-2)"}) << pszShown;
        EXPECT_EQ(QV_APP_GetTlvTagFlag(), row.nFlag) << pszShown;
    }
}

TEST_F(TagList, OnlyARefusalIsLogged)
{
    logOn();
    EXPECT_EQ(QV_APP_SaveTlvTag("5A,57,", ',', ','), 0);
    EXPECT_EQ(QV_APP_SaveTlvTag("5A,57;", ',', ';'), -9002);
    EXPECT_EQ(rawLog().find("AppIc"), std::string::npos) << rawLog();
    logOn();
    EXPECT_EQ(QV_APP_SaveTlvTag("5A,57", ',', ';'), -9002);
    EXPECT_EQ(QV_APP_SaveTlvTag(nullptr, ',', ';'), -9002);
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_SaveTlvTag] the list does not end with its end character") +
                                    appLine("[QV_APP_SaveTlvTag] a null pointer"));
}

TEST_F(TagList, EachItemIsCutAtItsSeparatorAndTheLastOneAtTheEnd)
{
    logOn();
    EXPECT_EQ(QV_APP_SaveTlvTag("5A,57;", ',', ';'), -9002);
    EXPECT_EQ(logTexts(), (Calls{"[Str_GetSplitData] Start szInPut = 5A,57; sPlit = , ", "OutBuf = 5A nLen = 2",
                                 "[Str_GetSplitData] Start szInPut = 57; sPlit = , ",
                                 "[Str_GetSplitData] Start szInPut = 57; sPlit = ; ", "OutBuf = 57 nLen = 2"}));
}

TEST_F(TagList, ALongListIsWalkedToItsEnd)
{
    std::string sList;
    for (int i = 0; i < 5000; ++i)
        sList += "9F02,";
    EXPECT_EQ(QV_APP_SaveTlvTag((sList + ";").c_str(), ',', ';'), -9002);
    EXPECT_EQ(QV_APP_SaveTlvTag(sList.c_str(), ',', ','), 0);
    EXPECT_EQ(QV_APP_SaveTlvTag((std::string(20000, 'X') + ";").c_str(), ',', ';'), -9002);
    EXPECT_EQ(QV_APP_SaveTlvTag((std::string(20000, 'X') + ";").c_str(), ';', ';'), 0);
    QV_APP_SetTlvTagFlag(0);
    QV_APP_SaveTlvTag("9F02,5A;", '\0', ';'); // comes back
    EXPECT_EQ(QV_APP_GetTlvTagFlag(), 1U);
}

TEST_F(TagList, ARefusedListLeavesTheFlagAsItWas)
{
    QV_APP_SetTlvTagFlag(1);
    EXPECT_EQ(QV_APP_SaveTlvTag("5A", ',', ';'), -9002);
    EXPECT_EQ(QV_APP_GetTlvTagFlag(), 1U);
}

} // namespace
