// The scan of a port that is opened for it, and whether a reader is there at all.
//
// The clock stands still, so that the time-out a call sets can be read from the state record after its last read.

#include "failing_writes.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

using namespace qvtest;

namespace {

std::string s_sWatched; // opens of this path are counted
int s_nOpens = 0;
int s_nFailingOpens = 0; // so many of them fail

} // namespace

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

class PortOfAReader : public ClosedReader, public FailingWrites {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        stCardReader.nCardSlot = 7;
        s_sWatched = m_peer->path();
        s_nOpens = s_nFailingOpens = 0;
        m_clock.emplace(1000000);
    }
    void TearDown() override
    {
        EXPECT_EQ(g_AuxFd, -2);
        s_bWritesFail = false;
        s_sWatched.clear();
        m_clock.reset();
        ClosedReader::TearDown();
    }

    std::optional<FakeClock> m_clock;
};

// ---- the scan of a port -------------------------------------------------------------------------------------------

class PortScan : public PortOfAReader {
  protected:
    int32_t scan(const char *pszCardType, const char *pszBox = nullptr, uint32_t nTerm = 1, int32_t nBaud = 9600)
    {
        return Dev_Rdz_Ic_DetectCard(nTerm, path(), reinterpret_cast<const uint8_t *>(pszBox), nBaud,
                                     reinterpret_cast<const uint8_t *>(pszCardType));
    }
    // Closes of the port since logOn().
    static size_t closes()
    {
        const auto texts = logTexts();
        return static_cast<size_t>(std::ranges::count(texts, "===>[Dev_Rdz_Ic_ClosePort] Start "));
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
    const Row rows[] = {{"1", "32 21 00", 0, "", 2, 0},          {"1", "32 21 00", 0x1003, "", 2, 0},
                        {"1", "32 21 00", 0x1004, "", 3, 0},     {"1", "32 21 00", 0x1005, "", 4, 0},
                        {"1", "32 21 00", 0x9000, "", 4, 0},     {"2", "32 24 00 00", 0, "50 01", 1, 255},
                        {"2", "32 24 00 00", 0, "", 1, 255},     {"2", "32 24 00 00", 0x3006, "", 6, 7},
                        {"2", "32 24 00 00", 0x3001, "", 7, 7},  {"2", "32 24 00 00", 0x3004, "", 7, 7},
                        {"2", "32 24 00 00", 0x3007, "", 7, 7},  {"2", "32 24 00 00", 0x3008, "", 7, 7},
                        {"2", "32 24 00 00", 0x3009, "", 7, 7},  {"2", "32 24 00 00", 0x1003, "", -99, 7},
                        {"2", "32 24 00 00", 54, "", -54, 7},    {"!", "32 21 01", 0x1003, "", 2, 1},
                        {"!", "32 21 01", 0x1004, "", 3, 1},     {" ", "32 21 00", 0, "", 2, 0},
                        {"21", "32 24 00 00", 0x3006, "", 6, 7}, {"12", "32 21 00", 0x1005, "", 4, 0},
                        {"", "32 21 00", 0x1004, "", 3, 0}};
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

TEST_F(PortScan, TheLineInFrontOfTheAntennaBringsItsOwnLineEnd)
{
    answer("32 24 00 00", 0x3006);
    logOn();
    EXPECT_EQ(scan("2"), 6);
    EXPECT_NE(rawLog().find("CommDev:  check picc \r\n\r\n"), std::string::npos) << rawLog();
}

TEST_F(PortScan, ASilentReaderIsGivenOneSecond)
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

TEST_F(PortScan, BehindASilentContactSlotTheAntennasReadHasTheLongWait)
{
    const std::pair<const char *, const char *> rows[] = {{" ", "32 21 00"}, {"!", "32 21 01"}};
    for (auto [pszMode, pszCommand] : rows) {
        SCOPED_TRACE(pszMode);
        m_peer->expect(commandFrame(pszCommand));
        answer("32 24 00 00", 0x3006);
        // The contact slot's read lasts from 1000 to 1002; the clock stands again afterwards.
        m_clock->script({1000, 1000, 1001, 1001, 1002});
        logOn();
        EXPECT_EQ(scan(pszMode), 6);
        // One second for both: what is left is below 1, and so much is waited for as if it were 0.
        EXPECT_TRUE(logged({"COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 1 ", "==> nReadLen = -56 ", "check picc ",
                            " Param err", "==> nReadLen = 12 "}));
        EXPECT_EQ(stBackUpParam.nTimeOut, -1);
        m_peer->finish();
    }
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

TEST_F(PortScan, TheSecondTryOpensWhatTheFirstDid)
{
    s_nFailingOpens = 1;
    m_peer->expect("1B 25 41 1B 25 49 34");
    answer("32 21 00", 0);
    EXPECT_EQ(scan("1", "A", 2, 19200), 2);
    EXPECT_EQ(s_nOpens, 2);
    EXPECT_EQ(g_sParam.stParam.nTermType, 2U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 19200U);
    EXPECT_STREQ(g_sParam.stParam.szTermPath, path());
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(PortScan, ADeviceThatFailsTwiceIsGivenUp)
{
    s_nFailingOpens = 99;
    logOn();
    EXPECT_EQ(scan("1"), -51);
    EXPECT_EQ(s_nOpens, 2);
    EXPECT_EQ(logLine("DealCardSlot"), "");
    EXPECT_EQ(closes(), 1); // between the two
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
    const int nDescriptors = openDescriptors();
    logOn();
    EXPECT_EQ(scan("1", nullptr, 1, 38400), -51);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(openDescriptors(), nDescriptors);
    EXPECT_EQ(closes(), 2); // after each of the two
}

// ---- is a reader there --------------------------------------------------------------------------------------------

class Presence : public PortOfAReader {
  protected:
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
