// The serial port: opening and its settings, writing, closing, the single-shot functions.

#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <grp.h>
#include <optional>
#include <regex>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

const int32_t s_nFdAtLoad = g_AuxFd;

// What write(2) does with the library's port while a row is left: a count (at most so many bytes are taken) or minus
// an errno.
std::vector<int> s_writes;
size_t s_nWrites = 0;

// The request that the library's port refuses, 0: none.
unsigned long s_nRefused = 0;

// What was flushed, as far as it was the library's port.
std::vector<int> s_flushes;

// What was asked of the library's port: its flushes and its settings, in order.
std::vector<std::string> s_requests;

// How and when the peer's tty was last opened, and when the first flush came after that.
const char *s_pszPeer = nullptr;
int s_nOpenFlags = 0;
double s_nOpenedAt = 0;
double s_nFlushedAt = 0;

// The log as it stood when the library's port was last written to.
bool s_bLookAtLog = false;
std::string s_sLogAtWrite;

double seconds();

// How often the switch of the log was looked up.
size_t s_nLooks = 0;

// The descriptor whose close a signal interrupts, -1: none; and how often it was closed.
int s_nInterruptedClose = -1;
int s_nCloses = 0;

// The speed that the library's port takes whatever it is told, 0: it obeys.
unsigned short s_nStubbornSpeed = 0;

} // namespace

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    int nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, int) : 0;
    va_end(args);
    int nFd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
    if (std::string_view(pszPath).ends_with("/QVConfig.ini"))
        ++s_nLooks;
    if (s_pszPeer != nullptr && std::strcmp(pszPath, s_pszPeer) == 0) {
        s_nOpenFlags = nFlags;
        s_nOpenedAt = seconds();
        s_nFlushedAt = 0;
    }
    return nFd;
}

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd == g_AuxFd && s_bLookAtLog)
        s_sLogAtWrite = rawLog();
    if (nFd == g_AuxFd && s_nWrites < s_writes.size()) {
        int nRow = s_writes[s_nWrites++];
        if (nRow < 0) {
            errno = -nRow;
            return -1;
        }
        if (nRow == 0)
            return 0;
        nLen = std::min(nLen, static_cast<size_t>(nRow));
    }
    return syscall(SYS_write, nFd, pData, nLen);
}

extern "C" [[gnu::visibility("default")]] int close(int nFd)
{
    int nResult = static_cast<int>(syscall(SYS_close, nFd));
    if (nFd != s_nInterruptedClose)
        return nResult;
    ++s_nCloses;
    errno = EINTR;
    return -1;
}

extern "C" [[gnu::visibility("default")]] int tcflush(int nFd, int nSelector) noexcept
{
    if (nFd == g_AuxFd) {
        s_flushes.push_back(nSelector);
        s_requests.push_back("flush " + std::to_string(nSelector));
        if (s_nFlushedAt == 0)
            s_nFlushedAt = seconds();
    }
    return static_cast<int>(syscall(SYS_ioctl, nFd, TCFLSH, nSelector));
}

extern "C" [[gnu::visibility("default")]] int ioctl(int nFd, unsigned long nRequest, ...) noexcept
{
    va_list args;
    va_start(args, nRequest);
    void *pArg = va_arg(args, void *);
    va_end(args);
    if (nFd == g_AuxFd && (nRequest == TCGETA || nRequest == TCSETAF))
        s_requests.push_back(nRequest == TCGETA ? "TCGETA" : "TCSETAF");
    if (nRequest == s_nRefused && nFd == g_AuxFd) {
        errno = EIO;
        return -1;
    }
    struct termio stubborn {};
    if (s_nStubbornSpeed != 0 && nRequest == TCSETAF && nFd == g_AuxFd) {
        stubborn = *static_cast<const struct termio *>(pArg);
        stubborn.c_cflag = static_cast<unsigned short>((stubborn.c_cflag & ~CBAUD) | s_nStubbornSpeed);
        pArg = &stubborn;
    }
    return static_cast<int>(syscall(SYS_ioctl, nFd, nRequest, pArg));
}

