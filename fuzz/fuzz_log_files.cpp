// fuzz_log_files.cpp - GetLogList and DelOutTimeLogFile on a directory whose names come from the input.
//
// input: file names, one a line; "@name" is a symbolic link to a file outside, "+name" a directory
//
// Runs in a folder of its own (see enterSandbox), whose files beside the log directory must outlive every call.

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr size_t nNamesMax = 100, nNameSize = 256, nEntriesMax = 110;

std::string logs()
{
    return qvfuzz::sandbox() + "/log/";
}

void touch(const std::string &sPath)
{
    const int nFd = open(sPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    QV_HOLDS(nFd >= 0);
    close(nFd);
}

std::vector<std::string> outside()
{
    return {qvfuzz::sandbox() + "/QV_20000101.log", qvfuzz::sandbox() + "/keep", qvfuzz::sandbox() + "/program"};
}

// A link counts, wherever it points.
bool stands(const std::string &sName)
{
    return fs::is_symlink(logs() + sName) || fs::exists(logs() + sName);
}

void fill(std::string_view sNames)
{
    size_t nMade = 0;
    while (!sNames.empty() && nMade < nEntriesMax) {
        const size_t nEnd = std::min(sNames.find('\n'), sNames.size());
        std::string sName(sNames.substr(0, std::min<size_t>(nEnd, nNameSize - 1)));
        sNames.remove_prefix(std::min(nEnd + 1, sNames.size()));
        std::erase_if(sName, [](char c) { return c == '/' || c == '\0'; });
        if (sName.empty() || sName == "." || sName == ".." || stands(sName))
            continue;
        ++nMade;
        if (sName[0] == '@')
            fs::create_symlink("../keep", logs() + sName);
        else if (sName[0] == '+')
            fs::create_directory(logs() + sName);
        else
            touch(logs() + sName);
    }
}

tm localDay()
{
    const time_t nNow = time(nullptr);
    tm fields{};
    localtime_r(&nNow, &fields);
    return fields;
}

// Which of the listed names stay.
std::vector<std::string> keptByTheRules(const std::vector<std::string> &names, const tm &now)
{
    const int nYear = now.tm_year + 1900, nMonth = now.tm_mon + 1;
    int y = 0, m = 0, d = 0;
    std::vector<std::string> kept;
    for (const std::string &sName : names) {
        std::sscanf(sName.c_str(), "QV_%04d%02d%02d.log", &y, &m, &d);
        if (y == 0 || m == 0 || d == 0)
            continue;
        int nAge = 16;
        if (y == nYear && m == nMonth)
            nAge = now.tm_mday - d;
        else if (y == nYear && m < nMonth)
            nAge = (nMonth - m - 1) * 30 + 31 - d + now.tm_mday;
        if (nAge <= 15)
            kept.push_back(sName);
    }
    return kept;
}

std::vector<std::string> listed()
{
    static char names[nNamesMax][nNameSize];
    int32_t nCount = -1;
    QV_HOLDS(GetLogList(logs().c_str(), names, &nCount) == 0);
    QV_HOLDS(nCount >= 0 && nCount <= static_cast<int32_t>(nNamesMax));
    return {names, names + nCount};
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***pppArgs)
{
    qvfuzz::enterSandbox(*pppArgs);
    char szDir[512];
    getSoLocationPath(szDir);
    QV_HOLDS(qvfuzz::sandbox() == szDir);
    touch(outside()[0]);
    touch(outside()[1]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    fs::remove_all(logs());
    fs::create_directory(logs());
    fill({reinterpret_cast<const char *>(pData), nSize});
    const auto before = listed();

    const tm start = localDay();
    DelOutTimeLogFile();
    for (const std::string &sPath : outside())
        QV_HOLDS(fs::exists(sPath));
    if (start.tm_mday != localDay().tm_mday)
        return 0;
    const auto kept = keptByTheRules(before, start);
    for (const std::string &sName : before)
        QV_HOLDS(stands(sName) == (std::find(kept.begin(), kept.end(), sName) != kept.end()));
    return 0;
}
