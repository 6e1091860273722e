#include "harness.h"

#include "qvreader/support.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace qvtest {

namespace {

int nibble(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Cuts version, time and, on information lines, the two labels off a log line.
std::string withoutHead(const std::string &sLine)
{
    static const std::regex time(R"(^ ?[^ ]* ?\d\d-\d\d \d\d:\d\d:\d\d\(\d{3}\)  )");
    std::string s = std::regex_replace(sLine, time, "", std::regex_constants::format_first_only);
    constexpr std::string_view sKind = "INFO:    ";
    if (!s.starts_with(sKind))
        return s;
    size_t nLabel = s.find(' ', sKind.size()) - sKind.size();
    size_t nColumn = std::max<size_t>(nLabel, 7) + 2; // the label is padded to 7, two blanks follow
    return s.substr(std::min(s.size(), sKind.size() + nColumn));
}

std::string logFile()
{
    return libraryDirectory() + "/test.log";
}

} // namespace

Bytes bytes(std::string_view sHex)
{
    Bytes out;
    int nHigh = -1;
    for (char c : sHex) {
        if (c == ' ' || c == '\n')
            continue;
        int n = nibble(c);
        if (n < 0)
            throw std::invalid_argument("not hexadecimal: " + std::string(sHex));
        if (nHigh < 0) {
            nHigh = n;
        } else {
            out.push_back(static_cast<uint8_t>(nHigh << 4 | n));
            nHigh = -1;
        }
    }
    if (nHigh >= 0)
        throw std::invalid_argument("half a byte: " + std::string(sHex));
    return out;
}

std::string hex(std::span<const uint8_t> data)
{
    static constexpr char szDigits[] = "0123456789ABCDEF";
    std::string s;
    for (uint8_t uc : data) {
        if (!s.empty())
            s += ' ';
        s += szDigits[uc >> 4];
        s += szDigits[uc & 15];
    }
    return s;
}

Bytes textBytes(std::string_view sText)
{
    return Bytes(sText.begin(), sText.end());
}

std::string libraryDirectory()
{
    const char *psz = std::getenv("QV_TEST_LIBRARY_DIR");
    if (psz == nullptr)
        throw std::runtime_error("not started through test_main");
    return psz;
}

void writeFile(const std::string &sPath, std::string_view sText)
{
    std::ofstream out(sPath, std::ios::binary | std::ios::trunc);
    out.write(sText.data(), static_cast<std::streamsize>(sText.size()));
    if (!out.flush())
        throw std::runtime_error("cannot write " + sPath);
}

std::string readFile(const std::string &sPath)
{
    std::ifstream in(sPath, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeIni(std::string_view sText)
{
    writeFile(libraryDirectory() + "/QVConfig.ini", sText);
}

void removeIni()
{
    std::filesystem::remove(libraryDirectory() + "/QVConfig.ini");
}

void logOn()
{
    std::filesystem::remove(logFile());
    QV_DPritLogSetFileName(logFile().c_str());
    writeIni("[QuorvanLog]\nLogFlag=1\n");
}

void logOff()
{
    removeIni();
    QV_DPritLogSetFileName(nullptr);
}

std::string rawLog()
{
    return readFile(logFile());
}

std::string logWithoutTime()
{
    static const std::regex time(R"(\d\d-\d\d \d\d:\d\d:\d\d\(\d{3}\))");
    return std::regex_replace(rawLog(), time, "T");
}

std::vector<std::string> logTexts()
{
    std::vector<std::string> texts;
    std::string sLog = rawLog();
    for (size_t nAt = 0; nAt < sLog.size();) {
        size_t nEnd = sLog.find("\r\n", nAt);
        if (nEnd == std::string::npos)
            nEnd = sLog.size();
        if (nEnd > nAt)
            texts.push_back(withoutHead(sLog.substr(nAt, nEnd - nAt)));
        nAt = nEnd + 2;
    }
    return texts;
}

std::string logLine(const std::string &sText)
{
    std::string sLog = rawLog();
    size_t nAt = sLog.find(sText);
    if (nAt == std::string::npos)
        return {};
    size_t nStart = sLog.rfind('\n', nAt);
    nStart = nStart == std::string::npos ? 0 : nStart + 1;
    return sLog.substr(nStart, sLog.find('\n', nAt) - nStart);
}

int openDescriptors()
{
    int n = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++n;
    return n - 1; // the listing itself held one
}

} // namespace qvtest
