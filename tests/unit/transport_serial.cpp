// The serial port: opening, closing, and what both leave in the log.

#include "transport_serial.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

const int32_t s_nFdAtLoad = g_AuxFd;

// Runs body in a child process; the exit code of the child is what body returns.
int inChild(const std::function<int()> &body)
{
    pid_t nChild = fork();
    if (nChild == 0)
        _exit(body());
    int nStatus = 0;
    while (waitpid(nChild, &nStatus, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 1000 + WTERMSIG(nStatus);
}

TEST(SerialAtLoad, NoPortIsOpen)
{
    EXPECT_EQ(s_nFdAtLoad, -2);
}

TEST_F(Serial, WithoutAPortEverythingAnswersForItself)
{
    const uint8_t out[] = {0x31};
    uint8_t in[2];
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(COMM_Com_WriteLinux(out, 1), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out, 1), -2);
    EXPECT_EQ(COMM_Com_ReadLinux(in, 2, 1, nullptr), -2);
    EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    EXPECT_EQ(ClearReceiveBuffer(), -2);
    EXPECT_EQ(ResetAux(), -2);
    EXPECT_EQ(SetTerm(-2, 9600), -2);
    EXPECT_EQ(g_AuxFd, -2);
}

// ---- open ---------------------------------------------------------------------------------------------------------

TEST_F(Serial, APathThatWillNotOpenGivesMinusThree)
{
    std::string sLong = "/dev/" + std::string(5000, 'x');
    for (const char *psz :
         {static_cast<const char *>(nullptr), "", "/nowhere/tty", "nowhere", "/", "/tmp", sLong.c_str()}) {
        SCOPED_TRACE(psz == nullptr ? "null" : std::string(psz).substr(0, 40));
        g_AuxFd = 99999;
        EXPECT_EQ(COMM_Com_OpenLinux(psz, 9600), -3);
        EXPECT_EQ(g_AuxFd, -2);
    }
}

TEST_F(Serial, APathWithoutPermissionGivesMinusThree)
{
    ASSERT_EQ(chmod(path(), 0), 0);
    int nCode = inChild([this] {
        if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            return 90;
        if (COMM_Com_OpenLinux(path(), 9600) != -3)
            return 1;
        return g_AuxFd == -2 ? 0 : 2;
    });
    EXPECT_EQ(nCode, 0);
}

TEST_F(Serial, AFileThatIsNoTtyGivesMinusOneAndIsClosed)
{
    std::string sFile = libraryDirectory() + "/no.tty";
    writeFile(sFile, "untouched");
    int nBefore = openDescriptors();
    for (const char *psz : {sFile.c_str(), "/dev/null"}) {
        SCOPED_TRACE(psz);
        g_AuxFd = 99999;
        EXPECT_EQ(COMM_Com_OpenLinux(psz, 9600), -1);
        EXPECT_EQ(g_AuxFd, -2);
    }
    EXPECT_EQ(openDescriptors(), nBefore);
    EXPECT_EQ(readFile(sFile), "untouched");
}

TEST_F(Serial, ATtyThatRefusesItsSettingsGivesMinusOneAndIsClosed)
{
    termios cooked = cook();
    int nBefore = openDescriptors();
    for (unsigned long nRequest : {static_cast<unsigned long>(TCGETA), static_cast<unsigned long>(TCSETAF)}) {
        SCOPED_TRACE(nRequest);
        s_nRefused = nRequest;
        EXPECT_EQ(COMM_Com_OpenLinux(path(), 9600), -1);
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(openDescriptors(), nBefore);
        EXPECT_EQ(settings().c_lflag, cooked.c_lflag);
    }
}

TEST_F(Serial, ACloseThatCannotRestoreTheSettingsStillCloses)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    int nFd = g_AuxFd;
    s_nRefused = TCSETAF;
    EXPECT_EQ(ResetAux(), -1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(fcntl(nFd, F_GETFD), -1);
}

TEST_F(Serial, ThePortIsOpenedForReadingAndWritingBlockingAndCloseOnExec)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    ASSERT_GE(g_AuxFd, 0);
    int nFlags = fcntl(g_AuxFd, F_GETFL);
    EXPECT_EQ(nFlags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(nFlags & (O_NONBLOCK | O_APPEND | O_SYNC), 0);
    EXPECT_EQ(fcntl(g_AuxFd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 6); // the peer's four, the second view, the port
}

TEST_F(Serial, TheTtyMayBecomeTheControllingTerminal)
{
    int nCode = inChild([this] {
        if (setsid() < 0)
            return 90;
        if (COMM_Com_OpenLinux(path(), 9600) != 0)
            return 1;
        return tcgetsid(g_AuxFd) == getpid() ? 0 : 2;
    });
    EXPECT_EQ(nCode, 0);
}

TEST_F(Serial, AnOpenFlushesInputThenOutputThenBoth)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_THAT(s_flushes, ElementsAre(TCIFLUSH, TCOFLUSH, TCIOFLUSH));
}

TEST_F(Serial, ThePathIsOpenedWithNoFurtherFlagsAndFlushedAMillisecondLater)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_EQ(s_nOpenFlags, O_RDWR);
    EXPECT_GE(s_nFlushedAt - s_nOpenedAt, 0.001);
}

