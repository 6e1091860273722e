// Selecting an application, which begins a conversation, and its processing options, which go on with what it left.

#include "app_kernel.h"

using namespace qvtest;

namespace {

constexpr char szAid[] = "A000000333010101";
constexpr char szDealt[] = "TY_DealAidList(A000000333010101, 16)";

struct Selection {
    const char *pszName;
    int32_t (*pfn)(const char *, const char *, int32_t, const char *, const char *) noexcept;
    int32_t nKind;
};
const Selection s_selections[] = {{"QV_APP_SelectAid", QV_APP_SelectAid, 2},
                                  {"QV_APP_SelectAidNoGpo", QV_APP_SelectAidNoGpo, 4}};

using Select = KernelSession;
using Gpo = KernelSession;

TEST_F(Select, EachCaseMakesItsCallsInOrder)
{
    for (const Selection &selection : s_selections) {
        const std::string sStart = "Emv_QV_Start(record, " + std::to_string(selection.nKind) + ")";
        const std::vector<Case> cases = {
            {"success", nothing, {szOpen, szDealt, sStart, "close()", "TY_ConvertErr(0)"}, 0},
            {"the card stays powered whatever the flag",
             [] { QV_APP_SetInfoPowerOffFlag(1); },
             {szOpen, szDealt, sStart, "close()", "TY_ConvertErr(0)"},
             0},
            {"closing fails",
             [] { s_device.nClose = -3; },
             {szOpen, szDealt, sStart, "close()", "TY_ConvertErr(0)"},
             0},
            {"the list is refused",
             [] { testKernel()->nDealAidList = -4; },
             {szOpen, szDealt, sStart, "close()", "TY_ConvertErr(0)"},
             0},
            {"the open fails", [] { s_device.nOpen = -51; }, {szOpen, "TY_ConvertErr(-51)"}, -9051},
            {"the start fails",
             [] {
                 testKernel()->nStart = -7;
                 s_device.nPowerDown = -31;
             },
             {szOpen, szDealt, sStart, "powerDown()", "close()", "TY_ConvertErr(-7)"},
             -9007},
            {"the start fails with a positive result",
             [] { testKernel()->nStart = 1; },
             {szOpen, szDealt, sStart, "powerDown()", "close()", "TY_ConvertErr(1)"},
             -8999},
        };
        SCOPED_TRACE(selection.pszName);
        runCases([&] { return selection.pfn(szPort, szParameter, nBaud, "2", szAid); }, cases);
    }
}

TEST_F(Select, TheRecordIsClearedAndHasNoMode)
{
    for (const Selection &selection : s_selections) {
        beginSession();
        EXPECT_EQ(selection.pfn(szPort, szParameter, nBaud, "1", szAid), 0);
        EXPECT_EQ(seenAgainst(startedRecord(selection.nKind, '1')), "") << selection.pszName;
        EXPECT_TRUE(testKernel()->bBufferClear);
        EXPECT_EQ(icType(), '1');
    }
}

TEST_F(Select, AnEmptyAidIsRefusedBeforeTheReaderIsTouched)
{
    for (const Selection &selection : s_selections) {
        beginSession();
        EXPECT_EQ(selection.pfn(szPort, szParameter, nBaud, "1", ""), -9002);
        EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-2)"}) << selection.pszName;
        EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
        EXPECT_EQ(icType(), 0xEE);
    }
}

TEST_F(Select, TheLogHoldsTheStartsResult)
{
    for (const Selection &selection : s_selections) {
        beginSession();
        const std::string sStart = std::string("[") + selection.pszName + "] Start ";
        logOn();
        EXPECT_EQ(selection.pfn(szPort, szParameter, nBaud, "1", szAid), 0);
        EXPECT_EQ(logWithoutTime(), appLine(sStart) + appLine("[icFlag = 1]") + appLine("[Emv_QV_Start  nRet = 0]") +
                                        appLine("====> nRetConVert  = 0 "));
        logOn();
        testKernel()->nStart = -7;
        EXPECT_EQ(selection.pfn(szPort, szParameter, nBaud, "1", szAid), -9007);
        EXPECT_TRUE(logged({sStart, "[icFlag = 1]", "[Emv_QV_Start  nRet = -7]", "====> nRetConVert  = -9007 "}));
    }
}

int32_t options()
{
    return QV_APP_SelectGpo(szPort, szParameter, nBaud, "2");
}

const std::vector<Case> s_gpoCases = {
    {"success", nothing, {szOpen, "Emv_QV_Start(record, 5)", "close()", "TY_ConvertErr(0)"}, 0},
    {"success with power-off",
     [] {
         QV_APP_SetInfoPowerOffFlag(1);
         s_device.nPowerDown = -31;
     },
     {szOpen, "Emv_QV_Start(record, 5)", "powerDown()", "close()", "TY_ConvertErr(0)"},
     0},
    {"a power-off flag of 2 is not 1",
     [] { QV_APP_SetInfoPowerOffFlag(2); },
     {szOpen, "Emv_QV_Start(record, 5)", "close()", "TY_ConvertErr(0)"},
     0},
    {"the open fails", [] { s_device.nOpen = -51; }, {szOpen, "TY_ConvertErr(-51)"}, -9051},
    {"the start fails",
     [] {
         testKernel()->nStart = -7;
         s_device.nPowerDown = -31;
         s_device.nClose = -3;
     },
     {szOpen, "Emv_QV_Start(record, 5)", "powerDown()", "close()", "TY_ConvertErr(-7)"},
     -9007},
    {"the start fails with power-off",
     [] {
         testKernel()->nStart = -7;
         QV_APP_SetInfoPowerOffFlag(1);
     },
     {szOpen, "Emv_QV_Start(record, 5)", "powerDown()", "close()", "TY_ConvertErr(-7)"},
     -9007},
};

TEST_F(Gpo, EachCaseMakesItsCallsInOrder)
{
    runCases(options, s_gpoCases);
}

TEST_F(Gpo, TheRecordAndTheBufferOfTheSelectionAreKept)
{
    logOn();
    EXPECT_EQ(options(), 0);
    EXPECT_EQ(logWithoutTime(),
              appLine("[QV_APP_SelectGpo] Start ") + appLine("[icFlag = 2]") + appLine("====> nRetConVert  = 0 "));
    EXPECT_EQ(seenAgainst(kept(5).u8(EMV_PROC_CARD_TYPE, '2')), "");
    EXPECT_TRUE(isBufferKept());
    EXPECT_EQ(icType(), '2');
}

TEST_F(Gpo, ARecordWithoutABufferGetsItsAddressAndSize)
{
    std::fill_n(g_stProc + EMV_PROC_BUFFER, sizeof(void *), uint8_t{0});
    EXPECT_EQ(options(), 0);
    EXPECT_EQ(
        seenAgainst(
            kept(5).u8(EMV_PROC_CARD_TYPE, '2').pointer(EMV_PROC_BUFFER, g_szEmvbuf).u32(EMV_PROC_BUFFER_SIZE, 8192)),
        "");
    EXPECT_TRUE(isBufferKept());
}

TEST_F(Gpo, AFailedOpenChangesNothing)
{
    s_device.nOpen = -51;
    EXPECT_EQ(options(), -9051);
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
    EXPECT_EQ(icType(), 0xEE);
}

} // namespace
