// Which session calls give the kernel's standard code, and which the reader's own result.

#include "app_kernel.h"

using namespace qvtest;

namespace {

uint8_t s_out[1024];
uint32_t s_nOut;
char s_szOut[2100];
const uint8_t s_command[] = {0x00, 0x84, 0x00, 0x00, 0x08};

struct Session {
    const char *pszName;
    std::function<int32_t()> call;
    bool bConverted;
};

// Each with a null port or, where it has none, on a closed port.
const std::vector<Session> s_sessions = {
    {"OpenPort", [] { return QV_APP_OpenPort(nullptr, "", 9600); }, false},
    {"PowerOn", [] { return QV_APP_PowerOn(nullptr, "", 9600, "1", &s_nOut, s_szOut); }, true},
    {"PowerOff", [] { return QV_APP_PowerOff(nullptr, "", 9600, "1"); }, true},
    {"SendCommand", [] { return QV_APP_SendCommand(nullptr, "", 9600, "1", 5, s_command, &s_nOut, s_out); }, true},
    {"SendCommandOnly", [] { return QV_APP_SendCommandOnly("1", 5, s_command, &s_nOut, s_out); }, false},
    {"SendCommandDirect", [] { return QV_APP_SendCommandDirect(nullptr, "", 9600, 5, s_command, &s_nOut, s_out); },
     true},
    {"SendCommandOnlyDirect", [] { return QV_APP_SendCommandOnlyDirect(5, s_command, &s_nOut, s_out); }, true},
    {"DetectCard", [] { return QV_APP_DetectCard(nullptr, "", 9600, s_out); }, true},
    {"ChkDevPresent", [] { return QV_APP_ChkDevPresent(nullptr, "", 9600); }, true},
    {"SetPowerOnTimeout", [] { return QV_APP_SetPowerOnTimeout(121); }, false},
    {"MulModuleReset", [] { return QV_APP_MulModuleReset(); }, true},
    {"SetLEDStatu", [] { return QV_APP_SetLEDStatu(nullptr, "", 9600, 1); }, false},
    {"SetLEDStatuEx", [] { return QV_APP_SetLEDStatuEx(nullptr, 9600, 1, 1); }, false},
    {"SetBeepStatu", [] { return QV_APP_SetBeepStatu(nullptr, "", 9600, 1, 1); }, false},
    {"GetDeviceInfo", [] { return QV_APP_GetDeviceInfo(nullptr, "", 9600, s_out); }, false},
    {"DetectMulCard", [] { return QV_APP_DetectMulCard(nullptr, "", 9600, 2, s_szOut, s_szOut); }, false},
    {"SetFuncP", [] { return QV_APP_SetFuncP(nullptr); }, false},
};

using Conversion = KernelSession;

TEST_F(Conversion, EachCallIsConvertedOnceOrNotAtAll)
{
    for (const Session &session : s_sessions) {
        beginSession();
        s_out[0] = '0';
        int32_t nRet = session.call();
        if (session.bConverted) {
            EXPECT_LT(nRet, -9000) << session.pszName;
            EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(" + std::to_string(nRet + 9000) + ")"}) << session.pszName;
        } else {
            EXPECT_LT(nRet, 0) << session.pszName;
            EXPECT_GT(nRet, -9000) << session.pszName;
            EXPECT_EQ(takeCalls(), Calls{}) << session.pszName;
        }
    }
}

TEST_F(Conversion, CallsWithNothingToOpenAreNotConverted)
{
    char szList[1024] = {};
    QV_APP_GetPcscList(szList);
    EXPECT_EQ(QV_APP_SetPcscReader("x"), Dev_Rdz_Ic_SetPcscReader("x"));
    EXPECT_EQ(QV_APP_SetSlot(3), 0);
    EXPECT_EQ(QV_APP_GetCardSlot(), 3);
    EXPECT_EQ(QV_APP_SetSlot(0), 0);
    EXPECT_EQ(QV_APP_AddHID(-1, 1, 2), Dev_Rdz_Ic_AddHid(-1, 1, 2));
    EXPECT_EQ(QV_APP_Ic_RaiseBaundFlag(0), 0);
    EXPECT_EQ(QV_APP_SetPowerOnTimeout(120), 0);
    EXPECT_EQ(takeCalls(), Calls{});
}

TEST_F(Conversion, OpeningAndClosingGiveTheOperationsOwnResult)
{
    s_device.nOpen = -51;
    s_device.nClose = -3;
    EXPECT_EQ(QV_APP_OpenPort(szPort, szParameter, nBaud), -51);
    EXPECT_EQ(QV_APP_ClosePort(szPort, szParameter, nBaud), -3);
    EXPECT_EQ(QV_APP_ClosePort(nullptr, nullptr, 0), -3);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "close()", "close()"}));
}

TEST_F(Conversion, AFailedOpenIsConvertedByPowerCallsAndNotByLedsAndTheLike)
{
    s_device.nOpen = -51;
    EXPECT_EQ(QV_APP_PowerOn(szPort, szParameter, nBaud, "1", &s_nOut, s_szOut), -9051);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "close()", "TY_ConvertErr(-51)"}));
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "1"), -9051);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "close()", "TY_ConvertErr(-51)"}));
    EXPECT_EQ(QV_APP_SetLEDStatu(szPort, szParameter, nBaud, 1), -51);
    EXPECT_EQ(QV_APP_SetBeepStatu(szPort, szParameter, nBaud, 1, 1), -51);
    EXPECT_EQ(QV_APP_DetectMulCard(szPort, szParameter, nBaud, 2, nullptr, nullptr), -51);
    EXPECT_EQ(takeCalls(), Calls(3, szOpen));
    EXPECT_EQ(QV_APP_SetLEDStatuEx(szPort, nBaud, 1, 1), -51);
    EXPECT_EQ(QV_APP_GetDeviceInfo(szPort, szParameter, nBaud, s_out), -51);
    EXPECT_EQ(takeCalls(), Calls(2, "open(/dev/reader, , 1, 0, 115200)"));
}

TEST_F(Conversion, APowerDownThatFailsIsConverted)
{
    s_device.nPowerDown = -31;
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "2"), -9031);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "powerDown()", "close()", "TY_ConvertErr(-31)"}));
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "3"), -9031);
    EXPECT_EQ(takeCalls(), (Calls{szOpen, "powerDown()", "powerDown()", "close()", "TY_ConvertErr(-31)"}));
}

TEST_F(Conversion, TheEndOfAPowerDownIsLoggedWithTheResultAsItIsBefore)
{
    s_device.nPowerDown = -31;
    logWithCalls();
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "x"), -9031);
    EXPECT_TRUE(logWithoutTime().ends_with(callLine("powerDown()") + callLine("close()") +
                                           appLine("[QV_APP_PowerOff] End nRet = -31  ") +
                                           callLine("TY_ConvertErr(-31)")))
        << logWithoutTime();
}

TEST_F(Conversion, TheReadersStatusAfterAPowerDownIsNegatedAndConverted)
{
    stRDZ73xx.gStatus = 0x1005;
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "1"), -0x1005 - 9000);
    stRDZ73xx.gStatus = 0;
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "1"), 0);
    EXPECT_EQ(QV_APP_PowerOff(szPort, szParameter, nBaud, "3"), 0);
    EXPECT_EQ(takeCalls(),
              (Calls{szOpen, "powerDown()", "close()", "TY_ConvertErr(-4101)", szOpen, "powerDown()", "close()",
                     "TY_ConvertErr(0)", szOpen, "powerDown()", "close()", "TY_ConvertErr(0)"}));
}

} // namespace
