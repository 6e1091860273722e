// waiting.h - a read in this thread and a second one that acts while the read waits, over libusb and over hidapi.
#pragma once

#include "usb_devices.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace qvtest {

class UsbWaiting : public UsbDevices, public testing::WithParamInterface<const UsbWay *> {
  protected:
    static const UsbWay &way() { return *GetParam(); }
    void openReader(const UsbDeviceOptions &options)
    {
        plug({options});
        ASSERT_EQ(open(way(), options.id), 0);
        usb().forgetCalls();
    }
    // `read` in this thread; `act` in another one, behind its first pass. The read's result; m_nPasses: how many
    // passes it has made.
    static int32_t meanwhile(const std::function<int32_t()> &read, const std::function<void()> &act)
    {
        s_nPasses = 0;
        std::thread other([&] {
            while (s_nPasses == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            act();
        });
        const int32_t nResult = read();
        other.join();
        return nResult;
    }
    // The end condition by which the other thread sees the passes; never complete.
    static int32_t countPasses(const uint8_t *, int32_t)
    {
        ++s_nPasses;
        return -1;
    }

    static inline std::atomic<int> s_nPasses = 0;
};

inline auto usbWays()
{
    return testing::Values(&kLibusb, &kHidapi);
}
inline std::string usbWayName(const testing::TestParamInfo<const UsbWay *> &test)
{
    return test.param->pszName;
}

} // namespace qvtest