TEST_F(Serial, TheFlushesComeBeforeTheSettingsAndACloseOnlyRestores)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_THAT(s_requests, ElementsAre("flush 0", "flush 1", "flush 2", "TCGETA", "TCSETAF"));
    s_requests.clear();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_THAT(s_requests, ElementsAre("TCSETAF"));
}

TEST_F(Serial, BytesThatCameBeforeTheOpenAreGone)
{
    m_peer->send("41 42 43");
    waitUnread(3);
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_EQ(unread(), 0U);
}

TEST_F(Serial, AnOpenIsLogged)
{
    logOn();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 460800), 0);
    std::string sFd = std::to_string(g_AuxFd);
    EXPECT_TRUE(logged({"[COMM_Com_OpenLinux ] Start ", " szTtyName = " + m_peer->path() + " nBaud = 460800  ",
                        "[ open g_AuxFd = " + sFd + " ] Start  ", "open linux com success!", "open linux com success!",
                        "set linux com success!"}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  [COMM_Com_OpenLinux ] Start \r\n"), std::string::npos);

    logOn();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_TRUE(logged({"[g_AuxFd = " + sFd + " ] Start  ", "[1 g_AuxFd = -2 ] Start  "}));

    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux("/nowhere/tty", 9600), -3);
    EXPECT_TRUE(logged({" szTtyName = /nowhere/tty nBaud = 9600  ", "[ open g_AuxFd = -1 ] Start  "}));
    for (const std::string &sText : logTexts())
        EXPECT_EQ(sText.find("success"), std::string::npos) << sText;
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux("/dev/null", 9600), -1);
    EXPECT_TRUE(logged({"open linux com success!", "open linux com success!"}));
    EXPECT_FALSE(logged({"set linux com success!"}));
}

TEST_F(Serial, TheLinesOfAnOpenAndACloseAreTypedAndKeepTheirLineEnds)
{
    logOn();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const std::string sFd = std::to_string(g_AuxFd);
    EXPECT_EQ(logWithoutTime(),
              line("[COMM_Com_OpenLinux ] Start ") + line(" szTtyName = " + m_peer->path() + " nBaud = 9600  ") +
                  line("[ open g_AuxFd = " + sFd + " ] Start  ") + line("open linux com success!\r\n") +
                  line("open linux com success!\r\n") + line("set linux com success!\r\n"));
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_CloseLinux] Start ") + line("[g_AuxFd = " + sFd + " ] Start  ") +
                                    line("[1 g_AuxFd = -2 ] Start  "));
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_CloseLinux] Start ") + line("[g_AuxFd = -2 ] Start  "));
}

