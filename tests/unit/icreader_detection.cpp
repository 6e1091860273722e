// The detection of any kind of card, and the status word that the last reply left.
//
// The clock stands still, so that the time-out a call sets can be read from the state record after its last read.

#include "failing_writes.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <optional>

using namespace qvtest;

namespace {

const int32_t s_nStatusAtLoad = COMM_Icc_CardReaderGetRecStatus();

std::string track(std::string_view sText)
{
    return "03 " + hex(textBytes(sText));
}

// ---- any kind of card ---------------------------------------------------------------------------------------------

class AnyCard : public OpenReader, public FailingWrites {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
        m_clock.emplace(1000000);
    }
    void TearDown() override
    {
        s_bWritesFail = false;
        m_clock.reset();
        OpenReader::TearDown();
    }
    int32_t detect(int32_t nTimeOut)
    {
        fill();
        return COMM_Icc_detectMulCard(nTimeOut, m_track2.data(), m_track3.data(), &m_nKind);
    }
    int32_t detectCom(uint8_t ucRequest, int32_t nTimeOut)
    {
        fill();
        return COMM_Icc_detectMulComCard(ucRequest, nTimeOut, m_track2.data(), m_track3.data(), &m_nKind);
    }
    void fill()
    {
        m_track2.assign(512, '#');
        m_track3.assign(512, '#');
        m_nKind = 0xC5C5;
    }
    static bool untouched(const std::string &sTrack) { return sTrack.find_first_not_of('#') == std::string::npos; }
    // What was copied; "(untouched)" when nothing was. Behind the NUL nothing may have changed.
    static std::string copied(const std::string &sTrack)
    {
        if (untouched(sTrack))
            return "(untouched)";
        size_t nEnd = sTrack.find('\0');
        if (nEnd == std::string::npos)
            return "(no NUL)";
        return untouched(sTrack.substr(nEnd + 1)) ? sTrack.substr(0, nEnd) : "(more than the text was written)";
    }
    std::string track2() const { return copied(m_track2); }
    std::string track3() const { return copied(m_track3); }

    std::optional<FakeClock> m_clock;
    std::string m_track2, m_track3;
    uint32_t m_nKind = 0;
};

TEST_F(AnyCard, TheReaderGivesUpTwoSecondsBeforeTheHost)
{
    struct Row {
        int32_t nTimeOut;
        const char *pszField;
    };
    const Row rows[] = {{10, "00 08"},  {3, "00 01"},   {2, "00 00"},     {1, "00 00"},
                        {0, "00 00"},   {-1, "00 00"},  {-9999, "00 00"}, {INT32_MIN, "00 00"},
                        {120, "00 76"}, {258, "01 00"}, {65537, "FF FF"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nTimeOut);
        stBackUpParam.nTimeOut = 99;
        answer("32 30 " + std::string(row.pszField), 0x9000, "01");
        EXPECT_EQ(detect(row.nTimeOut), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, row.nTimeOut);
        stBackUpParam.nTimeOut = 99;
        answer("32 32 " + std::string(row.pszField) + " 0A", 0x9000, "01");
        EXPECT_EQ(detectCom(0x0A, row.nTimeOut), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, row.nTimeOut);
    }
}

TEST_F(AnyCard, TheCommandsAsTheyStandOnTheLine)
{
    m_peer->expect("02 30 30 30 34 33 32 33 30 30 30 30 38 30 3A 03").reply(replyFrame(0, "02"));
    EXPECT_EQ(detect(10), 0);
    m_peer->expect("02 30 30 30 35 33 32 33 32 30 30 30 38 30 37 30 3F 03").reply(replyFrame(0, "02"));
    EXPECT_EQ(detectCom(7, 10), 0);
}

TEST_F(AnyCard, TheHostWaitsItsWholeTime)
{
    m_peer->expect(commandFrame("32 30 00 08"));
    m_clock->script({1000, 1000, 1010, 1010, 1011});
    EXPECT_EQ(detect(10), -56);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
    EXPECT_EQ(m_nKind, 0xC5C5U);
    EXPECT_TRUE(untouched(m_track2));
    EXPECT_TRUE(untouched(m_track3));
    m_peer->finish();
    m_peer->expect(commandFrame("32 32 00 08 01"));
    m_clock->script({1000, 1000, 1010, 1010, 1011});
    EXPECT_EQ(detectCom(1, 10), -56);
    EXPECT_EQ(m_nKind, 0xC5C5U);
}

