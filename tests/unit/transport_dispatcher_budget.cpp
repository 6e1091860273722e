// The read time budget: each read takes its own duration off it, however it ends.

#include "fake_clock.h"
#include "transport_dispatcher.h"

using namespace qvtest;

namespace {

// An end condition that moves the clock: its i-th call lets s_seconds[i] pass. The read is complete at the last entry
// when s_bComplete is set; calls beyond the entries push the clock far ahead, so that a read never hangs the program.
FakeClock *s_pClock = nullptr;
std::vector<int> s_seconds;
bool s_bComplete = false;
size_t s_nCalls = 0;

int32_t letTimePass(const uint8_t *, int32_t)
{
    size_t nAt = s_nCalls++;
    s_pClock->advance(nAt < s_seconds.size() ? s_seconds[nAt] : 5000);
    return s_bComplete && nAt + 1 == s_seconds.size() ? 0 : 1;
}

int32_t letTimePassAndCancel(const uint8_t *, int32_t)
{
    s_pClock->advance(3);
    EXPECT_EQ(COMM_Dev_CancelRead(), 0);
    return 1;
}

TEST_P(Dispatcher, AReadTakesItsSecondsOffTheBudget)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(3);
    layer().endCondition(letTimePass);

    // Two seconds: complete at the second pass, before the time-out is looked at.
    s_seconds = {1, 1};
    s_bComplete = true;
    s_nCalls = 0;
    m_peer->send("41");
    waitUnread(g_AuxFd, 1);
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 1);
    EXPECT_EQ(stBackUpParam.nTimeOut, 1);

    // The second read has one second: one is not over, two are.
    s_seconds = {1, 1};
    s_bComplete = false;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
}

TEST_P(Dispatcher, AUsedUpBudgetWaitsAThousandSeconds)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(1);
    layer().endCondition(letTimePass);
    uint8_t in[4];

    s_seconds = {1};
    s_bComplete = true;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 0);

    s_seconds = {1000, 1};
    s_bComplete = false;
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1001);

    // Negative by now: the same long wait, and nothing is restored.
    s_seconds = {1000, 1};
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -2002);

    layer().timeOut(2);
    s_seconds = {2, 1};
    s_nCalls = 0;
    EXPECT_EQ(layer().read(in, 4), -56);
    EXPECT_EQ(s_nCalls, 2U);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
}

TEST_P(Dispatcher, AFailedReadTakesItsSecondsOffTheBudgetToo)
{
    FakeClock clock(1000);
    stBackUpParam = {10, never, 99, 0, 0};
    uint8_t in[4];
    clock.script({1000, 1004});
    EXPECT_EQ(layer().read(in, 4), -1);
    EXPECT_EQ(stBackUpParam.nTimeOut, 6);

    stBackUpParam.nType = 1; // no port: -2
    clock.script({2000, 2009});
    EXPECT_EQ(layer().read(in, 4), -2);
    EXPECT_EQ(stBackUpParam.nTimeOut, -3);
}

TEST_P(Dispatcher, ACancelledReadTakesItsSecondsOffTheBudgetToo)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(10);
    layer().endCondition(letTimePassAndCancel);
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), -57);
    EXPECT_EQ(stBackUpParam.nTimeOut, 7);
}

TEST_P(Dispatcher, AReadThatFailsOnTheLineTakesItsSecondsOffTheBudgetToo)
{
    FakeClock clock(1000);
    stBackUpParam = {10, never, 1, 0, 0};
    SetAuxFd(99999); // no open descriptor
    uint8_t in[4];
    clock.script({1000, 1004});
    EXPECT_EQ(layer().read(in, 4), -55);
    EXPECT_EQ(stBackUpParam.nTimeOut, 6);
    SetAuxFd(-2);
}

TEST_P(Dispatcher, AClockThatIsSetBackDuringAReadGivesTheBudgetThatTime)
{
    FakeClock clock(1000);
    s_pClock = &clock;
    open();
    layer().timeOut(3);
    layer().endCondition(letTimePass);
    s_seconds = {-600, 1};
    s_bComplete = true;
    s_nCalls = 0;
    uint8_t in[4];
    EXPECT_EQ(layer().read(in, 4), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 602);
}

} // namespace
