// fake_hidapi.h - a HID device as the test says: fake_libusb.h for the functions of hidapi.
//
// Without a FakeHid object no device can be opened. Calls are kept as text: "open 0403 BCD5", "write 65", "read 1024
// 200" (bytes, milliseconds), "close".
#pragma once

#include "harness.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

class FakeHid {
  public:
    FakeHid();
    // Fails the test when a device was not closed or a scripted result was not asked for.
    ~FakeHid();
    FakeHid(const FakeHid &) = delete;
    FakeHid &operator=(const FakeHid &) = delete;

    // The next opens fail.
    void failOpens(int nTimes);
    // What the next writes return; a negative one leaves nErrno. Afterwards all bytes go out.
    void writes(std::initializer_list<int> results, int nErrno = 0);
    // The next reads: a report, after nMillis; a failure. Afterwards nothing comes: 0.
    void in(std::string_view sHex, int nMillis = 0);
    // A read that brings these bytes and counts nCount (1 or more) of them.
    void inCounted(std::string_view sHex, int nCount);
    void failRead(int nResult, int nErrno = 0);
    // Called at each read with its number, counted from 1.
    void onRead(std::function<void(size_t)> fn);
    // Called at the start of each call with its text; it must not ask the device anything.
    void onCall(std::function<void(const std::string &)> fn);
    // Called when nothing comes.
    void onSilence(std::function<void()> fn);

    std::vector<std::string> takeCalls();
    // The bytes of each write since the last take, report id first.
    std::vector<Bytes> takeSent();
    static size_t reads();
    static int openDevices();
};

} // namespace qvtest
