// The reader's settings for stripe work: read time, separator, head, channel, recording format.

#include "msr_reader.h"

#include "fake_clock.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

constexpr const char *pszBadFrame = "01 31 04";

// The clock stands; silence lasts as long as the script of the clock says.
class StripeSettings : public OpenStripePort {
  protected:
    void isSilent(std::string_view sCommand, int nWaits)
    {
        takes(stripeFrame(sCommand));
        m_clock.script({1000, 1000, 1001 + nWaits});
    }
    void tearsTheCable() { s_errors.assign(s_sent.size() + 8, EIO); }

    FakeClock m_clock{1000};
};

// ---- read time ------------------------------------------------------------------------------------------------------

TEST_F(StripeSettings, TheReadTimeIsToldInAFrameAndBecomesTheReadTimeOut)
{
    uint32_t nZeroStripping = 7;
    s_afterWrite = [&](size_t) { nZeroStripping = g_bIsLinuxHidClearZero; };
    answers("20 04 1E", 0);
    logOn();
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), 0);
    EXPECT_TRUE(logged(
        {"COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 2 ", "[ COMM_Rdz_SetHidClearZero ] Start nFlag = 01",
         "[ COMM_Rdz_SendAndReciveData ] Start ", "nSendLen 3 ", "nMaxReciveBufLen 1024,cHead =\x01,cHead = \x01",
         "[COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 00", "[ COMM_Rdz_SetHidClearZero ] Start nFlag = 00",
         "COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 30 "}));
    EXPECT_THAT(s_sent, ElementsAre(stripeFrame("20 04 1E")));
    EXPECT_EQ(nZeroStripping, 1U);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(stBackUpParam.nTimeOut, 30);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, ChangeEndCondition);
    EXPECT_EQ(gEndChar, 0x04);
}

TEST_F(StripeSettings, AReadTimeTravelsAsOneByte)
{
    const std::pair<uint32_t, const char *> rows[] = {{1, "20 04 01"},   {120, "20 04 78"},       {255, "20 04 FF"},
                                                      {300, "20 04 2C"}, {0x1020305, "20 04 05"}, {0, "20 04"}};
    for (auto [nSeconds, pszCommand] : rows) {
        SCOPED_TRACE(nSeconds);
        answers(pszCommand, 0);
        EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(nSeconds), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, static_cast<int32_t>(nSeconds));
        COMM_Rdz_ChageReadTimeOut(60);
        answers(pszCommand, 0);
        EXPECT_EQ(COMM_Msg_RDZSetTimeout(nSeconds), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, 60);
    }
}

TEST_F(StripeSettings, AReadTimeThatIsRefusedLeavesTheTwoSeconds)
{
    for (uint32_t nStatus : {0x4001U, 0x4002U, 1U, 0x0100U, 0x9000U, 0xFFFFU}) {
        SCOPED_TRACE(nStatus);
        answers("20 04 1E", nStatus);
        EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), -1);
        EXPECT_EQ(stBackUpParam.nTimeOut, 2);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
        EXPECT_EQ(COMM_Msg_CardReaderGetRecStatus(), static_cast<int32_t>(nStatus));
    }
}

TEST_F(StripeSettings, AReadTimeThatIsAnsweredWithABodyIsRefused)
{
    for (uint32_t nStatus : {0U, 0x4001U}) {
        answers("20 04 1E", nStatus, "AA");
        EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), -1);
        EXPECT_EQ(stBackUpParam.nTimeOut, 2);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    }
    answers("20 04 1E", 0, hex(Bytes(400, 0x41)));
    EXPECT_EQ(COMM_Msg_RDZSetTimeout(30), -1);
}

TEST_F(StripeSettings, AReadTimeThatIsNotAnsweredIsDone)
{
    isSilent("20 04 1E", 2);
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 30);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);

    m_clock.set(1000);
    says(stripeFrame("20 04 1E"), pszBadFrame);
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 30);

    tearsTheCable();
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(31), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 31);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
}

TEST_F(StripeSettings, AnAnswerToTheReadTimeIsAwaitedForTwoSeconds)
{
    takes(stripeFrame("20 04 1E"));
    m_clock.script({1000, 1000, 1002, 1003});
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), 0);
    m_peer->finish();
    takes(stripeFrame("20 04 1E")).reply(stripeAnswer(0x4001), std::chrono::milliseconds(150));
    m_clock.script({1000, 1000, 1002}); // not yet more than two seconds
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), -1);
}

// ---- separator ------------------------------------------------------------------------------------------------------

