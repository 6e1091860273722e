// The ARQC: one transaction up to the first cryptogram, or only its data when the kernel has made the cryptogram.

#include "app_transaction.h"

using namespace qvtest;

namespace {

struct Output {
    uint32_t nLen = 0xA5A5A5A5;
    char sz[2 * 8192 + 2] = "untouched"; // one character more than the call may write
};
Output s_out;

int32_t makeArqc()
{
    return QV_APP_genARQC(szPort, szParameter, nBaud, "9", "AMT=1", &s_out.nLen, s_out.sz);
}

class Arqc : public KernelSession {
  protected:
    void SetUp() override
    {
        KernelSession::SetUp();
        s_out = {};
    }
};

const std::vector<Case> s_cases = {
    {"success",
     [] {
         packs({0x9F, 0x26});
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"the card stays powered whatever the flag",
     [] {
         packs({0x9F});
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"setting the bit, saving and closing fail",
     [] {
         packs({0x9F});
         testKernel()->nSetTvr = testKernel()->nSaveData = -5;
         s_device.nClose = -3;
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(0)"},
     0},
    {"opening has a positive result",
     [] {
         s_device.nOpen = 1;
         s_device.nPowerDown = -31;
     },
     {szOpen, "powerDown()", "close()", "TY_ConvertErr(-31)"},
     -9031},
    {"the open fails, the power-down works",
     [] { s_device.nOpen = -51; },
     {szOpen, "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"open and power-down fail",
     [] {
         s_device.nOpen = -51;
         s_device.nPowerDown = -31;
     },
     {szOpen, "powerDown()", "close()", "TY_ConvertErr(-31)"},
     -9031},
    {"no transaction data",
     [] {
         pszEmvData = nullptr;
         s_device.nPowerDown = -31;
     },
     {szOpen, "close()", "TY_ConvertErr(-1)"},
     -9001},
    {"no transaction data and the open fails",
     [] {
         pszEmvData = nullptr;
         s_device.nOpen = -51;
     },
     {szOpen, "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"the transaction fails, the power-down works",
     [] { testKernel()->nTrans = -7; },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"transaction and power-down fail",
     [] {
         testKernel()->nTrans = 7;
         s_device.nPowerDown = -31;
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "powerDown()", "close()",
      "TY_ConvertErr(-31)"},
     -9031},
    {"nothing is packed",
     [] { s_device.nPowerDown = -31; },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "powerDown()",
      "close()", "TY_ConvertErr(-31)"},
     -9031},
    {"packing fails, the power-down works",
     [] { testKernel()->nPacked = -1; },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "powerDown()",
      "close()", "TY_ConvertErr(0)"},
     0},
    {"packing fails, and there is no power-down",
     [] {
         testKernel()->nPacked = -6;
         stICOp[5] = nullptr;
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(-6)"},
     -9006},
    {"nothing is packed, and there is no power-down",
     [] { stICOp[5] = nullptr; },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(-1)"},
     -9001},
    {"an executed flag of 2 is not 1",
     [] {
         packs({0x9F});
         QV_APP_SetArqcExeFlag(2);
     },
     {szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)", "Pack_Data_Emv_Trance(2)", "close()",
      "TY_ConvertErr(0)"},
     0},
};

TEST_F(Arqc, EachCaseMakesItsCallsInOrder)
{
    runCases(makeArqc, s_cases);
}

TEST_F(Arqc, TheOtherNameIsTheSameCall)
{
    packs({0x9F, 0x26, 0xAB});
    EXPECT_EQ(QV_APP_GenerateARQC(szPort, szParameter, nBaud, "9", "AMT=1", &s_out.nLen, s_out.sz), 0);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "SetTVR(80)", "TY_SaveData(AMT=1)", "Emv_QV_Trans(record)",
                                  "Pack_Data_Emv_Trance(2)", "close()", "TY_ConvertErr(0)"}));
    EXPECT_EQ(s_out.nLen, 6U);
    EXPECT_STREQ(s_out.sz, "9F26AB");
}

TEST_F(Arqc, EachPackedByteBecomesTwoCharacters)
{
    for (size_t nLen : {1U, 2U, 255U, 8192U}) {
        beginSession();
        s_out = {};
        s_out.sz[2 * nLen + 1] = '!';
        packs(Bytes(nLen, 0xEF));
        EXPECT_EQ(makeArqc(), 0);
        EXPECT_EQ(s_out.nLen, 2 * nLen);
        std::string sExpected;
        for (size_t i = 0; i < nLen; ++i)
            sExpected += "EF";
        EXPECT_STREQ(s_out.sz, sExpected.c_str()) << nLen;
        EXPECT_EQ(s_out.sz[2 * nLen + 1], '!') << nLen;
    }
}

TEST_F(Arqc, AKernelThatTellsMoreThanItsBufferHoldsOverrunsNothing)
{
    testKernel()->nPacked = 8193;
    s_out.sz[2 * 8192 + 1] = '!';
    makeArqc();
    EXPECT_EQ(s_out.sz[2 * 8192 + 1], '!');
}

TEST_F(Arqc, AFailureLeavesTheOutput)
{
    testKernel()->nPacked = -1;
    EXPECT_EQ(makeArqc(), 0);
    EXPECT_EQ(s_out.nLen, 0xA5A5A5A5);
    EXPECT_STREQ(s_out.sz, "untouched");
}

TEST_F(Arqc, TheRecordTheBufferAndTheCardTypeAreKept)
{
    packs({0x9F});
    EXPECT_EQ(makeArqc(), 0);
    EXPECT_EQ(seenAgainst(Record(ucPattern)), "");
    EXPECT_TRUE(isBufferKept());
    EXPECT_EQ(icType(), 0xEE);
    EXPECT_EQ(QV_APP_GetArqcExeFlag(), 0U);
}

TEST_F(Arqc, TheLogHoldsTheCryptogramsData)
{
    packs({0x9F, 0x26, 0xAB});
    logOn();
    EXPECT_EQ(makeArqc(), 0);
    EXPECT_EQ(logTexts(), (Calls{"[QV_APP_genARQC] Start ", "First Arqc", "ARQC -  LEN=3   HEX: 9F26AB", "ASc= 9F26AB",
                                 "====> nRetConVert  = 0 "}));
    std::string sLog = logWithoutTime();
    EXPECT_TRUE(sLog.starts_with(appLine("[QV_APP_genARQC] Start ") + appLine("First Arqc"))) << sLog;
    EXPECT_TRUE(sLog.ends_with(appLine("ASc= 9F26AB") + appLine("====> nRetConVert  = 0 "))) << sLog;
}

TEST_F(Arqc, TheLinesStandBeforeTheOpenAndBeforeTheClose)
{
    packs({0x9F, 0x26, 0xAB});
    logWithCalls();
    EXPECT_EQ(makeArqc(), 0);
    EXPECT_EQ(logWithoutTime(),
              appLine("[QV_APP_genARQC] Start ") + appLine("First Arqc") + callLine(szOpen) + callLine("SetTVR(80)") +
                  callLine("TY_SaveData(AMT=1)") + callLine("Emv_QV_Trans(record)") +
                  callLine("Pack_Data_Emv_Trance(2)") + " T  ARQC -  LEN=3   HEX: 9F26AB\r\n" + appLine("ASc= 9F26AB") +
                  callLine("close()") + callLine("TY_ConvertErr(0)") + appLine("====> nRetConVert  = 0 "));
}

TEST_F(Arqc, TheLongestCryptogramsDataAreLoggedToo)
{
    packs(Bytes(8192, 0xEF));
    logOn();
    EXPECT_EQ(makeArqc(), 0);
    EXPECT_TRUE(logTexts().at(2).starts_with("ARQC -  LEN=8192   HEX: EFEF"));
    EXPECT_TRUE(logTexts().at(3).starts_with("ASc= EFEF"));
    EXPECT_EQ(std::strlen(s_out.sz), 16384U);
}

TEST_F(Arqc, TheLogOfAFailureHasTheConvertedResult)
{
    logOn();
    testKernel()->nTrans = -7;
    s_device.nPowerDown = -31;
    EXPECT_EQ(makeArqc(), -9031);
    EXPECT_TRUE(logged({"[QV_APP_genARQC] Start ", "First Arqc", "====> nRetConVert  = -9031 "}));
}

TEST_F(Arqc, AfterTheKernelsOwnCryptogramOnlyTheDataAreStored)
{
    QV_APP_SetArqcExeFlag(1);
    s_device.nOpen = -51;
    for (int32_t nSaved : {0, -5, 5}) {
        logOn();
        testKernel()->nSaveData = nSaved;
        EXPECT_EQ(makeArqc(), 0);
        EXPECT_EQ(takeCalls(), Calls{"TY_SaveData(AMT=1)"});
        EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_genARQC] Start ") + appLine("!!!!!!"));
    }
    EXPECT_EQ(QV_APP_GetArqcExeFlag(), 1U);
    EXPECT_STREQ(s_out.sz, "untouched");
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
}

TEST_F(Arqc, AfterTheKernelsOwnCryptogramItNeedsTransactionData)
{
    QV_APP_SetArqcExeFlag(1);
    pszEmvData = nullptr;
    logOn();
    EXPECT_EQ(makeArqc(), -2);
    EXPECT_EQ(takeCalls(), Calls{});
    EXPECT_TRUE(logged({"[QV_APP_genARQC] Start ", "!!!!!!"}));
}

} // namespace
