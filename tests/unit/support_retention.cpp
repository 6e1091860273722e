// Log files by date: the file of the day, what initDriver does, and which files the purge deletes.

#include "fake_clock.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// Far enough from UTC that local time cannot be mistaken for it.
const bool s_bZoneSet = [] {
    setenv("TZ", "QVT-8:30", 1);
    tzset();
    return true;
}();

using Texts = std::vector<std::string>;
using Names = std::vector<std::string>;

struct Date {
    int nYear;
    int nMonth;
    int nDay;
};

std::string logName(Date date)
{
    char szName[64];
    std::snprintf(szName, sizeof szName, "QV_%04d%02d%02d.log", date.nYear, date.nMonth, date.nDay);
    return szName;
}

class Retention : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nMask = umask(022);
        fs::remove_all(m_sDir);
        fs::create_directory(m_sDir);
        logOn();
        m_nDescriptors = openDescriptors();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        logOff();
        fs::remove_all(m_sDir);
        umask(m_nMask);
    }

    void today(Date date) { m_clock.set(localSeconds(date.nYear, date.nMonth, date.nDay)); }
    void put(const std::string &sName) { writeFile(m_sDir + "/" + sName, "x"); }
    bool has(const std::string &sName) const { return fs::exists(m_sDir + "/" + sName); }
    std::string path(const std::string &sName) const { return m_sDir + "/" + sName; }

    // The names in the order in which the directory gives them.
    Names listed()
    {
        int32_t nCount = -1;
        auto names = std::make_unique<char[][256]>(100);
        EXPECT_EQ(GetLogList((m_sDir + "/").c_str(), names.get(), &nCount), 0);
        Names all;
        for (int32_t n = 0; n < nCount; ++n)
            all.emplace_back(names[static_cast<size_t>(n)]);
        return all;
    }

    // Puts two files so that the directory gives sFirst before a file of the name sPrefix + number, and returns that
    // name.
    std::string putInOrder(const std::string &sFirst, const std::string &sPrefix)
    {
        for (int n = 0; n < 100; ++n) {
            const std::string sSecond = sPrefix + std::to_string(n);
            fs::remove_all(m_sDir);
            fs::create_directory(m_sDir);
            put(n % 2 == 0 ? sFirst : sSecond);
            put(n % 2 == 0 ? sSecond : sFirst);
            if (listed() == Names{sFirst, sSecond})
                return sSecond;
        }
        ADD_FAILURE() << "the directory never gave " << sFirst << " first";
        return sPrefix;
    }

    // The log texts of a purge.
    Texts purge()
    {
        logOn();
        DelOutTimeLogFile();
        return logTexts();
    }

    const std::string m_sDir = libraryDirectory() + "/log";
    FakeClock m_clock{localSeconds(2026, 11, 20)};
    mode_t m_nMask = 0;
    int m_nDescriptors = 0;
};

// ---- the age of one file -----------------------------------------------------------------------------------------

struct AgeRow {
    Date today;
    Date file;
    int nAge;
};

