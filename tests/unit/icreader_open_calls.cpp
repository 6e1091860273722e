// The system calls that the library makes while it opens the reader, as the tests see and bend them.

#include "icreader_open.h"

#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

using qvtest::PortCalls;

// A speed change flushes the line, and what the reader has not taken by then is lost: each write waits for it.
extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != g_AuxFd || PortCalls::s_pPeer == nullptr)
        return syscall(SYS_write, nFd, pData, nLen);
    size_t nAt = PortCalls::s_sent.size();
    termios now{};
    tcgetattr(nFd, &now);
    PortCalls::s_sent.push_back({qvtest::hex(pData, nLen), cfgetospeed(&now)});
    if (nAt < PortCalls::s_errors.size() && PortCalls::s_errors[nAt] != 0) {
        errno = PortCalls::s_errors[nAt];
        return -1;
    }
    ssize_t n = syscall(SYS_write, nFd, pData, nLen);
    if (n > 0)
        PortCalls::s_nOnTheLine += static_cast<size_t>(n);
    PortCalls::s_pPeer->waitForBytes(PortCalls::s_nOnTheLine);
    if (PortCalls::s_afterWrite)
        PortCalls::s_afterWrite(nAt);
    return n;
}

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    const unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    if (PortCalls::s_pPeer != nullptr && pszPath == PortCalls::s_pPeer->path()) {
        const size_t nAt = PortCalls::s_nOpens++;
        if (nAt < PortCalls::s_openErrors.size() && PortCalls::s_openErrors[nAt] != 0) {
            errno = PortCalls::s_openErrors[nAt];
            return -1;
        }
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}

// Every log line asks for the time, so that a log shows which identity the open record held meanwhile.
extern "C" [[gnu::visibility("default")]] int gettimeofday(timeval *pNow, void *) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *pNow = {now.tv_sec, now.tv_nsec / 1000};
    qvtest::Identity identity{g_sParam.stParam.nPID, g_sParam.stParam.nVID};
    if (PortCalls::s_identities.empty() || PortCalls::s_identities.back() != identity)
        PortCalls::s_identities.push_back(identity);
    return 0;
}
