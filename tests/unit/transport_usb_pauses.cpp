// What follows a transfer over USB, and in which order a pass is judged: the pause of its endpoint, time-out, cancel, the
// wait of a pass that brought nothing.

#include "fake_hidapi.h"
#include "steady_clock.h"
#include "usb_bus.h"

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

// End conditions that cancel within the pass.
FakeClock *s_pClock = nullptr;
int32_t (*s_cancel)() noexcept = nullptr;

int32_t cancelNow(const uint8_t *, int32_t)
{
    EXPECT_EQ(s_cancel(), 0);
    return 1;
}

int32_t cancelAndLetTimePass(const uint8_t *, int32_t)
{
    s_pClock->advance(100);
    EXPECT_EQ(s_cancel(), 0);
    return 1;
}

class UsbPauses : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        m_usb.onSilence(nullptr);
        s_pClock = &m_clock;
        s_cancel = COMM_Hid_CancelLinuxUsbLibHid;
    }
    static int32_t write(const Bytes &data)
    {
        return COMM_Hid_WriteLinuxUsbLibHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    int32_t read(EndConditionFn end) { return COMM_Hid_ReadLinuxUsbLibHid(m_buf, sizeof m_buf, 3, end); }

    uint8_t m_buf[64] = {};
};

// ---- the pause of an endpoint ---------------------------------------------------------------------------------------

TEST_F(UsbPauses, EachDirectionHasThePauseOfItsOwnEndpoint)
{
    openReader(64, 3, 10);
    g_outep.cTimeInterval = 77;
    m_usb.in("41");
    m_usb.in("03");
    EXPECT_EQ(read(endsWithEtx), 2);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(10, 10));
    EXPECT_EQ(write(bytes("31")), 1);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(77));
}

TEST_F(UsbPauses, AFailedInterruptReportIsFollowedByThePauseToo)
{
    openReader(64, 3, 10);
    for (int nError : {-7, -4, -1}) {
        SCOPED_TRACE(nError);
        m_usb.out(nError, 0, EIO);
        EXPECT_EQ(write(bytes("31")), -54);
        EXPECT_THAT(FakeSleep::take(), ElementsAre(10));
        m_usb.outUntouched(nError);
        EXPECT_EQ(write(bytes("31")), -54);
        EXPECT_THAT(FakeSleep::take(), ElementsAre(10));
        m_usb.in("", nError);
        EXPECT_EQ(read(atOnce), 0);
        EXPECT_THAT(FakeSleep::take(), ElementsAre(10));
        m_usb.inUntouched(nError);
        EXPECT_EQ(read(atOnce), 0);
        EXPECT_THAT(FakeSleep::take(), ElementsAre(10));
    }
}

TEST_F(UsbPauses, AFailedBulkReportIsNotFollowedByAPause)
{
    openReader(64, 2, 10);
    m_usb.out(-4, 0, EIO);
    EXPECT_EQ(write(bytes("31")), -54);
    m_usb.in("", -7);
    EXPECT_EQ(read(atOnce), 0);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

// ---- a pass that brings nothing ---------------------------------------------------------------------------------------

// How long passes that bring nothing last, in milliseconds, and the pauses behind them.
const std::vector<long> s_passes = {0, 1, 30, 99, 100, 101, 1000, 40};
const std::vector<long> s_pauses = {100, 99, 70, 1, 60};

TEST_F(UsbPauses, APassThatBroughtNothingWaitsOutTheRestOf100Milliseconds)
{
    openReader(64, 2);
    SteadyClock steady;
    for (size_t i = 0; i < s_passes.size(); ++i)
        m_usb.inUntouched(-4);
    m_usb.in("03");
    m_usb.onIn([](size_t n) {
        if (n <= s_passes.size())
            SteadyClock::advance(s_passes[n - 1]);
    });
    EXPECT_EQ(read(endsWithEtx), 1);
    EXPECT_EQ(FakeSleep::take(), s_pauses);
}

// ---- a pass that is cancelled ---------------------------------------------------------------------------------------

TEST_F(UsbPauses, ATimeOutIsSeenBeforeACancelOfTheSamePass)
{
    openReader();
    logOn();
    EXPECT_EQ(read(cancelAndLetTimePass), 0);
    EXPECT_TRUE(logged({"[COMM_Hid_CancelLinuxUsbLibHid] Start ", "3\n", "read ret:0\n"})) << rawLog();
    EXPECT_EQ(FakeUsb::reads(), 1U);
    logOn();
    EXPECT_EQ(read(cancelNow), 0);
    EXPECT_FALSE(logged({"3\n"}));
}

TEST_F(UsbPauses, ACancelWithinAnEmptyPassIsNotWaitedFor)
{
    openReader(64, 2);
    EXPECT_EQ(read(cancelNow), 0);
    EXPECT_EQ(FakeUsb::reads(), 1U);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

class HidapiPauses : public UsbPauses {
  protected:
    void SetUp() override
    {
        UsbPauses::SetUp();
        s_cancel = COMM_Hid_CancelLinuxRead;
        ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    }
    void TearDown() override
    {
        COMM_Hid_CloseLinuxHid();
        EXPECT_EQ(FakeHid::openDevices(), 0);
        UsbPauses::TearDown();
    }
    int32_t read(EndConditionFn end) { return COMM_Hid_ReadLinuxHid(m_buf, sizeof m_buf, 3, end); }

    FakeHid m_hid;
};

TEST_F(HidapiPauses, APassThatBroughtNothingWaitsOutTheRestOf100Milliseconds)
{
    SteadyClock steady;
    for (size_t i = 0; i < s_passes.size(); ++i)
        m_hid.in("");
    m_hid.in("03");
    m_hid.onRead([](size_t n) {
        if (n <= s_passes.size())
            SteadyClock::advance(s_passes[n - 1]);
    });
    EXPECT_EQ(read(endsWithEtx), 1);
    EXPECT_EQ(FakeSleep::take(), s_pauses);
}

TEST_F(HidapiPauses, ATimeOutIsSeenBeforeACancelOfTheSamePass)
{
    EXPECT_EQ(read(cancelAndLetTimePass), -56);
    EXPECT_EQ(read(cancelNow), -57);
    EXPECT_EQ(FakeHid::reads(), 2U);
}

TEST_F(HidapiPauses, ACancelWithinAnEmptyPassIsNotWaitedFor)
{
    EXPECT_EQ(read(cancelNow), -57);
    EXPECT_EQ(FakeHid::reads(), 1U);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

} // namespace
