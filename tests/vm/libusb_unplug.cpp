// libusb_unplug.cpp - the plug is pulled while the reader is open.
#include "usb_steps.h"

#include <atomic>
#include <filesystem>
#include <thread>

using namespace qvvm;

namespace {

std::atomic<int> s_nPasses{0};
int32_t countPass(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return -1;
}

TEST(UsbUnplug, AReadThatWaitsEndsEmptyAtItsTimeOutWithoutSpinning)
{
    const int nDescriptors = openDescriptors();
    {
        UsbReader reader;
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
        std::array<uint8_t, 1024> buf{};
        s_nPasses = 0;
        std::thread puller([&] {
            waitUntil([] { return s_nPasses >= 1; });
            reader.unplug();
        });
        const double dBefore = processorMs();
        StopWatch watch;
        EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buf.data(), buf.size(), 4, countPass), 0);
        const double dElapsed = watch.ms();
        puller.join();
        EXPECT_GE(dElapsed, 4000);
        EXPECT_LE(s_nPasses, dElapsed / 100 + 2);
        EXPECT_LT(processorMs() - dBefore, dElapsed / 2);
    }
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(openDescriptors(), nDescriptors);
}

TEST(UsbUnplug, ACancelStillEndsTheRead)
{
    UsbReader reader;
    ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    reader.unplug();
    std::array<uint8_t, 1024> buf{};
    s_nPasses = 0;
    std::thread canceller([] {
        waitUntil([] { return s_nPasses >= 2; });
        EXPECT_EQ(COMM_Dev_CancelRead(), 0);
    });
    StopWatch watch;
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buf.data(), buf.size(), 60, countPass), 0);
    EXPECT_LT(watch.ms(), 20'000);
    canceller.join();
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

TEST(UsbUnplug, WritesFailUntilItIsClosedAndPluggedInAgain)
{
    const int nDescriptors = openDescriptors();
    {
        UsbReader reader;
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    }
    ASSERT_FALSE(std::filesystem::exists(UsbReader::sysfsPath()));
    EXPECT_LT(powerOn(0).nResult, 0);
    const Bytes command = bytes("02 30 30 30 32 33 31 31 31 32 30 03");
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(command.data(), static_cast<uint32_t>(command.size())), -54);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(openDescriptors(), nDescriptors);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), -51);
    EXPECT_EQ(openDescriptors(), nDescriptors);

    UsbReader again;
    again.insert(0, szCard);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

TEST(UsbUnplug, PluggingInAndOutManyTimesLeavesNothingOpen)
{
    const int nDescriptors = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        {
            UsbReader reader;
            reader.insert(0, szCard);
            EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
            EXPECT_EQ(powerOn(0).sHex, szAtr);
        }
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_EQ(openDescriptors(), nDescriptors);
    }
}

} // namespace
