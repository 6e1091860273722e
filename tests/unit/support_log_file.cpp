// The log file: on and off, which file it is, and that a log that cannot be written changes nothing.

#include "support_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// The flags of what is opened while it is looked at, by path.
bool s_bLookAtOpens = false;
std::vector<std::pair<std::string, int>> s_opens;

} // namespace

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    int nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, int) : 0;
    va_end(args);
    if (s_bLookAtOpens)
        s_opens.emplace_back(pszPath, nFlags);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}

namespace {
// ---- on and off ----------------------------------------------------------------------------------------------------

TEST_F(Log, WithoutIniNothingIsWrittenAnywhere)
{
    logOff();
    fs::remove(libraryDirectory() + "/test.log");
    const std::set<std::string> before = filesBelow(libraryDirectory());
    callAllWriters();
    DPrintLogToFileAddType(1, 3, "t");
    EXPECT_EQ(filesBelow(libraryDirectory()), before);
    EXPECT_EQ(isWriteLog(), 0);

    QV_DPritLogSetFileName((libraryDirectory() + "/named.log").c_str());
    callAllWriters();
    EXPECT_EQ(filesBelow(libraryDirectory()), before);
}

TEST_F(Log, IniIsReadAnewAtEveryCall)
{
    for (int n = 0; n < 3; ++n) {
        writeIni("[QuorvanLog]\nLogFlag=0\n");
        callAllWriters();
        EXPECT_EQ(isWriteLog(), 0);
        removeIni();
        callAllWriters();
        EXPECT_EQ(isWriteLog(), 0);
        EXPECT_EQ(rawLog(), "");
    }
    writeIni(szLogOn);
    EXPECT_EQ(isWriteLog(), 1);
    callAllWriters();
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 4) << sLog;
    writeIni("[QuorvanLog]\nLogFlag=0\n");
    callAllWriters();
    EXPECT_EQ(rawLog(), sLog);
}

struct FlagRow {
    const char *pszIni;
    int32_t nOn;
};

TEST_F(Log, FlagIsOnForEveryNumberButZero)
{
    const FlagRow aRows[] = {
        {"[QuorvanLog]\nLogFlag=1\n", 1},
        {"[QuorvanLog]\nLogFlag=0\n", 0},
        {"[QuorvanLog]\nLogFlag=2\n", 1},
        {"[QuorvanLog]\nLogFlag=-1\n", 1},
        {"[QuorvanLog]\nLogFlag= 1\n", 1},
        {"[QuorvanLog]\nLogFlag = 1\n", 1},
        {"[QuorvanLog]\nLogFlag=01x\n", 1},
        {"[QuorvanLog]\nLogFlag=x1\n", 0},
        {"[QuorvanLog]\nLogFlag=\n", 0},
        {"[QuorvanLog]\nLogFlag=on\n", 0},
        {"[QuorvanLog]\r\nLogFlag=1\r\n", 1},
        {"[QuorvanLog]\nLogFlag=1", 0},
        {"LogFlag=1\n", 0},
        {"[Other]\nLogFlag=1\n", 0},
        {"[QuorvanLog]\n#LogFlag=1\n", 0},
        {"[QuorvanLog]\n//LogFlag=1\n", 0},
        {"[QuorvanLog]\n/LogFlag=1\n", 1},
        {"[QuorvanLog]\n[Next]\nLogFlag=1\n", 1},
        {"[quorvanlog]\nLogFlag=1\n", 0},
        {"[QuorvanLog]\nlogflag=1\n", 0},
        {"[QuorvanLog]\nLogFlag=1\n[Next]\nLogFlag=0\n", 1},
        {"[QuorvanLog]\n[Next]\nLogFlag=0\n[More]\nLogFlag=1\n", 0},
        {"", 0},
    };
    for (const FlagRow &row : aRows) {
        SCOPED_TRACE(row.pszIni);
        writeIni(row.pszIni);
        EXPECT_EQ(isWriteLog(), row.nOn);
        fs::remove(libraryDirectory() + "/test.log");
        callAllWriters();
        EXPECT_EQ(fs::exists(libraryDirectory() + "/test.log"), row.nOn == 1);
    }
}

// ---- time stamp -----------------------------------------------------------------------------------------------------

