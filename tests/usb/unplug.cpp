// The plug is pulled out while a read waits, over the system's libusb and hidapi.

#include "waiting.h"

#include "qvreader/icreader.h"
#include "qvreader/support.h"

#include <ctime>

using namespace qvtest;

namespace {

class UsbUnplug : public UsbWaiting {
  protected:
    static int32_t countAndEnd(const uint8_t *, int32_t) { return ++s_nPasses >= nPassesUntilGone ? 0 : -1; }
    static constexpr int nPassesUntilGone = 4;
};
INSTANTIATE_TEST_SUITE_P(Ways, UsbUnplug, usbWays(), usbWayName);

TEST_P(UsbUnplug, AReadThatWaitsEndsWithoutAReply)
{
    openReader(reader());
    uint8_t buf[64] = {};
    const time_t nStart = time(nullptr);
    const int32_t nResult =
        meanwhile([&] { return way().read(buf, sizeof buf, 2, countPasses); }, [this] { usb().unplug(); });
    if (&way() == &kHidapi) {
        EXPECT_EQ(nResult, RET_PUB_READ_FAIL); // at once
    } else {
        EXPECT_EQ(nResult, 0); // when its time is over
        EXPECT_GT(time(nullptr) - nStart, 2);
    }
    const Bytes command = bytes("41");
    EXPECT_EQ(way().write(command.data(), 1), -54);
    EXPECT_EQ(way().close(), 0);
    expectClosed();
    usb().plug();
    expectWorks(way());
}

TEST_P(UsbUnplug, APartOfAReplyIsNoReply)
{
    openReader(reader());
    usb().reply(bytes("02 30"));
    uint8_t buf[64] = {};
    const int32_t nResult =
        meanwhile([&] { return way().read(buf, sizeof buf, 1, countPasses); }, [this] { usb().unplug(); });
    EXPECT_EQ(nResult, &way() == &kHidapi ? RET_PUB_READ_FAIL : 0);
    EXPECT_EQ(way().close(), 0);
    usb().plug();
    expectWorks(way());
}

TEST_P(UsbUnplug, AReaderThatComesBackMustBeOpenedAnew)
{
    openReader(reader());
    usb().unplug();
    usb().plug();
    const Bytes command = bytes("41");
    EXPECT_EQ(way().write(command.data(), 1), -54);
    EXPECT_TRUE(usb().received().empty());
    EXPECT_EQ(way().close(), 0);
    expectWorks(way());
}

TEST_P(UsbUnplug, PullingThePlugAgainAndAgainLeavesNothing)
{
    openReader(reader());
    for (int i = 0; i < 5; ++i) {
        uint8_t buf[64] = {};
        EXPECT_LE(meanwhile([&] { return way().read(buf, sizeof buf, 600, countAndEnd); }, [this] { usb().unplug(); }),
                  0);
        EXPECT_EQ(way().close(), 0);
        expectClosed();
        usb().plug();
        ASSERT_EQ(open(way()), 0);
    }
}

// What libusb alone has: reads go on while the reader is gone, and transfers may be stuck.
class UsbUnplugLibusb : public UsbWaiting {};
INSTANTIATE_TEST_SUITE_P(Ways, UsbUnplugLibusb, testing::Values(&kLibusb), usbWayName);

TEST_P(UsbUnplugLibusb, AWriteThatIsStuckEndsWhenThePlugIsPulledOut)
{
    openReader(reader());
    behave("out stuck");
    std::thread other([this] {
        while (usb().calls().empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        usb().unplug();
    });
    const Bytes command = filled(200);
    EXPECT_EQ(way().write(command.data(), 200), -54);
    other.join();
    EXPECT_EQ(usb().calls(), (Lines{"INTERRUPT OUT 01 64"})); // it was not taken back: the kernel gave it back
    EXPECT_EQ(way().close(), 0);
    usb().setBehaviour({});
    usb().plug();
    expectWorks(way());
}

TEST_P(UsbUnplugLibusb, AReadOfAReaderThatIsGoneCanBeCancelled)
{
    openReader(reader());
    usb().unplug();
    uint8_t buf[64] = {};
    EXPECT_EQ(
        meanwhile([&] { return way().read(buf, sizeof buf, 600, countPasses); }, [] { EXPECT_EQ(way().cancel(), 0); }),
        0);
    EXPECT_EQ(way().close(), 0);
    usb().plug();
    expectWorks(way());
}

} // namespace
