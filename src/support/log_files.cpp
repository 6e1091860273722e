// log_files.cpp - log file names, and what is kept of them.
//
//   <library directory>/Alg_debug.log          until a file is chosen
//   <library directory>/log/QV_yyyymmdd.log    from initDriver on; files older than 15 days are deleted there

#include "log_files.h"

#include "bounded_text.h"
#include "clock.h"
#include "directory.h"
#include "library_path.h"
#include "log.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t nNameSize = 256;  // of a file name in a directory listing
constexpr int32_t nNamesMax = 100; // of a directory listing
constexpr int nDaysKept = 15;
constexpr int nDaysOfOtherYear = 16; // the age of a file of another year or a later month: too old

std::array<char, qv::nLogPathSize> s_szLogPath{};

struct Date {
    int nYear, nMonth, nDay;
};

Date today() noexcept
{
    const tm now = qv::localNow().stFields;
    return {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday};
}

// Age in days; every month counts 31 days for the file's own and 30 for those between.
int ageInDays(const Date &file, const Date &now) noexcept
{
    if (file.nYear == now.nYear && file.nMonth == now.nMonth)
        return now.nDay - file.nDay;
    if (file.nYear == now.nYear && file.nMonth < now.nMonth)
        return (now.nMonth - file.nMonth - 1) * 30 + (31 - file.nDay + now.nDay);
    return nDaysOfOtherYear;
}

} // namespace

namespace qv {

void writeLogFilePath(std::span<char, nLogPathSize> out) noexcept
{
    if (s_szLogPath[0] != '\0') {
        copyText(out, s_szLogPath.data());
        return;
    }
    struct stat state {};
    if (stat(libraryDirectory(), &state) != 0)
        mkdir(libraryDirectory(), 0755);
    copyText(out, libraryDirectory());
    appendText(out, "/Alg_debug.log");
}

} // namespace qv

void QV_DPritLogSetFileName(const char *pszPath) noexcept
{
    qv::copyText(s_szLogPath, pszPath);
}

char *getLogFilePath(void) noexcept
{
    static std::array<char, qv::nLogPathSize> s_szFile{};
    qv::writeLogFilePath(s_szFile);
    return s_szFile.data();
}

int32_t mkdir_s(const char *pszPath) noexcept
{
    umask(0);
    if (pszPath == nullptr)
        return RET_PUB_FAIL;
    return mkdir(pszPath, 0777);
}

char *pGetLogPath(void) noexcept
{
    static std::array<char, 256> s_szFile{};
    mkdir_s(qv::logDirectory());
    const Date now = today();
    std::snprintf(s_szFile.data(), s_szFile.size(), "%sQV_%04d%02d%02d.log", qv::logDirectory(), now.nYear, now.nMonth,
                  now.nDay);
    return s_szFile.data();
}

int32_t GetLogList(const char *pszDir, char (*pNames)[nNameSize], int32_t *pnCount) noexcept
{
    if (pszDir == nullptr || pNames == nullptr || pnCount == nullptr)
        return RET_PUB_FAIL;
    *pnCount = 0;
    const qv::Directory dir(opendir(pszDir));
    if (dir == nullptr) {
        QV_LOG(qv::kLogPublic, "_findfirst ERR\r\n");
        return RET_PUB_FAIL;
    }
    QV_LOG(qv::kLogPublic, "3\r\n");
    while (*pnCount < nNamesMax) {
        const dirent *pEntry = readdir(dir.get());
        if (pEntry == nullptr)
            break;
        const std::string_view sName = pEntry->d_name;
        if (sName != "." && sName != "..")
            qv::copyText(pNames[(*pnCount)++], pEntry->d_name);
    }
    return 0;
}

void DelOutTimeLogFile(void) noexcept
{
    const Date now = today();
    std::array<char[nNameSize], nNamesMax> names;
    int32_t nCount = 0;
    GetLogList(qv::logDirectory(), names.data(), &nCount);

    // A name that is not that of a log file keeps the date of the name before it.
    Date file{};
    for (int32_t i = 0; i < nCount; ++i) {
        const char *pszName = names[static_cast<size_t>(i)];
        QV_LOG(qv::kLogPublic, "file:%s\r\n", pszName);
        std::sscanf(pszName, "QV_%04d%02d%02d.log", &file.nYear, &file.nMonth, &file.nDay);
        std::array<char, qv::nLogPathSize + nNameSize + 16> szPath{};
        qv::appendText(szPath, qv::logDirectory());
        qv::appendText(szPath, pszName);
        if (file.nYear == 0 || file.nMonth == 0 || file.nDay == 0) {
            QV_LOG(qv::kLogPublic, "del Invalid FILE:%s\r\n", szPath.data());
            std::remove(szPath.data());
            continue;
        }
        const int nAge = ageInDays(file, now);
        QV_LOG(qv::kLogPublic, "nbetween data:%d\r\n", nAge);
        if (nAge > nDaysKept) {
            QV_LOG(qv::kLogPublic, "del outtime FILE:%s\r\n", szPath.data());
            std::remove(szPath.data());
        }
    }
}

int32_t initDriver(void) noexcept
{
    QV_DPritLogSetFileName(pGetLogPath());
    DelOutTimeLogFile();
    QV_LOG(qv::kLogPublic, "initDriver\r\n");
    return 0;
}