namespace {

class Serial : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        s_writes.clear();
        s_nWrites = 0;
        s_flushes.clear();
        s_requests.clear();
        s_pszPeer = path();
        m_nSecond = ::open(m_peer->path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(m_nSecond, 0);
    }
    void TearDown() override
    {
        logOff();
        s_nRefused = 0;
        s_writes.clear();
        s_bLookAtLog = false;
        s_nInterruptedClose = -1;
        s_nStubbornSpeed = 0;
        COMM_Com_CloseLinux();
        ::close(m_nSecond);
        s_pszPeer = nullptr;
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    termios settings() const
    {
        termios now{};
        EXPECT_EQ(tcgetattr(m_nSecond, &now), 0);
        return now;
    }
    // A line as a login shell leaves it.
    termios cook(tcflag_t nMoreControl = 0)
    {
        termios cooked = settings();
        cooked.c_iflag = ICRNL | IXON | ISTRIP | IXANY;
        cooked.c_oflag = OPOST | ONLCR;
        cooked.c_cflag = B1200 | CS8 | CREAD | HUPCL | CSTOPB | nMoreControl;
        cooked.c_lflag = ISIG | ICANON | ECHO | ECHOE | ECHOK | NOFLSH | TOSTOP | IEXTEN | ECHOCTL;
        cooked.c_cc[VMIN] = 1;
        cooked.c_cc[VTIME] = 0;
        cooked.c_cc[VQUIT] = 0x1C;
        cooked.c_cc[VINTR] = 0x03;
        EXPECT_EQ(tcsetattr(m_nSecond, TCSANOW, &cooked), 0);
        return settings();
    }
    size_t unread() const
    {
        int n = 0;
        EXPECT_EQ(ioctl(m_nSecond, FIONREAD, &n), 0);
        return static_cast<size_t>(n);
    }
    // Waits until nCount bytes stand unread on the library's side of the line.
    void waitUnread(size_t nCount) const
    {
        for (int i = 0; i < 5000 && unread() < nCount; ++i)
            usleep(1000);
        ASSERT_EQ(unread(), nCount);
    }

    int m_nDescriptors = 0;
    int m_nSecond = -1;
    std::optional<PtyPeer> m_peer;
};

// The log since logOn() with every time stamp written as "T".
std::string logWithoutTime()
{
    static const std::regex time(R"(\d\d-\d\d \d\d:\d\d:\d\d\(\d{3}\))");
    return std::regex_replace(rawLog(), time, "T");
}

// A line of this layer as the file shows it.
std::string line(const std::string &sText)
{
    return "  T  INFO:    CommDev:  " + sText + "\r\n";
}

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

// ---- settings -----------------------------------------------------------------------------------------------------

struct BaudRow {
    uint32_t nBaud;
    speed_t nSpeed;
};

TEST_F(Serial, EachRateOfTheTableIsSetAndEveryOtherIs9600)
{
    const BaudRow rows[] = {{300, B300},        {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},
                            {19200, B19200},    {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400},
                            {460800, B9600},    {600, B9600},    {1800, B9600},   {0, B9600},        {50, B9600},
                            {110, B9600},       {9601, B9600},   {500000, B9600}, {921600, B9600},   {115201, B9600},
                            {UINT32_MAX, B9600}};
    for (const BaudRow &row : rows) {
        SCOPED_TRACE(row.nBaud);
        cook();
        ASSERT_EQ(COMM_Com_OpenLinux(path(), row.nBaud), 0);
        termios now = settings();
        EXPECT_EQ(cfgetospeed(&now), row.nSpeed);
        EXPECT_EQ(cfgetispeed(&now), row.nSpeed);
        EXPECT_EQ(now.c_cflag & 0xFFFF, row.nSpeed | CS8 | CREAD | CLOCAL);
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
        now = settings();
        EXPECT_EQ(cfgetospeed(&now), static_cast<speed_t>(B1200));
    }
}

TEST_F(Serial, ADriverThatKeepsItsOldSpeedIsLoggedAndTheOpenSucceeds)
{
    s_nStubbornSpeed = B1200;
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux(path(), 1200), 0);
    const size_t nObedient = logTexts().size();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux(path(), 115200), 0);
    EXPECT_EQ(logTexts().size(), nObedient + 1);
    EXPECT_NE(rawLog().find("115200 baud\r\n"), std::string::npos);
    EXPECT_TRUE(logged({"set linux com success!"}));
}

