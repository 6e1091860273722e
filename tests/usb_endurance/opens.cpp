// Many opens of a reader on USB, every second one failing, leave memory and descriptors as they were.
//
//     QV_ENDURANCE_OPENS   how many opens; as many as fit in 10 s if absent
//
// Ten thousand take less than a minute:
//
//     QV_ENDURANCE_OPENS=10000 ctest --test-dir build/release -R '^usb_endurance' --verbose
//
// What malloc keeps at hand for each thread counts as used, and there are several threads: CTest switches it off.

#include "harness.h"
#include "sanitized.h"

#include "usb/emulation.h"

#include "qvreader/icreader.h"
#include "qvreader/transport.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <thread>

using namespace qvtest;

namespace {

using Clock = std::chrono::steady_clock;
using Calls = std::vector<std::string>;

constexpr long nWarmUp = 60;
constexpr std::chrono::seconds nEnough{10}; // for opens whose number was not asked for ...
constexpr long nAtLeast = 600;              // ... but so many of them, a hundred of each kind
constexpr size_t nDeviceRoom = 1024;        // what the device's thread takes and gives back all the time
constexpr std::chrono::seconds nPatience{10};

constexpr uint64_t nVendor = 0x2B46, nProduct = 0xBE11, nAbsentProduct = 0xBE21;

// What comes of an open, and what of it reaches the device.
struct Kind {
    const char *pszWhat;
    uint64_t nProduct;
    const char *pszBehaviour;
    int32_t nResult;
    Calls calls; // of the device's node
};

// By turns; every second one works.
const std::array<Kind, 6> s_kinds{{
    {"a good open", nProduct, nullptr, 0, {"OPEN", "RESET", "GETDRIVER 0", "CLAIM 0", "RELEASE 0", "CLOSE"}},
    {"no match", nAbsentProduct, nullptr, -51, {}},
    {"a good open", nProduct, nullptr, 0, {"OPEN", "RESET", "GETDRIVER 0", "CLAIM 0", "RELEASE 0", "CLOSE"}},
    {"claim refused", nProduct, "claim busy", -51, {"OPEN", "RESET", "GETDRIVER 0", "CLAIM 0", "CLOSE"}},
    {"a good open", nProduct, nullptr, 0, {"OPEN", "RESET", "GETDRIVER 0", "CLAIM 0", "RELEASE 0", "CLOSE"}},
    {"bad configuration", nProduct, "config none", -51, {"OPEN", "RESET", "CLOSE"}},
}};

qvsim::UsbDeviceOptions reader()
{
    qvsim::UsbDeviceOptions options;
    options.kernelDriver = false; // a detached one would stay away
    return options;
}

class UsbOpens : public testing::Test {
  protected:
    // The nAt-th open of a run and, where it works, a close.
    void openOnce(long nAt)
    {
        const Kind &kind = s_kinds[static_cast<size_t>(nAt) % s_kinds.size()];
        qvsim::UsbBehaviour behaviour;
        if (kind.pszBehaviour != nullptr) {
            ASSERT_EQ(qvsim::setUsbBehaviour(behaviour, kind.pszBehaviour), std::nullopt);
        }
        m_emulation.setBehaviour(behaviour);
        ASSERT_EQ(Dev_Rdz_Ic_AddHid(-1, kind.nProduct, nVendor), 0);
        const int32_t nResult = Dev_Rdz_Ic_OpenPort("HID", nullptr, 0, 0, 9600);
        if (nResult == 0) {
            ASSERT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        }
        ASSERT_EQ(nResult, kind.nResult) << "open " << nAt << ", " << kind.pszWhat;
        ASSERT_EQ(m_targetDev, nullptr);
        ASSERT_EQ(m_devs, nullptr);
        ASSERT_EQ(m_handle, nullptr);
        ASSERT_TRUE(m_emulation.waitClosed());
        ASSERT_EQ(m_emulation.calls(), kind.calls) << "open " << nAt << ", " << kind.pszWhat;
        m_emulation.forgetCalls();
        ++m_results[nResult == 0];
    }

    qvsim::UsbEmulation m_emulation{{reader()}};
    std::array<long, 2> m_results{}; // opens that failed, opens that worked
};

// The device's thread gives its own things back a moment after a close.
size_t heapBackTo(size_t nMost)
{
    const auto start = Clock::now();
    size_t nNow = mallinfo2().uordblks;
    while (nNow > nMost && Clock::now() - start < nPatience) {
        std::this_thread::yield();
        nNow = mallinfo2().uordblks;
    }
    return nNow;
}

TEST_F(UsbOpens, ManyOpensHalfOfThemInVainLeaveHeapMemoryAndDescriptorsAsTheyWere)
{
    const char *psz = std::getenv("QV_ENDURANCE_OPENS");
    const long nWanted = psz == nullptr ? LONG_MAX : std::strtol(psz, nullptr, 10);
    ASSERT_GT(nWanted, 0);
    for (long i = 0; i < nWarmUp; ++i)
        ASSERT_NO_FATAL_FAILURE(openOnce(i));
    m_results = {};
    const int nDescriptors = openDescriptors();
    const size_t nUsed = mallinfo2().uordblks;
    const auto start = Clock::now();
    long nOpens = 0;
    while (nOpens < nWanted && (nWanted != LONG_MAX || nOpens < nAtLeast || Clock::now() - start < nEnough)) {
        ASSERT_NO_FATAL_FAILURE(openOnce(nOpens));
        ++nOpens;
    }
    const std::chrono::duration<double> lasted = Clock::now() - start;
    const int nDescriptorsNow = openDescriptors();
    const size_t nUsedNow = heapBackTo(nUsed + nDeviceRoom);
    std::printf("  %ld opens (%ld worked, %ld failed) in %.1f s; %d descriptors before, %d behind them\n", nOpens,
                m_results[1], m_results[0], lasted.count(), nDescriptors, nDescriptorsNow);
    EXPECT_EQ(m_results[0], nOpens / 2);
    EXPECT_EQ(nDescriptorsNow, nDescriptors);
    if (!bSanitized) {
        std::printf("  %zu bytes of heap memory before, %zu behind them\n", nUsed, nUsedNow);
        EXPECT_LE(nUsedNow, nUsed + nDeviceRoom) << "needs GLIBC_TUNABLES=glibc.malloc.tcache_count=0";
    }
}

} // namespace
