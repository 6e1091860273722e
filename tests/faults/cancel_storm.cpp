// A second thread that cancels without pause, from before the port opens until after it has closed, does no harm: what
// the reader answers arrives, what it does not answer ends at once, nothing is left behind.

#include "pty_peer.h"
#include "reader_peer.h"
#include "storm.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>

using namespace qvtest;

namespace {

constexpr int nRounds = 15;
constexpr int32_t nCancelled = -57;
constexpr auto nPrompt = std::chrono::seconds(5); // a round waits 0.1 s; the rest is for a busy machine

const Bytes s_answered = bytes("00 B0 00 00 04"), s_unanswered = bytes("00 84 00 00 08");
constexpr const char *pszAtr = "3B 65 00 00 9C 02 02 07 02";
constexpr const char *pszResponse = "11 22 33 44 90 00";

// The parameter: logging.
class CancelStorm : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.answer(commandFrame("32 22 EA 60 00"), replyFrame(0, pszAtr));
        m_peer.answer(commandFrame("32 26 00 " + hex(s_answered)), replyFrame(0, pszResponse));
        m_peer.answer(commandFrame("32 23 00"), replyFrame(0));
        Dev_Rdz_SetPowerOnTime(60);
        // A cancel finds its way by the transport that was opened last.
        open();
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        if (GetParam())
            logOn();
    }
    void TearDown() override
    {
        logOff();
        Dev_Rdz_SetPowerOnTime(0);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    void open() { EXPECT_EQ(Dev_Rdz_Ic_OpenPort(m_peer.path().c_str(), nullptr, 1, 0, 9600), 0); }
    // A cancel that meets a reply in pieces ends the exchange; the rest must not reach the next one.
    void expectAnswered(int32_t nRet, const char *pszExpected)
    {
        if (nRet == nCancelled) {
            m_peer.settle();
            return;
        }
        EXPECT_EQ(nRet, 0);
        EXPECT_EQ(hex(m_out.data(), m_nOut), pszExpected);
    }
    int32_t apdu(const Bytes &command)
    {
        COMM_Rdz_ChageReadTimeOut(60);
        m_nOut = 0;
        return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), m_out.data(), &m_nOut);
    }
    void converse()
    {
        open();
        expectAnswered(Dev_Rdz_IccPowerOn('1', m_out.data(), &m_nOut), pszAtr);
        expectAnswered(apdu(s_answered), pszResponse);
        EXPECT_EQ(apdu(s_unanswered), nCancelled);
        m_nOut = 0;
        expectAnswered(Dev_Rdz_Ic_PowerOff(), "");
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }

    ReaderPeer m_peer;
    int m_nDescriptors = 0;
    std::array<uint8_t, 1024> m_out{};
    uint32_t m_nOut = 0;
};

TEST_P(CancelStorm, HarmsNoConversation)
{
    {
        Storm storm(COMM_Rdz_Cancel);
        for (int i = 0; i < nRounds; ++i) {
            SCOPED_TRACE(i);
            const auto start = std::chrono::steady_clock::now();
            converse();
            EXPECT_LT(std::chrono::steady_clock::now() - start, nPrompt);
        }
        EXPECT_GT(storm.cancels(), nRounds);
    }
    // What the storm leaves behind ends no later read.
    open();
    EXPECT_EQ(apdu(s_answered), 0);
    EXPECT_EQ(hex(m_out.data(), m_nOut), pszResponse);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutLog, CancelStorm, testing::Bool(),
                         [](const auto &row) { return row.param ? "Logged" : "NotLogged"; });

} // namespace
