// tty_settings.cpp - raw mode, 8 data bits, no parity, 1 stop bit, at one of ten speeds.
//
// The port is set through the System V requests TCGETA and TCSETAF, whose words have 16 bits: whatever lies above them
// stays as the tty had it. Of that, hardware flow control and a separate input speed would spoil the line, so that they
// are switched off by a second call when they were on, and back on with the old settings.

#include "tty_settings.h"

#include "log.h"
#include "qvreader/transport.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <termios.h>

struct termio g_stOldTermAttr = {};

namespace {

struct BaudRow {
    uint32_t nBaud;
    speed_t nCode;
};

constexpr std::array<BaudRow, 10> s_baudTable{{
    {300, B300},
    {1200, B1200},
    {2400, B2400},
    {4800, B4800},
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
    {230400, B230400},
}};

speed_t speedCode(uint32_t nBaud) noexcept
{
    for (const BaudRow &row : s_baudTable)
        if (row.nBaud == nBaud)
            return row.nCode;
    return B9600;
}

constexpr unsigned short nLocalCleared = ISIG | ICANON | ECHO | NOFLSH;

// Indexes into termio's control characters; VTIME and VMIN stand where termios has them on Linux.
constexpr std::size_t nQuitAt = VQUIT, nTimeAt = VTIME, nMinAt = VMIN;
constexpr unsigned char ucQuit = 0x7F;
constexpr unsigned char ucIdleTenths = 1; // a read returns after 0.1 s without input, which paces the read loop

// Waits until all output is sent and drops unread input; a signal does not end the wait.
int apply(int nFd, const struct termio &settings) noexcept
{
    int nRet = -1;
    do {
        nRet = ioctl(nFd, TCSETAF, &settings);
    } while (nRet < 0 && errno == EINTR);
    return nRet;
}

// Flow control and input speed, as bits of the 32-bit control word.
constexpr tcflag_t nUpperBits = CRTSCTS | CIBAUD;
tcflag_t s_nOldUpperBits = 0;

void setUpperBits(int nFd, termios &settings, tcflag_t nBits) noexcept
{
    settings.c_cflag = (settings.c_cflag & ~nUpperBits) | nBits;
    if (tcsetattr(nFd, TCSANOW, &settings) != 0)
        QV_LOG(qv::kLogCommDev, "tcsetattr failed, c_cflag = %x ", settings.c_cflag);
}

// What TCSETAF could not do or see.
void finishSettings(int nFd, uint32_t nBaud, speed_t nCode) noexcept
{
    termios settings{};
    if (tcgetattr(nFd, &settings) != 0)
        return;
    if ((settings.c_cflag & CBAUD) != nCode)
        QV_LOG(qv::kLogCommDev, "the driver does not set %u baud", nBaud);
    s_nOldUpperBits = settings.c_cflag & nUpperBits;
    if (s_nOldUpperBits != 0)
        setUpperBits(nFd, settings, 0);
}

} // namespace

int32_t SetTerm(int32_t fd, uint32_t baud) noexcept
{
    if (fd == -2)
        return RET_PUB_INVAL_PARAM;
    s_nOldUpperBits = 0;
    if (ioctl(fd, TCGETA, &g_stOldTermAttr) < 0)
        return RET_PUB_FAIL;

    const speed_t nCode = speedCode(baud);
    struct termio settings = g_stOldTermAttr;
    settings.c_iflag = 0;
    settings.c_oflag = 0;
    settings.c_cflag = static_cast<unsigned short>(nCode | CS8 | CREAD | CLOCAL);
    settings.c_lflag = static_cast<unsigned short>(settings.c_lflag & ~nLocalCleared);
    settings.c_cc[nQuitAt] = ucQuit;
    settings.c_cc[nTimeAt] = ucIdleTenths;
    settings.c_cc[nMinAt] = 0;
    if (apply(fd, settings) < 0)
        return RET_PUB_FAIL;
    finishSettings(fd, baud, nCode);
    return 0;
}

namespace qv {

int restoreTty(int nFd) noexcept
{
    if (apply(nFd, g_stOldTermAttr) < 0)
        return RET_PUB_FAIL;
    termios settings{};
    if (s_nOldUpperBits != 0 && tcgetattr(nFd, &settings) == 0)
        setUpperBits(nFd, settings, s_nOldUpperBits);
    return 0;
}

} // namespace qv
