// The dispatcher in front of a terminal's aux port: what selects it at open, and what later calls go by.

#include "aux_terminal.h"
#include "dispatcher_layers.h"

#include "qvreader/support.h"

#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : 1;
}

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

class AuxDispatcher : public AuxTerminal, public testing::WithParamInterface<const Layer *> {
  protected:
    const Layer &layer() const { return *GetParam(); }

    TransPortParam record(uint32_t nTermType = 3) const
    {
        TransPortParam param{};
        param.nWord1 = 170;
        param.nType = 1;
        param.nTermType = nTermType;
        param.nBaud = 9600;
        param.nAuxPort = 1;
        param.nTimeOut = 10;
        param.pfnEndCondition = endsWithEtx;
        return param;
    }
    void openRecord(TransPortParam param)
    {
        clearCalls();
        ASSERT_EQ(layer().open(&param), 0);
        ASSERT_GE(g_AuxFd, 0);
    }
    int32_t write(std::string_view sHex)
    {
        const Bytes data = bytes(sHex);
        return layer().write(data.data(), static_cast<uint32_t>(data.size()));
    }
    // What a host does that needs the wrapping on every write.
    void setAuxMode(int32_t nAuxMode)
    {
        BackUpParam state = stBackUpParam;
        state.nAuxMode = nAuxMode;
        ASSERT_EQ(SetBackUpParam(&state), 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Layers, AuxDispatcher, testing::Values(&s_outer, &s_inner),
                         [](const auto &test) { return test.param->pszName; });

testing::AssertionResult is(const BackUpParam &state, const BackUpParam &expected)
{
    if (state.nTimeOut == expected.nTimeOut && state.pfnEndCondition == expected.pfnEndCondition &&
        state.nType == expected.nType && state.bAuxPrefix == expected.bAuxPrefix && state.nAuxMode == expected.nAuxMode)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "time-out " << state.nTimeOut << ", type " << state.nType << ", aux prefix "
                                       << state.bAuxPrefix << ", aux mode " << state.nAuxMode;
}

TEST_P(AuxDispatcher, AnAuxPortFromOneOnOpensTheTerminalAndIgnoresThePath)
{
    for (int32_t nAuxPort : {1, 2, INT32_MAX}) {
        SCOPED_TRACE(nAuxPort);
        TransPortParam param = record();
        param.nAuxPort = nAuxPort;
        std::strcpy(param.szTermPath, "/nowhere/tty");
        openRecord(param);
        char szName[64];
        ASSERT_EQ(ttyname_r(g_AuxFd, szName, sizeof szName), 0);
        EXPECT_EQ(szName, peer().path());
        EXPECT_EQ(writes().size(), 1U);
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_P(AuxDispatcher, TypePortSpeedAndPrefixOfTheRecordReachTheOpen)
{
    TransPortParam param = record(1);
    param.nAuxPort = 2;
    param.nBaud = 115200;
    param.bAuxPrefix = 1;
    openRecord(param);
    EXPECT_THAT(writes(), ElementsAre(szKeepScreen, "1B 21 31 32 3B 30 3B 30 3B 30 5A 1B 5B 2F 35 34 6C 1B 5B 2F 35 33 "
                                                    "68 1B 5B 2F 35 30 68"));
    const termios now = settings();
    EXPECT_EQ(cfgetospeed(&now), static_cast<speed_t>(B115200));
}

TEST_P(AuxDispatcher, AnAuxPortBelowOneOpensThePath)
{
    PtyPeer serial;
    for (int32_t nAuxPort : {0, -1, INT32_MIN}) {
        SCOPED_TRACE(nAuxPort);
        TransPortParam param = record();
        param.nAuxPort = nAuxPort;
        std::strncpy(param.szTermPath, serial.path().c_str(), sizeof param.szTermPath - 1);
        openRecord(param);
        char szName[64];
        ASSERT_EQ(ttyname_r(g_AuxFd, szName, sizeof szName), 0);
        EXPECT_EQ(szName, serial.path());
        EXPECT_THAT(writes(), IsEmpty());
        EXPECT_EQ(layer().close(), 0);
    }
    EXPECT_EQ(peer().wire(), "");
}

TEST_P(AuxDispatcher, AnOpenKeepsFourFieldsAndLeavesTheAuxMode)
{
    for (int32_t nAuxMode : {0, 1, 7, -3}) {
        SCOPED_TRACE(nAuxMode);
        stBackUpParam = {99, nullptr, 0, 0, nAuxMode};
        TransPortParam param = record();
        param.nTimeOut = 12;
        param.pfnEndCondition = never;
        param.bAuxPrefix = 5;
        openRecord(param);
        EXPECT_TRUE(is(stBackUpParam, {12, never, 1, 5, nAuxMode}));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_P(AuxDispatcher, AfterAnAuxOpenWritesAreNotWrappedAndACloseSendsNothing)
{
    const termios before = cook();
    TransPortParam param = record();
    param.bAuxPrefix = 1;
    openRecord(param);
    clearCalls();
    EXPECT_EQ(write("41 42"), 2);
    EXPECT_THAT(writes(), ElementsAre("41 42"));
    clearCalls();
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(calls(), ElementsAre("TCSETAF"));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_TRUE(restored(before));
}

TEST_P(AuxDispatcher, TheAuxModeOfTheStateRecordWrapsWritesAndClosesThePort)
{
    const termios before = cook();
    for (int32_t nAuxMode : {1, 2, INT32_MAX}) {
        SCOPED_TRACE(nAuxMode);
        TransPortParam param = record();
        param.bAuxPrefix = 1;
        openRecord(param);
        setAuxMode(nAuxMode);
        clearCalls();
        EXPECT_EQ(write("41 42"), 2);
        EXPECT_THAT(writes(), ElementsAre(szGgPrefix, "41 42", szGgSuffix));
        clearCalls();
        EXPECT_EQ(layer().close(), 0);
        EXPECT_THAT(calls(),
                    ElementsAre(std::string("write ") + szGgClose, std::string("write ") + szReleaseScreen, "TCSETAF"));
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_TRUE(restored(before));
        setAuxMode(0);
    }
}

TEST_P(AuxDispatcher, AnAuxModeBelowOneWrapsNothing)
{
    for (int32_t nAuxMode : {0, -1, INT32_MIN}) {
        SCOPED_TRACE(nAuxMode);
        openRecord(record());
        setAuxMode(nAuxMode);
        clearCalls();
        EXPECT_EQ(write("41"), 1);
        EXPECT_EQ(layer().close(), 0);
        EXPECT_THAT(calls(), ElementsAre("write 41", "TCSETAF"));
    }
}

TEST_P(AuxDispatcher, AnAuxModeThatIsSetBeforeTheOpenHoldsForIt)
{
    setAuxMode(1);
    for (int i = 0; i < 2; ++i) {
        openRecord(record(1));
        clearCalls();
        EXPECT_EQ(write("31"), 1);
        EXPECT_THAT(writes(), ElementsAre(szStarPrefix, "31", szStarSuffix));
        clearCalls();
        EXPECT_EQ(layer().close(), 0);
        EXPECT_THAT(writes(), ElementsAre(szStarClose));
        EXPECT_EQ(stBackUpParam.nAuxMode, 1);
    }
}

TEST_P(AuxDispatcher, AnAuxModeThatOutlivesItsPortWrapsThePlainPortsWrites)
{
    setAuxMode(1);
    openRecord(record(3));
    EXPECT_EQ(layer().close(), 0);
    PtyPeer serial;
    TransPortParam param = record(3);
    param.nAuxPort = 0;
    std::strncpy(param.szTermPath, serial.path().c_str(), sizeof param.szTermPath - 1);
    openRecord(param);
    EXPECT_EQ(write("31"), 1);
    EXPECT_THAT(writes(), ElementsAre(szGgPrefix, "31", szGgSuffix));
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(writes(), ElementsAre(szGgPrefix, "31", szGgSuffix, szGgClose));
}

TEST_P(AuxDispatcher, TheFlagOfTheCloseIsThatOfTheStateRecord)
{
    TransPortParam param = record(5);
    openRecord(param);
    setAuxMode(1);
    param.bAuxPrefix = 1;
    EXPECT_EQ(COMM_Dev_ChangeTermParam(&param), 0);
    clearCalls();
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(writes(), ElementsAre(szWyseClose, szReleaseScreen));
}

TEST_P(AuxDispatcher, ReadsAreTheSameInBothModes)
{
    for (int32_t nAuxMode : {0, 1}) {
        SCOPED_TRACE(nAuxMode);
        openRecord(record(2));
        setAuxMode(nAuxMode);
        peer().send("41 42 03");
        uint8_t in[8] = {};
        EXPECT_EQ(layer().read(in, sizeof in), 3);
        EXPECT_EQ(hex(in, 3), "41 42 03");
        EXPECT_EQ(layer().close(), 0);
    }
}

TEST_P(AuxDispatcher, AReadInAuxModeIsLoggedAndTakesItsTimeOffTheBudget)
{
    openRecord(record(2));
    setAuxMode(1);
    stBackUpParam.nTimeOut = 1;
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, sizeof in), -56);
    EXPECT_LT(stBackUpParam.nTimeOut, 0);
    stBackUpParam.nTimeOut = 10;
    peer().send("41 03");
    logOn();
    EXPECT_EQ(layer().read(in, sizeof in), 2);
    EXPECT_TRUE(logged({"[COMM_Dev_Linux_ReadDataFromTransPort] Start ", "[COMM_Com_ReadLinux ] End nRetVal = 2 ",
                        "PACKGET READ  LEN=2   HEX: 4103"}));
}

TEST_P(AuxDispatcher, NullAndImpossibleLengthsAreRefusedBeforeThePrefix)
{
    openRecord(record());
    setAuxMode(1);
    clearCalls();
    const uint8_t one[] = {0x31};
    EXPECT_EQ(layer().write(nullptr, 1), -2);
    EXPECT_EQ(layer().write(one, 0), -2);
    EXPECT_EQ(layer().write(one, 0x80000000U), -2);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_P(AuxDispatcher, ACancelWorksInBothModes)
{
    openRecord(record());
    EXPECT_EQ(layer().cancel(), 0);
    setAuxMode(1);
    EXPECT_EQ(layer().cancel(), 0);
    stBackUpParam.pfnEndCondition = [](const uint8_t *, int32_t) {
        EXPECT_EQ(COMM_Dev_CancelRead(), 0);
        return 1;
    };
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, sizeof in), -57);
}

TEST_P(AuxDispatcher, AFailedOpenLeavesTheStateRecord)
{
    const BackUpParam before = {11, never, 7, 4, 3};
    stBackUpParam = before;
    TransPortParam param = record();
    setStandardOutput("/dev/null");
    EXPECT_EQ(layer().open(&param), -3);
    EXPECT_TRUE(is(stBackUpParam, before));
    setStandardOutput(peer().path().c_str());
    refuse(TCSETAF);
    EXPECT_EQ(layer().open(&param), -1);
    EXPECT_TRUE(is(stBackUpParam, before));
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_P(AuxDispatcher, ACloseLeavesTheStateRecordAndALaterCallIsAnsweredByThePort)
{
    openRecord(record());
    setAuxMode(1);
    const BackUpParam before = stBackUpParam;
    EXPECT_EQ(layer().close(), 0);
    EXPECT_TRUE(is(stBackUpParam, before));
    clearCalls();
    EXPECT_EQ(write("31"), -2);
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, sizeof in), -2);
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(calls(), IsEmpty());
}

} // namespace
