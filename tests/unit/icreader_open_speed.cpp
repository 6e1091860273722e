// The switch box and the raise of the line speed, byte for byte.

#include "icreader_open.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

// ---- switch box ---------------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, ASwitchBoxPortIsSelectedAtOpen)
{
    const char *ports[] = {"A", "B", "C", "K", "Axyz"};
    for (const char *psz : ports) {
        SCOPED_TRACE(psz);
        s_sent.clear();
        ASSERT_EQ(open(path(), 9600, psz), 0);
        EXPECT_EQ(g_useBpBox, 1);
        std::string sAll;
        for (const Sent &sent : s_sent)
            sAll += (sAll.empty() ? "" : " ") + sent.sBytes;
        EXPECT_EQ(sAll, "1B 25 " + hex(psz, 1) + " 1B 24 49 34");
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire().size(), 5U * 7 * 3 - 1);
}

TEST_F(ReaderOpen, TerminalTypeTwoHasItsOwnSwitchBoxSequence)
{
    ASSERT_EQ(open(path(), 9600, "B", 2), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 42 1B 25 49 34");
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(ReaderOpen, AnyOtherBoxPortIsNone)
{
    for (const char *psz : {"", "D", "a", "k", " A", "@", "L", "0"}) {
        SCOPED_TRACE(psz);
        g_useBpBox = 1;
        ASSERT_EQ(open(path(), 9600, psz), 0);
        EXPECT_EQ(g_useBpBox, 0);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AFailedOpenLeavesTheBoxFlag)
{
    g_useBpBox = 1;
    EXPECT_EQ(open("/dev/nowhere", 9600, "A"), -51);
    EXPECT_EQ(g_useBpBox, 1);
    EXPECT_EQ(open("HID", 9600, "A"), -51);
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(ReaderOpen, ASwitchBoxIsReleasedOnlyWithTheRaiseFlag)
{
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34");

    // The flag may come between open and close, and go.
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(1), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 25 41 1B 24 49 34 1B 24 42");

    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(0), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 25 41 1B 24 49 34 1B 24 42 1B 25 41 1B 24 49 34");
}

TEST_F(ReaderOpen, WithoutASwitchBoxNothingIsReleased)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, ASwitchBoxSkipsTheRaise)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 38400, "C"), 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
    EXPECT_EQ(m_peer->wire(), "1B 25 43 1B 24 49 34");
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 43 1B 24 49 34 1B 24 42");
}

TEST_F(ReaderOpen, ASwitchBoxBelongsToEverySerialName)
{
    for (const char *psz : {"COM4", "AUX2"}) {
        SCOPED_TRACE(psz);
        link(psz);
        s_sent.clear();
        ASSERT_EQ(open(psz, 9600, "K"), 0);
        EXPECT_EQ(g_useBpBox, 1);
        EXPECT_THAT(s_sent, ElementsAre(Sent{"1B 25 4B 1B 24 49 34", B9600}));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, TheBoxFlagOutlivesACloseUpToTheNextOpen)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(g_useBpBox, 1);
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(g_useBpBox, 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 24 42");
}

TEST_F(ReaderOpen, OnlyASerialRecordReleasesTheBox)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    g_sParam.stParam.nType = 7;
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34");
}

// ---- raising the speed --------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, TheRaiseSwitchesTheReaderReopensAndSwitchesAgain)
{
    struct Row {
        int32_t nBaud;
        speed_t nSpeed;
        const char *pszEscape;
    };
    const Row rows[] = {{38400, B38400, "1B 25 49 32"},   {19200, B19200, "1B 25 49 33"},
                        {115200, B115200, "1B 25 49 31"}, {57600, B57600, "1B 25 49 31"},
                        {4800, B4800, "1B 25 49 31"},     {460800, B9600, "1B 25 49 31"}};
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    std::string sWire;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nBaud);
        s_sent.clear();
        ASSERT_EQ(open(path(), row.nBaud), 0);
        EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{row.pszEscape, B9600},
                                        Sent{row.pszEscape, row.nSpeed}));
        sWire += (sWire.empty() ? "" : " ") + std::string("00 00 00 00 ") + row.pszEscape + " " + row.pszEscape;
        EXPECT_EQ(m_peer->wire(), sWire);
        EXPECT_EQ(speed(), row.nSpeed);
        EXPECT_EQ(g_sParam.stParam.nBaud, static_cast<uint32_t>(row.nBaud));
        EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
        EXPECT_EQ(openDescriptors(), m_nDescriptors + 5); // the peer's four and the port
        // Nothing goes out at close.
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_EQ(m_peer->wire(), sWire);
    }
}

