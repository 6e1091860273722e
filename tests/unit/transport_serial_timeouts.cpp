// Time-outs of the serial read: whole seconds, strictly exceeded; and lines that have hung up.
//
// The end condition is asked once a pass, so it is also the place where a test lets time pass.

#include "fake_clock.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

using namespace qvtest;

namespace {

FakeClock *s_pClock = nullptr;
std::vector<int> s_seconds; // the i-th pass lasts s_seconds[i]
size_t s_nCompleteAt = 0;   // pass at which the reply is complete, 0: never
size_t s_nCancelAt = 0;     // pass at which a cancel comes, 0: never
size_t s_nCalls = 0;

int32_t pass(const uint8_t *, int32_t)
{
    size_t nAt = s_nCalls++;
    s_pClock->advance(nAt < s_seconds.size() ? s_seconds[nAt] : 100000);
    if (s_nCalls == s_nCancelAt) {
        EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    }
    return s_nCalls == s_nCompleteAt ? 0 : 1;
}

double seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double cpuSeconds()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

class SerialTimeOut : public testing::Test {
  protected:
    void SetUp() override
    {
        // A hung-up line must not take the program along where it is a session leader.
        signal(SIGHUP, SIG_IGN);
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        ASSERT_EQ(COMM_Com_OpenLinux(m_peer->path().c_str(), 9600), 0);
        m_clock.emplace(1000000);
        s_pClock = &*m_clock;
        s_seconds.clear();
        s_nCompleteAt = s_nCancelAt = s_nCalls = 0;
        std::memset(m_buf, 0xC5, sizeof m_buf);
    }
    void TearDown() override
    {
        m_clock.reset();
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    int32_t readFor(int32_t nTimeOut, std::initializer_list<int> secondsOfPasses)
    {
        s_seconds = secondsOfPasses;
        s_nCalls = 0;
        return COMM_Com_ReadLinux(m_buf, sizeof m_buf, nTimeOut, pass);
    }
    // The peer hangs up when it gets a byte.
    void hangUp()
    {
        m_peer->expect("31").hangUp();
        ASSERT_EQ(COMM_Com_WriteLinux(textBytes("1").data(), 1), 1);
        m_peer->finish();
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    std::optional<FakeClock> m_clock;
    uint8_t m_buf[16];
};

TEST(SerialTimeOutAtLoad, NoPortIsOpen)
{
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(SerialTimeOut, ATimeOutMustBeExceeded)
{
    EXPECT_EQ(readFor(3, {1, 1, 1, 1}), -56);
    EXPECT_EQ(s_nCalls, 4U);
    EXPECT_EQ(readFor(3, {3, 0, 0, 1}), -56);
    EXPECT_EQ(s_nCalls, 4U);
    EXPECT_EQ(readFor(1, {1, 1}), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(readFor(120, {120, 1}), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(readFor(5, {6}), -56);
    EXPECT_EQ(s_nCalls, 1U);
}

TEST_F(SerialTimeOut, ATimeOutBelowOneWaitsAThousandSeconds)
{
    for (int32_t nTimeOut : {0, -1, -120, INT32_MIN}) {
        SCOPED_TRACE(nTimeOut);
        EXPECT_EQ(readFor(nTimeOut, {1000, 1}), -56);
        EXPECT_EQ(s_nCalls, 2U);
    }
}

TEST_F(SerialTimeOut, TheLongestTimeOutIsNotExceededByAnHour)
{
    s_nCompleteAt = 2;
    EXPECT_EQ(readFor(INT32_MAX, {3600, 0}), 0);
    EXPECT_EQ(s_nCalls, 2U);
}

TEST_F(SerialTimeOut, ACompleteReplyWinsOverThePassedTime)
{
    m_peer->send("41");
    waitUnread(g_AuxFd, 1);
    s_nCompleteAt = 2;
    EXPECT_EQ(readFor(3, {1, 500}), 1);
}

TEST_F(SerialTimeOut, ThePassedTimeWinsOverACancel)
{
    s_nCancelAt = 1;
    EXPECT_EQ(readFor(3, {4}), -56);
    s_nCancelAt = 1;
    EXPECT_EQ(readFor(3, {3}), -57);
}

TEST_F(SerialTimeOut, WhatCameBeforeStaysInTheBuffer)
{
    m_peer->send("41 42");
    waitUnread(g_AuxFd, 2);
    EXPECT_EQ(readFor(3, {0, 4}), -56);
    EXPECT_EQ(hex(m_buf, 3), "41 42 C5");
}

TEST_F(SerialTimeOut, AClockThatIsSetBackEndsNothing)
{
    s_nCompleteAt = 3;
    EXPECT_EQ(readFor(3, {-50000, 2, 1}), 0);
    EXPECT_EQ(s_nCalls, 3U);
}

TEST_F(SerialTimeOut, WithoutAnEndConditionTheTimeOutEndsTheRead)
{
    m_clock->script({1000, 1003, 1003, 1004});
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 3, nullptr), -56);
}

TEST_F(SerialTimeOut, EachReadHasItsOwnTime)
{
    EXPECT_EQ(readFor(3, {3, 1}), -56);
    EXPECT_EQ(readFor(3, {3, 1}), -56);
    EXPECT_EQ(s_nCalls, 2U);
}

TEST_F(SerialTimeOut, TheElapsedSecondsAreLogged)
{
    logOn();
    EXPECT_EQ(readFor(3, {7}), -56);
    EXPECT_TRUE(logged({"[COMM_Com_ReadLinux ] Start  ", "RET_PUB_TIMEOUT : [stEndTime - stStartTime ]  7",
                        "[COMM_Com_ReadLinux ] End nRetVal = -56 "}));
    EXPECT_FALSE(logged({" Param err"}));
    logOn();
    EXPECT_EQ(readFor(0, {1001}), -56);
    EXPECT_TRUE(logged({" Param err", "RET_PUB_TIMEOUT : [stEndTime - stStartTime ]  1001"}));
}

TEST_F(SerialTimeOut, TheLinesOfATimeOutAreTyped)
{
    logOn();
    EXPECT_EQ(readFor(0, {1001}), -56);
    EXPECT_NE(rawLog().find("INFO:    CommDev:   Param err\r\n"), std::string::npos);
    EXPECT_NE(rawLog().find("INFO:    CommDev:  RET_PUB_TIMEOUT : [stEndTime - stStartTime ]  1001\r\n"),
              std::string::npos);
}

TEST_F(SerialTimeOut, OneSecondOfTheTrueClockLastsOneToTwo)
{
    m_clock.reset();
    double nStart = seconds();
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 1, nullptr), -56);
    EXPECT_GE(seconds() - nStart, 0.95);
}

// ---- hung-up lines ------------------------------------------------------------------------------------------------

TEST_F(SerialTimeOut, AHungUpLineRunsIntoTheTimeOut)
{
    hangUp();
    EXPECT_EQ(readFor(3, {1, 2, 1}), -56);
    EXPECT_EQ(s_nCalls, 3U);
}

TEST_F(SerialTimeOut, AHungUpLineDoesNotSpin)
{
    hangUp();
    double nStart = seconds();
    double nUsed = cpuSeconds();
    EXPECT_EQ(readFor(3, {0, 0, 0, 0, 0, 0, 0, 0, 0, 4}), -56);
    EXPECT_EQ(s_nCalls, 10U);
    // Nine passes went on to the next one, each after a tenth of a second.
    EXPECT_GE(seconds() - nStart, 0.8);
    EXPECT_LT(cpuSeconds() - nUsed, 0.4);
}

TEST_F(SerialTimeOut, AHungUpLineCanBeCancelled)
{
    hangUp();
    s_nCancelAt = 2;
    EXPECT_EQ(readFor(30, {0, 0}), -57);
    EXPECT_EQ(s_nCalls, 2U);
}

TEST_F(SerialTimeOut, AHungUpLineTakesNoBytesAndCloses)
{
    hangUp();
    int nFd = g_AuxFd;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("12").data(), 2), 0);
    EXPECT_EQ(ResetAux(), -1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(fcntl(nFd, F_GETFD), -1);
}

} // namespace
