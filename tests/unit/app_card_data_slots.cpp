// Device operations that a host left out, none at all, and pointers that a host must not leave out.

#include "app_kernel.h"
#include "app_steps.h"
#include "open_reader.h"

using namespace qvtest;

namespace {

// A failed start or transaction powers the card down.
bool powersDown(const Step &step)
{
    return std::string_view(step.pszName) != "CtlScriptData";
}

// Every step of the kernel fails, and a failure powers down in each call that may.
void failEverything()
{
    TestKernel *pKernel = testKernel();
    pKernel->nStart = pKernel->nTrans = pKernel->nFinal = -7;
    QV_APP_SetInfoPowerOffFlag(1);
}

size_t count(const Calls &calls, const std::string &sCall)
{
    return static_cast<size_t>(std::count(calls.begin(), calls.end(), sCall));
}

using Slots = KernelSession;

TEST_F(Slots, WithoutAnOpenOperationOpeningSucceeds)
{
    for (const Step &step : s_steps) {
        beginSession();
        stICOp[1] = nullptr;
        testKernel()->nPacked = 1;
        EXPECT_EQ(step.call(szPort), 0) << step.pszName;
        Calls calls = takeCalls();
        EXPECT_EQ(count(calls, "close()"), 1U) << step.pszName;
        EXPECT_EQ(calls.back(), "TY_ConvertErr(0)") << step.pszName;
    }
}

TEST_F(Slots, WithoutACloseOperationNothingIsClosed)
{
    for (const Step &step : s_steps) {
        beginSession();
        stICOp[2] = nullptr;
        failEverything();
        // A failed ARQC has the result of its power-down.
        EXPECT_EQ(step.call(szPort), std::string_view(step.pszName) == "genARQC" ? 0 : -9007) << step.pszName;
        Calls calls = takeCalls();
        EXPECT_EQ(count(calls, "close()"), 0U) << step.pszName;
        EXPECT_EQ(count(calls, "powerDown()"), powersDown(step) ? 1U : 0U) << step.pszName;
    }
}

TEST_F(Slots, WithoutAPowerDownOperationTheEarlierResultStays)
{
    for (const Step &step : s_steps) {
        beginSession();
        stICOp[5] = nullptr;
        failEverything();
        EXPECT_EQ(step.call(szPort), -9007) << step.pszName;
        Calls calls = takeCalls();
        EXPECT_EQ(count(calls, "powerDown()"), 0U) << step.pszName;
        EXPECT_EQ(count(calls, "close()"), 1U) << step.pszName;
        EXPECT_EQ(calls.back(), "TY_ConvertErr(-7)") << step.pszName;
    }
}

TEST_F(Slots, AnArqcThatCannotPowerDownKeepsTheFailureThatItHad)
{
    stICOp[5] = nullptr;
    s_device.nOpen = -51;
    EXPECT_EQ(QV_APP_genARQC(szPort, "", 9600, "", "T", &s_nOut, s_szOut), -9051);
    s_device.nOpen = 0;
    testKernel()->nPacked = -6;
    EXPECT_EQ(QV_APP_genARQC(szPort, "", 9600, "", "T", &s_nOut, s_szOut), -9006);
    testKernel()->nPacked = 0;
    EXPECT_EQ(QV_APP_genARQC(szPort, "", 9600, "", "T", &s_nOut, s_szOut), -9001);
    testKernel()->nTrans = 7;
    EXPECT_EQ(QV_APP_genARQC(szPort, "", 9600, "", "T", &s_nOut, s_szOut), -8993);
}

TEST_F(Slots, TheSwitchesOfTheLibrarysCallbacksAreNotForTheHostsOperations)
{
    g_stCallBackFunc = {0, 0, 0, 0, 0};
    QV_APP_SetInfoPowerOffFlag(1);
    EXPECT_EQ(QV_APP_SelectGpo(szPort, szParameter, nBaud, "1"), 0);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "Emv_QV_Start(record, 5)", "powerDown()", "close()", "TY_ConvertErr(0)"}));
}

TEST_F(Slots, TheSlotsAreReadAtTheTimeOfEachUse)
{
    testKernel()->pfnAtStart = [] { stICOp[2] = nullptr; };
    EXPECT_EQ(QV_APP_SelectGpo(szPort, szParameter, nBaud, "1"), 0);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "Emv_QV_Start(record, 5)", "TY_ConvertErr(0)"}));
}

