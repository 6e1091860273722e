// log.cpp - the log writers.
//
// A line is put together on the stack and appended with one write where it fits, so that lines of two threads do not
// mix; the file is opened and closed for each line. Whatever fails is swallowed: no result may depend on the log.

#include "log.h"

#include "bounded_text.h"
#include "clock.h"
#include "log_files.h"
#include "log_labels.h"
#include "unique_fd.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string_view>

int32_t g_DbgSetFlag = 0;
StDebugTip g_stDebugTip = {};

namespace {

constexpr size_t nTextSize = 4096; // of a caller's text, with its NUL
constexpr size_t nTimeSize = 128;
constexpr int32_t nTypes = static_cast<int32_t>(std::size(StDebugTip{}.nEnable));

std::array<char, 128> s_szDebugVersion{};

// Leaves errno as the caller had it.
class KeepErrno {
  public:
    KeepErrno() noexcept = default;
    ~KeepErrno() { errno = m_nErrno; }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

  private:
    int m_nErrno = errno;
};

void writeTime(std::span<char, nTimeSize> out) noexcept
{
    const qv::LocalTime now = qv::localNow();
    std::snprintf(out.data(), out.size(), "%02d-%02d %02d:%02d:%02d(%03d)", now.stFields.tm_mon + 1,
                  now.stFields.tm_mday, now.stFields.tm_hour, now.stFields.tm_min, now.stFields.tm_sec, now.nMillis);
}

// One line on its way into the file.
class Line {
  public:
    Line() noexcept
    {
        std::array<char, qv::nLogPathSize> szPath;
        qv::writeLogFilePath(szPath);
        int nFd = -1;
        do {
            nFd = ::open(szPath.data(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        } while (nFd < 0 && errno == EINTR);
        m_fd = qv::UniqueFd(nFd);
    }
    ~Line() { flush(); }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void add(std::string_view sText) noexcept
    {
        while (!sText.empty()) {
            if (m_nUsed == m_buffer.size())
                flush();
            size_t n = sText.copy(m_buffer.data() + m_nUsed, m_buffer.size() - m_nUsed);
            m_nUsed += n;
            sText.remove_prefix(n);
        }
    }

    // Version and time, and the two blanks behind them.
    void addHead() noexcept
    {
        std::array<char, nTimeSize> szTime;
        writeTime(szTime);
        add(s_szDebugVersion.data());
        add(" ");
        add(szTime.data());
        add("  ");
    }

    void addLabels(int32_t nKind, int32_t nType) noexcept
    {
        std::array<char, qv::nLabelSize> szLabels{};
        qv::writeLabels(nKind, nType, szLabels);
        add(szLabels.data());
    }

    void addFormatted(const char *pszFormat, va_list args) noexcept QV_PRINTF(2, 0)
    {
        std::array<char, nTextSize> szText;
        if (pszFormat == nullptr || std::vsnprintf(szText.data(), szText.size(), pszFormat, args) < 0)
            szText[0] = '\0';
        add(szText.data());
        add("\r\n");
    }

    void addHex(const char *pszTitle, const uint8_t *pData, int32_t nLen) noexcept
    {
        if (pszTitle != nullptr) {
            add(pszTitle);
            add("  ");
        }
        std::array<char, 48> szLen;
        std::snprintf(szLen.data(), szLen.size(), "LEN=%d   HEX: ", nLen);
        add(szLen.data());
        static constexpr char szDigits[] = "0123456789ABCDEF";
        for (int32_t i = 0; pData != nullptr && i < nLen; ++i) {
            const char szByte[] = {szDigits[pData[i] >> 4], szDigits[pData[i] & 0x0F]};
            add({szByte, sizeof szByte});
        }
        add("\r\n");
    }

  private:
    void flush() noexcept
    {
        std::string_view sRest(m_buffer.data(), m_nUsed);
        while (m_fd && !sRest.empty()) {
            ssize_t n = ::write(m_fd.get(), sRest.data(), sRest.size());
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            sRest.remove_prefix(static_cast<size_t>(n));
        }
        m_nUsed = 0;
    }

    qv::UniqueFd m_fd;
    size_t m_nUsed = 0;
    std::array<char, nTextSize + 512> m_buffer; // a cut text with its head and labels is one write
};

// The host's per-type switches.
bool isSuppressed(int32_t nType) noexcept
{
    return g_DbgSetFlag == 1 && nType >= 1 && nType <= nTypes && g_stDebugTip.nEnable[nType - 1] == 0;
}

} // namespace

char *GetLogTime(void) noexcept
{
    static std::array<char, nTimeSize> s_szTime{};
    writeTime(s_szTime);
    return s_szTime.data();
}

int32_t QV_DebugSetVersion(const char *pszVersion) noexcept
{
    qv::copyText(s_szDebugVersion, pszVersion);
    return 0;
}

StDebugTip *Dbg_SetDebugLevel(const StDebugTip *pTip) noexcept
{
    if (pTip != nullptr)
        g_stDebugTip = *pTip;
    return &g_stDebugTip;
}

void DPrintLogToFile(const char *pszFormat, ...) noexcept
{
    KeepErrno keep;
    if (isWriteLog() == 0)
        return;
    Line line;
    line.add(" ");
    line.addHead();
    va_list args;
    va_start(args, pszFormat);
    line.addFormatted(pszFormat, args);
    va_end(args);
}

void DPrintLogToFileAddType(int32_t nKind, int32_t nType, const char *pszFormat, ...) noexcept
{
    KeepErrno keep;
    if (isSuppressed(nType) || nType == 0 || isWriteLog() == 0)
        return;
    Line line;
    line.add(" ");
    line.addHead();
    line.addLabels(nKind, nType);
    va_list args;
    va_start(args, pszFormat);
    line.addFormatted(pszFormat, args);
    va_end(args);
}

void DPrintDataHexToFile(const char *pszTitle, const uint8_t *pData, int32_t nLen) noexcept
{
    KeepErrno keep;
    if (isWriteLog() == 0)
        return;
    Line line;
    line.addHead();
    line.addHex(pszTitle, pData, nLen);
}

// A dump tests the kind where a line tests the type: a dump of kind 0 is never written.
void DPrintDataHexToFileAddType(int32_t nKind, int32_t nType, const char *pszTitle, const uint8_t *pData,
                                int32_t nLen) noexcept
{
    KeepErrno keep;
    if (nKind == 0 || isWriteLog() == 0)
        return;
    Line line;
    line.addHead();
    line.addLabels(nKind, nType);
    line.addHex(pszTitle, pData, nLen);
}

void DPrintTlvToFileAddType(int32_t, int32_t, const char *, const uint8_t *, int32_t) noexcept {}

void GetFullPath(const char *, char *, int32_t) noexcept {}