TEST_F(Serial, ThePortIsRawAndKeepsTheRestOfTheLocalModes)
{
    termios cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 57600), 0);
    termios now = settings();
    EXPECT_EQ(now.c_iflag & 0xFFFF, 0U);
    EXPECT_EQ(now.c_oflag & 0xFFFF, 0U);
    EXPECT_EQ(now.c_cflag & 0xFFFF, static_cast<tcflag_t>(B57600 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(now.c_lflag & 0xFFFF, static_cast<tcflag_t>(ECHOE | ECHOK | TOSTOP | IEXTEN | ECHOCTL));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 1);
    EXPECT_EQ(now.c_cc[VQUIT], 0x7F);
    EXPECT_EQ(now.c_cc[VINTR], cooked.c_cc[VINTR]);
    EXPECT_EQ(now.c_cc[VERASE], cooked.c_cc[VERASE]);
    EXPECT_EQ(now.c_cc[VKILL], cooked.c_cc[VKILL]);
    EXPECT_EQ(now.c_line, cooked.c_line);
}

TEST_F(Serial, TheSettingsFoundAreKeptAndWrittenBackAtClose)
{
    termios cooked = cook();
    struct termio found {};
    ASSERT_EQ(ioctl(m_nSecond, TCGETA, &found), 0);
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 38400), 0);
    EXPECT_EQ(g_stOldTermAttr.c_iflag, found.c_iflag);
    EXPECT_EQ(g_stOldTermAttr.c_oflag, found.c_oflag);
    EXPECT_EQ(g_stOldTermAttr.c_cflag, found.c_cflag);
    EXPECT_EQ(g_stOldTermAttr.c_lflag, found.c_lflag);
    EXPECT_EQ(g_stOldTermAttr.c_line, found.c_line);
    EXPECT_EQ(hex(g_stOldTermAttr.c_cc, NCC), hex(found.c_cc, NCC));

    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    termios now = settings();
    EXPECT_EQ(now.c_iflag, cooked.c_iflag);
    EXPECT_EQ(now.c_oflag, cooked.c_oflag);
    EXPECT_EQ(now.c_cflag, cooked.c_cflag);
    EXPECT_EQ(now.c_lflag, cooked.c_lflag);
    EXPECT_EQ(hex(now.c_cc, NCCS), hex(cooked.c_cc, NCCS));
}

TEST_F(Serial, HardwareFlowControlIsSwitchedOffAndComesBackAtClose)
{
    termios cooked = cook(CRTSCTS);
    ASSERT_NE(cooked.c_cflag & CRTSCTS, 0U);
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 115200), 0);
    termios now = settings();
    EXPECT_EQ(now.c_cflag & CRTSCTS, 0U);
    EXPECT_EQ(now.c_cflag & 0xFFFF, static_cast<tcflag_t>(B115200 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag, cooked.c_cflag);

    // A line that had none does not get it from the line before.
    cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag & CRTSCTS, 0U);
}