TEST_F(Slots, ANullPointerIsRefusedBeforeTheReaderIsTouched)
{
    const std::vector<std::pair<const char *, std::function<int32_t()>>> rows = {
        {"info tags", [] { return QV_APP_getIcInfo("P", "", 9600, "1", nullptr, &s_nOut, s_szOut); }},
        {"info type", [] { return QV_APP_getIcInfo("P", "", 9600, nullptr, "A", &s_nOut, s_szOut); }},
        {"info length", [] { return QV_APP_getIcInfo("P", "", 9600, "1", "A", nullptr, s_szOut); }},
        {"info text", [] { return QV_APP_getIcInfo("P", "", 9600, "1", "A", &s_nOut, nullptr); }},
        {"other info tags",
         [] { return QV_APP_GetIccInfo("P", "", 9600, "1", "", "", nullptr, "", &s_nOut, s_szOut); }},
        {"list type", [] { return QV_APP_GetIcAidList("P", "", 9600, nullptr, &s_nOut, s_szOut); }},
        {"list length", [] { return QV_APP_GetIcAidList("P", "", 9600, "1", nullptr, s_szOut); }},
        {"list text", [] { return QV_APP_GetIcAidList("P", "", 9600, "1", &s_nOut, nullptr); }},
        {"select type", [] { return QV_APP_SelectAid("P", "", 9600, nullptr, "A0"); }},
        {"select AID", [] { return QV_APP_SelectAid("P", "", 9600, "1", nullptr); }},
        {"no-GPO type", [] { return QV_APP_SelectAidNoGpo("P", "", 9600, nullptr, "A0"); }},
        {"no-GPO AID", [] { return QV_APP_SelectAidNoGpo("P", "", 9600, "1", nullptr); }},
        {"GPO type", [] { return QV_APP_SelectGpo("P", "", 9600, nullptr); }},
        {"record tags", [] { return QV_APP_ReadRecord("P", "", 9600, "1", nullptr, &s_nOut, s_szOut); }},
        {"record type", [] { return QV_APP_ReadRecord("P", "", 9600, nullptr, "A", &s_nOut, s_szOut); }},
        {"record length", [] { return QV_APP_ReadRecord("P", "", 9600, "1", "A", nullptr, s_szOut); }},
        {"record text", [] { return QV_APP_ReadRecord("P", "", 9600, "1", "A", &s_nOut, nullptr); }},
        {"ARQC data", [] { return QV_APP_genARQC("P", "", 9600, "", nullptr, &s_nOut, s_szOut); }},
        {"ARQC length", [] { return QV_APP_genARQC("P", "", 9600, "", "T", nullptr, s_szOut); }},
        {"ARQC text", [] { return QV_APP_genARQC("P", "", 9600, "", "T", &s_nOut, nullptr); }},
        {"completion length",
         [] { return QV_APP_CtlScriptData("P", "", 9600, "", "T", "", nullptr, s_szOut, s_szScript); }},
        {"completion text",
         [] { return QV_APP_CtlScriptData("P", "", 9600, "", "T", "", &s_nOut, nullptr, s_szScript); }},
        {"script text", [] { return QV_APP_CtlScriptData("P", "", 9600, "", "T", "", &s_nOut, s_szOut, nullptr); }},
        {"log type", [] { return QV_APP_GetTranDetail("P", "", 9600, nullptr, 1, &s_nOut, s_szOut); }},
        {"log length", [] { return QV_APP_GetTranDetail("P", "", 9600, "1", 1, nullptr, s_szOut); }},
        {"log text", [] { return QV_APP_GetTranDetail("P", "", 9600, "1", 1, &s_nOut, nullptr); }},
    };
    for (const auto &[pszWhat, call] : rows) {
        EXPECT_EQ(call(), -9002) << pszWhat;
        EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-2)"}) << pszWhat;
    }
    for (const Step &step : s_steps) {
        EXPECT_EQ(step.call(nullptr), -9002) << step.pszName;
        EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-2)"}) << step.pszName;
    }
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
    EXPECT_EQ(icType(), 0xEE);
}

TEST_F(Slots, WhatIsIgnoredMayBeNull)
{
    testKernel()->nPacked = 1;
    EXPECT_EQ(QV_APP_genARQC("P", nullptr, 9600, nullptr, "T", &s_nOut, s_szOut), 0);
    EXPECT_EQ(QV_APP_CtlScriptData("P", nullptr, 9600, nullptr, nullptr, nullptr, &s_nOut, s_szOut, s_szScript), 0);
    EXPECT_EQ(QV_APP_getIcInfo("P", nullptr, 9600, "1", "A", &s_nOut, s_szOut), 0);
    EXPECT_EQ(QV_APP_SelectGpo("P", nullptr, 9600, "1"), 0);
    QV_APP_SetArqcExeFlag(1);
    EXPECT_EQ(QV_APP_genARQC("P", nullptr, 9600, nullptr, nullptr, &s_nOut, s_szOut), -2);
}

// No table: the library's own reader functions, whatever the flags of the callbacks say.
class NoTable : public ClosedReader {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        beginSession();
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        g_stCallBackFunc = {0, 0, 0, 0, 0};
    }
    void TearDown() override
    {
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        pszEmvData = nullptr;
        ClosedReader::TearDown();
    }
};

TEST_F(NoTable, TheReaderIsOpenDuringTheStepAndClosedAfterIt)
{
    static int s_nDuring;
    for (const Step &step : s_steps) {
        if (std::string(step.pszName) == "genARQC" || std::string(step.pszName) == "CtlScriptData" ||
            std::string(step.pszName) == "GetTranDetail")
            continue; // their kernel calls are others, or they power down after a success
        s_nDuring = 0;
        const int nBefore = openDescriptors();
        QV_APP_SetInfoPowerOffFlag(0);
        testKernel()->pfnAtStart = [] { s_nDuring = openDescriptors(); };
        EXPECT_EQ(step.call(path()), 0) << step.pszName;
        EXPECT_EQ(s_nDuring, nBefore + 1) << step.pszName;
        EXPECT_EQ(openDescriptors(), nBefore) << step.pszName;
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(NoTable, AFailedStepPowersTheCurrentSlotDown)
{
    const int nBefore = openDescriptors();
    testKernel()->nStart = -7;
    COMM_Icc_CardReaderSetCardSlot(2);
    testKernel()->pfnAtStart = [] { COMM_Rdz_ChageReadTimeOut(60); };
    answer("32 23 02", 0);
    EXPECT_EQ(QV_APP_SelectGpo(path(), "", 9600, "1"), -9007);
    EXPECT_EQ(openDescriptors(), nBefore);
}

TEST_F(NoTable, APortThatIsNotThereFailsEachStep)
{
    for (const Step &step : s_steps) {
        std::string sName = step.pszName;
        if (sName == "CtlScriptData" || sName == "genARQC" || sName == "GetTranDetail")
            continue; // they go on with the card
        takeCalls();
        EXPECT_EQ(step.call("/dev/no-such-port"), -9051) << sName;
        EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-51)"}) << sName;
    }
}

} // namespace
