// Test help: libusb and hidapi as a host uses them, without anything of the driver library.
#pragma once

#include "model/frame.h"
#include "usb/emulation.h"

#include <hidapi.h>
#include <libusb.h>

namespace qvsim::test {

constexpr unsigned kShortMs = 200;
constexpr unsigned kLongMs = 10'000;

// An opened device with one interface claimed, by the default context.
class LibusbHost {
  public:
    explicit LibusbHost(UsbId id);
    ~LibusbHost();
    LibusbHost(const LibusbHost &) = delete;
    LibusbHost &operator=(const LibusbHost &) = delete;

    bool isOpen() const { return handle_ != nullptr; }
    libusb_device_handle *handle() const { return handle_; }
    // Detaches the kernel's driver where there is one. Result: 0 or libusb's code.
    int claim(int interface);
    // Result: bytes moved or libusb's code.
    int write(std::uint8_t endpoint, BytesView bytes, unsigned ms = kLongMs, bool bulk = false);
    int read(std::uint8_t endpoint, std::size_t most, Bytes &into, unsigned ms = kLongMs, bool bulk = false);

  private:
    libusb_context *context_ = nullptr;
    libusb_device_handle *handle_ = nullptr;
};

class HidapiHost {
  public:
    explicit HidapiHost(UsbId id) : device_(::hid_open(id.vendor, id.product, nullptr)) {}
    ~HidapiHost();
    HidapiHost(const HidapiHost &) = delete;
    HidapiHost &operator=(const HidapiHost &) = delete;

    bool isOpen() const { return device_ != nullptr; }
    // Report number 0 goes before the bytes. Result: what hidapi returns.
    int write(BytesView bytes);
    int read(Bytes &into, int ms = static_cast<int>(kLongMs));

  private:
    hid_device *device_;
};

// `text` and zeros up to `size`.
Bytes padded(BytesView bytes, std::size_t size);
Bytes bytesOf(std::string_view text);

} // namespace qvsim::test
