// The system calls that the library makes on its port, as the tests of the serial port see and bend them.

#include "transport_serial.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

using qvtest::PortCalls;
using qvtest::rawLog;
using qvtest::seconds;

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    int nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, int) : 0;
    va_end(args);
    int nFd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
    if (std::string_view(pszPath).ends_with("/QVConfig.ini"))
        ++PortCalls::s_nLooks;
    if (PortCalls::s_pszPeer != nullptr && std::strcmp(pszPath, PortCalls::s_pszPeer) == 0) {
        PortCalls::s_nOpenFlags = nFlags;
        PortCalls::s_nOpenedAt = seconds();
        PortCalls::s_nFlushedAt = 0;
    }
    return nFd;
}

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd == g_AuxFd && PortCalls::s_bLookAtLog)
        PortCalls::s_sLogAtWrite = rawLog();
    if (nFd == g_AuxFd && PortCalls::s_nWrites < PortCalls::s_writes.size()) {
        int nRow = PortCalls::s_writes[PortCalls::s_nWrites++];
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
    if (nFd != PortCalls::s_nInterruptedClose)
        return nResult;
    ++PortCalls::s_nCloses;
    errno = EINTR;
    return -1;
}

extern "C" [[gnu::visibility("default")]] int tcflush(int nFd, int nSelector) noexcept
{
    if (nFd == g_AuxFd) {
        PortCalls::s_flushes.push_back(nSelector);
        PortCalls::s_requests.push_back("flush " + std::to_string(nSelector));
        if (PortCalls::s_nFlushedAt == 0)
            PortCalls::s_nFlushedAt = seconds();
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
        PortCalls::s_requests.push_back(nRequest == TCGETA ? "TCGETA" : "TCSETAF");
    if (nRequest == PortCalls::s_nRefused && nFd == g_AuxFd) {
        errno = EIO;
        return -1;
    }
    struct termio stubborn {};
    if (PortCalls::s_nStubbornSpeed != 0 && nRequest == TCSETAF && nFd == g_AuxFd) {
        stubborn = *static_cast<const struct termio *>(pArg);
        stubborn.c_cflag = static_cast<unsigned short>((stubborn.c_cflag & ~CBAUD) | PortCalls::s_nStubbornSpeed);
        pArg = &stubborn;
    }
    return static_cast<int>(syscall(SYS_ioctl, nFd, nRequest, pArg));
}

namespace qvtest {

double seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void Serial::SetUp()
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

void Serial::TearDown()
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

termios Serial::settings() const
{
    termios now{};
    EXPECT_EQ(tcgetattr(m_nSecond, &now), 0);
    return now;
}

termios Serial::cook(tcflag_t nMoreControl)
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

size_t Serial::unread() const
{
    int n = 0;
    EXPECT_EQ(ioctl(m_nSecond, FIONREAD, &n), 0);
    return static_cast<size_t>(n);
}

} // namespace qvtest
