// The dispatcher with a USB reader: what reaches the bus, what an open leaves behind, the read time budget.

#include "dispatcher_layers.h"
#include "usb_bus.h"

using namespace qvtest;
using testing::ElementsAre;

namespace {

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

class UsbDispatch : public UsbBus, public testing::WithParamInterface<const Layer *> {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x2B46, 0xBE11)});
    }
    const Layer &layer() const { return *GetParam(); }
    static TransPortParam record(uint32_t nVID = 0x0403, uint32_t nPID = 0xBCD5)
    {
        TransPortParam param{};
        param.nType = 7;
        param.nVID = nVID;
        param.nPID = nPID;
        param.nTimeOut = 3;
        param.pfnEndCondition = endsWithEtx;
        return param;
    }
    void open()
    {
        TransPortParam param = record();
        ASSERT_EQ(layer().open(&param), 0);
        m_usb.takeCalls();
    }
    static void expectState(int32_t nTimeOut, EndConditionFn end, uint32_t nType, uint32_t bAuxPrefix, int32_t nAuxMode)
    {
        EXPECT_EQ(stBackUpParam.nTimeOut, nTimeOut);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, end);
        EXPECT_EQ(stBackUpParam.nType, nType);
        EXPECT_EQ(stBackUpParam.bAuxPrefix, bAuxPrefix);
        EXPECT_EQ(stBackUpParam.nAuxMode, nAuxMode);
    }
};

INSTANTIATE_TEST_SUITE_P(Layers, UsbDispatch, testing::Values(&s_outer, &s_inner),
                         [](const auto &test) { return test.param->pszName; });

TEST_P(UsbDispatch, AnOpenTakesTheIdsOfTheRecordAndKeepsItsFourFields)
{
    stBackUpParam = {0, nullptr, 0, 0, -7};
    TransPortParam param = record(0x2B46, 0xBE11);
    param.nAuxPort = 1; // means nothing here
    param.nTimeOut = 12;
    param.bAuxPrefix = 5;
    ASSERT_EQ(layer().open(&param), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "descriptor 1", "open 1", "reset",
                                               "active_config", "driver_active 0", "claim 0"));
    expectState(12, endsWithEtx, 7, 5, -7);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_P(UsbDispatch, AFailedOpenLeavesTheStateRecord)
{
    stBackUpParam = {11, never, 1, 4, -3};
    TransPortParam param = record(0xBCD5, 0x0403);
    EXPECT_EQ(layer().open(&param), -50);
    expectState(11, never, 1, 4, -3);
    param = record();
    m_usb.results("claim", {-6});
    EXPECT_EQ(layer().open(&param), -3);
    expectState(11, never, 1, 4, -3);
    expectClosed();
}

TEST_P(UsbDispatch, WritesReadsAndTheCloseReachTheBusWhateverTheAuxMode)
{
    for (int32_t nAuxMode : {0, 1}) {
        open();
        stBackUpParam.nAuxMode = nAuxMode;
        const uint8_t out[] = {0x31, 0x00, 0x32};
        EXPECT_EQ(layer().write(out, 3), 3);
        EXPECT_THAT(m_usb.takeSent(), ElementsAre(padded(bytes("31 00 32"), 64)));
        m_usb.in(hex(padded(bytes("41 42 03"), 64)));
        uint8_t in[8];
        EXPECT_EQ(layer().read(in, 7), 3);
        EXPECT_EQ(hex(in, 3), "41 42 03");
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 02 64 1000", "interrupt 82 64 1000"));
        EXPECT_EQ(layer().cancel(), 0);
        EXPECT_EQ(layer().close(), 0);
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre("release 0", "close", "free_list", "exit"));
        expectClosed();
    }
}

