#include "fuzz_support.h"

#include "qvreader/transport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/socket.h>
#include <unistd.h>

namespace qvfuzz {

namespace {

constexpr char szSandboxVariable[] = "QV_FUZZ_SANDBOX";
constexpr size_t nPiecesMax = 16; // what a socket takes without a reader, by far
constexpr uint32_t nTypeSerial = 1;

std::string s_sSandbox;
pid_t s_nOwner = 0;

void removeSandbox()
{
    std::error_code ignored;
    if (getpid() == s_nOwner)
        std::filesystem::remove_all(s_sSandbox, ignored);
}

} // namespace

void fail(const char *pszFact, const char *pszFile, int nLine) noexcept
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", pszFile, nLine, pszFact);
    std::abort();
}

uint8_t Input::byte()
{
    const auto one = take(1);
    return one.empty() ? uint8_t{0} : one[0];
}

std::span<const uint8_t> Input::take(size_t nMax)
{
    const auto part = m_rest.first(std::min(nMax, m_rest.size()));
    m_rest = m_rest.subspan(part.size());
    return part;
}

Area::Area(size_t nSize) : m_block(nSize + 2 * nGuard, ucPattern) {}

bool Area::intactBehind(size_t nUsed) const
{
    const auto isPattern = [](uint8_t uc) { return uc == ucPattern; };
    return std::all_of(m_block.begin(), m_block.begin() + nGuard, isPattern) &&
           std::all_of(m_block.begin() + static_cast<std::ptrdiff_t>(nGuard + nUsed), m_block.end(), isPattern);
}

ReaderLine::ReaderLine(std::span<const uint8_t> stream, size_t nPiece, uint8_t ucEnd) : m_ucEnd(ucEnd)
{
    Bytes all(stream.begin(), stream.end());
    all.push_back(ucEnd);
    nPiece = std::max(nPiece, all.size() / nPiecesMax + 1);
    QV_HOLDS(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_nEnds.data()) == 0);
    for (size_t nAt = 0; nAt < all.size(); nAt += nPiece) {
        const auto piece = std::span(all).subspan(nAt, std::min(nPiece, all.size() - nAt));
        QV_HOLDS(write(m_nEnds[1], piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()));
        m_pieces.emplace_back(piece.begin(), piece.end());
    }
    g_AuxFd = m_nEnds[0];
    stBackUpParam = {};
    stBackUpParam.nType = nTypeSerial;
    stBackUpParam.nTimeOut = 1;
}

ReaderLine::~ReaderLine()
{
    g_AuxFd = -2;
    stBackUpParam = {};
    for (int nFd : m_nEnds)
        close(nFd);
}

Bytes ReaderLine::firstRead(size_t nMax) const
{
    Bytes got;
    for (const Bytes &piece : m_pieces) {
        got.insert(got.end(), piece.begin(), piece.end());
        // A read that is full cuts the piece that does not fit.
        got.resize(std::min(got.size(), nMax));
        if (got.size() == nMax || got.back() == m_ucEnd)
            break;
    }
    return got;
}

void enterSandbox(char **ppArgs)
{
    if (const char *psz = std::getenv(szSandboxVariable)) {
        s_sSandbox = psz;
        s_nOwner = getpid();
        unsetenv(szSandboxVariable); // a process started from this one gets a folder of its own
        std::atexit(removeSandbox);
        return;
    }
    // The loader names a program's own code by the path that it was started with.
    std::string sDir = (std::filesystem::temp_directory_path() / "qvfuzz-XXXXXX").string();
    QV_HOLDS(mkdtemp(sDir.data()) != nullptr);
    std::filesystem::create_symlink(std::filesystem::canonical("/proc/self/exe"), sDir + "/program");
    setenv(szSandboxVariable, sDir.c_str(), 1);
    std::string sProgram = sDir + "/program";
    ppArgs[0] = sProgram.data();
    execv(sProgram.c_str(), ppArgs);
    fail("the program starts again", __FILE__, __LINE__);
}

const std::string &sandbox()
{
    return s_sSandbox;
}

Bytes replyFrame(uint8_t ucHead, uint8_t ucEnd, uint16_t nStatus, std::span<const uint8_t> body)
{
    const size_t nLength = body.size() + 2;
    Bytes plain{static_cast<uint8_t>(nLength >> 8), static_cast<uint8_t>(nLength), static_cast<uint8_t>(nStatus >> 8),
                static_cast<uint8_t>(nStatus)};
    plain.insert(plain.end(), body.begin(), body.end());
    uint8_t ucLrc = 0;
    for (size_t i = 2; i < plain.size(); ++i)
        ucLrc = static_cast<uint8_t>(ucLrc ^ plain[i]);
    plain.push_back(ucLrc);
    Bytes frame{ucHead};
    for (uint8_t uc : plain) {
        frame.push_back(static_cast<uint8_t>(0x30 + (uc >> 4)));
        frame.push_back(static_cast<uint8_t>(0x30 + (uc & 15)));
    }
    frame.push_back(ucEnd);
    return frame;
}

} // namespace qvfuzz