TEST_F(Serial, ASeparateInputSpeedIsSwitchedOff)
{
    constexpr unsigned nInputShift = 16;
    termios cooked = cook(static_cast<tcflag_t>(B300) << nInputShift);
    if (((cooked.c_cflag & CIBAUD) >> nInputShift) != B300)
        FAIL() << "this kernel's pseudo-terminal has no separate input speed";
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 19200), 0);
    tcflag_t nInput = (settings().c_cflag & CIBAUD) >> nInputShift;
    EXPECT_TRUE(nInput == 0 || nInput == B19200) << nInput;
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag & CIBAUD, cooked.c_cflag & CIBAUD);
}

TEST_F(Serial, AllByteValuesPassInBothDirections)
{
    cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    Bytes all(256);
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<uint8_t>(255 - i);
    EXPECT_EQ(COMM_Com_WriteLinux(all.data(), 256), 256);
    ASSERT_TRUE(m_peer->waitForBytes(256));
    EXPECT_EQ(hex(m_peer->received()), hex(all));
    m_peer->send(hex(all));
    Bytes in(256);
    EXPECT_EQ(COMM_Com_ReadLinux(in.data(), 256, 10, nullptr), 256);
    EXPECT_EQ(hex(in), hex(all));
}

TEST_F(Serial, SetTermWorksOnAnyDescriptorAndKeepsItsSettings)
{
    cook();
    EXPECT_EQ(SetTerm(m_nSecond, 2400), 0);
    EXPECT_EQ(settings().c_cflag & 0xFFFF, static_cast<tcflag_t>(B2400 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(g_stOldTermAttr.c_cflag & CBAUD, static_cast<tcflag_t>(B1200));
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(Serial, SetTermDiscardsInput)
{
    cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    EXPECT_EQ(SetTerm(g_AuxFd, 9600), 0);
    EXPECT_EQ(unread(), 0U);
}

TEST_F(Serial, SetTermRefusesWhatIsNoTty)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    EXPECT_EQ(SetTerm(nPipe[0], 9600), -1);
    EXPECT_EQ(SetTerm(-1, 9600), -1);
    EXPECT_EQ(SetTerm(-2, 9600), -2);
    ::close(nPipe[0]);
    ::close(nPipe[1]);
    EXPECT_EQ(SetTerm(nPipe[0], 9600), -1);
}

TEST_F(Serial, ResetAuxWritesTheKeptSettingsBackAndDiscardsInput)
{
    termios cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    EXPECT_EQ(ResetAux(), 0);
    EXPECT_EQ(settings().c_lflag, cooked.c_lflag);
    EXPECT_EQ(settings().c_cflag, cooked.c_cflag);
    EXPECT_EQ(unread(), 0U);
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(Serial, ResetAuxOfWhatIsNoTtyGivesMinusOne)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    g_AuxFd = nPipe[0];
    EXPECT_EQ(ResetAux(), -1);
    EXPECT_EQ(ClearReceiveBuffer(), -1);
    // A close ends all the same.
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(fcntl(nPipe[0], F_GETFD), -1);
    ::close(nPipe[1]);
}

TEST_F(Serial, UnreadInputIsDiscardedOnRequest)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    s_flushes.clear();
    EXPECT_EQ(ClearReceiveBuffer(), 0);
    EXPECT_EQ(unread(), 0U);
    EXPECT_THAT(s_flushes, ElementsAre(TCIFLUSH));
}

// ---- write --------------------------------------------------------------------------------------------------------

TEST_F(Serial, AWriteReturnsItsLengthAndRefusesNullAndNothing)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const uint8_t out[] = {0x00, 0x31, 0xFF};
    EXPECT_EQ(COMM_Com_WriteLinux(out, 3), 3);
    EXPECT_EQ(COMM_Com_WriteLinux(nullptr, 3), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, 0), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, -1), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, INT32_MIN), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out + 1, 1), 1);
    EXPECT_EQ(QV_SendDataToTransPort(nullptr, 1), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out, 0), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out, -5), -2);
    EXPECT_EQ(m_peer->wire(), "00 31 FF 31");
}

TEST_F(Serial, ShortWritesAreRepeatedUntilAllIsOut)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {1, 2, 1};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcdefg").data(), 7), 7);
    EXPECT_EQ(s_nWrites, 3U);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abcdefg")));
}

