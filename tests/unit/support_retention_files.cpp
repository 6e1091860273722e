// The list of the log directory, a purge as a whole, the file of the day and what initDriver does.

#include "support_retention.h"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// ---- the list --------------------------------------------------------------------------------------------------------

TEST_F(Retention, ListLeavesOutDotNamesOnly)
{
    put(".hidden");
    put("...");
    put("a");
    fs::create_directory(path("dir"));
    Names names = listed();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (Names{"...", ".hidden", "a", "dir"}));
}

TEST_F(Retention, ListOfAnEmptyDirectoryHasNoNames)
{
    logOn();
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(logTexts(), Texts{"3"});
}

TEST_F(Retention, ListOfAMissingDirectoryIsMinus1)
{
    auto names = std::make_unique<char[][256]>(100);
    int32_t nCount = 77;
    logOn();
    EXPECT_EQ(GetLogList((m_sDir + "/none/").c_str(), names.get(), &nCount), -1);
    EXPECT_EQ(GetLogList("", names.get(), &nCount), -1);
    EXPECT_EQ(GetLogList((libraryDirectory() + "/QVConfig.ini").c_str(), names.get(), &nCount), -1);
    EXPECT_EQ(logTexts(), (Texts{"_findfirst ERR", "_findfirst ERR", "_findfirst ERR"}));
    EXPECT_TRUE(nCount == 77 || nCount == 0) << nCount;
}

TEST_F(Retention, ListWithoutADirectoryNameOrRoomIsMinus1)
{
    auto names = std::make_unique<char[][256]>(100);
    int32_t nCount = 0;
    EXPECT_EQ(GetLogList(nullptr, names.get(), &nCount), -1);
    EXPECT_EQ(GetLogList(m_sDir.c_str(), nullptr, &nCount), -1);
    EXPECT_EQ(GetLogList(m_sDir.c_str(), names.get(), nullptr), -1);
}

TEST_F(Retention, ListEndsAt100Names)
{
    for (int n = 0; n < 99; ++n)
        put("f" + std::to_string(n));
    EXPECT_EQ(listed().size(), 99U);
    put("f99");
    EXPECT_EQ(listed().size(), 100U);
    put("f100");
    put("f101");
    const Names names = listed();
    EXPECT_EQ(names.size(), 100U);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 100U);
}

TEST_F(Retention, DirectoryOf5000FilesIsPurgedBy100ACall)
{
    for (int n = 0; n < 5000; ++n)
        put("QV_20250101.log" + std::to_string(n));
    logOff();
    auto remaining = [&] { return std::distance(fs::directory_iterator(m_sDir), fs::directory_iterator()); };
    DelOutTimeLogFile();
    EXPECT_EQ(remaining(), 4900);
    DelOutTimeLogFile();
    EXPECT_EQ(remaining(), 4800);
    for (int n = 0; n < 48; ++n)
        DelOutTimeLogFile();
    EXPECT_EQ(remaining(), 0);
}

// ---- the purge as a whole ----------------------------------------------------------------------------------------------

TEST_F(Retention, MissingDirectoryIsLoggedAndNotMade)
{
    fs::remove_all(m_sDir);
    EXPECT_EQ(purge(), Texts{"_findfirst ERR"});
    EXPECT_FALSE(fs::exists(m_sDir));
}

TEST_F(Retention, FileInPlaceOfTheDirectoryIsLoggedAndStays)
{
    fs::remove_all(m_sDir);
    writeFile(m_sDir, "a file");
    EXPECT_EQ(purge(), Texts{"_findfirst ERR"});
    EXPECT_EQ(readFile(m_sDir), "a file");
}

TEST_F(Retention, PurgeRunsWhileLoggingIsOff)
{
    put("QV_20261104.log");
    put("QV_20261105.log");
    logOff();
    DelOutTimeLogFile();
    EXPECT_FALSE(has("QV_20261104.log"));
    EXPECT_TRUE(has("QV_20261105.log"));
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/Alg_debug.log"));
}

TEST_F(Retention, FilledDirectoryInsideStays)
{
    fs::create_directory(path("QV_20250101.log"));
    writeFile(path("QV_20250101.log") + "/inside", "x");
    EXPECT_EQ(purge(),
              (Texts{"3", "file:QV_20250101.log", "nbetween data:16", "del outtime FILE:" + path("QV_20250101.log")}));
    EXPECT_TRUE(has("QV_20250101.log/inside"));
}

TEST_F(Retention, LinkIsDeletedAndItsTargetStays)
{
    const std::string sTarget = libraryDirectory() + "/target";
    writeFile(sTarget, "kept");
    fs::create_symlink(sTarget, path("QV_20250101.log"));
    DelOutTimeLogFile();
    EXPECT_FALSE(fs::is_symlink(path("QV_20250101.log")));
    EXPECT_EQ(readFile(sTarget), "kept");
    fs::remove(sTarget);
}

TEST_F(Retention, FileThatCannotBeDeletedDoesNotStopThePurge)
{
    put("QV_20250101.log");
    put("QV_20250102.log");
    ASSERT_EQ(chmod(m_sDir.c_str(), 0555), 0);
    const bool bRoot = geteuid() == 0; // root may delete anywhere
    if (bRoot) {
        ASSERT_EQ(chmod(libraryDirectory().c_str(), 0755), 0);
        writeFile(libraryDirectory() + "/test.log", "");
        ASSERT_EQ(chmod((libraryDirectory() + "/test.log").c_str(), 0666), 0);
        ASSERT_EQ(seteuid(65534), 0);
    }
    DelOutTimeLogFile();
    if (bRoot) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_EQ(chmod(m_sDir.c_str(), 0755), 0);
    EXPECT_EQ(logTexts().size(), 7U) << "the head line, and three for each file";
    EXPECT_TRUE(has("QV_20250101.log"));
    EXPECT_TRUE(has("QV_20250102.log"));
}

