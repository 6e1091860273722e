// Cancelling a read from a second thread, over the system's libusb and hidapi.

#include "waiting.h"

#include "qvreader/icreader.h"
#include "qvreader/support.h"

using namespace qvtest;
using std::chrono::seconds;

namespace {

class UsbCancel : public UsbWaiting {};
INSTANTIATE_TEST_SUITE_P(Ways, UsbCancel, usbWays(), usbWayName);

TEST_P(UsbCancel, ACancelEndsTheReadOfAnotherThreadAndTheNextOneIsWhole)
{
    openReader(reader());
    uint8_t buf[64] = {};
    for (int i = 0; i < 3; ++i) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(meanwhile([&] { return way().read(buf, sizeof buf, 600, countPasses); },
                            [] { EXPECT_EQ(way().cancel(), 0); }),
                  way().nCancelled);
        EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(60)); // not the read's own time
        usb().reply(filled(100));
        EXPECT_EQ(hex(readReply(way(), 100).data), hex(filled(100)));
    }
    way().close();
    expectWorks(way());
}

TEST_P(UsbCancel, ACancelBehindAPartOfAReplyEndsTheRead)
{
    openReader(reader());
    usb().reply(bytes("02 30"));
    uint8_t buf[64] = {};
    EXPECT_EQ(
        meanwhile([&] { return way().read(buf, sizeof buf, 600, countPasses); }, [] { EXPECT_EQ(way().cancel(), 0); }),
        way().nCancelled);
    EXPECT_EQ(hex(buf, 3), "02 30 00");
    way().close();
    expectWorks(way());
}

TEST_P(UsbCancel, ACancelBeforeAReadIsForgotten)
{
    openReader(reader());
    EXPECT_EQ(way().cancel(), 0);
    usb().reply(bytes("41"));
    EXPECT_EQ(hex(readReply(way(), 1).data), "41");
}

TEST_P(UsbCancel, ReadsAndCancelsMayMeetAnywhere)
{
    openReader(reader());
    std::atomic<bool> bDone = false;
    std::thread other([&] {
        while (!bDone) {
            EXPECT_EQ(way().cancel(), 0);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 50; ++i) {
        usb().reply(bytes("41 42"));
        const Reply reply = readReply(way(), 2);
        // A complete reply wins over a cancel; a cancel that comes first leaves it to the next read.
        if (reply.nResult == way().nCancelled) {
            EXPECT_EQ(hex(readOnce(way()).data), "41 42") << i;
        } else {
            EXPECT_EQ(hex(reply.data), "41 42") << i;
        }
    }
    bDone = true;
    other.join();
}

TEST_P(UsbCancel, ACancelMayComeWhileTheDeviceIsOpenedAndClosed)
{
    plug({reader()});
    std::atomic<bool> bDone = false;
    std::thread other([&] {
        while (!bDone) {
            const int32_t nResult = way().cancel();
            EXPECT_TRUE(nResult == 0 || nResult == -57) << nResult;
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(open(way()), 0);
        EXPECT_EQ(way().close(), 0);
    }
    bDone = true;
    other.join();
    expectClosed();
    expectWorks(way());
}

// Through the layers above, which lead to libusb alone.
class UsbLayersCancel : public UsbWaiting {};
INSTANTIATE_TEST_SUITE_P(Ways, UsbLayersCancel, testing::Values(&kLibusb), usbWayName);

TEST_P(UsbLayersCancel, TheCancelOfEachLayerReachesTheRead)
{
    plug({reader(kSecondChannel, 2)});
    ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    COMM_Dev_ChangeReadTimeOut(600);
    COMM_Dev_ChangeEndCondition(countPasses);
    uint8_t buf[64] = {};
    for (int32_t (*cancel)() noexcept : {COMM_Dev_CancelRead, COMM_Dev_Linux_CancelLinuxRead, COMM_Rdz_Cancel}) {
        EXPECT_EQ(
            meanwhile([&] { return COMM_Dev_ReadDataFromTransPort(buf, sizeof buf); }, [&] { EXPECT_EQ(cancel(), 0); }),
            0);
        usb().reply(bytes("41"), 1);
        EXPECT_EQ(hex(readOnce(kLibusb).data), "41");
    }
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(COMM_Dev_CancelRead(), -57);
}

} // namespace