TEST_P(UsbDispatch, ACloseLeavesTheStateSoThatTheTransportAnswers)
{
    open();
    EXPECT_EQ(layer().close(), 0);
    expectState(3, endsWithEtx, 7, 0, 0);
    m_usb.takeCalls();
    uint8_t buf[4] = {};
    EXPECT_EQ(layer().write(buf, 4), -50);
    EXPECT_EQ(layer().read(buf, 4), -50);
    EXPECT_EQ(layer().cancel(), -57);
    EXPECT_EQ(layer().close(), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_P(UsbDispatch, LongCommandsAreRefusedByTheTransport)
{
    open();
    Bytes data = filled(1025);
    EXPECT_EQ(layer().write(data.data(), 1025), -54);
    EXPECT_EQ(layer().write(data.data(), 0xFFFFFFFFU), -54);
    EXPECT_EQ(layer().write(data.data(), 321), -54);
}

TEST_P(UsbDispatch, ZeroStrippingIsSwitched)
{
    open();
    layer().clearZero(0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    m_usb.in("41 00 00");
    m_usb.in("03 00 00");
    m_usb.in("03");
    uint8_t in[16] = {};
    EXPECT_EQ(layer().read(in, 15), 7);
    EXPECT_EQ(hex(in, 7), "41 00 00 03 00 00 03");
    layer().clearZero(1);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
    m_usb.in("41 00 00");
    m_usb.in("03 00 00");
    EXPECT_EQ(layer().read(in, 15), 2);
}

TEST_P(UsbDispatch, AReadTakesItsSecondsOffTheBudgetAndASilentOneIsEmpty)
{
    open();
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 0); // silent: 4 passes of a second
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
    // Below 1 it waits 2000 seconds.
    size_t nFirst = FakeUsb::reads();
    m_usb.onIn([&](size_t n) { m_clock.advance(n == nFirst + 1 ? 1999 : 0); });
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(FakeUsb::reads() - nFirst, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -2002);
    // Also without a device.
    layer().close();
    COMM_Dev_ChangeReadTimeOut(10);
    m_clock.script({2000, 2004});
    EXPECT_EQ(layer().read(in, 4), -50);
    EXPECT_EQ(stBackUpParam.nTimeOut, 6);
}

FakeClock *s_pClock = nullptr;
int32_t (*s_timeOut)(uint32_t) noexcept = nullptr;

int32_t renewTheBudget(const uint8_t *, int32_t)
{
    EXPECT_EQ(s_timeOut(50), 0);
    s_pClock->advance(2);
    return 0;
}

TEST_P(UsbDispatch, AReadTakesItsSecondsOffTheBudgetThatWasSetMeanwhile)
{
    open();
    m_usb.onSilence(nullptr);
    s_pClock = &m_clock;
    s_timeOut = &layer() == &s_outer ? COMM_Dev_ChangeReadTimeOut : COMM_Dev_Linux_ChangeReadTime;
    stBackUpParam.pfnEndCondition = renewTheBudget;
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 48);
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 48);
}

class UsbDispatchLog : public UsbDispatch {};
INSTANTIATE_TEST_SUITE_P(Layers, UsbDispatchLog, testing::Values(&s_outer), [](const auto &) { return "outer"; });

TEST_P(UsbDispatchLog, AnOpenIsLoggedWithItsResult)
{
    TransPortParam param = record();
    const std::string sHead = std::string("  ") + GetLogTime() + "  INFO:    CommDev:  ";
    logOn();
    EXPECT_EQ(layer().open(&param), 0);
    EXPECT_TRUE(rawLog().starts_with(sHead + "【COMM_Dev_OpenTransPort】 Start \r\n" + sHead +
                                     "ICC_OpenLinuxTransPort\r\n\r\n" + sHead + "TYPE_USBLIB_HID\r\n\r\n" + sHead +
                                     "libusb_get_device_list  nret = 2 \r\n"));
    EXPECT_EQ(logTexts().back(), "【COMM_Dev_OpenTransPort】 End = 0  ");
    layer().close();
    m_usb.plug({});
    logOn();
    EXPECT_EQ(layer().open(&param), -50);
    EXPECT_EQ(logTexts().back(), "【COMM_Dev_OpenTransPort】 End = -50  ");
}

TEST_P(UsbDispatchLog, AReadIsLoggedWithoutThePacketDumpOfTheSerialPort)
{
    open();
    m_usb.in("41 03");
    logOn();
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 2);
    EXPECT_THAT(logTexts(), ElementsAre("[COMM_Dev_Linux_ReadDataFromTransPort] Start ", "TYPE_USBLIB_HID\n",
                                        "read nRetVal:0, nReadOneTm=2\n", "read data  LEN=2   HEX: 4103",
                                        "read real data  LEN=2   HEX: 4103", "2nReadLen=2\n", "read ret:2\n"));
    logOn();
    EXPECT_EQ(layer().write(in, 1), 1);
    EXPECT_THAT(logTexts(),
                ElementsAre("[ICC_WriteDataToLinuxTransPort] Start ", "hid write  LEN=1   HEX: 41", "write ok:1\n"));
}

} // namespace