TEST_F(Serial, AFailingWriteReturnsTheCountSoFar)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {2, 1, -EIO};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcdefg").data(), 7), 3);
    s_writes = {-EIO};
    s_nWrites = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("xyz").data(), 3), 0);
    s_writes = {-EAGAIN};
    s_nWrites = 0;
    EXPECT_EQ(QV_SendDataToTransPort("xyz", 3), 0);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abc")));
}

TEST_F(Serial, AWriteOfNothingEndsLikeAFailure)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {2, 0};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcd").data(), 4), 2);
    EXPECT_EQ(s_nWrites, 2U);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("ab")));
}

TEST_F(Serial, AnInterruptedWriteIsRepeated)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {-EINTR, 1, -EINTR};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abc").data(), 3), 3);
    // Also while every call is logged, which leaves its own errno behind.
    logOn();
    s_nWrites = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("def").data(), 3), 3);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abcdef")));
}

TEST_F(Serial, AWriteToADeadDescriptorReturnsZero)
{
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abc").data(), 3), 0);
    g_AuxFd = -2;
}

TEST_F(Serial, AWriteIsLoggedByteByByte)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    std::string sFd = std::to_string(g_AuxFd);
    logOn();
    // The text has no terminator: exactly its three bytes are printed.
    const Bytes out = textBytes("\x31\x0F\x7A");
    EXPECT_EQ(COMM_Com_WriteLinux(out.data(), 3), 3);
    EXPECT_TRUE(
        logged({" g_AuxFd = " + sFd + " ", " pInData = \x31\x0F\x7A ", " nLen = 3 ", "COMM_Com_WriteLinux nLen = 3 ",
                "31", "0f", "7a", "WriteBlock  fd = " + sFd + " ", "WriteBlock  End "}));
}

TEST_F(Serial, TheLogOfAWriteNamesEachBlockAndIsTyped)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const std::string sFd = std::to_string(g_AuxFd);
    const std::string sHead = line("[COMM_Com_WriteLinux] Start ") + line(" g_AuxFd = " + sFd + " ") +
                              line(" pInData = z\xFA ") + line(" nLen = 2 ") + line("COMM_Com_WriteLinux nLen = 2 ") +
                              line("7a") + line("fa");
    const std::string sBlock = line("WriteBlock  fd = " + sFd + " ");
    const std::string sBlockEnd = line("WriteBlock  End ");
    logOn();
    s_writes = {1};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("z\xFA").data(), 2), 2);
    EXPECT_EQ(logWithoutTime(), sHead + sBlock + sBlockEnd + sBlock + sBlockEnd);
    EXPECT_EQ(m_peer->wire(), "7A FA");
}

TEST_F(Serial, ARefusedWriteIsLoggedUpToItsLength)
{
    logOn();
    EXPECT_EQ(COMM_Com_WriteLinux(nullptr, -7), -2);
    EXPECT_TRUE(logWithoutTime().starts_with(line("[COMM_Com_WriteLinux] Start ") + line(" g_AuxFd = -2 ") +
                                             line(" pInData =  ") + line(" nLen = -7 ")))
        << logWithoutTime();
    EXPECT_EQ(rawLog().find("COMM_Com_WriteLinux nLen"), std::string::npos);
    EXPECT_EQ(rawLog().find("WriteBlock"), std::string::npos);
}

TEST_F(Serial, TheLinesOfABlockStandBeforeAndBehindItsOneWrite)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    s_bLookAtLog = true;
    EXPECT_EQ(WriteBlock(g_AuxFd, textBytes("x").data(), 1), 1);
    EXPECT_NE(s_sLogAtWrite.find("WriteBlock  fd = "), std::string::npos);
    EXPECT_EQ(s_sLogAtWrite.find("WriteBlock  End "), std::string::npos);
    EXPECT_NE(rawLog().find("WriteBlock  End "), std::string::npos);
    EXPECT_EQ(m_peer->wire(), "78");
}

