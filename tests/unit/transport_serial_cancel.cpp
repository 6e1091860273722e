// Cancelling a serial read, from the thread that reads and from another one.

#include "cancelled_read.h"
#include "pty_peer.h"

#include "qvreader/protocol.h"
#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <atomic>
#include <cstring>
#include <optional>
#include <thread>
#include <unistd.h>

using namespace qvtest;

namespace {

std::atomic<int> s_nPasses{0};

int32_t countPasses(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return 1;
}

int32_t cancelOnce(const uint8_t *, int32_t)
{
    if (++s_nPasses == 1) {
        EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    }
    return 1;
}

int32_t cancelAndComplete(const uint8_t *, int32_t)
{
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    return 0;
}

int32_t completeAtThirdPass(const uint8_t *, int32_t)
{
    return ++s_nPasses == 3 ? 0 : 1;
}

class SerialCancel : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        TransPortParam param{};
        param.nType = 1;
        param.nBaud = 9600;
        param.nTimeOut = 60;
        param.pfnEndCondition = countPasses;
        std::strncpy(param.szTermPath, m_peer->path().c_str(), sizeof param.szTermPath - 1);
        ASSERT_EQ(COMM_Dev_OpenTransPort(&param), 0);
        s_nPasses = 0;
    }
    void TearDown() override
    {
        logOff();
        COMM_Dev_CloseTransPort();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    template <typename Read, typename Cancel> int32_t cancelled(Read read, Cancel cancel, int nPasses = 1)
    {
        return cancelledRead(s_nPasses, m_nAfter, read, cancel, nPasses);
    }

    int m_nDescriptors = 0;
    int m_nAfter = 0;
    std::optional<PtyPeer> m_peer;
    uint8_t m_buf[64] = {};
};

TEST_F(SerialCancel, ACancelEndsTheReadOfAnotherThreadWithinTheNextPass)
{
    int32_t nResult = cancelled([this] { return COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, countPasses); },
                                [] { return COMM_Com_CancelLinuxRead(); }, 2);
    EXPECT_EQ(nResult, -57);
    EXPECT_LE(m_nAfter, 1);
}

TEST_F(SerialCancel, TheCancelOfEachLayerReachesTheRead)
{
    auto read = [this] { return COMM_Dev_ReadDataFromTransPort(m_buf, sizeof m_buf); };
    EXPECT_EQ(cancelled(read, [] { return COMM_Dev_CancelRead(); }), -57);
    EXPECT_EQ(cancelled(read, [] { return COMM_Dev_Linux_CancelLinuxRead(); }), -57);
    EXPECT_EQ(cancelled(read, [] { return COMM_Rdz_Cancel(); }), -57);
}

TEST_F(SerialCancel, AReadOfTheProtocolLayerEndsWithTheCancel)
{
    EXPECT_EQ(COMM_Rdz_SetEndCondition(countPasses), 0);
    auto read = [this] { return COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf, sizeof m_buf); };
    EXPECT_EQ(cancelled(read, [] { return COMM_Rdz_Cancel(); }), -57);
}

TEST_F(SerialCancel, ACancelWorksWhileBothThreadsLog)
{
    logOn();
    int32_t nResult = cancelled([this] { return COMM_Dev_ReadDataFromTransPort(m_buf, sizeof m_buf); },
                                [] {
                                    int32_t nAll = 0;
                                    for (int i = 0; i < 20; ++i)
                                        nAll |= COMM_Rdz_Cancel();
                                    return nAll;
                                });
    EXPECT_EQ(nResult, -57);
    EXPECT_TRUE(logged({"[COMM_Rdz_Cancel] Start ", "[COMM_Com_CancelLinuxRead] Start "}));
    EXPECT_TRUE(logged({"[COMM_Com_ReadLinux ] End nRetVal = -57 "}));
}

TEST_F(SerialCancel, ManyReadsAndCancelsNeverMissEachOther)
{
    for (int i = 0; i < 10; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(cancelled([this] { return COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, countPasses); },
                            [] { return COMM_Com_CancelLinuxRead(); }),
                  -57);
    }
}

TEST_F(SerialCancel, ACancelBeforeAReadIsForgotten)
{
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, completeAtThirdPass), 0);
    EXPECT_EQ(s_nPasses, 3);
}

TEST_F(SerialCancel, ACancelAfterACancelledReadIsForgotten)
{
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, cancelOnce), -57);
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    s_nPasses = 0;
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, completeAtThirdPass), 0);
}

TEST_F(SerialCancel, ARefusedReadIsNotARunningOne)
{
    EXPECT_EQ(COMM_Com_ReadLinux(nullptr, 4, 60, countPasses), -2);
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, completeAtThirdPass), 0);
    EXPECT_EQ(s_nPasses, 3);
}

TEST_F(SerialCancel, ACancelWithinAPassEndsThatPass)
{
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, cancelOnce), -57);
    EXPECT_EQ(s_nPasses, 1);
}

TEST_F(SerialCancel, ACompleteReplyWinsOverACancel)
{
    m_peer->send("41");
    waitUnread(g_AuxFd, 1);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, cancelAndComplete), 1);
    EXPECT_EQ(m_buf[0], 0x41);
}

TEST_F(SerialCancel, WhatCameBeforeTheCancelStaysInTheBuffer)
{
    m_peer->send("41 42");
    waitUnread(g_AuxFd, 2);
    int32_t nResult = cancelled([this] { return COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, countPasses); },
                                [] { return COMM_Com_CancelLinuxRead(); });
    EXPECT_EQ(nResult, -57);
    EXPECT_EQ(hex(m_buf, 3), "41 42 00");
}

TEST_F(SerialCancel, DescriptorZeroCannotBeCancelled)
{
    int32_t nFd = g_AuxFd;
    g_AuxFd = 0;
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), -57);
    EXPECT_EQ(COMM_Dev_CancelRead(), -57);
    EXPECT_EQ(COMM_Rdz_Cancel(), -57);
    g_AuxFd = nFd;
}

int32_t cancelAsDescriptorZero(const uint8_t *, int32_t)
{
    int32_t nFd = g_AuxFd;
    g_AuxFd = 0;
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), -57);
    g_AuxFd = nFd;
    return ++s_nPasses == 2 ? 0 : 1;
}

TEST_F(SerialCancel, ARefusedCancelLeavesTheReadRunning)
{
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf, sizeof m_buf, 60, cancelAsDescriptorZero), 0);
    EXPECT_EQ(s_nPasses, 2);
}

TEST_F(SerialCancel, WithoutAPortACancelIsZero)
{
    COMM_Dev_CloseTransPort();
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    EXPECT_EQ(COMM_Dev_CancelRead(), 0);
}

TEST_F(SerialCancel, ACancelIsLogged)
{
    logOn();
    EXPECT_EQ(COMM_Rdz_Cancel(), 0);
    EXPECT_TRUE(logged({"[COMM_Rdz_Cancel] Start ", "[COMM_Com_CancelLinuxRead] Start "}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  [COMM_Com_CancelLinuxRead] Start \r\n"), std::string::npos);
}

TEST_F(SerialCancel, ARefusedCancelIsLoggedAsWell)
{
    int32_t nFd = g_AuxFd;
    g_AuxFd = 0;
    logOn();
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), -57);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"[COMM_Com_CancelLinuxRead] Start "});
    g_AuxFd = nFd;
}

} // namespace
