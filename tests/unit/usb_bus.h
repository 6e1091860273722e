// usb_bus.h - a fixture for calls on a faked USB bus: the clock stands, pauses take no time, everything process-wide is
// as a fresh process has it, and what a test leaves open fails it.
#pragma once

#include "fake_clock.h"
#include "fake_libusb.h"
#include "fake_sleep.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace qvtest {

// "41" x 3 -> 41 41 41: a report's or command's worth of bytes, none of them zero.
inline Bytes filled(size_t nLen)
{
    Bytes out(nLen);
    for (size_t i = 0; i < nLen; ++i)
        out[i] = static_cast<uint8_t>(1 + i % 255);
    return out;
}

// The bytes with zeros behind them up to nLen.
inline Bytes padded(Bytes data, size_t nLen)
{
    data.resize(nLen);
    return data;
}

inline std::vector<std::string> times(size_t n, const std::string &sText)
{
    return std::vector<std::string>(n, sText);
}

class UsbBus : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_usb.onSilence([this] { m_clock.advance(1); }); // as long as such a transfer waits
        g_inep = g_outep = {};
        g_bIsLinuxHidClearZero = 1;
        stBackUpParam = {};
    }
    void TearDown() override
    {
        logOff();
        COMM_Hid_CloseLinuxUsbLibHid();
        EXPECT_EQ(m_targetDev, nullptr);
        EXPECT_EQ(m_devs, nullptr);
        EXPECT_EQ(m_handle, nullptr);
        EXPECT_EQ(FakeUsb::leftOver(), "");
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    // Opens a reader with reports of nPacket bytes (second interface: endpoints 82 and 02) and forgets these calls.
    void openReader(uint16_t nPacket = 64, uint8_t ucAttributes = 3, uint8_t ucInterval = 1)
    {
        m_usb.plug({usbReader(0x0403, 0xBCD5, 2, nPacket, ucAttributes, ucInterval)});
        ASSERT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        m_usb.takeCalls();
        FakeSleep::take();
    }
    static void expectClosed()
    {
        EXPECT_EQ(m_targetDev, nullptr);
        EXPECT_EQ(m_devs, nullptr);
        EXPECT_EQ(m_handle, nullptr);
        EXPECT_EQ(FakeUsb::leftOver(), "");
    }

    int m_nDescriptors = 0;
    FakeClock m_clock{1000};
    FakeSleep m_sleep;
    FakeUsb m_usb;
};

} // namespace qvtest
