// fuzz_device_call.cpp - DEV_CommCall on a port whose reader answers with bytes from the input.
//
// input: mode (bit 0: the bytes are the whole stream, else the body of a well-made frame; bit 1: the line breaks behind
// the stream, else it ends in an end byte; bits 2 and 3: the request), size of the pieces, bytes
//
// The port is a pseudo-terminal under the name that the call opens, since only a terminal takes its settings. What is
// written to it ends here, and each read gets the next piece, of at most 16. The call deletes old log files, so this
// runs in a folder of its own.

#include "fuzz_support.h"
#include "qvreader/devcall.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr uint8_t ucHead = 0x01, ucEnd = 0x04;
constexpr size_t nReplySize = 1024; // what the call reads at most
constexpr size_t nStreamMax = 2000;
constexpr size_t nPiecesMax = 16;
constexpr size_t nAnswerSize = 512;
constexpr size_t nBodyMax = 506;
constexpr std::string_view sQuestion("\x01"
                                     "0002110110\x04");
constexpr std::array<const char *, 4> requests{
    R"({"FunctionCode":"0001","RequestPort":"1"})",
    R"({"FunctionCode":"0001","RequestPort":"","RequestBaudRate":"115200"})",
    R"({"FunctionCode":"00019","RequestPort":"00","RequestTimeOut":"1"})",
    R"({"FunctionCode":"0001","RequestPort":"5","RequestIP":"x","RequestBaudRate":"9600","RequestTimeOut":"7"})"};

// The reader and its line.
class Reader {
  public:
    Reader()
    {
        m_nMaster = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        QV_HOLDS(m_nMaster >= 0 && grantpt(m_nMaster) == 0 && unlockpt(m_nMaster) == 0);
        m_sName = ptsname(m_nMaster);
        // Keeps the line up between two calls.
        m_nSlave = static_cast<int>(syscall(SYS_openat, AT_FDCWD, m_sName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios raw{};
        QV_HOLDS(m_nSlave >= 0 && tcgetattr(m_nSlave, &raw) == 0);
        cfmakeraw(&raw);
        QV_HOLDS(tcsetattr(m_nSlave, TCSANOW, &raw) == 0);
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    void prepare(Bytes stream, size_t nPiece, bool bBreaks)
    {
        m_stream = std::move(stream);
        m_nPiece = nPiece;
        m_bBreaks = bBreaks;
        m_nSent = 0;
        m_sAsked.clear();
    }
    const char *name() const { return m_sName.c_str(); }
    void asked(const void *pData, size_t nLen) { m_sAsked.append(static_cast<const char *>(pData), nLen); }
    const std::string &question() const { return m_sAsked; }
    // Hands out the next piece, as much of it as there is room for. Negative: the line has broken.
    ssize_t answer(std::span<uint8_t> room)
    {
        const auto piece = std::span(m_stream).subspan(m_nSent, std::min(m_nPiece, m_stream.size() - m_nSent));
        if (piece.empty() && m_bBreaks) {
            errno = EIO;
            return -1;
        }
        const size_t nNow = std::min(piece.size(), room.size());
        std::copy_n(piece.begin(), nNow, room.begin());
        m_nSent += piece.size();
        return static_cast<ssize_t>(nNow);
    }

  private:
    int m_nMaster = -1, m_nSlave = -1;
    std::string m_sName, m_sAsked;
    Bytes m_stream;
    size_t m_nPiece = 1, m_nSent = 0;
    bool m_bBreaks = false;
};

Reader &reader()
{
    static Reader s_reader;
    return s_reader;
}

} // namespace

// Stands still, so that no read times out however busy the machine is.
extern "C" time_t time(time_t *pOut) noexcept
{
    constexpr time_t nNow = 1'780'000'000;
    if (pOut != nullptr)
        *pOut = nNow;
    return nNow;
}

extern "C" int open(const char *pszPath, int nFlags, ...)
{
    va_list more;
    va_start(more, nFlags);
    const unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    const bool bPort = std::strncmp(pszPath, "/dev/COM", std::strlen("/dev/COM")) == 0;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, bPort ? reader().name() : pszPath, nFlags, nMode));
}

extern "C" ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != g_AuxFd)
        return syscall(SYS_write, nFd, pData, nLen);
    reader().asked(pData, nLen);
    return static_cast<ssize_t>(nLen);
}

extern "C" ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    if (nFd != g_AuxFd)
        return syscall(SYS_read, nFd, pBuf, nLen);
    return reader().answer({static_cast<uint8_t *>(pBuf), nLen});
}

extern "C" int usleep(useconds_t)
{
    return 0;
}

