#include "file_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

qvtest::FileCalls *s_pCalls = nullptr;

// How much the call may move; -1 when it is the one that fails.
ssize_t allowed(size_t nLen)
{
    if (s_pCalls == nullptr)
        return static_cast<ssize_t>(nLen);
    if (s_pCalls->nBeforeError >= 0 && s_pCalls->nBeforeError-- == 0) {
        errno = s_pCalls->nErrno;
        return -1;
    }
    return static_cast<ssize_t>(std::min(nLen, s_pCalls->nPiece));
}

} // namespace

namespace qvtest {

void useFileCalls(FileCalls *pCalls)
{
    s_pCalls = pCalls;
}

} // namespace qvtest

extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    const ssize_t n = allowed(nLen);
    return n < 0 ? n : syscall(SYS_read, nFd, pBuf, n);
}

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pBuf, size_t nLen)
{
    const ssize_t n = allowed(nLen);
    return n < 0 ? n : syscall(SYS_write, nFd, pBuf, n);
}

extern "C" [[gnu::visibility("default")]] int close(int nFd)
{
    const auto nRet = static_cast<int>(syscall(SYS_close, nFd));
    if (s_pCalls == nullptr || !s_pCalls->bCloseFails)
        return nRet;
    errno = s_pCalls->nErrno;
    return -1;
}

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    const mode_t nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (s_pCalls != nullptr && (nFlags & O_CLOEXEC) == 0)
        ++s_pCalls->nLeftToChildren;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}
