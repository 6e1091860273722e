// The completion of a transaction: what of the issuer's answer reaches the kernel, and what of the kernel's reaches the
// host.

#include "app_transaction.h"

using namespace qvtest;

namespace {

using Completion = CompletionTest;

const std::vector<Case> s_cases = {
    {"no answer of the issuer",
     nothing,
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"an answer without tag 91",
     [] { s_pszArpc = "8A023030"; },
     {szOpen, "Emv_SaveData(8A, 3030, 2, 49)", "EMV_Final(record)", "Pack_Data_Emv_Trance(1)",
      "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()", "TY_ConvertErr(0)"},
     0},
    {"an answer with tag 91",
     [] { s_pszArpc = "910411223344"; },
     {szOpen, "Emv_SaveData(8A, 3030, 2, 49)", "Emv_SaveData(91, 11223344, 4, 49)", "EMV_Final(record)",
      "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()", "TY_ConvertErr(0)"},
     0},
    {"the kernel refuses to store",
     [] {
         s_pszArpc = "910411223344";
         testKernel()->nEmvSaveData = -4;
     },
     {szOpen, "Emv_SaveData(8A, 3030, 2, 49)", "Emv_SaveData(91, 11223344, 4, 49)", "EMV_Final(record)",
      "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()", "TY_ConvertErr(0)"},
     0},
    {"the open fails",
     [] { s_device.nOpen = -51; },
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"no transaction data",
     [] {
         pszEmvData = nullptr;
         s_pszArpc = "910411223344";
     },
     {szOpen, "Emv_QV_End(-1)", "close()", "TY_ConvertErr(-1)"},
     -9001},
    {"no transaction data and the open fails",
     [] {
         pszEmvData = nullptr;
         s_device.nOpen = -51;
     },
     {szOpen, "Emv_QV_End(-1)", "close()", "TY_ConvertErr(-1)"},
     -9001},
    {"the finalisation fails",
     [] {
         testKernel()->nFinal = -7;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "EMV_Final(record)", "Emv_QV_End(-7)", "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"the finalisation fails with a positive result",
     [] { testKernel()->nFinal = 7; },
     {szOpen, "EMV_Final(record)", "Emv_QV_End(7)", "close()", "TY_ConvertErr(7)"},
     -8993},
    {"packing fails",
     [] { testKernel()->nPacked = -1; },
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"there is no script result",
     [] { testKernel()->nEmvGetData = -6; },
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(-6)", "close()",
      "TY_ConvertErr(-6)"},
     -9006},
    {"ending and closing fail",
     [] {
         testKernel()->nEnd = -9;
         s_device.nClose = -3;
     },
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"the card stays powered whatever the flag",
     [] { QV_APP_SetInfoPowerOffFlag(1); },
     {szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()",
      "TY_ConvertErr(0)"},
     0},
};

TEST_F(Completion, EachCaseMakesItsCallsInOrder)
{
    runCases(
        [] {
            int32_t nRet = complete();
            s_pszArpc = "";
            return nRet;
        },
        s_cases);
}

TEST_F(Completion, TheOtherNameIsTheSameCall)
{
    packs({0x9F, 0x26});
    EXPECT_EQ(QV_APP_CloseTransAction(szPort, szParameter, nBaud, "9", "AMT=1", "9101EE", &s_done.nLen, s_done.szText,
                                      s_done.szScript),
              0);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "Emv_SaveData(8A, 3030, 2, 49)", "Emv_SaveData(91, EE, 1, 49)",
                                  "EMV_Final(record)", "Pack_Data_Emv_Trance(1)", "Emv_GetData(DF31, cleared)",
                                  "Emv_QV_End(0)", "close()", "TY_ConvertErr(0)"}));
    EXPECT_EQ(s_done.nLen, 4U);
    EXPECT_STREQ(s_done.szText, "9F26");
    EXPECT_STREQ(s_done.szScript, "DF3105");
}

TEST_F(Completion, CompletionDataAndScriptResultBecomeHexText)
{
    packs({0x9F, 0x26, 0xAB});
    holds({0x20, 0x00, 0xCD});
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(s_done.nLen, 6U);
    EXPECT_STREQ(s_done.szText, "9F26AB");
    EXPECT_STREQ(s_done.szScript, "DF31052000CD");
}

