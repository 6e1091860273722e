// config.cpp - the INI reader.
//
// The file is read anew on every log call, so a look-up must be cheap: one open, one read for a file of up to 4 KiB
// and further blocks of that size beyond, one close; everything on the stack. Most hosts have no such file: one that
// was absent at the last log call is only asked for at the next.
//
// What counts as a line and as a match is looser than usual INI readers have it, and files in the field rely on it:
//   - a line ends at its line feed; text behind the last line feed is no line; a carriage return stays in the line;
//   - "[Section]" is looked for until it was seen once; from then on every line with "=" is a candidate, whichever
//     section it stands in;
//   - the key matches anywhere in the line; "#" and "//" in front make the line a comment.

#include "bounded_text.h"
#include "library_path.h"
#include "qvreader/support.h"
#include "unique_fd.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <string_view>
#include <sys/stat.h>

namespace {

constexpr size_t nBlockSize = 4096;
constexpr size_t nLineSize = 1024; // of line and value, with their NUL; what is longer is cut

// Reads blocks; a file that fits into the first one costs a single read.
class BlockReader {
  public:
    explicit BlockReader(const char *pszFile) noexcept
    {
        int nFd = -1;
        do {
            nFd = ::open(pszFile, O_RDONLY | O_CLOEXEC);
        } while (nFd < 0 && errno == EINTR);
        m_bAbsent = nFd < 0 && errno == ENOENT;
        m_fd = qv::UniqueFd(nFd);
        m_bEnd = !m_fd;
    }

    bool isAbsent() const noexcept { return m_bAbsent; }

    // The next block, empty at the end of the file or when it cannot be read.
    std::string_view next() noexcept
    {
        if (m_bEnd)
            return {};
        ssize_t n = -1;
        do {
            n = ::read(m_fd.get(), m_block.data(), m_block.size());
        } while (n < 0 && errno == EINTR);
        m_bEnd = n < static_cast<ssize_t>(m_block.size());
        return {m_block.data(), n > 0 ? static_cast<size_t>(n) : 0};
    }

  private:
    qv::UniqueFd m_fd;
    bool m_bEnd = false;
    bool m_bAbsent = false;
    std::array<char, nBlockSize + 1> m_block; // one more than a small file, so that its first read shows its end
};

// Puts lines together from blocks.
class LineBuffer {
  public:
    // Takes text up to and including the first line feed off the block. True: a whole line stands in text().
    bool take(std::string_view &block) noexcept
    {
        size_t nEnd = block.find('\n');
        std::string_view sPart = block.substr(0, nEnd);
        m_nUsed += sPart.copy(m_szLine.data() + m_nUsed, nLineSize - 1 - m_nUsed);
        block.remove_prefix(nEnd == block.npos ? block.size() : nEnd + 1);
        if (nEnd == block.npos)
            return false;
        m_szLine[m_nUsed] = '\0';
        m_nUsed = 0;
        return true;
    }
    const char *text() const noexcept { return m_szLine.data(); }

  private:
    std::array<char, nLineSize> m_szLine;
    size_t m_nUsed = 0;
};

bool isHeader(const char *pszLine, std::string_view sSection) noexcept
{
    std::string_view sLine = pszLine;
    return sLine.starts_with('[') && sLine.substr(1).starts_with(sSection) &&
           sLine.substr(1 + sSection.size()).starts_with(']');
}

// The value in a candidate line, or null.
const char *valueOf(const char *pszLine, const char *pszKey) noexcept
{
    if (std::strstr(pszLine, pszKey) == nullptr || pszLine[0] == '#' || std::strncmp(pszLine, "//", 2) == 0)
        return nullptr;
    return std::strchr(pszLine, '=') + 1;
}

bool lookUp(BlockReader &file, const char *pszSection, const char *pszKey, std::span<char, nLineSize> value) noexcept
{
    LineBuffer line;
    bool bSeen = false;
    for (std::string_view block = file.next(); !block.empty(); block = file.next()) {
        while (line.take(block)) {
            if (bSeen && std::strchr(line.text(), '=') != nullptr) {
                if (const char *pszValue = valueOf(line.text(), pszKey)) {
                    qv::copyText(value, pszValue);
                    return true;
                }
            } else if (isHeader(line.text(), pszSection)) {
                bSeen = true;
            }
        }
    }
    return false;
}

// Whether a file that was absent still is: about half the cost of an open that fails.
bool isStillAbsent(const char *pszFile) noexcept
{
    struct stat status;
    return ::stat(pszFile, &status) != 0 && errno == ENOENT;
}

} // namespace

char *GetIniKeyString(const char *pszSection, const char *pszKey, const char *pszDefault, const char *pszFile) noexcept
{
    static std::array<char, nLineSize> s_szValue;
    std::array<char, nLineSize> szFound{};
    if (pszSection == nullptr || pszKey == nullptr || pszFile == nullptr)
        return const_cast<char *>(pszDefault);
    BlockReader file(pszFile);
    if (!lookUp(file, pszSection, pszKey, szFound))
        return const_cast<char *>(pszDefault);
    s_szValue = szFound;
    return s_szValue.data();
}

int32_t GetIniKeyInt(const char *pszSection, const char *pszKey, const char *pszDefault, const char *pszFile) noexcept
{
    const char *pszValue = GetIniKeyString(pszSection, pszKey, pszDefault, pszFile);
    return pszValue == nullptr ? 0 : std::atoi(pszValue);
}

int32_t isWriteLog(void) noexcept
{
    static std::atomic<bool> s_bWasAbsent{false};
    const int nErrno = errno;
    bool bOn = false;
    if (!s_bWasAbsent.load(std::memory_order_relaxed) || !isStillAbsent(qv::iniPath())) {
        BlockReader file(qv::iniPath());
        s_bWasAbsent.store(file.isAbsent(), std::memory_order_relaxed);
        // With a buffer of its own: a cancel that logs from a second thread must not disturb a host's look-up.
        std::array<char, nLineSize> szValue;
        bOn = lookUp(file, "QuorvanLog", "LogFlag", szValue) && std::atoi(szValue.data()) != 0;
    }
    errno = nErrno;
    return bOn ? 1 : 0;
}
