// The dispatcher: which transport an operation reaches, and what an open leaves behind.

#include "transport_dispatcher.h"

#include <cstring>
#include <unistd.h>

using namespace qvtest;

namespace {

const BackUpParam s_stateAtLoad = stBackUpParam;
const int32_t s_nFdAtLoad = g_AuxFd;
const uint32_t s_bClearZeroAtLoad = g_bIsLinuxHidClearZero;

INSTANTIATE_TEST_SUITE_P(Layers, Dispatcher, testing::Values(&s_outer, &s_inner),
                         [](const auto &test) { return test.param->pszName; });

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

TEST_P(Dispatcher, TermParametersWithAnAuxPortDoNotSwitchTheAuxModeOn)
{
    for (int32_t nAuxPort : {1, 2, INT32_MAX}) {
        SCOPED_TRACE(nAuxPort);
        stBackUpParam = {};
        TransPortParam param = record();
        param.nAuxPort = nAuxPort;
        EXPECT_EQ(layer().termParam(&param), 0);
        expectState(stBackUpParam, 3, endsWithEtx, 1, 0, 0);
    }
}

TEST_P(Dispatcher, TheZeroStrippingFlagIsSet)
{
    EXPECT_EQ(layer().clearZero(0), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(layer().clearZero(1), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
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

TEST(DispatcherState, TheWholeRecordIsSetByteForByte)
{
    for (const int nByte : {0x5A, 0xA5}) {
        BackUpParam state;
        std::memset(&state, nByte, sizeof state);
        EXPECT_EQ(SetBackUpParam(&state), 0);
        EXPECT_EQ(hex(&stBackUpParam, sizeof stBackUpParam), hex(&state, sizeof state));
    }
    stBackUpParam = {};
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

} // namespace