TEST_F(Completion, CompletionDataFillTheirRoomAndNoMore)
{
    s_done.szText[2 * 8192 + 1] = '!';
    packs(Bytes(8192, 0xEF));
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(s_done.nLen, 16384U);
    EXPECT_EQ(std::string(s_done.szText, 4), "EFEF");
    EXPECT_EQ(std::strlen(s_done.szText), 16384U);
    EXPECT_EQ(s_done.szText[2 * 8192 + 1], '!');
    testKernel()->nPacked = 8193; // more than the kernel's buffer holds
    complete();
    EXPECT_EQ(s_done.szText[2 * 8192 + 1], '!');
}

TEST_F(Completion, TheLabelOfTheScriptResultIsTheSameForEveryLength)
{
    for (size_t nLen : {0U, 1U, 5U, 6U, 399U, 400U}) {
        beginSession();
        s_done = {};
        s_done.szScript[807] = '!';
        holds(Bytes(nLen, 0xFE));
        EXPECT_EQ(complete(), 0);
        std::string sExpected = "DF3105";
        for (size_t i = 0; i < nLen; ++i)
            sExpected += "FE";
        EXPECT_STREQ(s_done.szScript, sExpected.c_str()) << nLen;
        EXPECT_EQ(s_done.szScript[807], '!') << nLen;
    }
}

TEST_F(Completion, AScriptResultLongerThanItsBufferOverrunsNothing)
{
    s_done.szScript[807] = '!';
    holds(Bytes(400, 0xFE));
    testKernel()->nObject = 4000;
    complete();
    EXPECT_EQ(s_done.szScript[807], '!');
}

TEST_F(Completion, WhatTheKernelDoesNotDeliverIsLeft)
{
    testKernel()->nPacked = 0;
    testKernel()->nEmvGetData = -6;
    EXPECT_EQ(complete(), -9006);
    EXPECT_EQ(s_done.nLen, 0xA5A5A5A5);
    EXPECT_STREQ(s_done.szText, "untouched");
    EXPECT_STREQ(s_done.szScript, "untouched");
    packs({0x9F});
    testKernel()->nEmvGetData = 0;
    testKernel()->nFinal = -7;
    EXPECT_EQ(complete(), -9007);
    EXPECT_STREQ(s_done.szText, "untouched");
    EXPECT_STREQ(s_done.szScript, "untouched");
}

TEST_F(Completion, TheLogHoldsTheArgumentsAndTheEnd)
{
    s_pszArpc = "8A023030";
    logOn();
    EXPECT_EQ(complete(), 0);
    EXPECT_TRUE(
        logged({"[QV_APP_CtlScriptData] Start ", "[QV_APP_CtlScriptData] Start pszARPC = 8A023030  pszTxData = AMT=1 ",
                "[QV_APP_CtlScriptData] End nRet = 0  "}));
    std::string sLog = logWithoutTime();
    EXPECT_TRUE(sLog.starts_with(appLine("[QV_APP_CtlScriptData] Start ") +
                                 appLine("[QV_APP_CtlScriptData] Start pszARPC = 8A023030  pszTxData = AMT=1 ")))
        << sLog;
    EXPECT_NE(sLog.find(appLine("[QV_APP_CtlScriptData] End nRet = 0  ")), std::string::npos) << sLog;
    EXPECT_NE(sLog.find(appLine("====> nRetConVert  = 0 ")), std::string::npos) << sLog;
}

TEST_F(Completion, TheEndIsLoggedUnconvertedAndBehindTheClose)
{
    testKernel()->nFinal = -7;
    logWithCalls();
    EXPECT_EQ(complete(), -9007);
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_CtlScriptData] Start ") +
                                    appLine("[QV_APP_CtlScriptData] Start pszARPC =   pszTxData = AMT=1 ") +
                                    callLine(szOpen) + callLine("EMV_Final(record)") + callLine("Emv_QV_End(-7)") +
                                    callLine("close()") + appLine("[QV_APP_CtlScriptData] End nRet = -7  ") +
                                    callLine("TY_ConvertErr(-7)") + appLine("====> nRetConVert  = -9007 "));
}

TEST_F(Completion, NullTextsAreLoggedAsEmptyOnes)
{
    logOn();
    EXPECT_EQ(QV_APP_CtlScriptData(szPort, szParameter, nBaud, nullptr, nullptr, nullptr, &s_done.nLen, s_done.szText,
                                   s_done.szScript),
              0);
    EXPECT_TRUE(logWithoutTime().starts_with(appLine("[QV_APP_CtlScriptData] Start ") +
                                             appLine("[QV_APP_CtlScriptData] Start pszARPC =   pszTxData =  ")))
        << logWithoutTime();
}

} // namespace
