// exchange.cpp - what one APDU exchange costs over the bytes that it moves.
//
// A reader that answers at once sits on a pseudo-terminal, in a process of its own, pinned to the same CPU as the host.
// In turn a round of library calls and a round of bare write and read with the same bytes: the best round of each
// counts, so that what the machine does besides does not. The library is loaded from a folder of its own, without an INI
// file and then with one that says 0. Bare looks at the INI file, as many as an exchange takes, are timed in the same
// rounds: they are the floor of what the library can add.

#include "bench_support.h"
#include "exchange_cost.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

using namespace qvbench;

namespace {

constexpr int nRounds = 500;
constexpr int nExchanges = 50; // in a round

void writeAll(int nFd, const Bytes &data)
{
    if (write(nFd, data.data(), data.size()) != static_cast<ssize_t>(data.size()))
        throw std::system_error(errno, std::generic_category(), "write");
}

// Reads until an end byte has come.
bool readFrame(int nFd)
{
    std::array<uint8_t, 4096> buf;
    for (;;) {
        ssize_t n = read(nFd, buf.data(), buf.size());
        if (n < 0)
            return false;
        if (n > 0 && buf[static_cast<size_t>(n) - 1] == ucEnd)
            return true;
    }
}

// The reader: a child process that answers every frame with the same reply.
class Reader {
  public:
    Reader()
    {
        m_nMaster = checked(posix_openpt(O_RDWR | O_NOCTTY), "posix_openpt");
        checked(grantpt(m_nMaster), "grantpt");
        checked(unlockpt(m_nMaster), "unlockpt");
        m_sPath = ptsname(m_nMaster);
        m_nSlave = checked(open(m_sPath.c_str(), O_RDWR | O_NOCTTY), "open pty");
        termios raw{};
        tcgetattr(m_nSlave, &raw);
        cfmakeraw(&raw);
        tcsetattr(m_nSlave, TCSANOW, &raw);
        m_nChild = checked(fork(), "fork");
        if (m_nChild == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const Bytes reply = makeReplyFrame();
            while (readFrame(m_nMaster))
                writeAll(m_nMaster, reply);
            _exit(0);
        }
    }
    ~Reader()
    {
        kill(m_nChild, SIGKILL);
        waitpid(m_nChild, nullptr, 0);
        close(m_nSlave);
        close(m_nMaster);
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    const std::string &path() const { return m_sPath; }

  private:
    int m_nMaster = -1, m_nSlave = -1;
    pid_t m_nChild = -1;
    std::string m_sPath;
};

struct Best {
    double nLibrary = std::numeric_limits<double>::max();
    double nBare = std::numeric_limits<double>::max();
    double nLooks = std::numeric_limits<double>::max();
};

// The looks of one exchange, by bare system calls.
void lookBare(const std::string &sIni, bool bThere)
{
    for (int i = 0; i < qvcost::nLooks; ++i) {
        if (bThere) {
            std::array<char, 4097> buf;
            const int nFd = open(sIni.c_str(), O_RDONLY | O_CLOEXEC);
            if (read(nFd, buf.data(), buf.size()) <= 0)
                throw std::system_error(errno, std::generic_category(), sIni);
            close(nFd);
        } else {
            struct stat status;
            if (stat(sIni.c_str(), &status) == 0)
                throw std::runtime_error(sIni + " is there");
        }
    }
}

Best measure(const Library &library, const Reader &reader)
{
    const auto openPort = library.find<decltype(Dev_Rdz_Ic_OpenPort)>("Dev_Rdz_Ic_OpenPort");
    const auto closePort = library.find<decltype(Dev_Rdz_Ic_ClosePort)>("Dev_Rdz_Ic_ClosePort");
    const auto visit = library.find<decltype(ICC_CardCmdVisitCOS)>("ICC_CardCmdVisitCOS");
    const auto setTimeOut = library.find<decltype(COMM_Rdz_ChageReadTimeOut)>("COMM_Rdz_ChageReadTimeOut");

    if (openPort(reader.path().c_str(), nullptr, 0, 0, 115200) != 0)
        throw std::runtime_error("the library cannot open the reader");
    setTimeOut(30);
    const int nFd = checked(open(reader.path().c_str(), O_RDWR | O_NOCTTY), "open pty");

    const Bytes command = makeCommand();
    const Bytes commandFrame = makeCommandFrame();
    std::array<uint8_t, 1024> response;

    const std::string sIni = library.ini();
    const bool bThere = std::filesystem::exists(sIni);
    Best best;
    for (int i = 0; i < nRounds; ++i) {
        best.nLibrary = std::min(best.nLibrary, microsPerStep(nExchanges, [&] {
                                     uint32_t nLen = 0;
                                     if (visit(command.data(), nCommand, response.data(), &nLen) != 0 || nLen != nReply)
                                         throw std::runtime_error("an exchange failed");
                                 }));
        best.nBare = std::min(best.nBare, microsPerStep(nExchanges, [&] {
                                  writeAll(nFd, commandFrame);
                                  if (!readFrame(nFd))
                                      throw std::runtime_error("a bare exchange failed");
                              }));
        best.nLooks = std::min(best.nLooks, microsPerStep(nExchanges, [&] { lookBare(sIni, bThere); }));
        setTimeOut(30);
    }
    close(nFd);
    closePort();
    return best;
}

void report(const char *pszCase, const Best &best, double nLimit, bool &bWithin)
{
    const double nAdded = best.nLibrary - best.nBare;
    std::printf("%-18s %10.1f %12.1f %10.1f %12.1f %8.0f%s\n", pszCase, best.nLibrary, best.nBare, nAdded, best.nLooks,
                nLimit, nAdded > nLimit ? "  above" : "");
    bWithin = bWithin && nAdded <= nLimit;
}

void printCalls()
{
    std::printf("\nsystem calls of one exchange\n%-14s %12s %16s   why\n", "call", "no INI file", "INI file says 0");
    for (const qvcost::Cost &cost : qvcost::costs)
        std::printf("%-5s %-8s %12d %16d   %s\n", cost.pszCall, cost.bTty ? "port" : "INI file", cost.nNoIni,
                    cost.nIniSaysNo, cost.pszWhy);
}

} // namespace

// bench_exchange LIBRARY: exit code 1 when the library adds more than its limit.
int main(int nArgs, char **ppArgs)
{
    if (nArgs != 2) {
        std::fprintf(stderr, "usage: bench_exchange LIBRARY\n");
        return 2;
    }
    try {
        pinToOneCpu();
        const Reader reader;
        const Library library(ppArgs[1]);
        bool bWithin = true;
        std::printf("one exchange, %zu bytes out and %zu in, best of %d rounds of %d, microseconds\n", nCommand, nReply,
                    nRounds, nExchanges);
        std::printf("%-18s %10s %12s %10s %12s %8s\n", "case", "qvreader", "write+read", "added", "bare looks",
                    "limit");
        report("no INI file", measure(library, reader), 30, bWithin);
        library.writeIni();
        report("INI file says 0", measure(library, reader), 60, bWithin);
        printCalls();
        return bWithin ? 0 : 1;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "bench_exchange: %s\n", failure.what());
        return 2;
    }
}