TEST_F(Retention, AgeIsCountedAsWrittenAndOnlyAbove15IsOld)
{
    const AgeRow aRows[] = {
        // the same month
        {{2026, 11, 20}, {2026, 11, 20}, 0},
        {{2026, 11, 20}, {2026, 11, 19}, 1},
        {{2026, 11, 20}, {2026, 11, 6}, 14},
        {{2026, 11, 20}, {2026, 11, 5}, 15},
        {{2026, 11, 20}, {2026, 11, 4}, 16},
        {{2026, 11, 20}, {2026, 11, 1}, 19},
        {{2026, 11, 20}, {2026, 11, 21}, -1},
        {{2026, 11, 20}, {2026, 11, 30}, -10},
        {{2026, 11, 20}, {2026, 11, 99}, -79},
        {{2026, 12, 31}, {2026, 12, 1}, 30},
        {{2024, 2, 29}, {2024, 2, 13}, 16},
        {{2024, 2, 29}, {2024, 2, 14}, 15},
        // an earlier month of the year: every month between is 30 days, the file's own has 31
        {{2026, 11, 1}, {2026, 10, 31}, 1},
        {{2026, 11, 1}, {2026, 10, 17}, 15},
        {{2026, 11, 1}, {2026, 10, 16}, 16},
        {{2026, 11, 15}, {2026, 10, 31}, 15},
        {{2026, 11, 16}, {2026, 10, 31}, 16},
        {{2026, 3, 1}, {2026, 2, 28}, 4},
        {{2024, 3, 1}, {2024, 2, 29}, 3},
        {{2026, 3, 5}, {2026, 2, 21}, 15},
        {{2026, 3, 5}, {2026, 2, 20}, 16},
        {{2026, 11, 1}, {2026, 10, 46}, -14},
        {{2026, 3, 1}, {2026, 1, 31}, 31},
        {{2026, 3, 1}, {2026, 1, 62}, 0},
        {{2026, 11, 20}, {2026, 9, 20}, 61},
        {{2026, 12, 31}, {2026, 1, 1}, 361},
        // anything else is 16
        {{2027, 1, 1}, {2026, 12, 31}, 16},
        {{2026, 11, 20}, {2025, 11, 20}, 16},
        {{2026, 11, 20}, {2025, 12, 31}, 16},
        {{2026, 11, 20}, {1999, 1, 1}, 16},
        {{2026, 11, 20}, {2027, 1, 1}, 16},
        {{2026, 11, 20}, {2027, 11, 20}, 16},
        {{2026, 11, 20}, {9999, 12, 31}, 16},
        {{2026, 11, 20}, {2026, 12, 1}, 16},
        {{2026, 11, 20}, {2026, 12, 20}, 16},
        {{2026, 11, 20}, {2026, 99, 1}, 16},
    };
    for (const AgeRow &row : aRows) {
        const std::string sName = logName(row.file);
        SCOPED_TRACE(logName(row.today) + " looks at " + sName);
        today(row.today);
        put(sName);
        Texts expected = {"3", "file:" + sName, "nbetween data:" + std::to_string(row.nAge)};
        if (row.nAge > 15)
            expected.push_back("del outtime FILE:" + path(sName));
        EXPECT_EQ(purge(), expected);
        EXPECT_EQ(has(sName), row.nAge <= 15);
        fs::remove(path(sName));
    }
}

TEST_F(Retention, TodayIsTheLocalDate)
{
    // 2026-11-20 20:00 UTC is already the 21st here: the file of the 5th is 16 days old.
    m_clock.set(localSeconds(2026, 11, 21, 4, 30, 0));
    put("QV_20261105.log");
    DelOutTimeLogFile();
    EXPECT_FALSE(has("QV_20261105.log"));
}

TEST_F(Retention, PurgeLinesAreTypedPublicWithDoubledLineEnds)
{
    m_clock.set(localSeconds(2026, 11, 20, 6, 7, 8), 9);
    put("QV_20260101.log");
    logOn();
    DelOutTimeLogFile();
    const std::string sHead = "  11-20 06:07:08(009)  INFO:    Public:  ";
    EXPECT_EQ(rawLog(), sHead + "3\r\n\r\n" + sHead + "file:QV_20260101.log\r\n\r\n" + sHead +
                            "nbetween data:320\r\n\r\n" + sHead + "del outtime FILE:" + path("QV_20260101.log") +
                            "\r\n\r\n");
}

TEST_F(Retention, LinesOfAnInvalidFileAndOfAMissingDirectoryAreTypedPublicToo)
{
    m_clock.set(localSeconds(2026, 11, 20, 6, 7, 8), 9);
    put("stray");
    logOn();
    DelOutTimeLogFile();
    const std::string sHead = "  11-20 06:07:08(009)  INFO:    Public:  ";
    EXPECT_EQ(rawLog(), sHead + "3\r\n\r\n" + sHead + "file:stray\r\n\r\n" + sHead +
                            "del Invalid FILE:" + path("stray") + "\r\n\r\n");
    fs::remove_all(m_sDir);
    logOn();
    DelOutTimeLogFile();
    EXPECT_EQ(rawLog(), sHead + "_findfirst ERR\r\n\r\n");
}

// ---- names ---------------------------------------------------------------------------------------------------------

