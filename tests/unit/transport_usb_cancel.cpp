// Cancelling a read over USB, from the thread that reads and from another one, through libusb and through hidapi.

#include "cancelled_read.h"
#include "fake_hidapi.h"
#include "usb_bus.h"

#include "qvreader/protocol.h"

#include <atomic>
#include <thread>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

std::atomic<int> s_nPasses{0};

int32_t countPasses(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return 1;
}

int32_t completeAtThirdPass(const uint8_t *, int32_t)
{
    return ++s_nPasses == 3 ? 0 : 1;
}

// One way to a reader, with what is special about it.
struct Way {
    const char *pszName;
    int32_t (*read)(uint8_t *, uint32_t, int32_t, EndConditionFn) noexcept;
    int32_t (*cancel)() noexcept;
    int32_t nCancelled; // what a cancelled read returns
    const char *pszStartLine;
};

const Way s_libusb = {"libusb", COMM_Hid_ReadLinuxUsbLibHid, COMM_Hid_CancelLinuxUsbLibHid, 0,
                      "[COMM_Hid_CancelLinuxUsbLibHid] Start "};
const Way s_hidapi = {"hidapi", COMM_Hid_ReadLinuxHid, COMM_Hid_CancelLinuxRead, -57,
                      "[COMM_Hid_CancelLinuxRead] Start "};

const Way *s_pWay = nullptr;

int32_t cancelOnce(const uint8_t *, int32_t)
{
    if (++s_nPasses == 1) {
        EXPECT_EQ(s_pWay->cancel(), 0);
    }
    return 1;
}

int32_t cancelAndComplete(const uint8_t *, int32_t)
{
    EXPECT_EQ(s_pWay->cancel(), 0);
    return 0;
}

class UsbCancel : public UsbBus, public testing::WithParamInterface<const Way *> {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        s_pWay = GetParam();
        s_nPasses = 0;
        m_usb.onSilence(nullptr); // the clock stands: only a cancel ends these reads
    }
    void TearDown() override
    {
        COMM_Hid_CloseLinuxHid();
        UsbBus::TearDown();
    }
    void open()
    {
        openReader();
        ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    }
    int32_t read(EndConditionFn end) { return s_pWay->read(m_buf, sizeof m_buf, 60, end); }
    template <typename Read, typename Cancel> int32_t cancelled(Read read, Cancel cancel, int nPasses = 1)
    {
        return cancelledRead(s_nPasses, m_nAfter, read, cancel, nPasses);
    }

    int m_nAfter = 0;
    FakeHid m_hid;
    uint8_t m_buf[64] = {};
};

INSTANTIATE_TEST_SUITE_P(Ways, UsbCancel, testing::Values(&s_libusb, &s_hidapi),
                         [](const auto &test) { return test.param->pszName; });

TEST_P(UsbCancel, WithoutADeviceACancelSaysSo)
{
    logOn();
    EXPECT_EQ(s_pWay->cancel(), -57);
    EXPECT_THAT(logTexts(), ElementsAre(s_pWay->pszStartLine));
    open();
    logOn();
    EXPECT_EQ(s_pWay->cancel(), 0);
    EXPECT_THAT(logTexts(), ElementsAre(s_pWay->pszStartLine));
    COMM_Hid_CloseLinuxUsbLibHid();
    COMM_Hid_CloseLinuxHid();
    EXPECT_EQ(s_pWay->cancel(), -57);
}

TEST_P(UsbCancel, ACancelEndsTheReadOfAnotherThread)
{
    open();
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        int32_t nResult = cancelled([this] { return read(countPasses); }, [] { return s_pWay->cancel(); }, 2);
        EXPECT_EQ(nResult, s_pWay->nCancelled);
        EXPECT_GE(m_nAfter, 0);
    }
}

