// A second thread that cancels without pause does no harm to stripe reads and writes: a card that is there is read, a wait
// for one ends at once, nothing is left behind.

#include "pty_peer.h"
#include "reader_peer.h"
#include "storm.h"

#include "qvreader/msr.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>

using namespace qvtest;
using testing::AnyOf;

namespace {

constexpr int nRounds = 8;
constexpr int32_t nInNoForm = -4, nNoSeparator = -55, nCancelled = -57;
constexpr auto nPrompt = std::chrono::seconds(5); // a call waits a few times 0.1 s; the rest is for a busy machine

// The parameter: logging.
class StripeCancelStorm : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        const std::string sDone = replyFrame(0, "", 0x01, 0x04);
        for (const char *psz : {"1B 30", "1B 3D", "1B 25 41", "1B 72", "1B 74 32 32 1D 1B 5C"})
            m_peer.answer(psz, ""); // nobody swipes a card for track 1
        m_peer.answer("1B 5D", "1B 73 36 32 3F 1C");
        m_peer.answer("1B 6A", "70");
        m_peer.answer(commandFrame("20 04 1E", 0x01, 0x04), sDone);
        m_peer.answer(commandFrame("20 01 7C", 0x01, 0x04), sDone);
        m_peer.answer(commandFrame("20 02", 0x01, 0x04), replyFrame(0, "31 7C 32 7C 33 7C", 0x01, 0x04));
        m_peer.answer(commandFrame("20 03 42 31 7C 32 32 7C 33", 0x01, 0x04), sDone);
        // A cancel finds its way by the transport that was opened last.
        EXPECT_EQ(read(99), 0);
        if (GetParam())
            logOn();
    }
    void TearDown() override
    {
        logOff();
        g_bMsgBaundFlag = 0;
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    int32_t read(int32_t nMode)
    {
        const auto start = std::chrono::steady_clock::now();
        for (auto &room : m_rooms)
            room.fill('#');
        const int32_t nRet = MSG_QV_ReadData(m_peer.path().c_str(), 115200, nullptr, 0, 0, nMode, 30, m_rooms[0].data(),
                                             32, m_rooms[1].data(), 32, m_rooms[2].data(), 32);
        EXPECT_LT(std::chrono::steady_clock::now() - start, nPrompt);
        m_peer.settle();
        return nRet;
    }
    int32_t write(int32_t nMode)
    {
        char sz1[] = "B1", sz2[] = "22", sz3[] = "3";
        const auto start = std::chrono::steady_clock::now();
        const int32_t nRet = MSG_QV_WriteData(m_peer.path().c_str(), 115200, nullptr, 0, 0, nMode, 30, sz1, sz2, sz3);
        EXPECT_LT(std::chrono::steady_clock::now() - start, nPrompt);
        m_peer.settle();
        return nRet;
    }
    std::string room(size_t n) const { return m_rooms[n - 1].data(); }
    // An answer that a cancel left on the line may stand in front of the next one.
    void converse()
    {
        const int32_t nTrack2 = read(2);
        EXPECT_THAT(nTrack2, AnyOf(0, nInNoForm, nCancelled));
        if (nTrack2 == 0) {
            EXPECT_EQ(room(2), "62");
        }
        EXPECT_THAT(read(1), AnyOf(nInNoForm, nCancelled));
        EXPECT_THAT(read(123), AnyOf(0, nInNoForm, nNoSeparator, nCancelled));
        EXPECT_THAT(write(2), AnyOf(0, nInNoForm));
        EXPECT_THAT(write(123), AnyOf(0, nInNoForm, nCancelled));
    }

    ReaderPeer m_peer;
    int m_nDescriptors = 0;
    std::array<std::array<char, 32>, 3> m_rooms{};
};

TEST_P(StripeCancelStorm, HarmsNoConversation)
{
    for (int32_t (*cancel)() noexcept : {MSG_QV_CancelRead, Linux_QV_CancelReadMsgCard}) {
        Storm storm(cancel);
        for (int i = 0; i < nRounds; ++i) {
            SCOPED_TRACE(i);
            converse();
        }
        EXPECT_GT(storm.cancels(), nRounds);
    }
    // What the storm leaves behind ends no later read.
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(room(2), "62");
    EXPECT_EQ(read(123), 0);
    EXPECT_EQ(room(1) + room(2) + room(3), "123");
    EXPECT_EQ(write(2), 0);
    EXPECT_EQ(write(123), 0);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutLog, StripeCancelStorm, testing::Bool(),
                         [](const auto &row) { return row.param ? "Logged" : "NotLogged"; });

} // namespace