TEST_F(AnyCard, TheRequestGoesOutAsItIs)
{
    for (int nRequest : {0, 1, 0x31, 0x80, 255}) {
        answer("32 32 00 01 " + hex(Bytes{static_cast<uint8_t>(nRequest)}), 0, "01");
        EXPECT_EQ(detectCom(static_cast<uint8_t>(nRequest), 3), 0);
    }
}

TEST_F(AnyCard, EachKindHasItsResult)
{
    struct Row {
        const char *pszBody;
        int32_t nResult;
        uint32_t nKind;
    };
    const Row rows[] = {{"01", 0, 1},
                        {"02", 0, 2},
                        {"03", 0, 3},
                        {"04", 0, 4},
                        {"00", -4, 0},
                        {"05", -4, 5},
                        {"31", -4, 0x31},
                        {"FF", -4, 255},
                        {"FE 31 7C 32 33 34", -4, 0xFE},
                        {"01 31 7C 32 33 34", 0, 1},
                        {"02 31 7C 32 33 34", 0, 2},
                        {"04 31 7C 32 33 34", 0, 4}};
    for (uint32_t nStatus : {0U, 0x9000U, 0x1005U}) {
        for (const Row &row : rows) {
            SCOPED_TRACE(row.pszBody);
            answer("32 30 00 08", nStatus, row.pszBody);
            EXPECT_EQ(detect(10), row.nResult);
            EXPECT_EQ(m_nKind, row.nKind);
            EXPECT_TRUE(untouched(m_track2));
            EXPECT_TRUE(untouched(m_track3));
            answer("32 32 00 08 02", nStatus, row.pszBody);
            EXPECT_EQ(detectCom(2, 10), row.nResult);
            EXPECT_EQ(m_nKind, row.nKind);
            EXPECT_TRUE(untouched(m_track2));
            EXPECT_TRUE(untouched(m_track3));
        }
    }
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(AnyCard, AReplyWithoutBodyIsAnUnknownKind)
{
    for (uint32_t nStatus : {0U, 0x9000U, 0x1005U}) {
        answer("32 30 00 08", nStatus);
        EXPECT_EQ(detect(10), -4);
        EXPECT_EQ(m_nKind, 0U);
        EXPECT_TRUE(untouched(m_track2));
        EXPECT_TRUE(untouched(m_track3));
        answer("32 32 00 08 01", nStatus);
        EXPECT_EQ(detectCom(1, 10), -4);
        EXPECT_EQ(m_nKind, 0U);
    }
}

TEST_F(AnyCard, AMagneticCardBringsItsTracks)
{
    constexpr const char *pszNothing = "(untouched)";
    struct Row {
        const char *pszText;
        const char *pszTrack2;
        const char *pszTrack3;
    };
    const Row rows[] = {{"1234=5678|9999XX", "1234=5678", "9999"},
                        {"1234=5678|9999\r\n", "1234=5678", "9999"},
                        {"1|2XX", "1", "2"},
                        {"1234|XX", "1234", pszNothing},
                        {"1234|X", "1234", pszNothing},
                        {"1234|", "1234", pszNothing},
                        {"|9999XX", "", "9999"},
                        {"|XX", "", pszNothing},
                        {"|", "", pszNothing},
                        {"12|34|56XX", "12", "34|56"},
                        {"12|34||", "12", "34"},
                        {"1234=5678", pszNothing, pszNothing},
                        {"1234=5678XX", pszNothing, pszNothing},
                        {"X", pszNothing, pszNothing},
                        {"", pszNothing, pszNothing}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszText);
        answer("32 30 00 08", 0x9000, track(row.pszText));
        EXPECT_EQ(detect(10), 0);
        EXPECT_EQ(m_nKind, 3U);
        EXPECT_EQ(track2(), row.pszTrack2);
        EXPECT_EQ(track3(), row.pszTrack3);
        answer("32 32 00 08 03", 0x9000, track(row.pszText));
        EXPECT_EQ(detectCom(3, 10), 0);
        EXPECT_EQ(m_nKind, 3U);
        EXPECT_EQ(track2(), row.pszTrack2);
        EXPECT_EQ(track3(), row.pszTrack3);
    }
}

