// What the dispatcher logs: its own typed lines and the untyped dump of a read.

#include "fake_clock.h"
#include "transport_dispatcher.h"

using namespace qvtest;
using testing::ElementsAre;

namespace {

class DispatcherLog : public Dispatcher {};
INSTANTIATE_TEST_SUITE_P(Layers, DispatcherLog, testing::Values(&s_outer), [](const auto &) { return "outer"; });

// What writes no line of the dispatcher's own, in neither layer.
class DispatcherCalm : public Dispatcher {};
INSTANTIATE_TEST_SUITE_P(Layers, DispatcherCalm, testing::Values(&s_outer, &s_inner),
                         [](const auto &test) { return test.param->pszName; });

TEST_P(DispatcherLog, AnOpenIsLoggedWithItsResult)
{
    logOn();
    open();
    EXPECT_TRUE(logged({"【COMM_Dev_OpenTransPort】 Start ", "ICC_OpenLinuxTransPort", "[COMM_Com_OpenLinux ] Start ",
                        "【COMM_Dev_OpenTransPort】 End = 0  "}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  【COMM_Dev_OpenTransPort】 Start \r\n"), std::string::npos);
    COMM_Com_CloseLinux();
    logOn();
    TransPortParam param = record();
    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(layer().open(&param), -3);
    EXPECT_TRUE(logged({"ICC_OpenLinuxTransPort", "【COMM_Dev_OpenTransPort】 End = -3  "}));
}

TEST_P(DispatcherLog, EveryLineIsTypedAndTheReadsDumpIsNot)
{
    FakeClock clock(1000);
    const std::string sHead = std::string("  ") + GetLogTime() + "  INFO:    CommDev:  ";
    logOn();
    open();
    std::string sLog = rawLog();
    EXPECT_TRUE(sLog.starts_with(sHead + "【COMM_Dev_OpenTransPort】 Start \r\n" + sHead +
                                 "ICC_OpenLinuxTransPort\r\n\r\n" + sHead + "[COMM_Com_OpenLinux ] Start \r\n"))
        << sLog;
    EXPECT_TRUE(sLog.ends_with("\r\n" + sHead + "【COMM_Dev_OpenTransPort】 End = 0  \r\n")) << sLog;

    logOn();
    EXPECT_EQ(layer().write(textBytes("1").data(), 1), 1);
    sLog = rawLog();
    EXPECT_TRUE(sLog.starts_with(sHead + "[ICC_WriteDataToLinuxTransPort] Start \r\n" + sHead +
                                 "[COMM_Com_WriteLinux] Start \r\n"))
        << sLog;

    m_peer->send("41 03");
    waitUnread(g_AuxFd, 2);
    logOn();
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 2);
    sLog = rawLog();
    EXPECT_TRUE(sLog.starts_with(sHead + "[COMM_Dev_Linux_ReadDataFromTransPort] Start \r\n" + sHead +
                                 "[COMM_Com_ReadLinux ] Start  \r\n"))
        << sLog;
    EXPECT_TRUE(
        sLog.ends_with("End nRetVal = 2 \r\n " + std::string(GetLogTime()) + "  PACKGET READ  LEN=2   HEX: 4103\r\n"))
        << sLog;
    EXPECT_EQ(m_peer->wire(), "31");
}

TEST_P(DispatcherLog, ANullRecordIsLoggedLikeAnyOther)
{
    logOn();
    EXPECT_EQ(layer().open(nullptr), -2);
    EXPECT_THAT(logTexts(), ElementsAre("【COMM_Dev_OpenTransPort】 Start ", "ICC_OpenLinuxTransPort",
                                        "【COMM_Dev_OpenTransPort】 End = -2  "));
}

TEST_P(DispatcherLog, AUsbOpenWithoutAReaderFailsAndLeavesTheStateRecord)
{
    TransPortParam param = record();
    param.nType = 7;
    param.nVID = 0x0403;
    param.nPID = 0xBCD5;
    param.nTimeOut = 9;
    logOn();
    EXPECT_EQ(layer().open(&param), -50);
    EXPECT_TRUE(logged({"【COMM_Dev_OpenTransPort】 Start ", "ICC_OpenLinuxTransPort", "TYPE_USBLIB_HID",
                        "【COMM_Dev_OpenTransPort】 End = -50  "}));
    expectState(stBackUpParam, 0, nullptr, 0, 0, 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_P(DispatcherLog, AReadIsLoggedWithWhatItReturned)
{
    open();
    m_peer->send("41 03");
    logOn();
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 2);
    EXPECT_TRUE(logged({"[COMM_Dev_Linux_ReadDataFromTransPort] Start ", "[COMM_Com_ReadLinux ] Start  ",
                        "[COMM_Com_ReadLinux ] End nRetVal = 2 ", "PACKGET READ  LEN=2   HEX: 4103"}));
    COMM_Com_CloseLinux();
    logOn();
    EXPECT_EQ(layer().read(in, 4), -2);
    EXPECT_TRUE(logged({"PACKGET READ  LEN=-2   HEX: "}));
}

TEST_P(DispatcherLog, AWriteIsLogged)
{
    open();
    logOn();
    const uint8_t out[] = {0x31};
    EXPECT_EQ(layer().write(out, 1), 1);
    EXPECT_TRUE(logged({"[ICC_WriteDataToLinuxTransPort] Start ", "COMM_Com_WriteLinux nLen = 1 "}));
}

TEST_P(DispatcherCalm, ASetterWritesNoLine)
{
    open();
    TransPortParam param = record();
    const BackUpParam state = {3, endsWithEtx, 1, 0, 0};
    logOn();
    EXPECT_EQ(layer().endCondition(endsWithEtx), 0);
    EXPECT_EQ(layer().timeOut(3), 0);
    EXPECT_EQ(layer().termParam(&param), 0);
    EXPECT_EQ(layer().termParam(nullptr), -2);
    EXPECT_EQ(layer().clearZero(1), 0);
    EXPECT_EQ(SetBackUpParam(&state), 0);
    EXPECT_EQ(SetBackUpParam(nullptr), -2);
    EXPECT_EQ(COMM_Dev_UseComm(1), 0);
    EXPECT_EQ(rawLog(), "");
    DPrintLogToFile("line");
    EXPECT_THAT(logTexts(), ElementsAre("line"));
}

TEST_P(DispatcherCalm, ACancelAndACloseAreToldByTheTransportOnly)
{
    open();
    const std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(layer().cancel(), 0);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Com_CancelLinuxRead] Start "));
    logOn();
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Com_CloseLinux] Start ", "[g_AuxFd = " + sFd + " ] Start  ",
                                        "[1 g_AuxFd = -2 ] Start  "));
    stBackUpParam.nAuxMode = 1;
    logOn();
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Com_CloseLinuxAux] Start ", " g_AuxFd = -2 "));
    stBackUpParam.nType = 7;
    logOn();
    EXPECT_EQ(layer().cancel(), -57);
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Hid_CancelLinuxUsbLibHid] Start ", "Close hid!\n"));
}

TEST_P(DispatcherLog, AnUnknownTypeLogsNothingBeyondTheStartLine)
{
    uint8_t buf[2] = {};
    stBackUpParam.nType = 9;
    logOn();
    EXPECT_EQ(COMM_Dev_Linux_ReadDataFromTransPort(buf, 2), -1);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Dev_Linux_ReadDataFromTransPort] Start "));
    logOn();
    EXPECT_EQ(layer().write(buf, 2), -1);
    EXPECT_THAT(logTexts(), ElementsAre("[ICC_WriteDataToLinuxTransPort] Start "));
    logOn();
    TransPortParam param = record();
    param.nType = 2;
    EXPECT_EQ(COMM_Dev_Linux_OpenTransPort(&param), -1);
    EXPECT_THAT(logTexts(), ElementsAre("ICC_OpenLinuxTransPort"));
    // A close and a cancel have no start line of their own.
    logOn();
    EXPECT_EQ(layer().close(), -1);
    EXPECT_EQ(layer().cancel(), -1);
    EXPECT_THAT(logTexts(), ElementsAre());
}

} // namespace