TEST_F(Serial, EachLineOfAWriteLooksAtTheSwitchAnew)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    s_nLooks = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(Bytes(40, 0x61).data(), 40), 40);
    EXPECT_GE(s_nLooks, logTexts().size());
    EXPECT_GE(logTexts().size(), 40U);
}

TEST_F(Serial, ALogOfAWriteStopsAtTheFirstZeroByte)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    const uint8_t out[] = {0x41, 0x00, 0x42};
    EXPECT_EQ(COMM_Com_WriteLinux(out, 3), 3);
    EXPECT_TRUE(logged({" pInData = A ", " nLen = 3 ", "41", "00", "42"}));
}

TEST_F(Serial, BlockCallsAreOneCallEach)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    const uint8_t out[] = {1, 2, 3};
    uint8_t in[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    logOn();
    EXPECT_EQ(WriteBlock(nPipe[1], out, 3), 3);
    EXPECT_TRUE(logged({"WriteBlock  fd = " + std::to_string(nPipe[1]) + " ", "WriteBlock  End "}));
    logOff();
    EXPECT_EQ(ReadBlock(nPipe[0], in, 2), 2);
    EXPECT_EQ(hex(in), "01 02 C5 C5");
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), 1);
    EXPECT_EQ(hex(in), "03 02 C5 C5");
    ::close(nPipe[1]);
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), 0);
    ::close(nPipe[0]);
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), -1);
    EXPECT_EQ(WriteBlock(nPipe[1], out, 3), -1);
    EXPECT_EQ(ReadBlock(-2, in, 4), -1);

    // One call only, also when it is cut short.
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {1, -EINTR};
    EXPECT_EQ(WriteBlock(g_AuxFd, out, 3), 1);
    EXPECT_EQ(WriteBlock(g_AuxFd, out, 3), -1);
    EXPECT_EQ(m_peer->wire(), "01");
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

// ---- single-shot functions ----------------------------------------------------------------------------------------

class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe2(m_n, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe()
    {
        ::close(m_n[0]);
        ::close(m_n[1]);
    }
    int out() const { return m_n[0]; }
    int in() const { return m_n[1]; }
    void fill() const
    {
        const Bytes page(4096, 0xAA);
        while (::write(m_n[1], page.data(), page.size()) > 0) {
        }
    }

  private:
    int m_n[2] = {-1, -1};
};

double seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST_F(Serial, AReadyDescriptorIsReadOnce)
{
    Pipe pipe;
    ASSERT_EQ(::write(pipe.in(), "abcd", 4), 4);
    uint8_t in[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    logOn();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 3), 3);
    EXPECT_TRUE(logged({"ReadUnblock\n"}));
    EXPECT_EQ(hex(in), "61 62 63 C5");
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 3), 1);
    EXPECT_EQ(hex(in), "64 62 63 C5");
}

TEST_F(Serial, ADescriptorThatStaysSilentIsReadAfterOneSecondAsZero)
{
    Pipe pipe;
    uint8_t in[2] = {0xC5, 0xC5};
    double nStart = seconds();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 0);
    EXPECT_GE(seconds() - nStart, 0.95);
    EXPECT_EQ(hex(in), "C5 C5");
}

TEST_F(Serial, AFullDescriptorTakesNothingWithinOneSecond)
{
    Pipe pipe;
    pipe.fill();
    double nStart = seconds();
    logOn();
    EXPECT_EQ(WriteUnBlock(pipe.in(), textBytes("x").data(), 1), 0);
    EXPECT_GE(seconds() - nStart, 0.95);
    EXPECT_TRUE(logged({"WriteUnblock\n"}));
}

