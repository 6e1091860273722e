// Bare reads: what comes of every kind of reply, of the status behind it, and of silence.

#include "stripe_reader.h"

using namespace qvtest;

namespace {

class MsrTracksReadReplies : public StripeReader {
  protected:
    // A read of track 2 whose command is answered so, without a status request / with one that is answered so.
    int32_t readReply(const std::string &sReply, uint32_t nSeconds = 30)
    {
        return read(2, reading({{szRead2, sReply}}, nSeconds), nSeconds);
    }
    int32_t readStatus(const std::string &sStatus)
    {
        return read(2, reading({{szRead2, bareReply("62")}, {szStatus, sStatus}}));
    }
    int32_t readWhole(int32_t nMode, const char *pszCommand, const std::string &sReply)
    {
        return read(nMode, reading({{pszCommand, sReply}, {szStatus, szSucceeded}}));
    }
};

TEST_F(MsrTracksReadReplies, AReplyInAnotherFormIsRefusedAndNoStatusIsAsked)
{
    for (const char *psz : {"3F 1C", "31 3F 1C", "1B 3F 1C", "1B 74 31 3F 1C", "73 1B 31 3F 1C", "31 1B 73 31 3F 1C"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(readReply(psz), -4);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadReplies, AReplyMayComeInPiecesAndLate)
{
    for (const char *psz : {"1B , 73 36 , 32 3F , 1C", "1B 73 36 32 3F / 1C", "/ / 1B 73 36 32 3F 1C",
                            ", , , 1B 73 / 36 , / 32 / 3F 1C"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(readWhole(2, szRead2, psz), 0);
        EXPECT_TRUE(room(2).holds("62"));
    }
}

TEST_F(MsrTracksReadReplies, ALeadingZeroByteIsDroppedOnAnIdlePass)
{
    EXPECT_EQ(readWhole(2, szRead2, "00 1B 73 36 32 3F 1C ,"), 0);
    EXPECT_TRUE(room(2).holds("62"));
    EXPECT_EQ(readStatus("00 70 ,"), 0);
    EXPECT_EQ(readStatus("00 71 ,"), -5);
}

TEST_F(MsrTracksReadReplies, WithoutACompleteReplyTheTimeRunsOut)
{
    for (const char *psz : {"", "1B 73 36 32", "1B 73 36 32 3F", "1B 73 36 32 3F 1C 36", "1B 73 00 36 32 3F 1C"}) {
        SCOPED_TRACE(psz);
        m_line->takeMillis();
        EXPECT_EQ(readReply(psz), -56);
        EXPECT_EQ(m_line->takeMillis(), 31'000);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadReplies, ACardThatComesInTheLastSecondIsRead)
{
    EXPECT_EQ(read(2, reading({{szRead2, "/ / /" + bareReply("62")}, {szStatus, szSucceeded}}, 3), 3), 0);
    EXPECT_TRUE(room(2).holds("62"));
    EXPECT_EQ(readReply("/ / / /", 3), -56);
}

TEST_F(MsrTracksReadReplies, AReadThatFailsIsPassedOn)
{
    EXPECT_EQ(readReply("!"), -55);
    EXPECT_EQ(readReply("1B 73 36 !"), -55);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadReplies, ACommandThatIsNotSentIsPassedOn)
{
    EXPECT_EQ(read(2, reading({{szRead2, "", 0, false}})), -54);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadReplies, TheStatusTellsWhetherTheReadSucceeded)
{
    EXPECT_EQ(readStatus("70"), 0);
    EXPECT_TRUE(room(2).holds("62"));
    EXPECT_EQ(readStatus("71"), -5);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadReplies, OnlyTheLastByteOfAStatusCounts)
{
    EXPECT_EQ(readStatus("1B 6A 70"), 0);
    EXPECT_EQ(readStatus("31 32 33 / 71"), -5);
    EXPECT_EQ(readStatus("71 70"), 0);
    EXPECT_EQ(readStatus("70 71"), -5);
}

TEST_F(MsrTracksReadReplies, OfAStatus128BytesAreLookedAt)
{
    EXPECT_EQ(readStatus(hexOf(std::string(127, '1')) + " 70"), 0);
    EXPECT_EQ(readStatus(hexOf(std::string(128, '1')) + " 70"), -4);
    EXPECT_EQ(readStatus(hexOf(std::string(127, '1')) + " 71 31 70"), -5);
}

TEST_F(MsrTracksReadReplies, WithoutAStatusTheReadIsNotAsItShouldBe)
{
    for (const char *psz : {"", "72", "50", "70 31", "1B 6A", "31 00 70"}) {
        SCOPED_TRACE(psz);
        m_line->takeMillis();
        EXPECT_EQ(readStatus(psz), -4);
        EXPECT_EQ(m_line->takeMillis(), 3'000); // 2 seconds, exceeded
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksReadReplies, AStatusThatCannotBeAskedOrReadIsNotAsItShouldBe)
{
    EXPECT_EQ(readStatus("!"), -4);
    EXPECT_EQ(readStatus("31 !"), -4);
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("62")}, {szStatus, "", 0, false}})), -4);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadReplies, AnEarlierStatusTellsNothing)
{
    EXPECT_EQ(readStatus("70"), 0);
    EXPECT_EQ(readStatus(""), -4);
    EXPECT_EQ(readStatus("71"), -5);
    EXPECT_EQ(readStatus(""), -4);
}

TEST_F(MsrTracksReadReplies, AReplyWithoutDataIsAnEmptyTrack)
{
    EXPECT_EQ(readWhole(1, szRead1, bareReply("")), 0);
    EXPECT_TRUE(room(1).holds(""));
    EXPECT_EQ(readWhole(2, szRead2, bareReply("")), 0);
    EXPECT_TRUE(room(2).holds(""));
    EXPECT_EQ(readWhole(3, szRead3, bareReply("")), 0); // not even the byte ahead of the data
    EXPECT_TRUE(room(3).holds(""));
    EXPECT_EQ(readWhole(3, szRead3, bareReply("X")), 0);
    EXPECT_TRUE(room(3).holds(""));
    EXPECT_EQ(readWhole(3, szRead3, bareReply("X9")), 0);
    EXPECT_TRUE(room(3).holds("9"));
}

TEST_F(MsrTracksReadReplies, OnlyTheLastTwoBytesAreTheEndOfATrack)
{
    EXPECT_EQ(readWhole(2, szRead2, "1B 73 36 3F 1C 32 3F 1C"), 0);
    EXPECT_TRUE(room(2).holds("6?\0342"));
}

TEST_F(MsrTracksReadReplies, OfTwoTracksEitherMayBeEmpty)
{
    struct Row {
        const char *pszText, *pszFirst, *pszSecond; // between ESC "s" and "?" FS
    };
    const Row rows[] = {
        {"\177A12", "", "12"}, {"12A\x7F", "12", ""}, {"\177A\x7F", "", ""}, {"A12", "", "12"},
        {"12A", "12", ""},     {"A", "", ""},         {"", "", ""},          {"1234", "", ""}, // no "A"
        {"1A2A3", "1", "2A3"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszText);
        EXPECT_EQ(readWhole(12, szRead12, bareReply(row.pszText)), 0);
        EXPECT_TRUE(room(2).holds(row.pszFirst));
        EXPECT_TRUE(room(1).holds(row.pszSecond));
        EXPECT_TRUE(room(3).isUntouched());
        EXPECT_EQ(readWhole(23, szRead23, bareReply(row.pszText)), 0);
        EXPECT_TRUE(room(2).holds(row.pszFirst));
        EXPECT_TRUE(room(3).holds(row.pszSecond));
        EXPECT_TRUE(room(1).isUntouched());
    }
}

TEST_F(MsrTracksReadReplies, TheLongestReplyThatIsTakenIsTakenWhole)
{
    // 516 bytes with their two leading and two trailing ones for track 1, 512 for the others, 1028 for two tracks.
    const std::string s1(512, '1'), s2(508, '2'), s3(508, '3');
    EXPECT_EQ(readWhole(1, szRead1, bareReply(s1)), 0);
    EXPECT_TRUE(room(1).holds(s1));
    EXPECT_EQ(readWhole(2, szRead2, bareReply(s2)), 0);
    EXPECT_TRUE(room(2).holds(s2));
    EXPECT_EQ(readWhole(3, szRead3, bareReply(s3)), 0);
    EXPECT_TRUE(room(3).holds(s3.substr(1)));
    const std::string sPair = std::string(511, '2') + "A" + std::string(512, '1');
    EXPECT_EQ(readWhole(12, szRead12, bareReply(sPair)), 0);
    EXPECT_TRUE(room(2).holds(std::string(511, '2')));
    EXPECT_TRUE(room(1).holds(std::string(512, '1')));
}

TEST_F(MsrTracksReadReplies, ALongerReplyLosesItsEndAndIsRefused)
{
    EXPECT_EQ(read(1, reading({{szRead1, bareReply(std::string(513, '1'))}})), -4);
    EXPECT_EQ(read(2, reading({{szRead2, bareReply(std::string(509, '1'))}})), -4);
    EXPECT_EQ(read(3, reading({{szRead3, bareReply(std::string(509, '1'))}})), -4);
    EXPECT_EQ(read(12, reading({{szRead12, bareReply(std::string(600, '2') + "A" + std::string(424, '1'))}})), -4);
    EXPECT_EQ(read(23, reading({{szRead23, bareReply(std::string(4092, '2'))}})), -4);
    EXPECT_TRUE(allUntouched());
}

TEST_F(MsrTracksReadReplies, AnOverlongTrackOfTwoIsCut)
{
    const std::string sText = std::string(700, '2') + "A" + std::string(323, '1');
    EXPECT_EQ(readWhole(12, szRead12, bareReply(sText)), 0);
    EXPECT_TRUE(room(2).holds(std::string(512, '2')));
    EXPECT_TRUE(room(1).holds(std::string(323, '1')));
    const std::string sOther = std::string(323, '2') + "A" + std::string(700, '3');
    EXPECT_EQ(readWhole(23, szRead23, bareReply(sOther)), 0);
    EXPECT_TRUE(room(2).holds(std::string(323, '2')));
    EXPECT_TRUE(room(3).holds(std::string(512, '3')));
}

TEST_F(MsrTracksReadReplies, AFullBufferEndsTheReadWithWhateverItHolds)
{
    // 4096 bytes without an end.
    EXPECT_EQ(readReply("1B 73 " + hexOf(std::string(4094, '1'))), -4);
    EXPECT_EQ(m_line->takeMillis(), 0);
}

} // namespace
