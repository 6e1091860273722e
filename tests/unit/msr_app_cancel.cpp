// A second thread cancels the read of a host that waits for a card.

#include "msr_app.h"

#include "fake_sleep.h"

#include <gmock/gmock.h>

#include <chrono>
#include <thread>

using namespace qvtest;
using namespace std::chrono_literals;

namespace {

class StripeCancel : public StripeApp {
  protected:
    // The reader is ready and waits for a card that does not come; once the library is seen to wait for it, cancel is
    // called.
    int32_t cancelled(const std::function<int32_t()> &read, int32_t (*cancel)())
    {
        isPrepared(60);
        takes("1B 5D");
        isResetTwice();
        // The channel is not selected here; 1B 30, a format, the framed read time, and the read command.
        const size_t nCommands = m_nTaken + 4 + bytes(stripeFrame("20 04 3C")).size() + 2;
        m_nTaken = nCommands + 7;
        std::thread second([&] {
            EXPECT_TRUE(m_peer->waitForBytes(nCommands));
            const int nBefore = s_nReads;
            const auto nEnd = std::chrono::steady_clock::now() + 10s;
            while (s_nReads == nBefore && std::chrono::steady_clock::now() < nEnd)
                std::this_thread::sleep_for(1ms);
            EXPECT_EQ(cancel(), 0);
        });
        const int32_t nRet = read();
        second.join();
        return nRet;
    }

    size_t m_nTaken = 0;
    TrackBuffer m_t2{256};
};

TEST_F(StripeCancel, AReadEndsAndTheReaderIsPutBackAndClosed)
{
    EXPECT_EQ(
        cancelled(
            [&] { return APP_Msg_ReadMsgCard(path(), "", 9600, 0, 60, nullptr, 0, m_t2.data(), 256, nullptr, 0); },
            APP_Msg_CancelReadMsgCard),
        -57);
    EXPECT_EQ(g_bMsgBaundFlag, 0);
    EXPECT_TRUE(m_t2.cleared());
    expectClosed();
    EXPECT_EQ(
        cancelled([&] { return Linux_QV_ReadMsgCard(path(), 9600, 0, 60, nullptr, 0, m_t2.data(), 256, nullptr, 0); },
                  APP_Msg_CancelReadMsgCard),
        -7);
    expectClosed();
    EXPECT_EQ(cancelled([&] { return MS_ReadCard(path(), "", 9600, 60, 2, 0, m_t2.data(), nullptr); },
                        APP_Msg_CancelReadMsgCard),
              -99);
    expectClosed();
}

TEST_F(StripeCancel, TheCancelOfTheTyFamilyLetsTheCloseOfThatReadPause)
{
    FakeSleep sleep;
    EXPECT_EQ(
        cancelled([&] { return Linux_QV_ReadMsgCard(path(), 115200, 0, 60, nullptr, 0, m_t2.data(), 256, nullptr, 0); },
                  Linux_QV_CancelReadMsgCard),
        -7);
    EXPECT_EQ(std::ranges::count(FakeSleep::take(), 100), 1);
    EXPECT_EQ(g_bMsgBaundFlag, 1);
    expectClosed();
}

} // namespace
