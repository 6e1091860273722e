#include "fake_hidapi.h"

#include <gtest/gtest.h>
#include <hidapi.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <deque>
#include <mutex>
#include <set>
#include <utility>

struct hid_device_ {};

namespace {

using qvtest::Bytes;

struct Result {
    int nResult;
    int nErrno;
    Bytes data;
    int nMillis;
};

struct Hid {
    std::mutex guard;
    bool bPresent = false;
    int nFailingOpens = 0;
    std::deque<Result> writes, reads;
    std::function<void(size_t)> onRead;
    std::function<void()> onSilence;
    std::function<void(const std::string &)> onCall;
    std::vector<std::string> calls;
    std::vector<Bytes> sent;
    size_t nReads = 0;
    std::set<hid_device *> open;
};

Hid &hid()
{
    static Hid s_hid;
    return s_hid;
}

// Called with the guard held.
void keep(const std::string &sText)
{
    hid().calls.push_back(sText);
    if (hid().onCall)
        hid().onCall(sText);
}

bool isOpen(hid_device *pDevice, const char *pszCall)
{
    bool bOpen = hid().open.count(pDevice) != 0;
    if (!bOpen)
        ADD_FAILURE() << pszCall << " with a device that is not open";
    return bOpen;
}

} // namespace

hid_device *hid_open(unsigned short nVendor, unsigned short nProduct, const wchar_t *pszSerial)
{
    Hid &h = hid();
    std::scoped_lock lock(h.guard);
    char sz[32];
    std::snprintf(sz, sizeof sz, "open %04X %04X%s", nVendor, nProduct, pszSerial == nullptr ? "" : " serial");
    keep(sz);
    if (!h.bPresent || (h.nFailingOpens > 0 && h.nFailingOpens-- > 0))
        return nullptr;
    auto *pDevice = new hid_device;
    h.open.insert(pDevice);
    return pDevice;
}

void hid_close(hid_device *pDevice)
{
    Hid &h = hid();
    std::scoped_lock lock(h.guard);
    keep("close");
    if (pDevice != nullptr && isOpen(pDevice, "close")) {
        h.open.erase(pDevice);
        delete pDevice;
    }
}

int hid_write(hid_device *pDevice, const unsigned char *pData, size_t nLen)
{
    Hid &h = hid();
    std::scoped_lock lock(h.guard);
    keep("write " + std::to_string(nLen));
    if (!isOpen(pDevice, "write"))
        return -1;
    h.sent.emplace_back(pData, pData + nLen);
    if (h.writes.empty())
        return static_cast<int>(nLen);
    Result result = h.writes.front();
    h.writes.pop_front();
    if (result.nResult < 0)
        errno = result.nErrno;
    return result.nResult;
}

int hid_read_timeout(hid_device *pDevice, unsigned char *pData, size_t nLen, int nMillis)
{
    Hid &h = hid();
    std::unique_lock lock(h.guard);
    keep("read " + std::to_string(nLen) + " " + std::to_string(nMillis));
    if (!isOpen(pDevice, "read"))
        return -1;
    size_t nRead = ++h.nReads;
    auto onRead = h.onRead;
    lock.unlock();
    if (onRead)
        onRead(nRead);
    lock.lock();
    if (h.reads.empty()) {
        auto onSilence = h.onSilence;
        lock.unlock();
        if (onSilence)
            onSilence();
        return 0;
    }
    Result result = h.reads.front();
    h.reads.pop_front();
    lock.unlock();
    if (result.nMillis > 0) {
        timespec rest{result.nMillis / 1000, (result.nMillis % 1000) * 1'000'000L};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, nullptr);
    }
    if (result.nResult < 0) {
        errno = result.nErrno;
        return result.nResult;
    }
    if (result.data.size() > nLen) {
        ADD_FAILURE() << "a report of " << result.data.size() << " bytes does not fit into " << nLen;
        return -1;
    }
    std::copy(result.data.begin(), result.data.end(), pData);
    return result.nResult > 0 ? result.nResult : static_cast<int>(result.data.size());
}

namespace qvtest {

FakeHid::FakeHid()
{
    Hid &h = hid();
    std::scoped_lock lock(h.guard);
    h.bPresent = true;
    h.calls.clear();
    h.sent.clear();
    h.nReads = 0;
}

FakeHid::~FakeHid()
{
    Hid &h = hid();
    std::scoped_lock lock(h.guard);
    EXPECT_EQ(h.open.size(), 0U) << "devices were not closed";
    EXPECT_EQ(h.nFailingOpens, 0) << "opens were not tried";
    EXPECT_EQ(h.writes.size(), 0U) << "writes were not made";
    EXPECT_EQ(h.reads.size(), 0U) << "reads were not made";
    h.bPresent = false;
    h.nFailingOpens = 0;
    h.writes.clear();
    h.reads.clear();
    h.onRead = nullptr;
    h.onSilence = nullptr;
    h.onCall = nullptr;
}

void FakeHid::failOpens(int nTimes)
{
    std::scoped_lock lock(hid().guard);
    hid().nFailingOpens = nTimes;
}

void FakeHid::writes(std::initializer_list<int> results, int nErrno)
{
    std::scoped_lock lock(hid().guard);
    for (int n : results)
        hid().writes.push_back({n, nErrno, {}, 0});
}

void FakeHid::in(std::string_view sHex, int nMillis)
{
    std::scoped_lock lock(hid().guard);
    hid().reads.push_back({0, 0, bytes(sHex), nMillis});
}

void FakeHid::inCounted(std::string_view sHex, int nCount)
{
    std::scoped_lock lock(hid().guard);
    hid().reads.push_back({nCount, 0, bytes(sHex), 0});
}

void FakeHid::failRead(int nResult, int nErrno)
{
    std::scoped_lock lock(hid().guard);
    hid().reads.push_back({nResult, nErrno, {}, 0});
}

void FakeHid::onRead(std::function<void(size_t)> fn)
{
    std::scoped_lock lock(hid().guard);
    hid().onRead = std::move(fn);
}

void FakeHid::onCall(std::function<void(const std::string &)> fn)
{
    std::scoped_lock lock(hid().guard);
    hid().onCall = std::move(fn);
}

void FakeHid::onSilence(std::function<void()> fn)
{
    std::scoped_lock lock(hid().guard);
    hid().onSilence = std::move(fn);
}

std::vector<std::string> FakeHid::takeCalls()
{
    std::scoped_lock lock(hid().guard);
    return std::exchange(hid().calls, {});
}

std::vector<Bytes> FakeHid::takeSent()
{
    std::scoped_lock lock(hid().guard);
    return std::exchange(hid().sent, {});
}

size_t FakeHid::reads()
{
    std::scoped_lock lock(hid().guard);
    return hid().nReads;
}

int FakeHid::openDevices()
{
    std::scoped_lock lock(hid().guard);
    return static_cast<int>(hid().open.size());
}

} // namespace qvtest