TEST_F(StripeSettings, TheSeparatorIsToldInAFrame)
{
    answers("20 01 7C", 0);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 2);
    answers("20 01 3B 2D 3B", 0);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator(";-;"), 0);
    EXPECT_THAT(s_sent, ElementsAre(stripeFrame("20 01 7C"), stripeFrame("20 01 3B 2D 3B")));
    // A body that comes with the status word 0 does no harm.
    answers("20 01 7C", 0, "AA BB");
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), 0);
    answers("20 01 7C", 0);
    COMM_Rdz_ChageReadTimeOut(60);
    logOn();
    EXPECT_EQ(COMM_Msg_RDZSetSeparator("|"), 0);
    EXPECT_TRUE(logged({"nSendLen 3 ", "nMaxReciveBufLen 1024,cHead =\x01,cHead = \x01"}));
    logOff();
    EXPECT_EQ(stBackUpParam.nTimeOut, 60);
}

TEST_F(StripeSettings, ASeparatorThatIsNotAcceptedGivesMinus55)
{
    for (uint32_t nStatus : {0x4001U, 1U, 0xFF00U}) {
        answers("20 01 7C", nStatus);
        EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), -55);
        EXPECT_EQ(stBackUpParam.nTimeOut, 2);
        answers("20 01 7C", nStatus, "AA");
        EXPECT_EQ(COMM_Msg_RDZSetSeparator("|"), -55);
    }
    says(stripeFrame("20 01 7C"), pszBadFrame);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), -55);
    isSilent("20 01 7C", 2);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), -55);
    m_clock.set(1000);
    tearsTheCable();
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), -55);
}

TEST_F(StripeSettings, NoSeparatorIsRefusedAndNothingIsSent)
{
    for (const char *psz : {"", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(COMM_Msg_RDZSetSeparator(psz), -2);
        EXPECT_EQ(stBackUpParam.nTimeOut, 60);
        EXPECT_EQ(Dev_Rdz_MsgSetSeparator(psz), -2);
        EXPECT_EQ(stBackUpParam.nTimeOut, 2);
        COMM_Rdz_ChageReadTimeOut(60);
    }
    EXPECT_THAT(s_sent, ElementsAre());
}

TEST_F(StripeSettings, ASeparatorMayFillAFrameAndALongerOneIsNotSent)
{
    const std::string sLongest(506, ';');
    answers("20 01 " + textHex(sLongest), 0);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator(sLongest.c_str()), 0);
    EXPECT_EQ(s_sent.size(), 1U);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator((sLongest + ";").c_str()), -55);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator(std::string(5000, ';').c_str()), -55);
    EXPECT_EQ(s_sent.size(), 1U);
}

// ---- head, channel, format ------------------------------------------------------------------------------------------

TEST_F(StripeSettings, ResetAndChannelGoOutBareAndGiveMinus1SentOrNot)
{
    EXPECT_EQ(Dev_Rdz_MsgReset(), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetBp(65), -1);
    EXPECT_EQ(COMM_Msg_RDZReset(), -1);
    EXPECT_EQ(COMM_Msg_RDZSetBp('K'), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetBp(0), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetBp(0xFF), -1);
    EXPECT_THAT(s_sent, ElementsAre("1B 30", "1B 25 41", "1B 30", "1B 25 4B", "1B 25 00", "1B 25 FF"));
    EXPECT_EQ(m_peer->wire(), "1B 30 1B 25 41 1B 30 1B 25 4B 1B 25 00 1B 25 FF");

    tearsTheCable();
    EXPECT_EQ(Dev_Rdz_MsgReset(), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetBp(65), -1);
    EXPECT_EQ(COMM_Msg_RDZReset(), -1);
    EXPECT_EQ(COMM_Msg_RDZSetBp(65), -1);
    EXPECT_EQ(s_sent.size(), 10U);
    EXPECT_EQ(stBackUpParam.nTimeOut, 60);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgEndCondition);
}

TEST_F(StripeSettings, AFormatIsSetBehindAReset)
{
    const std::pair<int32_t, const char *> rows[] = {
        {0, "1B 3D"},  {1, "1B 27"},   {2, "1B 4F"},         {3, "1B 41"},  {4, "1B 3D"},        {5, "1B 3D"},
        {99, "1B 3D"}, {257, "1B 3D"}, {INT32_MAX, "1B 3D"}, {-1, "1B 3D"}, {INT32_MIN, "1B 3D"}};
    for (auto [nCode, pszMode] : rows) {
        SCOPED_TRACE(nCode);
        s_sent.clear();
        EXPECT_EQ(COMM_Msg_RDZSetFormat(nCode), 0);
        EXPECT_THAT(s_sent, ElementsAre("1B 30", pszMode));
    }
}

TEST_F(StripeSettings, WithoutAResetThereIsNoFormat)
{
    s_errors = {EIO};
    EXPECT_EQ(COMM_Msg_RDZSetFormat(1), -1);
    EXPECT_THAT(s_sent, ElementsAre("1B 30"));
    s_sent.clear();
    s_errors = {0, EIO};
    EXPECT_EQ(COMM_Msg_RDZSetFormat(1), -1);
    EXPECT_THAT(s_sent, ElementsAre("1B 30", "1B 27"));
}

} // namespace
