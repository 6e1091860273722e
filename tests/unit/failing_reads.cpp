#include "failing_reads.h"

#include "qvreader/transport.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    if (nFd == g_AuxFd && qvtest::FailingReads::s_bReadsFail) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_read, nFd, pBuf, nLen);
}
