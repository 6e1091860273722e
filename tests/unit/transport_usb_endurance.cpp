// Ten thousand opens on a faked bus, every second one failing, leave memory, descriptors and libusb's books as they were.

#include "sanitized.h"
#include "usb_bus.h"

#include <array>
#include <cstdio>
#include <malloc.h>
#include <map>

using namespace qvtest;

namespace {

constexpr int nOpens = 10'000;

// The ways in which an open fails, by turns.
struct Failure {
    const char *pszWhat;
    uint16_t nProduct;
    const char *pszCall; // that fails; null: none, the identity is not there
    int nCallResult;
    int32_t nResult;
};
constexpr std::array<Failure, 3> failures{{
    {"no match", 0x0001, nullptr, 0, -50},
    {"claim refused", 0xBCD5, "claim", -6, -3},
    {"bad configuration", 0xBCD5, "active_config", -5, -3},
}};

class UsbEndurance : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        m_usb.plug({usbReader(0x0403, 0xBCD5)});
    }
    // The nAt-th open of a run and, where it works, a close.
    void openOnce(int nAt)
    {
        if (nAt % 2 == 0) {
            ASSERT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0) << "open " << nAt;
            ASSERT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        } else {
            const Failure &failure = failures[static_cast<size_t>(nAt / 2) % failures.size()];
            if (failure.pszCall != nullptr)
                m_usb.results(failure.pszCall, {failure.nCallResult});
            ASSERT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, failure.nProduct), failure.nResult)
                << "open " << nAt << ", " << failure.pszWhat;
        }
        expectClosed();
        ASSERT_FALSE(HasFailure()) << "open " << nAt; // once is enough
        for (const std::string &sCall : m_usb.takeCalls())
            ++m_counts[sCall.substr(0, sCall.find(' '))];
    }

    std::map<std::string, int> m_counts; // of libusb's calls
};

TEST_F(UsbEndurance, TenThousandOpensHalfOfThemInVainLeaveHeapMemoryAndDescriptorsAsTheyWere)
{
    for (int i = 0; i < 6; ++i)
        ASSERT_NO_FATAL_FAILURE(openOnce(i));
    for (auto &[sCall, nCount] : m_counts)
        nCount = 0;
    const int nDescriptors = openDescriptors();
    const size_t nUsed = mallinfo2().uordblks;
    for (int i = 0; i < nOpens; ++i)
        ASSERT_NO_FATAL_FAILURE(openOnce(i));
    const size_t nUsedNow = mallinfo2().uordblks;
    EXPECT_EQ(openDescriptors(), nDescriptors);
    if (!bSanitized) {
        std::printf("  %d opens: %zu bytes of heap memory before, %zu behind them\n", nOpens, nUsed, nUsedNow);
        EXPECT_EQ(nUsedNow, nUsed);
    }

    // 5,000 opens work; of the others 1,667 find no match, 1,667 are refused, 1,666 find no configuration.
    const std::map<std::string, int> expected{
        {"init", 10'000},   {"list", 10'000},         {"descriptor", 10'000},   {"open", 8'333},
        {"reset", 8'333},   {"active_config", 8'333}, {"driver_active", 6'667}, {"claim", 6'667},
        {"release", 5'000}, {"close", 8'333},         {"free_list", 10'000},    {"exit", 10'000},
    };
    EXPECT_EQ(m_counts, expected);
}

} // namespace