// ---- the file of the day -------------------------------------------------------------------------------------------------

TEST_F(Retention, PathOfTheDayHasTheLocalDateAndItsDirectoryIsMade)
{
    fs::remove_all(m_sDir);
    umask(022);
    m_clock.set(localSeconds(2024, 3, 5, 0, 10, 0)); // still the 4th by UTC
    char *pszPath = pGetLogPath();
    EXPECT_EQ(pszPath, m_sDir + "/QV_20240305.log");
    struct stat info {};
    ASSERT_EQ(stat(m_sDir.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0777U);
    EXPECT_EQ(umask(022), 0U);
    EXPECT_TRUE(fs::is_empty(m_sDir));

    m_clock.set(localSeconds(2025, 12, 31));
    EXPECT_EQ(pGetLogPath(), pszPath) << "the path has one buffer";
    EXPECT_EQ(pszPath, m_sDir + "/QV_20251231.log");
}

TEST_F(Retention, PathOfTheDayIsGivenAlsoWhenItsDirectoryCannotBeMade)
{
    fs::remove_all(m_sDir);
    writeFile(m_sDir, "in the way");
    EXPECT_EQ(pGetLogPath(), m_sDir + "/QV_20261120.log");
    EXPECT_EQ(initDriver(), 0);
    DPrintLogToFile("dropped");
    EXPECT_EQ(readFile(m_sDir), "in the way");
}

TEST_F(Retention, InitDriverSetsTheFilePurgesAndLogs)
{
    put("QV_20261120.log"); // today's, so that it is in the list whenever that is made
    writeFile(path("QV_20261120.log"), "old\r\n");
    QV_DPritLogSetFileName(nullptr);
    umask(022);
    m_clock.set(localSeconds(2026, 11, 20, 1, 2, 3), 4);
    EXPECT_EQ(initDriver(), 0);
    EXPECT_EQ(umask(022), 0U);
    EXPECT_EQ(getLogFilePath(), m_sDir + "/QV_20261120.log");
    const std::string sHead = "  11-20 01:02:03(004)  INFO:    Public:  ";
    EXPECT_EQ(readFile(path("QV_20261120.log")), "old\r\n" + sHead + "3\r\n\r\n" + sHead +
                                                     "file:QV_20261120.log\r\n\r\n" + sHead +
                                                     "nbetween data:0\r\n\r\n" + sHead + "initDriver\r\n\r\n");
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/Alg_debug.log"));
}

TEST_F(Retention, InitDriverWritesItsFirstLineBeforeItLists)
{
    umask(022);
    m_clock.set(localSeconds(2026, 11, 20, 1, 2, 3), 4);
    EXPECT_EQ(initDriver(), 0);
    // The line stands in the directory that is listed: the file that it has made is in the list.
    const std::string sHead = "  11-20 01:02:03(004)  INFO:    Public:  ";
    EXPECT_EQ(readFile(path("QV_20261120.log")), sHead + "3\r\n\r\n" + sHead + "file:QV_20261120.log\r\n\r\n" + sHead +
                                                     "nbetween data:0\r\n\r\n" + sHead + "initDriver\r\n\r\n");
}

TEST_F(Retention, InitDriverPurgesAtEveryCallAlsoWhileLoggingIsOff)
{
    logOff();
    for (int n = 0; n < 3; ++n) {
        put("QV_20260101.log");
        put("QV_20261110.log");
        EXPECT_EQ(initDriver(), 0);
        EXPECT_FALSE(has("QV_20260101.log"));
        EXPECT_TRUE(has("QV_20261110.log"));
        EXPECT_FALSE(has("QV_20261120.log"));
    }
}

TEST_F(Retention, InitDriverMakesTheDirectoryOfALibraryThatNeverLogged)
{
    fs::remove_all(m_sDir);
    EXPECT_EQ(initDriver(), 0);
    EXPECT_TRUE(fs::is_directory(m_sDir));
    const std::string sLog = readFile(path("QV_20261120.log"));
    EXPECT_TRUE(sLog.ends_with("INFO:    Public:  initDriver\r\n\r\n")) << sLog;
}

TEST_F(Retention, RunPastMidnightKeepsTheFileOfTheDayBefore)
{
    m_clock.set(localSeconds(2026, 12, 31, 23, 59, 59));
    initDriver();
    fs::remove(path("QV_20261231.log"));
    DPrintLogToFile("before");
    m_clock.advance(2);
    DPrintLogToFile("after");
    EXPECT_EQ(readFile(path("QV_20261231.log")), "  12-31 23:59:59(000)  before\r\n  01-01 00:00:01(000)  after\r\n");
    EXPECT_FALSE(has("QV_20270101.log"));

    initDriver(); // the first of the new year
    EXPECT_FALSE(has("QV_20261231.log"));
    EXPECT_TRUE(has("QV_20270101.log"));
    EXPECT_EQ(getLogFilePath(), m_sDir + "/QV_20270101.log");
}

TEST_F(Retention, FirstOfJanuaryDeletesEveryFileOfTheOldYear)
{
    for (int nMonth = 1; nMonth <= 12; ++nMonth)
        put(logName({2026, nMonth, 31}));
    today({2027, 1, 1});
    DelOutTimeLogFile();
    EXPECT_TRUE(fs::is_empty(m_sDir));
}

} // namespace