TEST_P(UsbCancel, ACancelWorksWhileBothThreadsLog)
{
    open();
    logOn();
    int32_t nResult = cancelled([this] { return read(countPasses); },
                                [] {
                                    int32_t nAll = 0;
                                    for (int i = 0; i < 20; ++i)
                                        nAll |= s_pWay->cancel();
                                    return nAll;
                                });
    EXPECT_EQ(nResult, s_pWay->nCancelled);
    EXPECT_TRUE(logged({s_pWay->pszStartLine}));
    EXPECT_TRUE(logged({"read ret:" + std::to_string(s_pWay->nCancelled) + "\n"}));
}

TEST_P(UsbCancel, ACancelWithinAPassEndsThatPass)
{
    open();
    EXPECT_EQ(read(cancelOnce), s_pWay->nCancelled);
    EXPECT_EQ(s_nPasses, 1);
    FakeSleep::take();
}

TEST_P(UsbCancel, ACancelBeforeOrAfterAReadIsForgotten)
{
    open();
    EXPECT_EQ(s_pWay->cancel(), 0);
    EXPECT_EQ(read(completeAtThirdPass), 0);
    EXPECT_EQ(s_nPasses, 3);

    s_nPasses = 0;
    EXPECT_EQ(read(cancelOnce), s_pWay->nCancelled);
    EXPECT_EQ(s_pWay->cancel(), 0);
    s_nPasses = 0;
    EXPECT_EQ(read(completeAtThirdPass), 0);
    EXPECT_EQ(s_nPasses, 3);
}

TEST_P(UsbCancel, ACompleteReplyWinsOverACancel)
{
    open();
    if (s_pWay == &s_libusb)
        m_usb.in("41");
    else
        m_hid.in("41");
    EXPECT_EQ(read(cancelAndComplete), 1);
    EXPECT_EQ(m_buf[0], 0x41);
}

TEST_P(UsbCancel, ARefusedReadIsNotARunningOne)
{
    open();
    EXPECT_EQ(s_pWay->read(nullptr, 4, 60, countPasses), -50);
    EXPECT_EQ(s_pWay->cancel(), 0);
    EXPECT_EQ(read(completeAtThirdPass), 0);
    EXPECT_EQ(s_nPasses, 3);
}

TEST_P(UsbCancel, ACancelOfTheOtherWayLeavesTheReadRunning)
{
    open();
    static int32_t (*s_other)() noexcept = nullptr;
    s_other = s_pWay == &s_libusb ? s_hidapi.cancel : s_libusb.cancel;
    EXPECT_EQ(read([](const uint8_t *, int32_t) -> int32_t {
                  EXPECT_EQ(s_other(), 0);
                  return ++s_nPasses == 2 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(s_nPasses, 2);
}

// Through the layers above, which lead to libusb only.
class UsbLayersCancel : public UsbCancel {};
INSTANTIATE_TEST_SUITE_P(Ways, UsbLayersCancel, testing::Values(&s_libusb), [](const auto &) { return "libusb"; });

TEST_P(UsbLayersCancel, TheCancelOfEachLayerReachesTheRead)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    TransPortParam param{};
    param.nType = 7;
    param.nVID = 0x0403;
    param.nPID = 0xBCD5;
    param.nTimeOut = 60;
    param.pfnEndCondition = countPasses;
    ASSERT_EQ(COMM_Dev_OpenTransPort(&param), 0);
    auto read = [this] { return COMM_Dev_ReadDataFromTransPort(m_buf, sizeof m_buf); };
    EXPECT_EQ(cancelled(read, [] { return COMM_Dev_CancelRead(); }), 0);
    EXPECT_EQ(cancelled(read, [] { return COMM_Dev_Linux_CancelLinuxRead(); }), 0);
    EXPECT_EQ(cancelled(read, [] { return COMM_Rdz_Cancel(); }), 0);
    EXPECT_EQ(COMM_Dev_CloseTransPort(), 0);
    EXPECT_EQ(COMM_Dev_CancelRead(), -57);
}

} // namespace
