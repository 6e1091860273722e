// The channel that an open selects on a serial link, what a close does, and what both log.

#include "msr_reader.h"

#include "fake_sleep.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

TEST_F(StripePort, AChannelIsSelectedByItsFirstLetterOnEverySerialName)
{
    std::string sWire;
    for (const char *pszName : {"COM4", "/dev/stripe"})
        for (const char *pszChannel : {"A", "B", "C", "K", "Axyz", "KA"}) {
            SCOPED_TRACE(pszChannel);
            s_sent.clear();
            ASSERT_EQ(open(pszName, 115200, pszChannel), 0);
            const std::string sSelect = "1B 25 " + hex(pszChannel, 1);
            EXPECT_THAT(s_sent, ElementsAre(sSelect));
            EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
            sWire += (sWire.empty() ? "" : " ") + sSelect;
        }
    EXPECT_EQ(m_peer->wire(), sWire);
}

TEST_F(StripePort, AnyOtherChannelIsNone)
{
    for (const char *psz : {"", "D", "a", "k", " A", "@", "L", "0", static_cast<const char *>(nullptr)}) {
        SCOPED_TRACE(psz == nullptr ? "null" : psz);
        ASSERT_EQ(open("COM1", 9600, psz), 0);
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    }
    EXPECT_THAT(s_sent, ElementsAre());
}

TEST_F(StripePort, AChannelThatCannotBeSelectedClosesThePortAndGivesMinus50)
{
    for (const char *psz : {"COM1", "/dev/stripe"}) {
        SCOPED_TRACE(psz);
        s_sent.clear();
        s_errors = {EIO};
        EXPECT_EQ(open(psz, 9600, "B"), -50);
        EXPECT_THAT(s_sent, ElementsAre("1B 25 42"));
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(openDescriptors(), m_nDescriptors + 4); // the peer's
    }
}

// ---- closing --------------------------------------------------------------------------------------------------------

TEST_F(StripePort, ACloseBeforeAnyOpenGivesMinus1)
{
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), -1);
    EXPECT_EQ(COMM_Msg_CloseCardReader(), -1);
}

TEST_F(StripePort, ACloseMayComeTwice)
{
    ASSERT_EQ(open(path()), 0);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(StripePort, ACloseOfARaisedSerialLinkPauses100Milliseconds)
{
    struct Row {
        uint32_t nBaud;
        uint32_t nFlag;
        uint32_t nType;
        bool bPauses;
    };
    const Row rows[] = {{115200, 1, 1, true},  {300, 1, 1, true},     {0, 1, 1, true},
                        {115200, 1, 4, true},  {9600, 1, 1, false},   {9600, 1, 4, false},
                        {115200, 0, 1, false}, {115200, 2, 1, false}, {115200, 0xFFFFFFFFU, 1, false},
                        {115200, 1, 7, false}, {115200, 1, 2, false}};
    FakeSleep sleep;
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.nBaud << " flag " << row.nFlag << " type " << row.nType);
        EXPECT_EQ(Dev_Rdz_Msg_RaiseBaundFlag(row.nFlag), 0);
        ASSERT_EQ(open("/dev/stripe", row.nBaud), 0);
        EXPECT_EQ(g_bMsgBaundFlag, static_cast<int32_t>(row.nFlag));
        g_MsgParam.nType = row.nType;
        FakeSleep::take();
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        EXPECT_EQ(FakeSleep::take(), row.bPauses ? std::vector<long>{100} : std::vector<long>{});
        EXPECT_EQ(g_AuxFd, -2);
    }
    EXPECT_THAT(s_sent, ElementsAre());
}

TEST_F(StripePort, ThePauseComesBeforeThePortIsClosed)
{
    FakeSleep sleep;
    Dev_Rdz_Msg_RaiseBaundFlag(1);
    ASSERT_EQ(open("COM1", 115200), 0);
    FakeSleep::take();
    std::vector<long> pauses;
    s_beforeClose = [&pauses] { pauses = FakeSleep::take(); };
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_THAT(pauses, ElementsAre(100));
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

TEST_F(StripePort, TheRaiseFlagOutlivesOpensAndCloses)
{
    Dev_Rdz_Msg_RaiseBaundFlag(1);
    ASSERT_EQ(open(path()), 0);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_EQ(g_bMsgBaundFlag, 1);
    EXPECT_EQ(Dev_Rdz_Msg_RaiseBaundFlag(0), 0);
    EXPECT_EQ(g_bMsgBaundFlag, 0);
}

TEST_F(StripePort, TheBaudSetterDoesNothing)
{
    ASSERT_EQ(open(path(), 38400), 0);
    for (uint32_t nValue : {0U, 9600U, 0xFFFFFFFFU})
        EXPECT_EQ(COMM_Msg_SetBaud(nValue), 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
    EXPECT_EQ(g_MsgParam.nBaud, 38400U);
    EXPECT_THAT(s_sent, ElementsAre());
}

// ---- the log --------------------------------------------------------------------------------------------------------

TEST_F(StripePort, AnOpenAndACloseAreLogged)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), -1);
    EXPECT_TRUE(loggedWhole(line, "Dev_Rdz_MsgClosePort", -1));
    logOn();
    EXPECT_EQ(open(path()), 0);
    EXPECT_TRUE(loggedWhole(line, "Dev_Rdz_MsgOpenPort", 0));
    EXPECT_TRUE(logged({"[Dev_Rdz_MsgOpenPort] Start ", "[COMM_Rdz_OpenReader]Start ",
                        "[COMM_Rdz_OpenReader]End nRet = 0  ", "[Dev_Rdz_MsgOpenPort] End nRet = 0  "}));
    logOn();
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_TRUE(loggedWhole(line, "Dev_Rdz_MsgOpenPort", -2));
    logOn();
    EXPECT_EQ(open(nullptr), -50);
    EXPECT_TRUE(loggedWhole(line, "Dev_Rdz_MsgOpenPort", -50));
    logOn();
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_TRUE(loggedWhole(line, "Dev_Rdz_MsgClosePort", 0));
}

TEST_F(StripePort, AnIdentityIsLoggedWithItsIndexAndItsResult)
{
    const std::pair<int32_t, int32_t> rows[] = {{-1, 0}, {0, 0}, {9, 0}, {10, -2}, {-2, -2}};
    for (auto [nIndex, nRet] : rows) {
        logOn();
        EXPECT_EQ(Dev_Rdz_Msg_AddHid(nIndex, 1, 2), nRet);
        EXPECT_EQ(logWithoutTime(), line("[Dev_Rdz_Msg_AddHid] Start nIndex = " + std::to_string(nIndex)) +
                                        line("[Dev_Rdz_Msg_AddHid] End nRet = " + std::to_string(nRet) + "  "));
    }
}

} // namespace
