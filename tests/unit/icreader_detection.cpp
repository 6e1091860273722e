// The detection of any kind of card, the scan of a port that is opened for it, and whether a reader is there at all.
//
// The clock stands still, so that the time-out a call sets can be read from the state record after its last read.

#include "fake_clock.h"
#include "pty_peer.h"

#include "qvreader/icreader.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <optional>
#include <sys/syscall.h>
#include <unistd.h>

using namespace qvtest;

namespace {

bool s_bWritesFail = false;
std::string s_sWatched; // opens of this path are counted
int s_nOpens = 0;
int s_nFailingOpens = 0; // so many of them fail

const int32_t s_nStatusAtLoad = COMM_Icc_CardReaderGetRecStatus();

} // namespace

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (s_bWritesFail && nFd == g_AuxFd) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_write, nFd, pData, nLen);
}

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list more;
    va_start(more, nFlags);
    unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    if (!s_sWatched.empty() && s_sWatched == pszPath) {
        ++s_nOpens;
        if (s_nOpens <= s_nFailingOpens) {
            errno = ENODEV;
            return -1;
        }
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}

namespace {

// The raw line of the log that holds this text.
std::string logLine(const std::string &sText)
{
    std::string sLog = rawLog();
    size_t nAt = sLog.find(sText);
    if (nAt == std::string::npos)
        return {};
    size_t nStart = sLog.rfind('\n', nAt);
    nStart = nStart == std::string::npos ? 0 : nStart + 1;
    return sLog.substr(nStart, sLog.find('\n', nAt) - nStart);
}

std::string track(std::string_view sText)
{
    return "03 " + hex(textBytes(sText));
}

class Reader : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        g_bIcBaundFlag = g_useBpBox = 0;
        stCardReader = {0, 0, 7};
        g_nPowerOnTimeout = 0;
        s_bWritesFail = false;
        s_sWatched = m_peer->path();
        s_nOpens = s_nFailingOpens = 0;
        m_clock.emplace(1000000);
    }
    void TearDown() override
    {
        s_bWritesFail = false;
        m_clock.reset();
        m_peer->finish();
        logOff();
        s_sWatched.clear();
        g_bIcBaundFlag = g_useBpBox = 0;
        stCardReader.nReaderMode = 0;
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    void answer(std::string_view sCommand, uint32_t nStatus, std::string_view sBody = "")
    {
        m_peer->expect(commandFrame(sCommand)).reply(replyFrame(nStatus, sBody));
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    std::optional<FakeClock> m_clock;
};

// ---- any kind of card ---------------------------------------------------------------------------------------------

class AnyCard : public Reader {
  protected:
    void SetUp() override
    {
        Reader::SetUp();
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(path(), nullptr, 1, 0, 9600), 0);
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
        EXPECT_TRUE(untouched(m_track2));
        EXPECT_TRUE(untouched(m_track3));
        answer("32 32 00 08 01", nStatus);
        EXPECT_EQ(detectCom(1, 10), -4);
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
    EXPECT_EQ(detect(10), -50);
    EXPECT_EQ(detectCom(1, 10), -50);
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

// ---- the scan of a port -------------------------------------------------------------------------------------------

class PortScan : public Reader {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(g_AuxFd, -2);
        Reader::TearDown();
    }
    int32_t scan(const char *pszCardType, const char *pszBox = nullptr, uint32_t nTerm = 1, int32_t nBaud = 9600)
    {
        return Dev_Rdz_Ic_DetectCard(nTerm, path(), reinterpret_cast<const uint8_t *>(pszBox), nBaud,
                                     reinterpret_cast<const uint8_t *>(pszCardType));
    }
};

TEST_F(PortScan, TheResultOfTheScanIsHandedOn)
{
    struct Row {
        const char *pszCardType;
        const char *pszCommand;
        uint32_t nStatus;
        const char *pszBody;
        int32_t nResult;
        int32_t nSlot;
    };
    const Row rows[] = {{"1", "32 21 00", 0, "", 2, 0},           {"1", "32 21 00", 0x1003, "", 2, 0},
                        {"1", "32 21 00", 0x1004, "", 3, 0},      {"1", "32 21 00", 0x1005, "", 4, 0},
                        {"1", "32 21 00", 0x9000, "", 4, 0},      {"2", "32 24 00 00", 0, "50 01", 1, 255},
                        {"2", "32 24 00 00", 0x3006, "", 6, 7},   {"2", "32 24 00 00", 0x3001, "", 7, 7},
                        {"2", "32 24 00 00", 0x3004, "", 7, 7},   {"2", "32 24 00 00", 0x3007, "", 7, 7},
                        {"2", "32 24 00 00", 0x3008, "", 7, 7},   {"2", "32 24 00 00", 0x3009, "", 7, 7},
                        {"2", "32 24 00 00", 0x1003, "", -99, 7}, {"2", "32 24 00 00", 54, "", -54, 7},
                        {"!", "32 21 01", 0x1003, "", 2, 1},      {"!", "32 21 01", 0x1004, "", 3, 1},
                        {" ", "32 21 00", 0, "", 2, 0},           {"21", "32 24 00 00", 0x3006, "", 6, 7},
                        {"12", "32 21 00", 0x1005, "", 4, 0},     {"", "32 21 00", 0x1004, "", 3, 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszCommand);
        SCOPED_TRACE(row.nStatus);
        stCardReader.nCardSlot = 7;
        answer(row.pszCommand, row.nStatus, row.pszBody);
        EXPECT_EQ(scan(row.pszCardType), row.nResult);
        EXPECT_EQ(stCardReader.nCardSlot, row.nSlot);
        EXPECT_EQ(stBackUpParam.nTimeOut, 1); // the clock stands
        EXPECT_EQ(g_AuxFd, -2);
        m_peer->finish();
    }
    EXPECT_EQ(s_nOpens, static_cast<int>(std::size(rows)));
}

TEST_F(PortScan, TheScanGoesOnToTheAntenna)
{
    answer("32 21 01", 0x1005);
    answer("32 24 00 00", 0, "50 01");
    EXPECT_EQ(scan("!"), 1);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    answer("32 21 00", 0x1005);
    answer("32 24 00 00", 0x3001);
    EXPECT_EQ(scan(""), 7);
}

TEST_F(PortScan, EachReadLastsOneSecond)
{
    m_peer->expect(commandFrame("32 24 00 00"));
    m_clock->script({1000, 1000, 1001, 1001, 1002});
    EXPECT_EQ(scan("2"), -56);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
    m_peer->finish();
    m_peer->expect(commandFrame("32 21 00"));
    m_clock->script({1000, 1000, 1001, 1001, 1002});
    EXPECT_EQ(scan("1"), 4);
}

TEST_F(PortScan, WhatCannotBeSentIsTheScansResult)
{
    s_bWritesFail = true;
    EXPECT_EQ(scan("2"), -54);
    EXPECT_EQ(scan("1"), 4);
    EXPECT_EQ(scan(" "), -54);
    EXPECT_EQ(s_nOpens, 3);
}

TEST_F(PortScan, TheOpenRecordIsTheCallers)
{
    answer("32 21 00", 0);
    EXPECT_EQ(scan("1", "", 5, 38400), 2);
    EXPECT_EQ(g_sParam.stParam.nTermType, 5U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_STREQ(g_sParam.stParam.szTermPath, path());
    EXPECT_EQ(g_useBpBox, 0);
}

TEST_F(PortScan, ABoxPortIsSelectedFirst)
{
    m_peer->expect("1B 25 41 1B 24 49 34");
    answer("32 21 00", 0);
    EXPECT_EQ(scan("1", "A"), 2);
    m_peer->expect("1B 25 4B 1B 25 49 34");
    answer("32 21 00", 0x1004);
    EXPECT_EQ(scan("1", "K", 2), 3);
    answer("32 21 00", 0x1004);
    EXPECT_EQ(scan("1", "D"), 3);
}

TEST_F(PortScan, ADeviceThatOpensAtTheSecondTryIsScanned)
{
    s_nFailingOpens = 1;
    answer("32 21 00", 0x1003);
    logOn();
    EXPECT_EQ(scan("1"), 2);
    EXPECT_EQ(s_nOpens, 2);
    EXPECT_TRUE(
        logged({"[Dev_Rdz_Ic_DetectCard] Start ", "[Dev_Rdz_Ic_OpenPort] Start ", "===>[Dev_Rdz_Ic_ClosePort] Start ",
                "[Dev_Rdz_Ic_OpenPort] Start ", "COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 1 ", " i = 0 ",
                "DealCardSlot nRet = 2", "===>[Dev_Rdz_Ic_ClosePort] Start "}));
    EXPECT_NE(logLine("DealCardSlot nRet").find("  INFO:    CommDev:  DealCardSlot nRet = 2"), std::string::npos);
    EXPECT_NE(logLine("[Dev_Rdz_Ic_DetectCard]").find("  INFO:    CommDev:  [Dev_Rdz_Ic_DetectCard] Start "),
              std::string::npos);
}

TEST_F(PortScan, ADeviceThatFailsTwiceIsGivenUp)
{
    s_nFailingOpens = 99;
    logOn();
    EXPECT_EQ(scan("1"), -51);
    EXPECT_EQ(s_nOpens, 2);
    EXPECT_EQ(logLine("DealCardSlot"), "");
    EXPECT_EQ(m_peer->wire(), "");
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(PortScan, EveryReasonNotToOpenIsTheSame)
{
    const auto *pType = reinterpret_cast<const uint8_t *>("1");
    for (const char *pszName : {"", "com1", "nonsense", "PCSC", "PCSC reader", "/dev/no-such-tty"}) {
        SCOPED_TRACE(pszName);
        EXPECT_EQ(Dev_Rdz_Ic_DetectCard(1, pszName, nullptr, 9600, pType), -51);
        EXPECT_EQ(g_AuxFd, -2);
    }
    EXPECT_EQ(stCardReader.nReaderMode, 0);
}

TEST_F(PortScan, NullArgumentsAreRefusedBeforeTheOpen)
{
    EXPECT_EQ(Dev_Rdz_Ic_DetectCard(1, nullptr, nullptr, 9600, reinterpret_cast<const uint8_t *>("1")), -2);
    EXPECT_EQ(Dev_Rdz_Ic_DetectCard(1, path(), nullptr, 9600, nullptr), -2);
    EXPECT_EQ(Dev_Rdz_Ic_DetectCard(1, nullptr, nullptr, 9600, nullptr), -2);
    EXPECT_EQ(s_nOpens, 0);
}

TEST_F(PortScan, ALinkThatCannotBeRaisedIsGivenUpAndClosed)
{
    g_bIcBaundFlag = 1;
    s_bWritesFail = true;
    EXPECT_EQ(scan("1", nullptr, 1, 38400), -51);
    EXPECT_EQ(g_AuxFd, -2);
}

// ---- is a reader there --------------------------------------------------------------------------------------------

class Presence : public Reader {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(g_AuxFd, -2);
        Reader::TearDown();
    }
    int32_t check() { return Dev_Rdz_Ic_ChkDevPresent(path(), nullptr, 9600); }
};

TEST_F(Presence, AnyAnswerIsASignOfLife)
{
    const Bytes longest(507, 0xA5);
    const std::pair<uint32_t, std::string> rows[] = {{0x9000, "01"},
                                                     {0, ""},
                                                     {0x1005, ""},
                                                     {0xFFFF, "01 02 03"},
                                                     {0, hex(longest)},
                                                     {0, "00"},
                                                     {0x9000, hex(Bytes(256, 1))}};
    for (const auto &[nStatus, sBody] : rows) {
        SCOPED_TRACE(nStatus);
        m_peer->expect("02 30 30 30 32 33 31 31 31 32 30 03").reply(replyFrame(nStatus, sBody));
        EXPECT_EQ(check(), 0);
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(stRDZ73xx.gStatus, nStatus);
        EXPECT_EQ(stBackUpParam.nTimeOut, 3); // as opened
    }
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(Presence, TheOpenTakesTerminalTypeZeroAndTheBoxPort)
{
    m_peer->expect("1B 25 42 1B 24 49 34");
    answer("31 11", 0);
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent(path(), reinterpret_cast<const uint8_t *>("B"), 19200), 0);
    EXPECT_EQ(g_sParam.stParam.nTermType, 0U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 19200U);
    EXPECT_EQ(s_nOpens, 1);
}

TEST_F(Presence, SilenceIsAFailedRead)
{
    m_peer->expect(commandFrame("31 11"));
    m_clock->script({1000, 1000, 1003, 1003, 1004});
    EXPECT_EQ(check(), -55);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(Presence, WhatIsNoFrameIsAFailedRead)
{
    for (const char *pszReply : {"02 03", "03", "41 42 43 03", "02 30 30 30 33 39 30 30 30 30 31 39 30 03",
                                 "02 30 30 30 03", "01 30 30 30 32 30 30 30 30 30 30 03"}) {
        SCOPED_TRACE(pszReply);
        m_peer->expect(commandFrame("31 11")).reply(pszReply);
        EXPECT_EQ(check(), -55);
        EXPECT_EQ(g_AuxFd, -2);
        m_peer->finish();
    }
}

TEST_F(Presence, AnAnswerThatCannotBeReadAfterAGoodOneIsStillAFailure)
{
    answer("31 11", 0, "01");
    EXPECT_EQ(check(), 0);
    m_peer->expect(commandFrame("31 11")).reply("02 03");
    EXPECT_EQ(check(), -55);
}

TEST_F(Presence, WhatCannotBeSentIsAFailedWrite)
{
    s_bWritesFail = true;
    EXPECT_EQ(check(), -54);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Presence, AFailedOpenHasItsOwnCode)
{
    const std::pair<const char *, int32_t> rows[] = {
        {nullptr, -2}, {"", -2}, {"com1", -2}, {"PCSC", -50}, {"/dev/no-such-tty", -51}};
    for (auto [pszName, nResult] : rows) {
        SCOPED_TRACE(pszName == nullptr ? "null" : pszName);
        EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent(pszName, nullptr, 9600), nResult);
        EXPECT_EQ(g_AuxFd, -2);
    }
    s_nFailingOpens = 1;
    EXPECT_EQ(check(), -51);
    EXPECT_EQ(s_nOpens, 1); // once only
}

TEST_F(Presence, ALinkThatCannotBeRaisedIsClosed)
{
    g_bIcBaundFlag = 1;
    s_bWritesFail = true;
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent(path(), nullptr, 38400), -51);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(Presence, ARaisedLinkAt9600NeedsNoSwitching)
{
    g_bIcBaundFlag = 1;
    answer("31 11", 0);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(m_peer->wire(), commandFrame("31 11"));
}

} // namespace