TEST_F(ReaderOpen, ARaiseTo9600SendsNothing)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    logOn();
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 1U);
    logOff();
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AComNameIsRaisedToo)
{
    link("COM4");
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    logOn();
    ASSERT_EQ(open("COM4", 38400), 0);
    EXPECT_TRUE(logged(
        {"ICC_OpenLinuxTransPort", "open 9600", "ICC_OpenLinuxTransPort", "[Dev_Rdz_Ic_OpenPort] End nRet = 0  "}));
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 2U);
    logOff();
    EXPECT_EQ(m_peer->wire(), "00 00 00 00 1B 25 49 32 1B 25 49 32");
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
}

TEST_F(ReaderOpen, OnlyTheFlagValueOneRaises)
{
    for (uint32_t nFlag : {0U, 2U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nFlag);
        EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(nFlag), 0);
        EXPECT_EQ(g_bIcBaundFlag, static_cast<int32_t>(nFlag));
        ASSERT_EQ(open(path(), 38400), 0);
        EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, ARaiseThatCannotWriteLeavesThePortOpenAndGivesMinus51)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_errors = {EIO};
    logOn();
    EXPECT_EQ(open(path(), 38400), -51);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 2U);
    logOff();
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}));
    EXPECT_GE(g_AuxFd, 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "");
    // The port that was opened first is not left behind.
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(ReaderOpen, AnEscapeThatCannotBeSentDoesNotStopTheRaise)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_errors = {0, EIO, EIO};
    EXPECT_EQ(open(path(), 38400), 0);
    EXPECT_THAT(s_sent,
                ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 32", B9600}, Sent{"1B 25 49 32", B38400}));
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
}

TEST_F(ReaderOpen, ARaiseThatCannotReopenGivesMinus51AndLeavesNothingOpen)
{
    link("COM4");
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_afterWrite = [](size_t nAt) {
        if (nAt == 1)
            unlink("COM4");
    };
    logOn();
    EXPECT_EQ(open("COM4", 38400), -51);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 3U);
    logOff();
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 32", B9600}));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(ReaderOpen, ARaiseThatCannotReopenGivesMinus51ThoughThePortOpensOnceMore)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_openErrors = {0, EIO};
    EXPECT_EQ(open(path(), 38400), -51);
    EXPECT_EQ(s_nOpens, 3U);
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 32", B9600}));
    EXPECT_GE(g_AuxFd, 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
}

TEST_F(ReaderOpen, ARateOfZeroOrLessIsRaisedToLikeAnyOtherRate)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    for (int32_t nBaud : {0, -1, INT32_MIN}) {
        SCOPED_TRACE(nBaud);
        s_sent.clear();
        EXPECT_EQ(open(path(), nBaud), 0);
        EXPECT_THAT(s_sent,
                    ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 31", B9600}, Sent{"1B 25 49 31", B9600}));
        EXPECT_EQ(g_sParam.stParam.nBaud, static_cast<uint32_t>(nBaud));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, TheSpeedSwitchOnItsOwn)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    param.nBaud = 19200;
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 255), 0);
    EXPECT_THAT(s_sent,
                ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 33", B9600}, Sent{"1B 25 49 33", B19200}));
    EXPECT_EQ(speed(), static_cast<speed_t>(B19200));

    s_errors = {0, 0, 0, EIO};
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), 1);
    EXPECT_GE(g_AuxFd, 0);
    s_errors.clear();

    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), -1);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(nullptr, 0), -1);
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), 1);
}

TEST_F(ReaderOpen, ASpeedSwitchThatCannotReopenClosesOnceMore)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    std::strcpy(param.szTermPath, "/nowhere/tty");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), -1);
    EXPECT_TRUE(logged({"nDataLen = 4", "[COMM_Com_CloseLinux] Start ", "[COMM_Rdz_OpenReader]Start ",
                        "[COMM_Rdz_OpenReader]End nRet = -3  ", "[COMM_Com_CloseLinux] Start "}));
}

TEST_F(ReaderOpen, ASpeedSwitchWithARecordOfAnotherReaderModeCannotReopen)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    param.nBaud = 19200;
    param.nWord4 = 1;
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), -1);
    EXPECT_EQ(countLogged("[COMM_Rdz_OpenReader]Start "), 0U);
    EXPECT_EQ(countLogged("[COMM_Com_CloseLinux] Start "), 2U); // before the reopening and after it
    logOff();
    // The reader was switched before, so that it is at the new rate now.
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 33", B9600}));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(ReaderOpen, TheEscapeOnItsOwn)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    param.nBaud = 38400;
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 0), 0);
    param.nBaud = 9600;
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 255), 0);
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(nullptr, 0), -2);
    EXPECT_EQ(COMM_Icc_CardReaderResetSynBps(0), 0);
    EXPECT_EQ(COMM_Icc_CardReaderResetSynBps(255), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 32 1B 25 49 34");
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 0), 0);
}

} // namespace