TEST_F(AnyCard, AZeroBehindTheTracksIsOneOfTheTwoMoreCharacters)
{
    for (const char *pszTail : {" 00 00", " 0D 00", " 00 0D"}) {
        SCOPED_TRACE(pszTail);
        answer("32 30 00 08", 0x9000, track("1234=5678|9999") + pszTail);
        EXPECT_EQ(detect(10), 0);
        EXPECT_EQ(m_nKind, 3U);
        EXPECT_EQ(track2(), "1234=5678");
        EXPECT_EQ(track3(), "9999");
        answer("32 32 00 08 03", 0x9000, track("1234=5678|9999") + pszTail);
        EXPECT_EQ(detectCom(3, 10), 0);
        EXPECT_EQ(m_nKind, 3U);
        EXPECT_EQ(track2(), "1234=5678");
        EXPECT_EQ(track3(), "9999");
    }
}

TEST_F(AnyCard, TracksOfAnEarlierCardDoNotShowThrough)
{
    answer("32 30 00 08", 0, track("1111111111|2222222222XX"));
    EXPECT_EQ(detect(10), 0);
    answer("32 30 00 08", 0, track("33|44XX"));
    EXPECT_EQ(detect(10), 0);
    EXPECT_EQ(track2(), "33");
    EXPECT_EQ(track3(), "44");
    answer("32 30 00 08", 0, track("55"));
    EXPECT_EQ(detect(10), 0);
    EXPECT_EQ(track2(), "(untouched)");
}

TEST_F(AnyCard, TheLongestTracksFit)
{
    // 505 characters behind the kind are the most that a reply carries.
    std::string sLong2 = std::string(502, '7') + "|9X";
    answer("32 30 00 08", 0, track(sLong2));
    EXPECT_EQ(detect(10), 0);
    EXPECT_EQ(track2(), std::string(502, '7'));
    EXPECT_EQ(track3(), "(untouched)");
    std::string sLong3 = "|" + std::string(502, '8') + "XX";
    answer("32 32 00 08 01", 0, track(sLong3));
    EXPECT_EQ(detectCom(1, 10), 0);
    EXPECT_EQ(track2(), "");
    EXPECT_EQ(track3(), std::string(502, '8'));
}

TEST_F(AnyCard, TracksMayBeUnwanted)
{
    for (int nRound = 0; nRound < 2; ++nRound) {
        auto call = [&](char *pTrack2, char *pTrack3) {
            answer(nRound == 0 ? "32 30 00 08" : "32 32 00 08 01", 0, track("12|34XX"));
            return nRound == 0 ? COMM_Icc_detectMulCard(10, pTrack2, pTrack3, &m_nKind)
                               : COMM_Icc_detectMulComCard(1, 10, pTrack2, pTrack3, &m_nKind);
        };
        fill();
        EXPECT_EQ(call(nullptr, m_track3.data()), 0);
        EXPECT_EQ(track3(), "34");
        EXPECT_EQ(m_nKind, 3U);
        fill();
        EXPECT_EQ(call(m_track2.data(), nullptr), 0);
        EXPECT_EQ(track2(), "12");
        fill();
        EXPECT_EQ(call(nullptr, nullptr), 0);
        EXPECT_EQ(m_nKind, 3U);
    }
}

TEST_F(AnyCard, TheKindIsNotOptional)
{
    fill();
    EXPECT_EQ(COMM_Icc_detectMulCard(10, m_track2.data(), m_track3.data(), nullptr), -4);
    EXPECT_EQ(COMM_Icc_detectMulComCard(1, 10, m_track2.data(), m_track3.data(), nullptr), -4);
    EXPECT_TRUE(untouched(m_track2));
    EXPECT_TRUE(untouched(m_track3));
}

