#include "pty_pair.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace qvtest {

int checked(int nResult, const char *pszWhat)
{
    if (nResult < 0)
        throw std::system_error(errno, std::generic_category(), pszWhat);
    return nResult;
}

PtyPair::PtyPair(tcflag_t nMoreControl)
{
    m_nMaster = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    checked(grantpt(m_nMaster), "grantpt");
    checked(unlockpt(m_nMaster), "unlockpt");
    m_sPath = ptsname(m_nMaster);
    m_nSlave = checked(open(m_sPath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open pty");
    termios raw{};
    checked(tcgetattr(m_nSlave, &raw), "tcgetattr");
    cfmakeraw(&raw);
    raw.c_cflag |= nMoreControl;
    checked(tcsetattr(m_nSlave, TCSANOW, &raw), "tcsetattr");
}

PtyPair::~PtyPair()
{
    close(m_nSlave);
    hangUp();
}

void PtyPair::hangUp()
{
    if (m_nMaster >= 0)
        close(m_nMaster);
    m_nMaster = -1;
}

} // namespace qvtest
