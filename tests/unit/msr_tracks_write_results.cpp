// How a write went: the status behind a bare command, the status word of a frame, and the time between.

#include "stripe_reader.h"

using namespace qvtest;

namespace {

constexpr char szWrite2[] = "1B 74 36 32 1D 1B 5C";

class MsrTracksWriteResults : public StripeReader {
  protected:
    // A write of track 2 whose status is answered so; nMillis: what has passed when the answer is there.
    int32_t status(const std::string &sStatus, int64_t nMillis = 0, uint32_t nSeconds = 30)
    {
        m_texts = {std::nullopt, "62", std::nullopt};
        return write(2, writing({{szWrite2}, {szStatus, sStatus, nMillis}}, nSeconds), nSeconds);
    }
    // A write of all tracks, answered so.
    int32_t writeAll(const std::string &sReply)
    {
        m_texts = {"1", "2", "3"};
        return write(123, writing({{stripeCommand("20 03 31 7C 32 7C 33"), sReply}}));
    }
};

TEST_F(MsrTracksWriteResults, TheStatusTellsHowTheWriteWent)
{
    EXPECT_EQ(status("70"), 0);
    EXPECT_EQ(status("71"), -6);
    EXPECT_EQ(status("72 / 70"), 0);
    EXPECT_EQ(status("70 71"), -6);
    EXPECT_EQ(status("71 70"), 0);
    EXPECT_EQ(status("00 71 ,"), -6);
    EXPECT_EQ(status("/////70"), 0);
}

TEST_F(MsrTracksWriteResults, OfAStatus128BytesAreLookedAt)
{
    EXPECT_EQ(status(hexOf(std::string(127, '1')) + " 70"), 0);
    EXPECT_EQ(status(hexOf(std::string(128, '1')) + " 70"), -4);
    EXPECT_EQ(status(hexOf(std::string(127, '1')) + " 71 31 70"), -6);
}

TEST_F(MsrTracksWriteResults, WithoutAStatusTheWriteIsNotAsItShouldBe)
{
    for (const char *psz : {"", "72", "50", "70 31", "1B 6A", "31 00 70", "!", "31 !"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(status(psz), -4);
    }
    m_texts = {std::nullopt, "62", std::nullopt};
    EXPECT_EQ(write(2, writing({{szWrite2}, {szStatus, "", 0, false}})), -4);
}

TEST_F(MsrTracksWriteResults, AnEarlierStatusTellsNothing)
{
    EXPECT_EQ(status("70"), 0);
    EXPECT_EQ(status(""), -4);
    EXPECT_EQ(status("71"), -6);
    EXPECT_EQ(status(""), -4);
}

TEST_F(MsrTracksWriteResults, AFailureCountsAsTimedOutOnceMoreThanASecondOverItsTimeHasPassed)
{
    for (const uint32_t nSeconds : {1U, 2U, 30U, 120U}) {
        SCOPED_TRACE(nSeconds);
        const int64_t nLimit = (nSeconds + 1) * 1000;
        EXPECT_EQ(status("71", 0, nSeconds), -6);
        EXPECT_EQ(status("71", nLimit - 1, nSeconds), -6);
        EXPECT_EQ(status("71", nLimit, nSeconds), -6);
        EXPECT_EQ(status("71", nLimit + 1, nSeconds), -56);
        EXPECT_EQ(g_stEndTime - g_stStartTime, nLimit + 1);
        EXPECT_EQ(status("71", 1'000'000, nSeconds), -56);
    }
}

TEST_F(MsrTracksWriteResults, OtherStatusesDoNotTimeOut)
{
    EXPECT_EQ(status("70", 1'000'000), 0);
    EXPECT_EQ(status("72", 1'000'000), -4);
}

TEST_F(MsrTracksWriteResults, TheTimeCountsFromTheCommandAndNotFromTheCall)
{
    // The setting exchange takes its three seconds before.
    m_texts = {std::nullopt, "62", std::nullopt};
    EXPECT_EQ(
        write(2, StripeScript{{szReset}, {szIso}, {readTime(2)}, {szWrite2}, {szStatus, "71", 3'000}} + writeTail(), 2),
        -6);
    EXPECT_EQ(
        write(2, StripeScript{{szReset}, {szIso}, {readTime(2)}, {szWrite2}, {szStatus, "71", 3'001}} + writeTail(), 2),
        -56);
}

TEST_F(MsrTracksWriteResults, TheTimeIsMeasuredOverTheMiddleOfASecond)
{
    // The clock stands at .999 when the command is sent.
    m_texts = {std::nullopt, "62", std::nullopt};
    EXPECT_EQ(write(2,
                    StripeScript{{szReset}, {szIso}, {readTime(1), szDone, 999}, {szWrite2}, {szStatus, "71", 2'000}} +
                        writeTail(),
                    1),
              -6);
    EXPECT_EQ(g_stStartTime % 1000, 999);
    EXPECT_EQ(g_stEndTime - g_stStartTime, 2'000);
}

TEST_F(MsrTracksWriteResults, ACommandThatIsNotSentFailsAndNoStatusIsAsked)
{
    const std::pair<int32_t, const char *> rows[] = {{1, "1B 77 42 1D 1B 5C"},
                                                     {2, "1B 74 32 1D 1B 5C"},
                                                     {3, "1B 74 41 33 1D 1B 5C"},
                                                     {12, "1B 77 32 41 42 1D 1B 5C"},
                                                     {23, "1B 74 32 41 33 1D 1B 5C"}};
    for (const auto &[nMode, pszCommand] : rows) {
        SCOPED_TRACE(nMode);
        m_texts = {"B", "2", "3"};
        EXPECT_EQ(write(nMode, writing({{pszCommand, "", 0, false}})), -1);
    }
}

TEST_F(MsrTracksWriteResults, TheStatusWordOfAFrameTellsHowTheWriteWent)
{
    for (const char *pszBody : {"", "x"}) {
        SCOPED_TRACE(pszBody);
        EXPECT_EQ(writeAll(stripeReply(0, pszBody)), 0);
        EXPECT_EQ(writeAll(stripeReply(0x4001, pszBody)), -6);
        for (const uint32_t nStatus : {0x4002U, 0x4000U, 1U, 0x9000U, 0xFFFFU})
            EXPECT_EQ(writeAll(stripeReply(nStatus, pszBody)), -100) << nStatus;
    }
    EXPECT_EQ(writeAll("////" + stripeReply(0)), 0);
    EXPECT_EQ(writeAll("31 " + stripeReply(0)), 0);
}

TEST_F(MsrTracksWriteResults, AFailedExchangeOfAFrameIsPassedOn)
{
    EXPECT_EQ(writeAll(""), -56);
    EXPECT_EQ(writeAll("01 30 30"), -56);
    EXPECT_EQ(writeAll("!"), -55);
    EXPECT_EQ(writeAll("01 30 04"), -4);
    EXPECT_EQ(writeAll("01 30 30 30 32 30 30 30 30 30 31 04"), -4);
    m_texts = {"1", "2", "3"};
    EXPECT_EQ(write(123, writing({{stripeCommand("20 03 31 7C 32 7C 33"), "", 0, false}})), -54);
}

TEST_F(MsrTracksWriteResults, SilenceAfterAFrameEndsWithTheTimeOutOfTheHost)
{
    m_texts = {"1", "2", "3"};
    m_line->takeMillis();
    EXPECT_EQ(write(123, writing({{stripeCommand("20 03 31 7C 32 7C 33")}}, 5), 5), -56);
    EXPECT_EQ(m_line->takeMillis(), 6'000);
}

} // namespace
