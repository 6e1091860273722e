#include "failing_writes.h"

#include "qvreader/transport.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd == g_AuxFd && qvtest::FailingWrites::s_bWritesFail) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_write, nFd, pData, nLen);
}
