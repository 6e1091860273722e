// fuzz_stripe_line.h - a reader's line whose reads are answered from the input: each read gets the next piece, and
// behind the last one the line has broken, so that no read waits. What is written is kept. One target is one source
// file: this header defines read(), write() and time() for it.
#pragma once

#include "fuzz_support.h"
#include "qvreader/transport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace qvfuzz {

class StripeLine {
  public:
    static constexpr size_t nPiecesMax = 32;

    StripeLine(Bytes stream, size_t nPiece)
        : m_stream(std::move(stream)), m_nPiece(std::max({nPiece, m_stream.size() / nPiecesMax + 1, size_t{1}}))
    {
        s_pOpen = this;
        g_AuxFd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC));
        QV_HOLDS(g_AuxFd >= 0);
        stBackUpParam = {};
        stBackUpParam.nType = 1;
        stBackUpParam.nTimeOut = 1;
    }
    ~StripeLine()
    {
        close(g_AuxFd);
        g_AuxFd = -2;
        stBackUpParam = {};
        s_pOpen = nullptr;
    }
    StripeLine(const StripeLine &) = delete;
    StripeLine &operator=(const StripeLine &) = delete;

    ssize_t answer(uint8_t *pOut, size_t nRoom)
    {
        const size_t nNow = std::min({m_nPiece, m_stream.size() - m_nSent, nRoom});
        if (nNow == 0) {
            errno = EIO;
            return -1;
        }
        std::memcpy(pOut, m_stream.data() + m_nSent, nNow);
        m_nSent += nNow;
        return static_cast<ssize_t>(nNow);
    }
    void asked(const void *pData, size_t nLen) { m_sAsked.append(static_cast<const char *>(pData), nLen); }
    const std::string &question() const { return m_sAsked; }

    // What the next read of a plain reader gets: pieces up to the one after which the bytes are complete; nothing when the
    // line breaks first.
    std::optional<std::string> expect(const std::function<bool(std::string_view)> &isComplete)
    {
        constexpr size_t nReadMax = 4096;
        std::string sGot;
        while (m_nExpected < m_stream.size()) {
            const size_t nNow = std::min({m_nPiece, m_stream.size() - m_nExpected, nReadMax - sGot.size()});
            sGot.append(reinterpret_cast<const char *>(m_stream.data()) + m_nExpected, nNow);
            m_nExpected += nNow;
            if (sGot.size() == nReadMax || isComplete(sGot))
                return sGot;
        }
        return std::nullopt;
    }

    static StripeLine *openLine() { return s_pOpen; }

  private:
    static inline StripeLine *s_pOpen = nullptr;
    Bytes m_stream;
    size_t m_nPiece, m_nSent = 0, m_nExpected = 0;
    std::string m_sAsked;
};

// The bytes before the first NUL.
inline std::string beforeNul(std::string_view s)
{
    return std::string(s.substr(0, s.find('\0')));
}

} // namespace qvfuzz

// Stands still, so that no read times out however busy the machine is.
extern "C" time_t time(time_t *pOut) noexcept
{
    constexpr time_t nNow = 1'780'000'000;
    if (pOut != nullptr)
        *pOut = nNow;
    return nNow;
}

extern "C" ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    qvfuzz::StripeLine *const pLine = qvfuzz::StripeLine::openLine();
    if (pLine == nullptr || nFd != g_AuxFd)
        return syscall(SYS_read, nFd, pBuf, nLen);
    return pLine->answer(static_cast<uint8_t *>(pBuf), nLen);
}

extern "C" ssize_t write(int nFd, const void *pData, size_t nLen)
{
    qvfuzz::StripeLine *const pLine = qvfuzz::StripeLine::openLine();
    if (pLine == nullptr || nFd != g_AuxFd)
        return syscall(SYS_write, nFd, pData, nLen);
    pLine->asked(pData, nLen);
    return static_cast<ssize_t>(nLen);
}
