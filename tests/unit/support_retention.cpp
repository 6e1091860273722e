// Which log files the purge deletes: their age, their names, and what one name leaves for the next.

#include "support_retention.h"

#include <cstdio>
#include <random>
#include <set>
#include <string>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

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
        expectAge(sName, row.nAge);
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
        expectAge(sName, row.nAge);
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

} // namespace