TEST_F(Retention, FirstNameThatIsNoLogFileIsInvalid)
{
    for (const std::string sName :
         {"Alg_debug.log", "x", "QV_.log", "QV_2026.log", "QV_202611.log", "qv_20261120.log", " QV_20261120.log",
          "QV_00001120.log", "QV_20260020.log", "QV_20261100.log", "%s%n%n"}) {
        SCOPED_TRACE(sName);
        put(sName);
        EXPECT_EQ(purge(), (Texts{"3", "file:" + sName, "del Invalid FILE:" + path(sName)}));
        EXPECT_FALSE(has(sName));
    }
}

struct NameRow {
    const char *pszName;
    int nAge;
};

TEST_F(Retention, NameIsReadAsScanfReadsIt)
{
    const NameRow aRows[] = {
        {"QV_20261120", 0},       {"QV_20261120.txt", 0},  {"QV_20261120x.bak", 0},  {"QV_202611200.log", 0},
        {"QV_2026 1 5.log", 316}, {"QV_ 20261119.log", 1}, {"QV_2026+118.log", 303}, {"QV_2026-101.log", 380},
        {"QV_202611-5.log", 25},  {"QV_20261 5.log", 316}, {"QV_+20261119.log", 16}, {"QV_20261119.log.1", 1},
    };
    for (const NameRow &row : aRows) {
        const std::string sName = row.pszName;
        SCOPED_TRACE(sName);
        int nYear = 0;
        int nMonth = 0;
        int nDay = 0;
        ASSERT_EQ(std::sscanf(row.pszName, "QV_%04d%02d%02d.log", &nYear, &nMonth, &nDay), 3);
        put(sName);
        Texts expected = {"3", "file:" + sName, "nbetween data:" + std::to_string(row.nAge)};
        if (row.nAge > 15)
            expected.push_back("del outtime FILE:" + path(sName));
        EXPECT_EQ(purge(), expected);
        EXPECT_EQ(has(sName), row.nAge <= 15);
        fs::remove(path(sName));
    }
}

TEST_F(Retention, NameOf255BytesIsHandledWhole)
{
    const std::string sInvalid(255, 'n');
    const std::string sOld = "QV_20260101.log" + std::string(240, 'o');
    const std::string sKept = "QV_20261119.log" + std::string(240, 'k');
    put(sInvalid);
    EXPECT_EQ(listed(), Names{sInvalid});
    EXPECT_EQ(purge(), (Texts{"3", "file:" + sInvalid, "del Invalid FILE:" + path(sInvalid)}));
    EXPECT_FALSE(has(sInvalid));
    put(sOld);
    EXPECT_EQ(purge(), (Texts{"3", "file:" + sOld, "nbetween data:320", "del outtime FILE:" + path(sOld)}));
    EXPECT_FALSE(has(sOld));
    put(sKept);
    EXPECT_EQ(purge(), (Texts{"3", "file:" + sKept, "nbetween data:1"}));
    EXPECT_TRUE(has(sKept));
}

TEST_F(Retention, NameOfForeignBytesIsHandledAsItIs)
{
    const std::string sName = "\xB6\xC1\xFF.log";
    put(sName);
    EXPECT_EQ(purge(), (Texts{"3", "file:" + sName, "del Invalid FILE:" + path(sName)}));
    EXPECT_FALSE(has(sName));
}

// ---- what carries over from file to file ---------------------------------------------------------------------------

TEST_F(Retention, NameWithoutADateKeepsTheDateOfTheNameBefore)
{
    // behind a recent file
    std::string sSecond = putInOrder("QV_20261118.log", "stray");
    EXPECT_EQ(purge(), (Texts{"3", "file:QV_20261118.log", "nbetween data:2", "file:" + sSecond, "nbetween data:2"}));
    EXPECT_TRUE(has(sSecond));

    // behind an old file
    sSecond = putInOrder("QV_20261104.log", "stray");
    EXPECT_EQ(purge(),
              (Texts{"3", "file:QV_20261104.log", "nbetween data:16", "del outtime FILE:" + path("QV_20261104.log"),
                     "file:" + sSecond, "nbetween data:16", "del outtime FILE:" + path(sSecond)}));
    EXPECT_TRUE(fs::is_empty(m_sDir));

    // behind a date that is no date
    sSecond = putInOrder("QV_20260020.log", "stray");
    EXPECT_EQ(purge(), (Texts{"3", "file:QV_20260020.log", "del Invalid FILE:" + path("QV_20260020.log"),
                              "file:" + sSecond, "del Invalid FILE:" + path(sSecond)}));
    EXPECT_TRUE(fs::is_empty(m_sDir));
}

