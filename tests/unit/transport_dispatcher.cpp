// The dispatcher: which transport an operation reaches, what an open leaves behind, and the read time budget.

#include "dispatcher_layers.h"
#include "fake_clock.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

const BackUpParam s_stateAtLoad = stBackUpParam;
const int32_t s_nFdAtLoad = g_AuxFd;
const uint32_t s_bClearZeroAtLoad = g_bIsLinuxHidClearZero;

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

// An end condition that moves the clock: its i-th call lets s_seconds[i] pass. The read is complete at the last entry
// when s_bComplete is set; calls beyond the entries push the clock far ahead, so that a read never hangs the program.
FakeClock *s_pClock = nullptr;
std::vector<int> s_seconds;
bool s_bComplete = false;
size_t s_nCalls = 0;

int32_t letTimePass(const uint8_t *, int32_t)
{
    size_t nAt = s_nCalls++;
    s_pClock->advance(nAt < s_seconds.size() ? s_seconds[nAt] : 5000);
    return s_bComplete && nAt + 1 == s_seconds.size() ? 0 : 1;
}

class Dispatcher : public testing::TestWithParam<const Layer *> {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
    }
    void TearDown() override
    {
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const Layer &layer() const { return *GetParam(); }
    TransPortParam record() const
    {
        TransPortParam param{};
        param.nWord1 = 170;
        param.nType = 1;
        param.nTermType = 1;
        param.nBaud = 9600;
        param.nTimeOut = 3;
        param.pfnEndCondition = endsWithEtx;
        std::strncpy(param.szTermPath, m_peer->path().c_str(), sizeof param.szTermPath - 1);
        return param;
    }
    void open()
    {
        TransPortParam param = record();
        ASSERT_EQ(layer().open(&param), 0);
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
};

INSTANTIATE_TEST_SUITE_P(Layers, Dispatcher, testing::Values(&s_outer, &s_inner),
                         [](const auto &test) { return test.param->pszName; });

void expectState(const BackUpParam &is, int32_t nTimeOut, EndConditionFn end, uint32_t nType, uint32_t bAuxPrefix,
                 int32_t nAuxMode)
{
    EXPECT_EQ(is.nTimeOut, nTimeOut);
    EXPECT_EQ(is.pfnEndCondition, end);
    EXPECT_EQ(is.nType, nType);
    EXPECT_EQ(is.bAuxPrefix, bAuxPrefix);
    EXPECT_EQ(is.nAuxMode, nAuxMode);
}

TEST(DispatcherAtLoad, NoPortIsOpenAndTheStateIsZero)
{
    expectState(s_stateAtLoad, 0, nullptr, 0, 0, 0);
    EXPECT_EQ(s_nFdAtLoad, -2);
    EXPECT_EQ(s_bClearZeroAtLoad, 1U);
}

TEST_P(Dispatcher, EveryOperationBeforeTheFirstOpenGivesMinusOne)
{
    uint8_t buf[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    EXPECT_EQ(layer().write(buf, 4), -1);
    EXPECT_EQ(layer().read(buf, 4), -1);
    EXPECT_EQ(layer().cancel(), -1);
    EXPECT_EQ(layer().close(), -1);
    EXPECT_EQ(hex(buf), "C5 C5 C5 C5");
}

TEST_P(Dispatcher, AnUnknownTypeGivesMinusOneAndTouchesNothing)
{
    for (uint32_t nType : {0U, 2U, 3U, 6U, 8U, 9U, 255U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nType);
        stBackUpParam = {11, never, 1, 4, -3};
        TransPortParam param = record();
        param.nType = nType;
        param.bAuxPrefix = 9;
        EXPECT_EQ(layer().open(&param), -1);
        expectState(stBackUpParam, 11, never, 1, 4, -3);
        EXPECT_EQ(g_AuxFd, -2);
    }
    open();
    for (uint32_t nType : {0U, 2U, 8U, 9U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nType);
        stBackUpParam.nType = nType;
        uint8_t buf[2] = {0x31, 0x32};
        EXPECT_EQ(layer().write(buf, 2), -1);
        EXPECT_EQ(layer().read(buf, 2), -1);
        EXPECT_EQ(layer().cancel(), -1);
        EXPECT_EQ(layer().close(), -1);
        EXPECT_GE(g_AuxFd, 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_P(Dispatcher, ASerialOpenSetsFourFieldsAndLeavesTheAuxMode)
{
    stBackUpParam = {0, nullptr, 0, 0, -7};
    TransPortParam param = record();
    param.nTimeOut = 12;
    param.pfnEndCondition = never;
    param.bAuxPrefix = 5;
    ASSERT_EQ(layer().open(&param), 0);
    expectState(stBackUpParam, 12, never, 1, 5, -7);
    EXPECT_GE(g_AuxFd, 0);
}

TEST_P(Dispatcher, AnAuxPortNumberBelowOneMeansThePathOfTheRecord)
{
    for (int32_t nAuxPort : {0, -1, INT32_MIN}) {
        SCOPED_TRACE(nAuxPort);
        TransPortParam param = record();
        param.nAuxPort = nAuxPort;
        ASSERT_EQ(layer().open(&param), 0);
        EXPECT_STREQ(ttyname(g_AuxFd), m_peer->path().c_str());
        EXPECT_EQ(layer().close(), 0);
    }
}

TEST_P(Dispatcher, AnAuxPortNumberFromOneOnDoesNotOpenThePathOfTheRecord)
{
    for (int32_t nAuxPort : {1, 2, INT32_MAX}) {
        SCOPED_TRACE(nAuxPort);
        stBackUpParam = {11, never, 7, 4, -3};
        TransPortParam param = record();
        param.nAuxPort = nAuxPort;
        // The aux port belongs to the terminal of standard output, and that is none here.
        testing::internal::CaptureStdout();
        int32_t nResult = layer().open(&param);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(nResult, -3);
        EXPECT_EQ(g_AuxFd, -2);
        expectState(stBackUpParam, 11, never, 7, 4, -3);
    }
}

TEST_P(Dispatcher, AnAuxModeFromOneOnWithoutAnAuxOpenHasNothingToWrapWritesIn)
{
    open();
    g_AuxOp = {};
    for (int32_t nAuxMode : {1, 2, INT32_MAX}) {
        SCOPED_TRACE(nAuxMode);
        stBackUpParam.nAuxMode = nAuxMode;
        EXPECT_EQ(layer().write(textBytes("1").data(), 1), 1);
    }
    EXPECT_EQ(m_peer->wire(), "31 31 31");
    // It reads like the plain port.
    m_peer->send("41 03");
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 2);
    EXPECT_EQ(hex(in, 2), "41 03");
}

TEST_P(Dispatcher, ANullEndConditionInTheRecordIsInstalledAsNone)
{
    stBackUpParam.pfnEndCondition = never;
    TransPortParam param = record();
    param.pfnEndCondition = nullptr;
    ASSERT_EQ(layer().open(&param), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, nullptr);
}

TEST_P(Dispatcher, AFailedOpenLeavesTheStateRecord)
{
    stBackUpParam = {11, never, 7, 4, -3};
    TransPortParam param = record();
    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(layer().open(&param), -3);
    expectState(stBackUpParam, 11, never, 7, 4, -3);

    std::string sFile = libraryDirectory() + "/no.tty";
    writeFile(sFile, "");
    std::strncpy(param.szTermPath, sFile.c_str(), sizeof param.szTermPath - 1);
    EXPECT_EQ(layer().open(&param), -1);
    expectState(stBackUpParam, 11, never, 7, 4, -3);
}

TEST_P(Dispatcher, ANullRecordIsRefused)
{
    stBackUpParam = {11, never, 7, 4, -3};
    EXPECT_EQ(layer().open(nullptr), -2);
    EXPECT_EQ(layer().termParam(nullptr), -2);
    EXPECT_EQ(SetBackUpParam(nullptr), -2);
    expectState(stBackUpParam, 11, never, 7, 4, -3);
}

TEST_P(Dispatcher, WritesAndReadsReachTheSerialPort)
{
    m_peer->expect("31 32 00 FF").reply("41 42 03");
    open();
    const uint8_t out[] = {0x31, 0x32, 0x00, 0xFF};
    EXPECT_EQ(layer().write(out, 4), 4);
    uint8_t in[8];
    std::memset(in, 0xC5, sizeof in);
    EXPECT_EQ(layer().read(in, 7), 3);
    EXPECT_EQ(hex(in), "41 42 03 C5 C5 C5 C5 C5");
    m_peer->finish();
}

TEST_P(Dispatcher, AnAuxModeBelowOneIsThePlainPort)
{
    m_peer->expect("31").reply("03");
    open();
    stBackUpParam.nAuxMode = -1;
    EXPECT_EQ(layer().write(textBytes("1").data(), 1), 1);
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 1);
    EXPECT_EQ(layer().close(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    m_peer->finish();
}

TEST_P(Dispatcher, NullAndImpossibleLengthsAreRefusedByTheSerialPort)
{
    open();
    uint8_t buf[4] = {};
    EXPECT_EQ(layer().write(nullptr, 4), -2);
    EXPECT_EQ(layer().write(buf, 0), -2);
    EXPECT_EQ(layer().write(buf, 0x80000000U), -2);
    EXPECT_EQ(layer().write(buf, 0xFFFFFFFFU), -2);
    EXPECT_EQ(layer().read(nullptr, 4), -2);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_P(Dispatcher, ACloseLeavesTheStateSoThatTheTransportAnswers)
{
    open();
    stBackUpParam.nAuxMode = -4;
    BackUpParam before = stBackUpParam;
    EXPECT_EQ(layer().close(), 0);
    expectState(stBackUpParam, before.nTimeOut, before.pfnEndCondition, 1, before.bAuxPrefix, -4);
    EXPECT_EQ(g_AuxFd, -2);
    uint8_t buf[4] = {};
    EXPECT_EQ(layer().write(buf, 4), -2);
    EXPECT_EQ(layer().read(buf, 4), -2);
    EXPECT_EQ(layer().cancel(), 0);
    EXPECT_EQ(layer().close(), 0);
}

TEST_P(Dispatcher, TheEndConditionIsReplacedAlsoByNone)
{
    open();
    EXPECT_EQ(layer().endCondition(never), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, never);
    EXPECT_EQ(layer().endCondition(nullptr), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, nullptr);
    // Without one, the 0x03 does not end the read: only the full buffer does.
    m_peer->send("41 03 42 03");
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 4);
    EXPECT_EQ(hex(in), "41 03 42 03");
}

TEST_P(Dispatcher, TheTimeOutIsReplaced)
{
    stBackUpParam = {3, never, 1, 4, -3};
    EXPECT_EQ(layer().timeOut(0), 0);
    expectState(stBackUpParam, 0, never, 1, 4, -3);
    EXPECT_EQ(layer().timeOut(120), 0);
    expectState(stBackUpParam, 120, never, 1, 4, -3);
}

TEST_P(Dispatcher, TheTermParametersAreTakenOverWithoutAnOpen)
{
    stBackUpParam = {3, nullptr, 0, 0, -3};
    TransPortParam param = record();
    param.nType = 8;
    param.nTimeOut = -5;
    param.pfnEndCondition = never;
    param.bAuxPrefix = 6;
    EXPECT_EQ(layer().termParam(&param), 0);
    expectState(stBackUpParam, -5, never, 8, 6, -3);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_P(Dispatcher, TheZeroStrippingFlagIsSet)
{
    EXPECT_EQ(layer().clearZero(0), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(layer().clearZero(1), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
}

TEST_P(Dispatcher, AReadTakesItsSecondsOffTheBudget)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(3);
    layer().endCondition(letTimePass);

    // Two seconds: complete at the second pass, before the time-out is looked at.
    s_seconds = {1, 1};
    s_bComplete = true;
    s_nCalls = 0;
    m_peer->send("41");
    waitUnread(g_AuxFd, 1);
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 1);
    EXPECT_EQ(stBackUpParam.nTimeOut, 1);

    // The second read has one second: one is not over, two are.
    s_seconds = {1, 1};
    s_bComplete = false;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
}

TEST_P(Dispatcher, AUsedUpBudgetWaitsAThousandSeconds)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(1);
    layer().endCondition(letTimePass);
    uint8_t in[4];

    s_seconds = {1};
    s_bComplete = true;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 0);

    s_seconds = {1000, 1};
    s_bComplete = false;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1001);

    // Negative by now: the same long wait, and nothing is restored.
    s_seconds = {1000, 1};
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -2002);

    layer().timeOut(2);
    s_seconds = {2, 1};
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
}

TEST_P(Dispatcher, AFailedReadTakesItsSecondsOffTheBudgetToo)
{
    FakeClock clock(1000);
    stBackUpParam = {10, never, 99, 0, 0};
    uint8_t in[4];
    clock.script({1000, 1004});
    EXPECT_EQ(layer().read(in, 4), -1);
    EXPECT_EQ(stBackUpParam.nTimeOut, 6);

    stBackUpParam.nType = 1; // no port: -2
    clock.script({2000, 2009});
    EXPECT_EQ(layer().read(in, 4), -2);
    EXPECT_EQ(stBackUpParam.nTimeOut, -3);
}

TEST(DispatcherState, TheWholeRecordIsSetAtOnce)
{
    BackUpParam state = {77, never, 5, 6, 8};
    EXPECT_EQ(SetBackUpParam(&state), 0);
    expectState(stBackUpParam, 77, never, 5, 6, 8);
    state = {};
    EXPECT_EQ(SetBackUpParam(&state), 0);
    expectState(stBackUpParam, 0, nullptr, 0, 0, 0);
}

TEST(DispatcherState, TheCommSwitchDoesNothing)
{
    stBackUpParam = {3, never, 1, 4, -3};
    EXPECT_EQ(COMM_Dev_UseComm(0), 0);
    EXPECT_EQ(COMM_Dev_UseComm(0xFFFFFFFFU), 0);
    expectState(stBackUpParam, 3, never, 1, 4, -3);
    EXPECT_EQ(g_AuxFd, -2);
    stBackUpParam = {};
}

class DispatcherLog : public Dispatcher {};
INSTANTIATE_TEST_SUITE_P(Layers, DispatcherLog, testing::Values(&s_outer), [](const auto &) { return "outer"; });

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
}

} // namespace
