// usb_devices.h - a fixture with emulated USB devices that the library finds through the system's libusb and hidapi, in
// this very process. What a test leaves open fails it.
#pragma once

#include "harness.h"
#include "usb/emulation.h"

#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

using qvsim::UsbDeviceOptions;
using qvsim::UsbEndpointSet;
using qvsim::UsbId;
using Lines = std::vector<std::string>;

// With several interfaces the first one carries the reader's channel of this product ...
constexpr UsbId kFirstChannel{0x2B46, 0xBE11};
// ... and the second one that of any other.
constexpr UsbId kSecondChannel{0x0403, 0xBCD5};

inline UsbDeviceOptions reader(UsbId id = kFirstChannel, unsigned nInterfaces = 1)
{
    UsbDeviceOptions options;
    options.id = id;
    options.interfaces = nInterfaces;
    return options;
}

inline UsbDeviceOptions readerWith(unsigned nReportSize, bool bBulk = false)
{
    UsbDeviceOptions options = reader();
    options.reportSize = nReportSize;
    options.bulk = bBulk;
    return options;
}

// One of the library's two ways to a USB reader.
struct UsbWay {
    const char *pszName;
    int32_t (*open)(uint32_t nVid, uint32_t nPid) noexcept;
    int32_t (*close)() noexcept;
    int32_t (*write)(const uint8_t *data, uint32_t len) noexcept;
    int32_t (*read)(uint8_t *buf, uint32_t nMax, int32_t nTimeOut, EndConditionFn end) noexcept;
    int32_t (*cancel)() noexcept;
    int32_t nTimedOut;  // what a read returns
    int32_t nCancelled; // what a read returns
    size_t nCommandMax; // bytes
};
extern const UsbWay kLibusb;
extern const UsbWay kHidapi;

inline int32_t open(const UsbWay &way, UsbId id = kFirstChannel)
{
    return way.open(id.vendor, id.product);
}

// nLen bytes, none of them zero.
Bytes filled(size_t nLen);
// The bytes with zeros behind them up to nLen.
Bytes padded(Bytes data, size_t nLen);

struct Reply {
    int32_t nResult;
    Bytes data;
};
// Reads until nWanted bytes have come, 60 seconds at most.
Reply readReply(const UsbWay &way, size_t nWanted, size_t nRoom = 4096);
// One pass of the read loop: what a single report brings, or nothing.
Reply readOnce(const UsbWay &way);

class UsbDevices : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Plugs these devices in, in place of whatever was there and open; no descriptor may be left of that.
    void plug(std::vector<UsbDeviceOptions> devices);
    qvsim::UsbEmulation &usb() { return *m_usb; }
    // "claim busy", "out short 20", "claim ok".
    void behave(std::string_view sWords, size_t nDevice = 0);
    // What hosts called since the last time, without what looks for finished transfers.
    Lines takeCalls(size_t nDevice = 0);
    // All bytes that the device got, padding included, and the sizes of the reports.
    Bytes receivedBytes();
    std::vector<size_t> receivedSizes();
    // Opens the reader, sends a command, gets the reply and closes again: nothing of what went before is left.
    void expectWorks(const UsbWay &way, UsbId id = kFirstChannel);
    // The library has nothing open, and neither has libusb or hidapi.
    void expectClosed();
    // An open that failed leaves a connection to the emulation in the preload library, which is not what is tested.
    void preloadKeeps(int nConnections);
    static constexpr int kOpensOfAMissingNode = 2; // libusb tries twice

  private:
    void unplugAll();

    std::unique_ptr<qvsim::UsbEmulation> m_usb;
    int m_nBefore = 0; // descriptors
    int m_nKept = 0;   // connections of the preload library, to this emulation
};

} // namespace qvtest