TEST_F(Log, TimeStampIsLocalMonthDayTimeAndMilliseconds)
{
    m_clock.set(localSeconds(2024, 12, 31, 23, 59, 58), 999);
    EXPECT_STREQ(GetLogTime(), "12-31 23:59:58(999)");
    m_clock.set(localSeconds(2025, 1, 1, 0, 0, 0), 0);
    EXPECT_STREQ(GetLogTime(), "01-01 00:00:00(000)");
    m_clock.set(localSeconds(2024, 2, 29, 9, 5, 1), 70);
    char *pszTime = GetLogTime();
    EXPECT_STREQ(pszTime, "02-29 09:05:01(070)");
    m_clock.set(localSeconds(2024, 3, 1, 1, 2, 3), 4);
    EXPECT_EQ(GetLogTime(), pszTime) << "the stamp has one buffer";
    EXPECT_STREQ(pszTime, "03-01 01:02:03(004)");
}

// ---- the file -------------------------------------------------------------------------------------------------------

TEST_F(Log, NewFileHasTheModeThatTheUmaskLeaves)
{
    for (mode_t nMask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        logOn();
        umask(nMask);
        DPrintLogToFile("t");
        EXPECT_EQ(modeOf(libraryDirectory() + "/test.log"), 0666U & ~nMask) << "umask " << nMask;
    }
}

TEST_F(Log, EveryLineLooksIntoTheIniOnceAndOpensTheFileOnceBothCloseOnExec)
{
    s_opens.clear();
    s_bLookAtOpens = true;
    callAllWriters();
    s_bLookAtOpens = false;
    ASSERT_EQ(s_opens.size(), 8U);
    for (size_t n = 0; n < s_opens.size(); n += 2) {
        EXPECT_EQ(s_opens[n].first, libraryDirectory() + "/QVConfig.ini");
        EXPECT_EQ(s_opens[n].second & O_ACCMODE, O_RDONLY);
        EXPECT_EQ(s_opens[n + 1].first, libraryDirectory() + "/test.log");
        EXPECT_EQ(s_opens[n + 1].second & (O_ACCMODE | O_APPEND | O_CREAT | O_TRUNC), O_WRONLY | O_APPEND | O_CREAT);
    }
    for (const auto &[sPath, nFlags] : s_opens)
        EXPECT_NE(nFlags & O_CLOEXEC, 0) << sPath;
}

TEST_F(Log, WithoutAFileNameLinesGoToTheFallbackFile)
{
    const std::string sFallback = libraryDirectory() + "/Alg_debug.log";
    for (const char *pszNone : {static_cast<const char *>(nullptr), ""}) {
        fs::remove(sFallback);
        QV_DPritLogSetFileName("/somewhere/else.log");
        QV_DPritLogSetFileName(pszNone);
        EXPECT_EQ(getLogFilePath(), sFallback);
        DPrintLogToFile("t");
        EXPECT_EQ(readFile(sFallback), std::string("  ") + szTime + "  t\r\n");
    }
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, FileNameIsKeptTo511Characters)
{
    for (size_t nLen : {size_t{1}, size_t{510}, size_t{511}, size_t{512}, size_t{513}, size_t{5000}}) {
        const std::string sPath = "/" + std::string(nLen - 1, 'p');
        QV_DPritLogSetFileName(sPath.c_str());
        EXPECT_EQ(getLogFilePath(), sPath.substr(0, 511)) << nLen;
    }
    QV_DPritLogSetFileName("/short");
    EXPECT_STREQ(getLogFilePath(), "/short");
}

TEST_F(Log, LostLibraryDirectoryIsMadeAgainWithMode0755AndTheUmaskStays)
{
    const std::string sDir = libraryDirectory();
    QV_DPritLogSetFileName(nullptr);
    for (mode_t nMask : {mode_t{0}, mode_t{022}}) {
        fs::remove_all(sDir);
        umask(nMask);
        EXPECT_EQ(getLogFilePath(), sDir + "/Alg_debug.log");
        EXPECT_TRUE(fs::is_directory(sDir));
        EXPECT_EQ(modeOf(sDir), 0755U) << "umask " << nMask;
        EXPECT_EQ(currentUmask(), nMask);
    }
    EXPECT_FALSE(fs::exists(sDir + "/Alg_debug.log"));
    writeIni(szLogOn);
    DPrintLogToFile("t");
    EXPECT_EQ(readFile(sDir + "/Alg_debug.log"), std::string("  ") + szTime + "  t\r\n");
}

TEST_F(Log, LostLibraryDirectoryIsNotMadeForANamedFileNorWhileLoggingIsOff)
{
    const std::string sDir = libraryDirectory();
    fs::remove_all(sDir);
    EXPECT_EQ(getLogFilePath(), sDir + "/test.log");
    EXPECT_FALSE(fs::exists(sDir));
    QV_DPritLogSetFileName(nullptr);
    callAllWriters(); // the INI went with the directory
    EXPECT_FALSE(fs::exists(sDir));
    fs::create_directory(sDir);
}

