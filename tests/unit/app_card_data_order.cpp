// The moment of things inside a step: what the kernel finds at each of its calls, and which line of the log stands before
// which call.

#include "app_kernel.h"
#include "app_steps.h"

using namespace qvtest;

namespace {

constexpr char szNullPointer[] = "] a null pointer";

std::string line(const Step &step, const std::string &sBehind)
{
    return appLine(std::string("[QV_APP_") + step.pszName + sBehind);
}

bool isOneOf(const Step &step, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), step.pszName) != names.end();
}

bool hasCardType(const Step &step)
{
    return !isOneOf(step, {"genARQC", "CtlScriptData"});
}

using StepOrder = KernelSession;

TEST_F(StepOrder, TheKernelFindsTheCardTypeOfTheCall)
{
    for (const Step &step : s_steps) {
        if (!hasCardType(step))
            continue;
        beginSession();
        EXPECT_EQ(step.call(szPort), 0) << step.pszName;
        EXPECT_EQ(testKernel()->ucTypeAtStart, '1') << step.pszName;
        const bool bList = isOneOf(step, {"getIcInfo", "GetTranDetail"});
        EXPECT_EQ(testKernel()->ucTypeAtList, bList ? '1' : 0) << step.pszName;
    }
}

TEST_F(StepOrder, TheCandidatesComeBeforeTheNewRecord)
{
    for (const Step &step : s_steps) {
        if (!isOneOf(step, {"getIcInfo", "GetIcAidList", "SelectAid", "SelectAidNoGpo", "GetTranDetail"}))
            continue;
        beginSession();
        EXPECT_EQ(step.call(szPort), 0) << step.pszName;
        EXPECT_EQ(Record(ucPattern).differences(testKernel()->recordAtList), "") << step.pszName;
    }
}

TEST_F(StepOrder, EachStepBeginsItsLogBeforeTheOpenAndEndsItBehindTheClose)
{
    const std::string sEnd = callLine("close()") + callLine("TY_ConvertErr(0)") + appLine("====> nRetConVert  = 0 ");
    for (const Step &step : s_steps) {
        if (!hasCardType(step))
            continue; // their lines stand with their own tests
        beginSession();
        logWithCalls();
        EXPECT_EQ(step.call(szPort), 0) << step.pszName;
        std::string sHead = line(step, "] Start ") + appLine("[icFlag = 1]");
        if (isOneOf(step, {"ReadRecord"}))
            sHead += appLine("pszTaglist = A ");
        const std::string sLog = logWithoutTime();
        EXPECT_TRUE(sLog.starts_with(sHead + callLine("open(/dev/reader, , 1, 0, 9600)"))) << sLog;
        EXPECT_TRUE(sLog.ends_with(sEnd)) << sLog;
    }
}

TEST_F(StepOrder, ASelectionsResultIsLoggedBeforeThePowerDown)
{
    testKernel()->nStart = -7;
    logWithCalls();
    EXPECT_EQ(QV_APP_SelectAid(szPort, szParameter, nBaud, "2", "A0"), -9007);
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_SelectAid] Start ") + appLine("[icFlag = 2]") + callLine(szOpen) +
                                    callLine("TY_DealAidList(A0, 2)") + callLine("Emv_QV_Start(record, 2)") +
                                    appLine("[Emv_QV_Start  nRet = -7]") + callLine("powerDown()") +
                                    callLine("close()") + callLine("TY_ConvertErr(-7)") +
                                    appLine("====> nRetConVert  = -9007 "));
}