TEST_F(Serial, AnOpenThatFailsEndsWithItsReason)
{
    const auto head = [](const std::string &sName, int nFd) {
        return line("[COMM_Com_OpenLinux ] Start ") + line(" szTtyName = " + sName + " nBaud = 9600  ") +
               line("[ open g_AuxFd = " + std::to_string(nFd) + " ] Start  ");
    };
    const std::pair<const char *, const char *> rows[] = {
        {"/nowhere/tty", "No such file or directory"}, {"/tmp", "Is a directory"}, {nullptr, "no name"}};
    for (const auto &[pszName, pszReason] : rows) {
        logOn();
        EXPECT_EQ(COMM_Com_OpenLinux(pszName, 9600), -3);
        EXPECT_EQ(logWithoutTime(),
                  head(pszName == nullptr ? "" : pszName, -1) + line(std::string("open failed: ") + pszReason));
    }

    const int nNext = dup(m_nSecond); // the descriptor that the opens get
    ::close(nNext);
    const std::string sOpened = line("open linux com success!\r\n") + line("open linux com success!\r\n");
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux("/dev/null", 9600), -1);
    EXPECT_EQ(logWithoutTime(),
              head("/dev/null", nNext) + sOpened + line("terminal settings refused: Inappropriate ioctl for device"));
    for (unsigned long nRequest : {static_cast<unsigned long>(TCGETA), static_cast<unsigned long>(TCSETAF)}) {
        s_nRefused = nRequest;
        logOn();
        EXPECT_EQ(COMM_Com_OpenLinux(path(), 9600), -1);
        EXPECT_EQ(logWithoutTime(),
                  head(path(), nNext) + sOpened + line("terminal settings refused: Input/output error"));
    }
}

TEST_F(Serial, EveryLineOfAFailureIsTyped)
{
    auto expectTyped = [] {
        const std::string sLog = logWithoutTime();
        const std::string sHead = "  T  INFO:    CommDev:  ";
        size_t nTyped = 0;
        for (size_t n = sLog.find(sHead); n != std::string::npos; n = sLog.find(sHead, n + 1))
            ++nTyped;
        EXPECT_GT(nTyped, 0U);
        EXPECT_EQ(nTyped, logTexts().size()) << sLog;
    };
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux("/nowhere/tty", 9600), -3);
    expectTyped();
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux("/dev/null", 9600), -1);
    expectTyped();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    s_writes = {-EIO};
    EXPECT_EQ(QV_SendDataToTransPort("x", 1), 0);
    expectTyped();
}

TEST_F(Serial, OpeningAgainForgetsTheOldDescriptor)
{
    termios cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    int nFirst = g_AuxFd;
    PtyPeer other;
    ASSERT_EQ(COMM_Com_OpenLinux(other.path().c_str(), 19200), 0);
    EXPECT_NE(g_AuxFd, nFirst);
    EXPECT_NE(fcntl(nFirst, F_GETFD), -1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    // The first line's settings are forgotten as well: it stays raw.
    EXPECT_NE(settings().c_lflag, cooked.c_lflag);
    EXPECT_NE(fcntl(nFirst, F_GETFD), -1);
    ::close(nFirst);
}

TEST_F(Serial, AFailedOpenForgetsTheOldDescriptorToo)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    int nFirst = g_AuxFd;
    EXPECT_EQ(COMM_Com_OpenLinux("/nowhere/tty", 9600), -3);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_NE(fcntl(nFirst, F_GETFD), -1);
    ::close(nFirst);
}

// ---- close --------------------------------------------------------------------------------------------------------

TEST_F(Serial, AClosedPortIsForgotten)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    int nFd = g_AuxFd;
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(fcntl(nFd, F_GETFD), -1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
}

TEST_F(Serial, AnInterruptedCloseIsNotRepeated)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_nCloses = 0;
    s_nInterruptedClose = g_AuxFd;
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    s_nInterruptedClose = -1;
    EXPECT_EQ(s_nCloses, 1);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(Serial, ACloseWithoutAnOpenTouchesNothing)
{
    termios cooked = cook();
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_TRUE(logged({"[g_AuxFd = -2 ] Start  "}));
    EXPECT_FALSE(logged({"[1 g_AuxFd = -2 ] Start  "}));
    EXPECT_EQ(settings().c_lflag, cooked.c_lflag);
    EXPECT_THAT(s_flushes, ElementsAre());
}

} // namespace