TEST_F(Log, MkdirClearsTheUmaskForGoodAndMakesMode0777)
{
    const std::string sDir = libraryDirectory() + "/made";
    umask(077);
    EXPECT_EQ(mkdir_s(sDir.c_str()), 0);
    EXPECT_EQ(modeOf(sDir), 0777U);
    EXPECT_EQ(currentUmask(), 0U);

    umask(022);
    errno = 0;
    EXPECT_EQ(mkdir_s(sDir.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(currentUmask(), 0U) << "also when the directory is there";

    errno = 0;
    EXPECT_EQ(mkdir_s((sDir + "/no/such").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mkdir_s(nullptr), -1);
    EXPECT_EQ(mkdir_s(""), -1);
    fs::remove(sDir);
}

TEST_F(Log, LibraryDirectoryHasNoTrailingSlash)
{
    char szPath[512];
    std::memset(szPath, 'x', sizeof szPath);
    getSoLocationPath(szPath);
    EXPECT_STREQ(szPath, libraryDirectory().c_str());
}

// ---- nothing depends on the log --------------------------------------------------------------------------------------

TEST_F(Log, FileThatCannotBeWrittenChangesNothing)
{
    const std::string sDir = libraryDirectory();
    fs::create_directory(sDir + "/directory.log");
    const std::set<std::string> before = filesBelow(sDir);
    const std::string aPaths[] = {
        sDir + "/directory.log",         // is a directory
        sDir + "/no/such/directory.log", // has no directory
        sDir + "/QVConfig.ini/x.log",    // has a file for a directory
        "/proc/qv-test.log",             // cannot be created, not even by root
        "/dev/full",                     // takes nothing
        std::string(511, 'n'),           // too long a name
    };
    for (const std::string &sPath : aPaths) {
        SCOPED_TRACE(sPath);
        QV_DPritLogSetFileName(sPath.c_str());
        const int nBefore = openDescriptors();
        callAllWriters();
        uint8_t aBig[3000] = {};
        DPrintDataHexToFile("big", aBig, sizeof aBig);
        char szOut[8] = {};
        EXPECT_EQ(Str_GetSplitData("ab|c", "|", szOut), 0);
        EXPECT_STREQ(szOut, "ab");
        EXPECT_EQ(openDescriptors(), nBefore);
        EXPECT_EQ(filesBelow(sDir), before);
    }
    logOn();
    DPrintLogToFile("again");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  again\r\n");
    fs::remove(sDir + "/directory.log");
}

TEST_F(Log, ReadOnlyDirectoryDropsTheLineSilently)
{
    const std::string sDir = libraryDirectory();
    const mode_t nMode = modeOf(sDir);
    const std::set<std::string> before = filesBelow(sDir);
    ASSERT_EQ(chmod(sDir.c_str(), 0555), 0);
    const bool bRoot = geteuid() == 0; // root may write anywhere
    if (bRoot) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    const int32_t nOn = isWriteLog();
    callAllWriters();
    char szOut[8] = {};
    const int32_t nResult = Str_GetSplitData("ab|c", "|", szOut);
    if (bRoot) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_EQ(chmod(sDir.c_str(), nMode), 0);
    EXPECT_EQ(nOn, 1);
    EXPECT_EQ(nResult, 0);
    EXPECT_EQ(filesBelow(sDir), before);
}

TEST_F(Log, IniThatIsADirectoryMeansOff)
{
    removeIni();
    fs::create_directory(libraryDirectory() + "/QVConfig.ini");
    EXPECT_EQ(isWriteLog(), 0);
    callAllWriters();
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
    fs::remove(libraryDirectory() + "/QVConfig.ini");
}

TEST_F(Log, ThousandLinesLeaveNoDescriptorBehind)
{
    const int nBefore = openDescriptors();
    for (int n = 0; n < 250; ++n)
        callAllWriters();
    EXPECT_EQ(openDescriptors(), nBefore);
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 1000);
}

TEST_F(Log, WritersLeaveErrnoAsItWas)
{
    for (const std::string &sPath : {libraryDirectory() + "/test.log", std::string("/no/such/x.log")}) {
        QV_DPritLogSetFileName(sPath.c_str());
        errno = ENODEV;
        callAllWriters();
        EXPECT_EQ(errno, ENODEV) << sPath;
    }
    removeIni();
    errno = ENODEV;
    callAllWriters();
    EXPECT_EQ(errno, ENODEV) << "switched off";
}

TEST_F(Log, TwoThreadsAtOnceDoNoHarm)
{
    auto work = [] {
        for (int n = 0; n < 200; ++n)
            callAllWriters();
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_NE(rawLog(), "");
    logOn();
    DPrintLogToFile("after");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  after\r\n");
}

} // namespace