TEST_F(StepOrder, TheLinesOfReadingRecordsStandBeforeWhatTheyAnnounce)
{
    const std::string sHead =
        appLine("[QV_APP_ReadRecord] Start ") + appLine("[icFlag = 2]") + appLine("pszTaglist = AB ");
    const std::string sOpened = callLine(szOpen) + appLine("OpenDevice nRet = 0 ");
    QV_APP_SetInfoPowerOffFlag(1);
    logWithCalls();
    EXPECT_EQ(QV_APP_ReadRecord(szPort, szParameter, nBaud, "2", "AB", &s_nOut, s_szOut), 0);
    EXPECT_EQ(logWithoutTime(), sHead + sOpened + callLine("Emv_QV_Start(record, 3)") +
                                    appLine("Emv_QV_Start nRet = 0 ") + callLine("TY_SaveInfoTag(AB)") +
                                    callLine("powerDown()") + appLine("FuncReadRecordPort") + callLine("close()") +
                                    callLine("TY_ConvertErr(0)") + appLine("====> nRetConVert  = 0 "));
    testKernel()->nStart = -7;
    logWithCalls();
    EXPECT_EQ(QV_APP_ReadRecord(szPort, szParameter, nBaud, "2", "AB", &s_nOut, s_szOut), -9007);
    EXPECT_EQ(logWithoutTime(), sHead + sOpened + callLine("Emv_QV_Start(record, 3)") +
                                    appLine("Emv_QV_Start nRet = -7 ") + appLine("PowerOff ") +
                                    callLine("powerDown()") + appLine("FuncReadRecordPort") + callLine("close()") +
                                    callLine("TY_ConvertErr(-7)") + appLine("====> nRetConVert  = -9007 "));
    s_device.nOpen = -51;
    logWithCalls();
    EXPECT_EQ(QV_APP_ReadRecord(szPort, szParameter, nBaud, "2", "AB", &s_nOut, s_szOut), -9051);
    EXPECT_EQ(logWithoutTime(), sHead + callLine(szOpen) + appLine("OpenDevice nRet = -51 ") +
                                    appLine(" Goto FuncEnd") + appLine("FuncReadRecordPort") + callLine("close()") +
                                    callLine("TY_ConvertErr(-51)") + appLine("====> nRetConVert  = -9051 "));
}

TEST_F(StepOrder, ANullPointerIsLoggedBehindTheCardTypeAndWithTheResult)
{
    for (const Step &step : s_steps) {
        std::string sExpected = line(step, "] Start ");
        if (hasCardType(step))
            sExpected += appLine("[icFlag = 1]");
        else if (isOneOf(step, {"CtlScriptData"}))
            sExpected += line(step, "] Start pszARPC =   pszTxData = T ");
        logOn();
        EXPECT_EQ(step.call(nullptr), -9002) << step.pszName;
        EXPECT_EQ(logWithoutTime(), sExpected + line(step, szNullPointer) + appLine("====> nRetConVert  = -9002 "));
    }
}

TEST_F(StepOrder, ANullCardTypeIsLoggedInItsPlace)
{
    const std::vector<Step> steps = {
        {"getIcInfo", [](const char *p) { return QV_APP_getIcInfo(p, "", 9600, nullptr, nullptr, &s_nOut, s_szOut); }},
        {"GetIcAidList", [](const char *p) { return QV_APP_GetIcAidList(p, "", 9600, nullptr, &s_nOut, s_szOut); }},
        {"SelectAid", [](const char *p) { return QV_APP_SelectAid(p, "", 9600, nullptr, "A0"); }},
        {"SelectAidNoGpo", [](const char *p) { return QV_APP_SelectAidNoGpo(p, "", 9600, nullptr, "A0"); }},
        {"SelectGpo", [](const char *p) { return QV_APP_SelectGpo(p, "", 9600, nullptr); }},
        {"ReadRecord", [](const char *p) { return QV_APP_ReadRecord(p, "", 9600, nullptr, "A", &s_nOut, s_szOut); }},
        {"GetTranDetail",
         [](const char *p) { return QV_APP_GetTranDetail(p, "", 9600, nullptr, 1, &s_nOut, s_szOut); }},
    };
    for (const Step &step : steps) {
        logOn();
        EXPECT_EQ(step.call(szPort), -9002) << step.pszName;
        EXPECT_EQ(logWithoutTime(),
                  line(step, "] Start ") + line(step, szNullPointer) + appLine("====> nRetConVert  = -9002 "));
    }
}

TEST_F(StepOrder, ANullTagListIsLoggedAsAnEmptyOne)
{
    for (const char *pszTags : {"", static_cast<const char *>(nullptr)}) {
        logOn();
        EXPECT_EQ(QV_APP_getIcInfo(szPort, szParameter, nBaud, "2", pszTags, &s_nOut, s_szOut), -9002);
        EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_getIcInfo] Start ") + appLine("[icFlag = 2]") +
                                        appLine("[pszTaglist NULL ]") + appLine("====> nRetConVert  = -9002 "));
    }
}

} // namespace
