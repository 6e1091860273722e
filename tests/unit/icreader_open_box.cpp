// The switch box: what an open leaves behind, when a close releases it, and the flag values that count.

#include "icreader_open.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

constexpr const char *pszSelectA = "1B 25 41 1B 24 49 34";
constexpr const char *pszRelease = "1B 24 42";

const std::vector<Sent> s_released = {Sent{pszRelease, B9600}}, s_nothing;

TEST_F(ReaderOpen, ASwitchBoxOpenSwitchesZeroStrippingOn)
{
    for (int32_t nRaise : {0, 1}) {
        SCOPED_TRACE(nRaise);
        Dev_Rdz_Ic_RaiseBaundFlag(static_cast<uint32_t>(nRaise));
        g_bIsLinuxHidClearZero = 0;
        ASSERT_EQ(open(path(), 38400, "A"), 0);
        EXPECT_EQ(g_useBpBox, 1);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, ASwitchBoxIsReleasedAtAnyRate)
{
    ASSERT_EQ(open(path(), 38400, "A"), 0);
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_THAT(s_sent, ElementsAre(Sent{pszSelectA, B38400}, Sent{pszRelease, B38400}));
}

TEST_F(ReaderOpen, OnlyTheRaiseFlagOneReleasesASwitchBox)
{
    for (uint32_t nFlag : {2U, 0U, 0xFFFFFFFFU, 1U}) {
        SCOPED_TRACE(nFlag);
        ASSERT_EQ(open(path(), 9600, "A"), 0);
        s_sent.clear();
        Dev_Rdz_Ic_RaiseBaundFlag(nFlag);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_EQ(s_sent, nFlag == 1 ? s_released : s_nothing);
    }
}

TEST_F(ReaderOpen, OnlyTheBoxFlagOneIsASelectedBox)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    for (int32_t nFlag : {2, 0, -1, 1}) {
        SCOPED_TRACE(nFlag);
        ASSERT_EQ(open(path(), 9600), 0);
        s_sent.clear();
        g_useBpBox = nFlag;
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_EQ(s_sent, nFlag == 1 ? s_released : s_nothing);
    }
}

TEST_F(ReaderOpen, OnlyTerminalTypeTwoHasAnotherSwitchBoxSequence)
{
    for (uint32_t nTermType : {0U, 1U, 2U, 3U, 4U, 0x102U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nTermType);
        s_sent.clear();
        ASSERT_EQ(open(path(), 9600, "A", nTermType), 0);
        EXPECT_THAT(s_sent, ElementsAre(Sent{nTermType == 2 ? "1B 25 41 1B 25 49 34" : pszSelectA, B9600}));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, ASwitchBoxThatCannotBeSelectedCountsAsSelected)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_errors = {EIO};
    EXPECT_EQ(open(path(), 38400, "A"), 0);
    EXPECT_THAT(s_sent, ElementsAre(Sent{pszSelectA, B9600}));
    EXPECT_EQ(g_useBpBox, 1);
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
    EXPECT_EQ(m_peer->wire(), "");
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), pszRelease);
}

TEST_F(ReaderOpen, ASwitchBoxThatCannotBeReleasedIsClosedAllTheSame)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    s_errors = {0, EIO};
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_THAT(s_sent, ElementsAre(Sent{pszSelectA, B9600}, Sent{pszRelease, B9600}));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4); // the peer's
}

} // namespace
