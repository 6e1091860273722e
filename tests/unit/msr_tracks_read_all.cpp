// The read of all three tracks in one frame: its body taken apart, its status words, its separator.

#include "stripe_reader.h"

using namespace qvtest;

namespace {

class MsrTracksReadAll : public StripeReader {
  protected:
    int32_t readAll(const std::string &sReply)
    {
        return read(123, reading({{szSeparator, szDone}, {szReadAll, sReply}}));
    }
    void expectTracks(std::string_view s1, std::string_view s2, std::string_view s3)
    {
        EXPECT_TRUE(room(1).holds(s1));
        EXPECT_TRUE(room(2).holds(s2));
        EXPECT_TRUE(room(3).holds(s3));
    }
};

TEST_F(MsrTracksReadAll, TheBodyIsTakenApartAtItsSeparators)
{
    struct Row {
        const char *pszBody, *psz1, *psz2, *psz3;
    };
    const Row rows[] = {
        {"B123|456|789|", "B123", "456", "789"},
        {"B123|456|789", "B123", "456", ""}, // without a final separator
        {"B123|456", "B123", "", ""},
        {"B123|", "B123", "", ""},
        {"B123", "", "", ""},
        {"|||", "", "", ""},
        {"|456|789|", "", "456", "789"},
        {"B123||789|", "B123", "", "789"},
        {"B123|456||", "B123", "456", ""},
        {"||789|", "", "", "789"},
        {"B123|456|789|X|", "B123", "456", "789"},
        {"|", "", "", ""},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszBody);
        EXPECT_EQ(readAll(stripeReply(0, row.pszBody)), 0);
        expectTracks(row.psz1, row.psz2, row.psz3);
    }
}

TEST_F(MsrTracksReadAll, AFrameWithoutABodyIsThreeEmptyTracks)
{
    EXPECT_EQ(readAll(stripeReply(0)), 0);
    expectTracks("", "", "");
}

TEST_F(MsrTracksReadAll, TheLongestBodyIsTakenApart)
{
    const std::string s1(200, '1'), s2(104, '2'), s3(200, '3');
    EXPECT_EQ(readAll(stripeReply(0, s1 + "|" + s2 + "|" + s3 + "|")), 0); // 507 bytes
    expectTracks(s1, s2, s3);
    const std::string sAll(504, '1');
    EXPECT_EQ(readAll(stripeReply(0, sAll + "|||")), 0);
    expectTracks(sAll, "", "");
}

TEST_F(MsrTracksReadAll, TheStatusWordTellsWhatWentWrong)
{
    for (const char *pszBody : {"", "B1|2|3|"}) {
        SCOPED_TRACE(pszBody);
        EXPECT_EQ(readAll(stripeReply(0x4001, pszBody)), -9);
        EXPECT_TRUE(allUntouched());
        EXPECT_EQ(readAll(stripeReply(0x4002, pszBody)), -5);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadAll, AnotherStatusWordGivesTheNumberOfBytesAndNoTracks)
{
    for (const uint32_t nStatus : {0x4000U, 0x4003U, 0x0001U, 0x9000U, 0x0140U, 0xFFFFU}) {
        SCOPED_TRACE(nStatus);
        EXPECT_EQ(readAll(stripeReply(nStatus, "B1|2|3|")), 7);
        EXPECT_TRUE(allUntouched());
        EXPECT_EQ(readAll(stripeReply(nStatus)), 0);
        expectTracks("", "", "");
    }
}

TEST_F(MsrTracksReadAll, AReplyThatIsNoFrameIsPassedOn)
{
    for (const char *psz : {"01 30 04", "01 30 30 30 32 30 30 30 30 30 31 04", "02 30 30 30 32 30 30 30 30 30 30 04",
                            "1B 73 31 04", "04", "01 04"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(readAll(psz), -4);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadAll, BytesInFrontOfTheFrameAndPiecesDoNoHarm)
{
    const std::string sFrame = stripeReply(0, "B1|2|3|");
    EXPECT_EQ(readAll("1B 73 " + sFrame), 0);
    expectTracks("B1", "2", "3");
    EXPECT_EQ(readAll("/ 01 30 30 30 , 39" + sFrame.substr(14)), 0);
    expectTracks("B1", "2", "3");
}

TEST_F(MsrTracksReadAll, SilenceEndsWithTheTimeOutOfTheHost)
{
    for (const char *psz : {"", "01 30 30"}) {
        SCOPED_TRACE(psz);
        m_line->takeMillis();
        EXPECT_EQ(readAll(psz), -56);
        EXPECT_EQ(m_line->takeMillis(), 31'000);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadAll, AReadThatFailsAndACommandThatIsNotSentArePassedOn)
{
    EXPECT_EQ(readAll("!"), -55);
    EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, "", 0, false}})), -54);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadAll, WithoutASeparatorNothingIsRead)
{
    for (const std::string &sReply :
         {stripeReply(0x4001), stripeReply(1), stripeReply(0x4001, "12"), std::string("01 30 04"), std::string("!")}) {
        SCOPED_TRACE(sReply);
        EXPECT_EQ(read(123, reading({{szSeparator, sReply}})), -55);
        EXPECT_TRUE(allUntouched());
    }
    EXPECT_EQ(read(123, reading({{szSeparator, "", 0, false}})), -55);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadAll, ASeparatorThatIsNotAnsweredInTwoSecondsIsRefused)
{
    EXPECT_EQ(read(123, reading({{szSeparator}})), -55);
    EXPECT_EQ(m_line->takeMillis(), 3'000);
    EXPECT_EQ(read(123, reading({{szSeparator, "/ /" + std::string(szDone)}, {szReadAll, stripeReply(0, "1|2|3|")}})),
              0);
    EXPECT_EQ(m_line->takeMillis(), 2'000);
    expectTracks("1", "2", "3");
}

TEST_F(MsrTracksReadAll, ASeparatorAnsweredWithABodyIsAccepted)
{
    EXPECT_EQ(read(123, reading({{szSeparator, stripeReply(0, "7C")}, {szReadAll, stripeReply(0, "1|2|3|")}})), 0);
    expectTracks("1", "2", "3");
}

TEST_F(MsrTracksReadAll, ASlowSeparatorCostsTheCardNothing)
{
    EXPECT_EQ(read(123, reading({{szSeparator, "//" + std::string(szDone)}, {szReadAll}})), -56);
    EXPECT_EQ(m_line->takeMillis(), 33'000);
}

} // namespace
