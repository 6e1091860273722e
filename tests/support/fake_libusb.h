// fake_libusb.h - a USB bus as the test says.
//
// A test program that is built with FAKE_USB defines the libusb functions that the library calls, so that its calls land
// here and no real hardware is touched. Without a FakeUsb object the bus is there and empty. Every call is kept as text,
// in order ("open 0", "claim 1", "interrupt 02 64 1000": endpoint, bytes, time-out); what is given out and not given
// back is counted; a call that no libusb would survive (a handle that is not open, a device whose list was freed, an exit
// before a close) fails the test.
#pragma once

#include "harness.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

struct UsbEndpoint {
    uint8_t ucAddress;
    uint8_t ucAttributes;
    uint16_t nPacket;
    uint8_t ucInterval;
};
struct UsbSetting {
    uint8_t ucInterface; // bInterfaceNumber
    std::vector<UsbEndpoint> endpoints;
};
using UsbInterface = std::vector<UsbSetting>;
struct UsbDevice {
    uint16_t nVendor;
    uint16_t nProduct;
    std::vector<UsbInterface> interfaces;
};

// A reader whose interface i has the number i and the endpoints 81 + i (IN) and 01 + i (OUT).
UsbDevice usbReader(uint16_t nVendor, uint16_t nProduct, size_t nInterfaces = 2, uint16_t nPacket = 64,
                    uint8_t ucAttributes = 3, uint8_t ucInterval = 1);

class FakeUsb {
  public:
    explicit FakeUsb(std::vector<UsbDevice> devices = {});
    // Fails the test when something was not given back or a scripted result was not asked for.
    ~FakeUsb();
    FakeUsb(const FakeUsb &) = delete;
    FakeUsb &operator=(const FakeUsb &) = delete;

    void plug(std::vector<UsbDevice> devices);

    // What the next calls of that name ("init", "claim" ...) return, one after the other; afterwards they work again.
    // "list" with 0: an empty list.
    void results(const std::string &sCall, std::initializer_list<int> results);
    // The nAt-th call (from 0) from now on that can fail returns nResult and does nothing.
    void failCall(size_t nAt, int nResult);

    // Forgets what the script still has in store.
    void forgetScript();

    // The next OUT transfers: what they return and how many bytes they moved. Afterwards all bytes move.
    // nErrno: errno that the transfer leaves.
    void out(int nResult, int nMoved, int nErrno = 0);
    // The next IN transfers: their bytes and what they return, after nMillis. Afterwards nothing comes: -7.
    void in(std::string_view sHex, int nResult = 0, int nMillis = 0);
    // An OUT / IN transfer that fails before it starts: the count of bytes moved is not written.
    void outUntouched(int nResult);
    void inUntouched(int nResult);
    // An IN transfer that brings these bytes and counts nMoved of them.
    void inMoved(std::string_view sHex, int nMoved);
    // Called at each OUT transfer with its bytes / at each IN transfer with its number, counted from 1.
    void onOut(std::function<void(const Bytes &)> fn);
    void onIn(std::function<void(size_t)> fn);
    // Called at each libusb_init.
    void onInit(std::function<void()> fn);
    // Called at the start of each call with its text; it must not ask the bus anything.
    void onCall(std::function<void(const std::string &)> fn);
    // Called when nothing comes.
    void onSilence(std::function<void()> fn);

    // The calls since the last takeCalls(); libusb_free_config_descriptor may stand anywhere and is left out.
    std::vector<std::string> takeCalls();
    // The bytes of each OUT transfer since the last take, and the number of IN transfers since the start.
    std::vector<Bytes> takeSent();
    static size_t reads();
    // "": everything was given back. Else what was not ("1 context, 1 list").
    static std::string leftOver();
};

} // namespace qvtest
