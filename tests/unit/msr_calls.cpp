// The system calls that the library makes to its tty, as the tests of the stripe side see and bend them.

#include "msr_reader.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

using qvtest::StripeCalls;

namespace {

std::atomic<int> s_nTty{-1}; // the library's, -1: none is open; the peer has a thread of its own

bool isTtyName(const char *pszPath)
{
    for (const char *psz : {"/dev/ttyS", "/dev/COM", "/dev/stripe"})
        if (strncasecmp(pszPath, psz, std::strlen(psz)) == 0)
            return true;
    return false;
}

} // namespace

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list more;
    va_start(more, nFlags);
    const unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    bool bTty = isTtyName(pszPath);
    if (bTty) {
        StripeCalls::s_opened.emplace_back(pszPath);
        if (StripeCalls::s_bUnplugged || StripeCalls::s_pPeer == nullptr) {
            errno = ENOENT;
            return -1;
        }
        pszPath = StripeCalls::s_pPeer->path().c_str();
    }
    bTty = bTty || (StripeCalls::s_pPeer != nullptr && StripeCalls::s_pPeer->path() == pszPath);
    const int nFd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
    if (bTty)
        s_nTty = nFd;
    return nFd;
}

// An open or a close flushes the line, and what the reader has not taken by then is lost: each write waits for it.
extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != s_nTty || StripeCalls::s_pPeer == nullptr)
        return syscall(SYS_write, nFd, pData, nLen);
    const size_t nAt = StripeCalls::s_sent.size();
    StripeCalls::s_sent.push_back(qvtest::hex(pData, nLen));
    if (nAt < StripeCalls::s_errors.size() && StripeCalls::s_errors[nAt] != 0) {
        errno = StripeCalls::s_errors[nAt];
        return -1;
    }
    const ssize_t n = syscall(SYS_write, nFd, pData, nLen);
    if (n > 0)
        StripeCalls::s_nOnTheLine += static_cast<size_t>(n);
    StripeCalls::s_pPeer->waitForBytes(StripeCalls::s_nOnTheLine);
    if (StripeCalls::s_afterWrite)
        StripeCalls::s_afterWrite(nAt);
    return n;
}

// A read that has begun tells that the library waits and takes a cancel.
extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    if (nFd == s_nTty)
        ++StripeCalls::s_nReads;
    return syscall(SYS_read, nFd, pBuf, nLen);
}

extern "C" [[gnu::visibility("default")]] int close(int nFd)
{
    if (nFd == s_nTty) {
        if (StripeCalls::s_beforeClose)
            StripeCalls::s_beforeClose();
        s_nTty = -1;
    }
    return static_cast<int>(syscall(SYS_close, nFd));
}
