// What the test says and asks; the calls of the library stand in fake_libusb.cpp.

#include "fake_libusb_bus.h"

#include <gtest/gtest.h>

#include <utility>

namespace qvtest {

Bus &bus()
{
    static Bus s_bus;
    return s_bus;
}

UsbDevice usbReader(uint16_t nVendor, uint16_t nProduct, size_t nInterfaces, uint16_t nPacket, uint8_t ucAttributes,
                    uint8_t ucInterval)
{
    UsbDevice device{nVendor, nProduct, {}};
    for (size_t i = 0; i < nInterfaces; ++i) {
        auto uc = static_cast<uint8_t>(i);
        UsbEndpoint in{static_cast<uint8_t>(0x81 + uc), ucAttributes, nPacket, ucInterval};
        UsbEndpoint out{static_cast<uint8_t>(0x01 + uc), ucAttributes, nPacket, ucInterval};
        device.interfaces.push_back({UsbSetting{uc, {in, out}}});
    }
    return device;
}

FakeUsb::FakeUsb(std::vector<UsbDevice> devices)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    b.devices = std::move(devices);
    b.calls.clear();
    b.sent.clear();
    b.nReads = 0;
}

FakeUsb::~FakeUsb()
{
    EXPECT_EQ(leftOver(), "");
    Bus &b = bus();
    std::unique_lock lock(b.guard);
    for (const auto &[sName, queue] : b.results)
        EXPECT_TRUE(queue.empty()) << "a result of " << sName << " was not asked for";
    EXPECT_TRUE(b.out.empty()) << b.out.size() << " OUT transfers were not made";
    EXPECT_TRUE(b.in.empty()) << b.in.size() << " IN transfers were not made";
    EXPECT_FALSE(b.nFailAt.has_value()) << "the call that should fail was not made";
    b.devices.clear();
    b.onOut = nullptr;
    b.onIn = nullptr;
    b.onInit = nullptr;
    b.onSilence = nullptr;
    b.onCall = nullptr;
    lock.unlock();
    forgetScript();
}

void FakeUsb::plug(std::vector<UsbDevice> devices)
{
    std::scoped_lock lock(bus().guard);
    bus().devices = std::move(devices);
}

void FakeUsb::results(const std::string &sCall, std::initializer_list<int> results)
{
    std::scoped_lock lock(bus().guard);
    auto &queue = bus().results[sCall];
    queue.insert(queue.end(), results.begin(), results.end());
}

void FakeUsb::failCall(size_t nAt, int nResult)
{
    std::scoped_lock lock(bus().guard);
    bus().nFailAt = nAt;
    bus().nFailResult = nResult;
}

void FakeUsb::forgetScript()
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    b.results.clear();
    b.out.clear();
    b.in.clear();
    b.nFailAt.reset();
    b.calls.clear();
}

void FakeUsb::out(int nResult, int nMoved, int nErrno)
{
    std::scoped_lock lock(bus().guard);
    bus().out.push_back({nResult, nMoved, false, nErrno, {}, 0});
}

void FakeUsb::in(std::string_view sHex, int nResult, int nMillis)
{
    std::scoped_lock lock(bus().guard);
    bus().in.push_back({nResult, std::nullopt, false, 0, bytes(sHex), nMillis});
}

void FakeUsb::outUntouched(int nResult)
{
    std::scoped_lock lock(bus().guard);
    bus().out.push_back({nResult, std::nullopt, true, 0, {}, 0});
}

void FakeUsb::inUntouched(int nResult)
{
    std::scoped_lock lock(bus().guard);
    bus().in.push_back({nResult, std::nullopt, true, 0, {}, 0});
}

void FakeUsb::inMoved(std::string_view sHex, int nMoved)
{
    std::scoped_lock lock(bus().guard);
    bus().in.push_back({0, nMoved, false, 0, bytes(sHex), 0});
}

void FakeUsb::onOut(std::function<void(const Bytes &)> fn)
{
    std::scoped_lock lock(bus().guard);
    bus().onOut = std::move(fn);
}

void FakeUsb::onIn(std::function<void(size_t)> fn)
{
    std::scoped_lock lock(bus().guard);
    bus().onIn = std::move(fn);
}

void FakeUsb::onInit(std::function<void()> fn)
{
    std::scoped_lock lock(bus().guard);
    bus().onInit = std::move(fn);
}

void FakeUsb::onCall(std::function<void(const std::string &)> fn)
{
    std::scoped_lock lock(bus().guard);
    bus().onCall = std::move(fn);
}

void FakeUsb::onSilence(std::function<void()> fn)
{
    std::scoped_lock lock(bus().guard);
    bus().onSilence = std::move(fn);
}

std::vector<std::string> FakeUsb::takeCalls()
{
    std::scoped_lock lock(bus().guard);
    return std::exchange(bus().calls, {});
}

std::vector<Bytes> FakeUsb::takeSent()
{
    std::scoped_lock lock(bus().guard);
    return std::exchange(bus().sent, {});
}

size_t FakeUsb::reads()
{
    std::scoped_lock lock(bus().guard);
    return bus().nReads;
}

std::string FakeUsb::leftOver()
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    std::string s;
    auto add = [&s](size_t n, const char *pszWhat) {
        if (n != 0)
            s += (s.empty() ? "" : ", ") + std::to_string(n) + " " + pszWhat;
    };
    add(static_cast<size_t>(b.nContexts), "context");
    add(b.lists.size(), "list");
    add(b.handles.size(), "handle");
    add(b.configs.size(), "configuration");
    return s;
}

} // namespace qvtest
