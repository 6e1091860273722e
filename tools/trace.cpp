#include "trace.h"

#include <qvreader/transport.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

namespace {

qvtool::Trace *s_pTrace = nullptr; // set and used by the thread that calls the library

} // namespace

extern "C" {

// ssize_t(int, void *, size_t), for every read of this process.
__attribute__((visibility("default"))) ssize_t read(int nFd, void *pBuf, size_t nCount)
{
    ssize_t nResult = syscall(SYS_read, nFd, pBuf, nCount);
    if (s_pTrace == nullptr || nFd != g_AuxFd || nFd < 0)
        return nResult;
    int nError = errno;
    if (nResult > 0)
        s_pTrace->received({static_cast<const uint8_t *>(pBuf), static_cast<size_t>(nResult)});
    else if (nResult < 0)
        s_pTrace->failed("read", nError);
    errno = nError;
    return nResult;
}

// The same for every write.
__attribute__((visibility("default"))) ssize_t write(int nFd, const void *pBuf, size_t nCount)
{
    ssize_t nResult = syscall(SYS_write, nFd, pBuf, nCount);
    if (s_pTrace == nullptr || nFd != g_AuxFd || nFd < 0)
        return nResult;
    int nError = errno;
    if (nResult > 0)
        s_pTrace->sent({static_cast<const uint8_t *>(pBuf), static_cast<size_t>(nResult)});
    else if (nResult < 0)
        s_pTrace->failed("write", nError);
    errno = nError;
    return nResult;
}
}

namespace qvtool {

namespace {

struct SpeedRow {
    speed_t nCode;
    unsigned nBits;
};

constexpr std::array<SpeedRow, 10> speedTable{{{B300, 300},
                                               {B1200, 1200},
                                               {B2400, 2400},
                                               {B4800, 4800},
                                               {B9600, 9600},
                                               {B19200, 19200},
                                               {B38400, 38400},
                                               {B57600, 57600},
                                               {B115200, 115200},
                                               {B230400, 230400}}};

unsigned speedOf(int nFd)
{
    termios settings{};
    if (tcgetattr(nFd, &settings) != 0)
        return 0;
    for (const SpeedRow &row : speedTable)
        if (row.nCode == cfgetospeed(&settings))
            return row.nBits;
    return 0;
}

std::string timeText()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> szText{};
    std::snprintf(szText.data(), szText.size(), "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
                  now.tv_nsec / 1'000'000);
    return szText.data();
}

} // namespace

Trace::Trace(Console &console) : m_console(console)
{
    s_pTrace = this;
}

Trace::~Trace()
{
    flush();
    s_pTrace = nullptr;
}

void Trace::sent(BytesView data)
{
    flush();
    tellSpeed();
    tell('>', data, commandMeaning(data));
}

void Trace::received(BytesView data)
{
    for (const ReplyCutter::Reply &reply : m_replies.feed(data))
        tell('<', reply.data, reply.sMeaning);
}

void Trace::failed(const char *pszCall, int nError)
{
    flush();
    m_console.line(timeText() + " ! " + pszCall + ": " + std::strerror(nError));
}

void Trace::flush()
{
    ReplyCutter::Reply reply = m_replies.flush();
    if (!reply.data.empty())
        tell('<', reply.data, reply.sMeaning);
}

void Trace::tell(char cDirection, BytesView data, const std::string &sMeaning)
{
    m_console.line(timeText() + " " + cDirection + " " + spacedHex(data) + "  [" + sMeaning + "]");
}

void Trace::tellSpeed()
{
    unsigned nSpeed = speedOf(g_AuxFd);
    if (nSpeed != m_nSpeed)
        m_console.line(timeText() + "   line at " + std::to_string(nSpeed) + " bit/s");
    m_nSpeed = nSpeed;
}

} // namespace qvtool
