// Many exchanges leave memory and descriptors as they were; waiting for a card costs next to nothing.
//
//     QV_ENDURANCE_EXCHANGES   how many exchanges; as many as fit in 15 s if absent
//     QV_ENDURANCE_SECONDS     how long each of two waits for a card lasts, 3 if absent
//
// A million exchanges take minutes:
//
//     QV_ENDURANCE_EXCHANGES=1000000 QV_ENDURANCE_SECONDS=60 ctest --test-dir build/release -L endurance

#include "pty_peer.h"
#include "reader_peer.h"
#include "sanitized.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <malloc.h>

using namespace qvtest;

namespace {

// A whole cycle between rests, so that the reader has touched the room for its record.
constexpr long nWarmUp = 500;
constexpr std::chrono::seconds nEnough{15}; // for exchanges whose number was not asked for ...
constexpr long nAtLeast = 1000;             // ... but so many of them
constexpr long nBetweenRests = 500;         // exchanges; the reader's record of them has room for more
constexpr size_t nPage = 4096;
constexpr size_t nRoomToGrow = 64 * nPage; // of the whole process, its reader included

const Bytes s_command = bytes("00 B0 00 00 0F 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31 00");

Bytes response()
{
    Bytes data(100, 0x5A);
    data[98] = 0x90;
    data[99] = 0x00;
    return data;
}

// A positive number from the environment.
long number(const char *pszVariable, long nDefault)
{
    const char *psz = std::getenv(pszVariable);
    const long n = psz == nullptr ? nDefault : std::strtol(psz, nullptr, 10);
    EXPECT_GT(n, 0) << pszVariable;
    return n;
}

class Endurance : public testing::Test {
  protected:
    void SetUp() override
    {
        removeIni();
        m_peer.answer(commandFrame("32 26 00 " + hex(s_command)), replyFrame(0x9000, hex(response())));
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(m_peer.path().c_str(), nullptr, 1, 0, 38400), 0);
        COMM_Icc_CardReaderReSetCardSlot();
    }
    void TearDown() override
    {
        Dev_Rdz_SetPowerOnTime(0);
        Dev_Rdz_Ic_ClosePort();
        removeIni();
    }
    // True: the response came, byte for byte.
    bool exchange()
    {
        COMM_Rdz_ChageReadTimeOut(10);
        uint32_t nResponse = 0;
        m_response.fill(0);
        return ICC_CardCmdVisitCOS(s_command.data(), static_cast<uint32_t>(s_command.size()), m_response.data(),
                                   &nResponse) == 0 &&
               nResponse == m_expected.size() && std::equal(m_expected.begin(), m_expected.end(), m_response.begin());
    }
    double wait();
    void waitCheaply();

    ReaderPeer m_peer;
    const Bytes m_expected = response();
    std::array<uint8_t, 1024> m_response{};
};

size_t residentBytes()
{
    size_t nSize = 0, nResident = 0;
    std::sscanf(readFile("/proc/self/statm").c_str(), "%zu %zu", &nSize, &nResident);
    return nResident * nPage;
}

// Of the calling thread, so that the reader's own work does not count.
double cpuSeconds()
{
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

TEST_F(Endurance, ManyExchangesLeaveHeapMemoryAndDescriptorsAsTheyWere)
{
    const long nWanted = number("QV_ENDURANCE_EXCHANGES", LONG_MAX);
    for (long i = 0; i < nWarmUp; ++i)
        ASSERT_TRUE(exchange());
    m_peer.settle();
    const int nDescriptors = openDescriptors();
    const size_t nResident = residentBytes();
    const size_t nUsed = mallinfo2().uordblks;
    const auto start = std::chrono::steady_clock::now();
    const auto isEnough = [&](long n) {
        return n == nWanted ||
               (nWanted == LONG_MAX && n >= nAtLeast && std::chrono::steady_clock::now() - start > nEnough);
    };
    long nExchanges = 0;
    while (!isEnough(nExchanges)) {
        ASSERT_TRUE(exchange()) << "exchange " << nExchanges;
        if (++nExchanges % nBetweenRests == 0)
            m_peer.settle(); // empties the reader's record
    }
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - start;
    std::printf("  %ld exchanges in %.1f s, %.1f us each\n", nExchanges, lasted.count(),
                lasted.count() * 1e6 / static_cast<double>(nExchanges));
    m_peer.settle();
    EXPECT_EQ(openDescriptors(), nDescriptors);
    if (!bSanitized) {
        EXPECT_EQ(mallinfo2().uordblks, nUsed);
        EXPECT_LE(residentBytes(), nResident + nRoomToGrow);
    }
}

// What a wait costs, as a share of a core. The reader does not answer a power-up. A time-out of 3 s ends once more than
// 3 whole seconds have gone by.
double Endurance::wait()
{
    const long nSeconds = number("QV_ENDURANCE_SECONDS", 3);
    constexpr double nLate = 3; // of a busy machine
    Dev_Rdz_SetPowerOnTime(static_cast<uint32_t>(nSeconds));
    uint32_t nAtr = 0;
    const auto start = std::chrono::steady_clock::now();
    const double nCpuBefore = cpuSeconds();
    EXPECT_EQ(Dev_Rdz_IccPowerOn('1', m_response.data(), &nAtr), -56);
    const double nCpu = cpuSeconds() - nCpuBefore;
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted.count(), static_cast<double>(nSeconds));
    EXPECT_LE(lasted.count(), static_cast<double>(nSeconds) + 1 + nLate);
    std::printf("  %.2f s of waiting cost %.2f ms, %.3f %% of a core\n", lasted.count(), nCpu * 1e3,
                100 * nCpu / lasted.count());
    return nCpu / lasted.count();
}

// Other programs on the machine make a wait dearer, never cheaper: of three the cheapest counts.
void Endurance::waitCheaply()
{
    constexpr double nShareMax = 0.005;
    double nShare = wait();
    for (int i = 1; i < 3 && nShare >= nShareMax && !bSanitized; ++i)
        nShare = std::min(nShare, wait());
    if (!bSanitized) {
        EXPECT_LT(nShare, nShareMax);
    }
}

TEST_F(Endurance, WaitingForACardCostsLessThanHalfAPercentOfACore)
{
    waitCheaply();
}

TEST_F(Endurance, WaitingForACardBesideAnIniFileCostsLessThanHalfAPercentOfACore)
{
    writeIni("[QuorvanLog]\nLogFlag=0\n");
    waitCheaply();
}

} // namespace