TEST_F(Serial, APortThatTakesNothingLosesItsOutput)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    // A stopped line takes nothing.
    ASSERT_EQ(tcflow(m_nSecond, TCOOFF), 0);
    s_flushes.clear();
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("x").data(), 1), 0);
    EXPECT_THAT(s_flushes, ElementsAre(TCOFLUSH));
    ASSERT_EQ(tcflow(m_nSecond, TCOON), 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Serial, SingleShotsLogOneTypedLineWithItsOwnLineFeed)
{
    Pipe pipe;
    uint8_t in[2];
    logOn();
    EXPECT_EQ(WriteUnBlock(pipe.in(), textBytes("x").data(), 1), 1);
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 1);
    EXPECT_EQ(logWithoutTime(), line("WriteUnblock\n") + line("ReadUnblock\n"));
}

TEST_F(Serial, AReadyDescriptorIsWrittenOnce)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_flushes.clear();
    s_writes = {2};
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("xyz").data(), 3), 2);
    EXPECT_THAT(s_flushes, ElementsAre());
    EXPECT_EQ(m_peer->wire(), "78 79");
}

TEST_F(Serial, DescriptorsAbove1023AreServedAndNothingIsOverrun)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit more = limit;
    more.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
    ASSERT_GE(more.rlim_cur, 4096U) << "the test needs 4,096 descriptors";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
    for (int nHigh : {1024, 1025, 4000}) {
        SCOPED_TRACE(nHigh);
        Pipe pipe;
        ASSERT_EQ(dup3(pipe.in(), nHigh, O_CLOEXEC), nHigh);
        EXPECT_EQ(WriteUnBlock(nHigh, textBytes("hi").data(), 2), 2);
        ASSERT_EQ(dup3(pipe.out(), nHigh, O_CLOEXEC), nHigh);
        uint8_t in[4] = {};
        EXPECT_EQ(ReadUnBlock(nHigh, in, 4), 2);
        EXPECT_EQ(hex(in), "68 69 00 00");
        ::close(nHigh);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(Serial, BadDescriptorsAreNeitherReadNorWritten)
{
    uint8_t in[2] = {0xC5, 0xC5};
    for (int nFd : {-1, -2, INT32_MIN, 99999, INT32_MAX}) {
        SCOPED_TRACE(nFd);
        EXPECT_LE(ReadUnBlock(nFd, in, 2), 0);
        EXPECT_LE(WriteUnBlock(nFd, in, 2), 0);
    }
    EXPECT_EQ(hex(in), "C5 C5");
}

TEST_F(Serial, ASignalDoesNotCutTheOneSecondShortNorStretchIt)
{
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    Pipe pipe;
    std::atomic<bool> bDone{false};
    pthread_t self = pthread_self();
    std::thread disturber([&] {
        while (!bDone) {
            pthread_kill(self, SIGUSR1);
            usleep(20000);
        }
    });
    uint8_t in[2];
    double nStart = seconds();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 0);
    double nTook = seconds() - nStart;
    bDone = true;
    disturber.join();
    EXPECT_GE(nTook, 0.95);
    EXPECT_LT(nTook, 5.0);
    sigaction(SIGUSR1, &before, nullptr);
}

// ---- text ---------------------------------------------------------------------------------------------------------

TEST(InvisibleCharacters, BlankTabLineFeedAndReturnAreRemoved)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},     {"abc", "abc"}, {" a b\tc\r\n", "abc"}, {" \t\r\n", ""}, {"a\x0B\x0C_b", "a\x0B\x0C_b"},
        {"  x", "x"}, {"x  ", "x"}};
    for (auto [pszIn, pszOut] : rows) {
        char sz[16];
        std::memset(sz, 0x7E, sizeof sz);
        std::strcpy(sz, pszIn);
        EXPECT_EQ(ClearInvisibleCharInStr(sz), sz);
        EXPECT_STREQ(sz, pszOut);
        EXPECT_EQ(sz[15], 0x7E);
    }
    EXPECT_EQ(ClearInvisibleCharInStr(nullptr), nullptr);
}

} // namespace
