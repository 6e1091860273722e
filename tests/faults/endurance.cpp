// Many exchanges leave memory and descriptors as they were; waiting for a card costs next to nothing.

#include "pty_peer.h"
#include "reader_peer.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <malloc.h>
#include <sys/resource.h>

using namespace qvtest;

namespace {

constexpr int nWarmUp = 50, nExchanges = 2000;
constexpr size_t nPage = 4096;
constexpr size_t nRoomToGrow = 64 * nPage; // of the whole process, its reader included

// A sanitizer keeps freed memory for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bMemoryIsKept = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool bMemoryIsKept = true;
#else
constexpr bool bMemoryIsKept = false;
#endif
#else
constexpr bool bMemoryIsKept = false;
#endif

constexpr char szCommand[] = "00 B0 00 00 0F 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31 00";

std::string response()
{
    std::string s;
    for (int i = 0; i < 98; ++i)
        s += "5A ";
    return s + "90 00";
}

class Endurance : public testing::Test {
  protected:
    void SetUp() override
    {
        removeIni();
        m_peer.answer(commandFrame(std::string("32 26 00 ") + szCommand), replyFrame(0x9000, response()));
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(m_peer.path().c_str(), nullptr, 1, 0, 38400), 0);
        COMM_Icc_CardReaderReSetCardSlot();
    }
    void TearDown() override
    {
        Dev_Rdz_Ic_ClosePort();
        removeIni();
    }
    int32_t exchange(const char *pszCommand)
    {
        COMM_Rdz_ChageReadTimeOut(2);
        const Bytes command = bytes(pszCommand);
        m_nResponse = 0;
        return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), m_response.data(),
                                   &m_nResponse);
    }

    ReaderPeer m_peer;
    std::array<uint8_t, 1024> m_response{};
    uint32_t m_nResponse = 0;
};

size_t residentBytes()
{
    size_t nSize = 0, nResident = 0;
    std::sscanf(readFile("/proc/self/statm").c_str(), "%zu %zu", &nSize, &nResident);
    return nResident * nPage;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    auto seconds = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

TEST_F(Endurance, TwoThousandExchangesLeaveMemoryAndDescriptorsAsTheyWere)
{
    const std::string sExpected = response();
    for (int i = 0; i < nWarmUp; ++i)
        ASSERT_EQ(exchange(szCommand), 0);
    m_peer.settle();
    const int nDescriptors = openDescriptors();
    const size_t nResident = residentBytes();
    const size_t nUsed = mallinfo2().uordblks;
    for (int i = 0; i < nExchanges; ++i) {
        ASSERT_EQ(exchange(szCommand), 0) << "exchange " << i;
        ASSERT_EQ(hex(m_response.data(), m_nResponse), sExpected) << "exchange " << i;
        if (i % nWarmUp == 0)
            m_peer.settle(); // empties the reader's record
    }
    m_peer.settle();
    EXPECT_EQ(openDescriptors(), nDescriptors);
    if (!bMemoryIsKept) {
        EXPECT_EQ(mallinfo2().uordblks, nUsed);
        EXPECT_LE(residentBytes(), nResident + nRoomToGrow);
    }
}

// The reader does not answer this command. A time-out of 2 s ends once more than 2 whole seconds have gone by.
void waitsCheaply(const std::function<int32_t()> &exchange)
{
    const auto start = std::chrono::steady_clock::now();
    const double nCpuBefore = cpuSeconds();
    EXPECT_EQ(exchange(), -56);
    const double nCpu = cpuSeconds() - nCpuBefore;
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted.count(), 2.0);
    EXPECT_LE(lasted.count(), 3.5);
    EXPECT_LT(nCpu, 0.005 * lasted.count());
    std::printf("  %.2f s of waiting cost %.2f ms\n", lasted.count(), nCpu * 1e3);
}

TEST_F(Endurance, WaitingForACardCostsLessThanHalfAPercentOfACore)
{
    waitsCheaply([this] { return exchange("00 C0 00 00 00"); });
}

TEST_F(Endurance, WaitingForACardBesideAnIniFileCostsLessThanHalfAPercentOfACore)
{
    writeIni("[QuorvanLog]\nLogFlag=0\n");
    waitsCheaply([this] { return exchange("00 C0 00 00 00"); });
}

} // namespace