TEST_F(Retention, HalfADateTakesTheRestFromTheNameBefore)
{
    // the year from the name itself, month and day from the name before
    std::string sSecond = putInOrder("QV_20251115.log", "QV_2026x");
    EXPECT_EQ(purge(), (Texts{"3", "file:QV_20251115.log", "nbetween data:16",
                              "del outtime FILE:" + path("QV_20251115.log"), "file:" + sSecond, "nbetween data:5"}));
    EXPECT_TRUE(has(sSecond));

    // year and month from the name itself, the day from the name before
    sSecond = putInOrder("QV_20261130.log", "QV_202610x");
    EXPECT_EQ(purge(), (Texts{"3", "file:QV_20261130.log", "nbetween data:-10", "file:" + sSecond, "nbetween data:21",
                              "del outtime FILE:" + path(sSecond)}));
    EXPECT_TRUE(has("QV_20261130.log"));
    EXPECT_FALSE(has(sSecond));

    // a year alone repairs the missing year of the name before
    sSecond = putInOrder("QV_00001120.log", "QV_2026x");
    EXPECT_EQ(purge(), (Texts{"3", "file:QV_00001120.log", "del Invalid FILE:" + path("QV_00001120.log"),
                              "file:" + sSecond, "nbetween data:0"}));
    EXPECT_TRUE(has(sSecond));
}

TEST_F(Retention, NothingCarriesOverFromOnePurgeToTheNext)
{
    put("QV_20261118.log");
    DelOutTimeLogFile();
    EXPECT_TRUE(has("QV_20261118.log"));
    fs::remove(path("QV_20261118.log"));
    put("stray");
    DelOutTimeLogFile();
    EXPECT_FALSE(has("stray"));
}

TEST_F(Retention, MixedDirectoriesArePurgedInTheirOwnOrder)
{
    std::mt19937 random(20261120);
    const char *const aParts[] = {"QV_2026", "QV_2025",   "QV_0000",   "stray",
                                  "QV_",     "QV_202611", "QV_202610", "QV_202612"};
    for (int nRound = 0; nRound < 20; ++nRound) {
        fs::remove_all(m_sDir);
        fs::create_directory(m_sDir);
        for (int n = 0; n < 40; ++n) {
            std::string sName = aParts[random() % std::size(aParts)];
            const unsigned nDay = static_cast<unsigned>(random() % 31);
            if (random() % 4 != 0)
                sName += std::to_string(nDay / 10) + std::to_string(nDay % 10);
            if (random() % 4 != 0)
                sName += "15.log";
            put(sName + "_" + std::to_string(random() % 10));
        }
        int nYear = 0;
        int nMonth = 0;
        int nDay = 0;
        Texts expected = {"3"};
        std::set<std::string> left;
        for (const std::string &sName : listed()) {
            expected.push_back("file:" + sName);
            std::sscanf(sName.c_str(), "QV_%04d%02d%02d.log", &nYear, &nMonth, &nDay);
            if (nYear == 0 || nMonth == 0 || nDay == 0) {
                expected.push_back("del Invalid FILE:" + path(sName));
                continue;
            }
            int nAge = 16;
            if (nYear == 2026 && nMonth == 11)
                nAge = 20 - nDay;
            else if (nYear == 2026 && nMonth < 11)
                nAge = (11 - nMonth - 1) * 30 + (31 - nDay + 20);
            expected.push_back("nbetween data:" + std::to_string(nAge));
            if (nAge > 15)
                expected.push_back("del outtime FILE:" + path(sName));
            else
                left.insert(sName);
        }
        EXPECT_EQ(purge(), expected);
        const Names after = listed();
        EXPECT_EQ(std::set<std::string>(after.begin(), after.end()), left);
    }
}

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