TEST_F(AnyCard, AFailedExchangeIsPassedOn)
{
    m_peer->expect(commandFrame("32 30 00 08")).reply("02 03");
    EXPECT_EQ(detect(10), -4);
    EXPECT_EQ(m_nKind, 0xC5C5U);
    m_peer->expect(commandFrame("32 32 00 08 01")).reply("02 30 30 30 33 39 30 30 30 30 31 39 30 03"); // wrong check
    EXPECT_EQ(detectCom(1, 10), -4);
    EXPECT_EQ(m_nKind, 0xC5C5U);
    m_peer->finish();
    s_bWritesFail = true;
    EXPECT_EQ(detect(10), -54);
    EXPECT_EQ(detectCom(1, 10), -54);
    EXPECT_EQ(m_nKind, 0xC5C5U);
    EXPECT_TRUE(untouched(m_track2));
    EXPECT_TRUE(untouched(m_track3));
}

TEST_F(AnyCard, AnotherReaderModeIsRefused)
{
    stCardReader.nReaderMode = 1;
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(detect(10), -50);
    EXPECT_EQ(detectCom(1, 10), -50);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(m_nKind, 0xC5C5U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(AnyCard, OneCommandLogsTypedTheOtherUntyped)
{
    answer("32 30 00 08", 0, "03 31 FF");
    logOn();
    EXPECT_EQ(detect(10), 0);
    EXPECT_TRUE(logged({"COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 10 ", "[ COMM_Rdz_SendAndReciveData ] Start ",
                        "READ DATA LEN 3", "READ DATA 3", "READ DATA 31", "READ DATA ff"}));
    EXPECT_NE(logLine("READ DATA LEN").find("  INFO:    CommDev:  READ DATA LEN 3\r"), std::string::npos);
    EXPECT_NE(logLine("READ DATA ff").find("  INFO:    CommDev:  READ DATA ff\r"), std::string::npos);
    logOff();
    answer("32 32 00 08 01", 0, "03 31 FF");
    logOn();
    EXPECT_EQ(detectCom(1, 10), 0);
    EXPECT_TRUE(logged({"COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 10 ", "[ COMM_Rdz_SendAndReciveData ] Start ",
                        "READ DATA LEN 3", "READ DATA 3", "READ DATA 31", "READ DATA ff"}));
    for (const char *pszText : {"READ DATA LEN 3", "READ DATA 3", "READ DATA ff"}) {
        EXPECT_NE(logLine(pszText), "");
        EXPECT_EQ(logLine(pszText).find("INFO:"), std::string::npos) << logLine(pszText);
    }
}

TEST_F(AnyCard, AFailureIsLoggedWithItsCode)
{
    m_peer->expect(commandFrame("32 30 00 08")).reply("02 03");
    logOn();
    EXPECT_EQ(detect(10), -4);
    EXPECT_TRUE(logged({"READ DATA LEN -4"}));
    logOff();
    m_peer->expect(commandFrame("32 32 00 08 01")).reply("02 03");
    logOn();
    EXPECT_EQ(detectCom(1, 10), -4);
    EXPECT_TRUE(logged({"READ DATA LEN -4"}));
}

// ---- status word of the last reply --------------------------------------------------------------------------------

TEST_F(AnyCard, TheStatusWordOfTheLastReplyIsKept)
{
    EXPECT_EQ(s_nStatusAtLoad, 0);
    for (uint32_t nStatus : {0x9000U, 0x1005U, 0xFFFFU, 0U}) {
        answer("32 30 00 08", nStatus, "01");
        EXPECT_EQ(detect(10), 0);
        EXPECT_EQ(COMM_Icc_CardReaderGetRecStatus(), static_cast<int32_t>(nStatus));
    }
    stRDZ73xx.gStatus = 0x1234;
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderGetRecStatus(), 0x1234);
    EXPECT_TRUE(logged({"[COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1234"}));
    logOff();
    m_peer->expect(commandFrame("32 30 00 08")).reply("02 03");
    EXPECT_EQ(detect(10), -4);
    EXPECT_EQ(COMM_Icc_CardReaderGetRecStatus(), 0);
}

TEST_F(AnyCard, InAnotherReaderModeTheStatusWordIsZero)
{
    stRDZ73xx.gStatus = 0x1234;
    for (int32_t nMode : {1, -1, 170}) {
        stCardReader.nReaderMode = nMode;
        EXPECT_EQ(COMM_Icc_CardReaderGetRecStatus(), 0);
    }
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
}

} // namespace
