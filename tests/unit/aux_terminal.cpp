#include "aux_terminal.h"

#include "qvreader/support.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::vector<std::string> s_calls;
std::vector<int> s_writeRows;
size_t s_nWriteRow = 0;
unsigned long s_nRefused = 0;
const char *s_pszTerminalName = nullptr;

// gtest writes to the stream `stdout`; from before main() on that is a copy of the program's standard output.
int moveReports()
{
    const int nCopy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    std::FILE *pStream = nCopy < 0 ? nullptr : fdopen(nCopy, "w");
    if (pStream == nullptr) {
        std::perror("standard output");
        _exit(1);
    }
    stdout = pStream;
    return nCopy;
}
const int s_nReports = moveReports();

} // namespace

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != g_AuxFd)
        return syscall(SYS_write, nFd, pData, nLen);
    if (s_nWriteRow < s_writeRows.size()) {
        const int nRow = s_writeRows[s_nWriteRow++];
        if (nRow < 0) {
            s_calls.push_back("failed write " + qvtest::hex(pData, nLen));
            errno = -nRow;
            return -1;
        }
        nLen = std::min(nLen, static_cast<size_t>(nRow));
    }
    s_calls.push_back("write " + qvtest::hex(pData, nLen));
    return syscall(SYS_write, nFd, pData, nLen);
}

extern "C" [[gnu::visibility("default")]] int ioctl(int nFd, unsigned long nRequest, ...) noexcept
{
    va_list args;
    va_start(args, nRequest);
    void *pArg = va_arg(args, void *);
    va_end(args);
    if (nFd == g_AuxFd && (nRequest == TCGETA || nRequest == TCSETAF)) {
        s_calls.push_back(nRequest == TCGETA ? "TCGETA" : "TCSETAF");
        if (nRequest == s_nRefused) {
            errno = EIO;
            return -1;
        }
    }
    return static_cast<int>(syscall(SYS_ioctl, nFd, nRequest, pArg));
}

extern "C" [[gnu::visibility("default")]] char *ttyname(int nFd) noexcept
{
    static char szName[256];
    if (s_pszTerminalName != nullptr) {
        std::snprintf(szName, sizeof szName, "%s", s_pszTerminalName);
        return szName;
    }
    const int nError = ttyname_r(nFd, szName, sizeof szName);
    if (nError == 0)
        return szName;
    errno = nError;
    return nullptr;
}

namespace qvtest {

std::vector<std::string> calls()
{
    return s_calls;
}

std::vector<std::string> writes()
{
    constexpr std::string_view sWrite = "write ";
    std::vector<std::string> out;
    for (const std::string &sCall : s_calls)
        if (sCall.starts_with(sWrite))
            out.push_back(sCall.substr(sWrite.size()));
    return out;
}

void clearCalls()
{
    s_calls.clear();
}

void scriptWrites(std::vector<int> rows)
{
    s_writeRows = std::move(rows);
    s_nWriteRow = 0;
}

void refuse(unsigned long nRequest)
{
    s_nRefused = nRequest;
}

void nameTerminal(const char *pszName)
{
    s_pszTerminalName = pszName;
}

void setStandardOutput(const char *pszPath)
{
    const int nFd = open(pszPath, O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(nFd, 0) << pszPath;
    ASSERT_EQ(dup2(nFd, STDOUT_FILENO), STDOUT_FILENO);
    close(nFd);
}

void restoreStandardOutput()
{
    ASSERT_EQ(dup2(s_nReports, STDOUT_FILENO), STDOUT_FILENO);
}

void AuxTerminal::SetUp()
{
    m_nDescriptors = openDescriptors();
    m_peer.emplace();
    m_nSecond = ::open(m_peer->path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(m_nSecond, 0);
    setStandardOutput(m_peer->path().c_str());
    std::memset(&g_AuxOp, 0xEE, sizeof g_AuxOp);
    stBackUpParam = {};
    clearCalls();
}

void AuxTerminal::TearDown()
{
    logOff();
    scriptWrites({});
    refuse(0);
    nameTerminal(nullptr);
    COMM_Com_CloseLinux();
    restoreStandardOutput();
    ::close(m_nSecond);
    m_peer.reset();
    EXPECT_EQ(openDescriptors(), m_nDescriptors);
}

void AuxTerminal::open(uint32_t nTermType, uint32_t bAuxPrefix)
{
    ASSERT_EQ(COMM_Com_OpenLinuxAux(nTermType, 1, 9600, bAuxPrefix), 0);
    ASSERT_GE(g_AuxFd, 0);
    clearCalls();
}

termios AuxTerminal::settings() const
{
    termios now{};
    EXPECT_EQ(tcgetattr(m_nSecond, &now), 0);
    return now;
}

termios AuxTerminal::cook()
{
    termios cooked = settings();
    cooked.c_iflag = ICRNL | IXON;
    cooked.c_oflag = OPOST | ONLCR;
    cooked.c_cflag = B38400 | CS8 | CREAD;
    cooked.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
    cooked.c_cc[VMIN] = 1;
    cooked.c_cc[VTIME] = 0;
    EXPECT_EQ(tcsetattr(m_nSecond, TCSANOW, &cooked), 0);
    return settings();
}

testing::AssertionResult AuxTerminal::restored(const termios &before) const
{
    const termios now = settings();
    if (now.c_iflag == before.c_iflag && now.c_oflag == before.c_oflag && now.c_cflag == before.c_cflag &&
        now.c_lflag == before.c_lflag && std::memcmp(now.c_cc, before.c_cc, 8) == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << std::hex << "local modes " << now.c_lflag << ", not " << before.c_lflag
                                       << "; control modes " << now.c_cflag << ", not " << before.c_cflag;
}

} // namespace qvtest
