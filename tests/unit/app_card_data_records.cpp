// Reading an application's records: goes on with the selection, and saves what was read even when reading failed.

#include "app_kernel.h"

using namespace qvtest;

namespace {

struct Output {
    uint32_t nLen = 0xA5A5A5A5;
    char sz[2100] = "untouched";
};
Output s_out;

int32_t readRecords(const char *pszTags = "AB")
{
    return QV_APP_ReadRecord(szPort, szParameter, nBaud, "2", pszTags, &s_out.nLen, s_out.sz);
}

class Records : public KernelSession {
  protected:
    void SetUp() override
    {
        KernelSession::SetUp();
        s_out = {};
    }
};

const std::vector<Case> s_recordCases = {
    {"success", nothing, {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(0)"}, 0},
    {"success with power-off",
     [] {
         QV_APP_SetInfoPowerOffFlag(1);
         s_device.nPowerDown = -31;
     },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"a power-off flag of 2 is not 1",
     [] { QV_APP_SetInfoPowerOffFlag(2); },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(0)"},
     0},
    {"opening has a positive result", [] { s_device.nOpen = 1; }, {szOpen, "close()", "TY_ConvertErr(1)"}, -8999},
    {"the open fails",
     [] {
         s_device.nOpen = -51;
         s_device.nClose = -3;
     },
     {szOpen, "close()", "TY_ConvertErr(-51)"},
     -9051},
    {"reading failed: what there is is saved",
     [] { testKernel()->nStart = -7; },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(0)"},
     0},
    {"reading and saving failed",
     [] {
         testKernel()->nStart = -7;
         testKernel()->nSaveInfoTag = -8;
     },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(-8)"},
     -9008},
    {"reading failed with power-off",
     [] {
         testKernel()->nStart = -7;
         QV_APP_SetInfoPowerOffFlag(1);
         s_device.nPowerDown = -31;
     },
     {szOpen, "Emv_QV_Start(record, 3)", "powerDown()", "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"reading failed, a power-off flag of 2",
     [] {
         testKernel()->nStart = -7;
         QV_APP_SetInfoPowerOffFlag(2);
     },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "close()", "TY_ConvertErr(0)"},
     0},
    {"saving fails with power-off",
     [] {
         testKernel()->nSaveInfoTag = -8;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag(AB)", "powerDown()", "close()", "TY_ConvertErr(-8)"},
     -9008},
};

TEST_F(Records, EachCaseMakesItsCallsInOrder)
{
    runCases([] { return readRecords(); }, s_recordCases);
}

TEST_F(Records, AnEmptyTagListIsHandedOn)
{
    EXPECT_EQ(readRecords(""), 0);
    EXPECT_EQ(takeCalls(),
              (Calls{szOpen, "Emv_QV_Start(record, 3)", "TY_SaveInfoTag()", "close()", "TY_ConvertErr(0)"}));
}

TEST_F(Records, TheRecordAndTheBufferOfTheSelectionAreKept)
{
    kernelText("A0036225");
    EXPECT_EQ(readRecords(), 0);
    EXPECT_EQ(seenAgainst(kept(3)), "");
    EXPECT_TRUE(isBufferKept());
    EXPECT_EQ(icType(), '2');
    EXPECT_EQ(s_out.nLen, 8U);
    EXPECT_STREQ(s_out.sz, "A0036225");
}

TEST_F(Records, ARecordWithoutABufferGetsItsAddressAndSize)
{
    std::fill_n(g_stProc + EMV_PROC_BUFFER, sizeof(void *), uint8_t{0});
    EXPECT_EQ(readRecords(), 0);
    EXPECT_EQ(seenAgainst(kept(3).pointer(EMV_PROC_BUFFER, g_szEmvbuf).u32(EMV_PROC_BUFFER_SIZE, 8192)), "");
    EXPECT_TRUE(isBufferKept());
}

TEST_F(Records, TheLogTellsEachStep)
{
    const std::string sHead =
        appLine("[QV_APP_ReadRecord] Start ") + appLine("[icFlag = 2]") + appLine("pszTaglist = AB ");
    logOn();
    EXPECT_EQ(readRecords(), 0);
    EXPECT_EQ(logWithoutTime(), sHead + appLine("OpenDevice nRet = 0 ") + appLine("Emv_QV_Start nRet = 0 ") +
                                    appLine("FuncReadRecordPort") + appLine("====> nRetConVert  = 0 "));
    logOn();
    testKernel()->nStart = -7;
    QV_APP_SetInfoPowerOffFlag(1);
    EXPECT_EQ(readRecords(), -9007);
    EXPECT_EQ(logWithoutTime(), sHead + appLine("OpenDevice nRet = 0 ") + appLine("Emv_QV_Start nRet = -7 ") +
                                    appLine("PowerOff ") + appLine("FuncReadRecordPort") +
                                    appLine("====> nRetConVert  = -9007 "));
    logOn();
    s_device.nOpen = -51;
    EXPECT_EQ(readRecords(), -9051);
    EXPECT_EQ(logWithoutTime(), sHead + appLine("OpenDevice nRet = -51 ") + appLine(" Goto FuncEnd") +
                                    appLine("FuncReadRecordPort") + appLine("====> nRetConVert  = -9051 "));
}

} // namespace