namespace {

// What the call's one read gets: whole pieces up to the first that ends in the end byte. False: the line broke first.
bool firstRead(const Bytes &stream, size_t nPiece, Bytes &got)
{
    got.clear();
    for (size_t nAt = 0; nAt < stream.size(); nAt += nPiece) {
        const size_t nNow = std::min(nPiece, stream.size() - nAt);
        got.insert(got.end(), stream.begin() + static_cast<std::ptrdiff_t>(nAt),
                   stream.begin() + static_cast<std::ptrdiff_t>(nAt + nNow));
        if (got.size() >= nReplySize || got.back() == ucEnd) {
            got.resize(std::min(got.size(), nReplySize));
            return true;
        }
    }
    return false;
}

// A field of the record as a text: up to its NUL, without white space at its ends.
std::string fieldText(const Bytes &body, size_t nAt)
{
    std::string s(body.begin() + static_cast<std::ptrdiff_t>(nAt),
                  body.begin() + static_cast<std::ptrdiff_t>(nAt) + 32);
    s.resize(std::min(s.find('\0'), s.size()));
    const auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    s.erase(std::find_if_not(s.rbegin(), s.rend(), isSpace).base(), s.end());
    s.erase(s.begin(), std::find_if_not(s.begin(), s.end(), isSpace));
    return s;
}

// The answer that a reply means, read anew.
std::string answerTo(const Bytes &reply)
{
    Bytes body(1024, 0);
    const size_t nCharacters = reply.size() >= 12 ? reply.size() - 12 : 0;
    if (nCharacters % 2 == 0)
        for (size_t i = 0; i < nCharacters; i += 2)
            body[i / 2] = static_cast<uint8_t>(reply[9 + i] << 4 | (reply[10 + i] & 0x0F));
    std::string sModel = fieldText(body, 0);
    std::string sOld = "VXTA-1";
    sOld.resize(32, ' ');
    if (std::equal(sOld.begin(), sOld.end(), body.begin()))
        sModel = "RDZ-7350";
    std::array<char, 2 * nAnswerSize> szAnswer{};
    std::snprintf(szAnswer.data(), szAnswer.size(),
                  "{\"ErrorCode\":\"0\", \"ErrorMessage\":\"success\", \"DeviceBrand\":\"QORV\", "
                  "\"DllVersion\":\"1.0.0.4\",\"DeviceVersion\":\"%x.%02x.%02x.%02x\","
                  "\"ProductionDate\":\"%2x%02x.%x.%x\",\"DeviceSN\":\"%s\",\"DeviceModel\":\"%s\"}",
                  body[71], body[70], body[69], body[68], body[67], body[66], body[65], body[64],
                  fieldText(body, 32).c_str(), sModel.c_str());
    return szAnswer.data();
}

// The quote in front of ErrorMessage is E2 80 9C.
constexpr const char *pszFailure = "{\"ErrorCode\":\"-1\", \"\xE2\x80\x9C"
                                   "ErrorMessage\":\"GetDeviceInfo Failed\"}";

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***pppArgs)
{
    qvfuzz::enterSandbox(*pppArgs);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    const size_t nPieceWanted = size_t{input.byte()} * 8 + 1;
    const bool bStream = (ucMode & 1) != 0, bBreaks = (ucMode & 2) != 0;
    const auto bytes = input.take(bStream ? nStreamMax : nBodyMax);
    Bytes stream = bStream ? Bytes(bytes.begin(), bytes.end()) : qvfuzz::replyFrame(ucHead, ucEnd, 0, bytes);
    if (!bBreaks)
        stream.push_back(ucEnd);
    const size_t nPiece = std::max(nPieceWanted, stream.size() / nPiecesMax + 1);

    reader().prepare(stream, nPiece, bBreaks);
    Area out(nAnswerSize);
    uint32_t nOut = 0xDEADBEEF;
    const int32_t nRet = DEV_CommCall(requests[ucMode >> 2 & 3], "", out.text(), &nOut);
    QV_HOLDS(g_AuxFd == -2);
    QV_HOLDS(reader().question() == sQuestion);
    QV_HOLDS(stBackUpParam.pfnEndCondition == DefaultEndCondition);
    QV_HOLDS(nOut < nAnswerSize && out.intactBehind(nOut + 1));
    const std::string sAnswer(out.text(), nOut + 1);
    QV_HOLDS(sAnswer.find('\0') == nOut);

    Bytes got;
    const bool bAnswered = firstRead(stream, nPiece, got);
    QV_HOLDS(nRet == (bAnswered ? 0 : -1));
    QV_HOLDS(sAnswer.c_str() == (bAnswered ? answerTo(got) : std::string(pszFailure)));
    return 0;
}
