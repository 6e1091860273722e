// Local time as text, other zones, the date check, millisecond stamps and sleeping, under a clock that stands where the
// test puts it.

#include "fake_clock.h"
#include "far_zone.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

std::vector<unsigned> s_slept;    // what the library asked sleep() for
std::vector<unsigned> s_leftOver; // what its next calls have left when a signal comes, last one first

} // namespace

// Stands in for the C library's, so that nothing here waits; the library must find it.
extern "C" [[gnu::visibility("default")]] unsigned sleep(unsigned nSeconds)
{
    s_slept.push_back(nSeconds);
    if (s_leftOver.empty())
        return 0;
    const unsigned nLeft = s_leftOver.back();
    s_leftOver.pop_back();
    return nLeft;
}

namespace {

using Texts = std::vector<std::string>;

class Time : public testing::Test {
  protected:
    void SetUp() override { m_nDescriptors = openDescriptors(); }
    void TearDown() override
    {
        logOff();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }

    FakeClock m_clock{localSeconds(2024, 3, 5, 6, 7, 8), 9};
    int m_nDescriptors = 0;
};

TEST(AtLoad, StampsAre0)
{
    EXPECT_EQ(g_stStartTime, 0);
    EXPECT_EQ(g_stEndTime, 0);
    EXPECT_EQ(GetTickCountTimeOut(), 0);
}

// ---- local time as text --------------------------------------------------------------------------------------------------

TEST_F(Time, LocalTimeWithoutSeparatorIs15Digits)
{
    EXPECT_STREQ(Time_GetLocalTime(nullptr), "240305060708009");
    EXPECT_STREQ(Time_GetLocalTime(""), "240305060708009");
}

TEST_F(Time, SeparatorFollowsEveryFieldButTheMilliseconds)
{
    EXPECT_STREQ(Time_GetLocalTime("-"), "24-03-05-06-07-08-009");
    EXPECT_STREQ(Time_GetLocalTime(", "), "24, 03, 05, 06, 07, 08, 009");
    EXPECT_STREQ(Time_GetLocalTime("%s%n"), "24%s%n03%s%n05%s%n06%s%n07%s%n08%s%n009");
    EXPECT_STREQ(Time_GetLocalTime("\xFF"), "24\xFF"
                                            "03\xFF"
                                            "05\xFF"
                                            "06\xFF"
                                            "07\xFF"
                                            "08\xFF"
                                            "009");
}

struct ClockRow {
    int nYear, nMonth, nDay, nHour, nMinute, nSecond, nMillis;
    const char *pszText;
};

TEST_F(Time, FieldsArePaddedAndYearsCountFrom2000)
{
    const ClockRow aRows[] = {
        {2000, 1, 1, 0, 0, 0, 0, "000101000000000"},       {2000, 2, 29, 23, 59, 59, 999, "000229235959999"},
        {2024, 12, 31, 23, 59, 59, 99, "241231235959099"}, {2026, 11, 21, 10, 20, 30, 456, "261121102030456"},
        {2099, 10, 9, 8, 7, 6, 5, "991009080706005"},      {2105, 3, 4, 5, 6, 7, 8, "1050304050607008"},
        {1999, 12, 31, 1, 2, 3, 4, "-11231010203004"},
    };
    for (const ClockRow &row : aRows) {
        m_clock.set(localSeconds(row.nYear, row.nMonth, row.nDay, row.nHour, row.nMinute, row.nSecond), row.nMillis);
        EXPECT_STREQ(Time_GetLocalTime(nullptr), row.pszText);
    }
}

TEST_F(Time, EachCallOverwritesTheOneBuffer)
{
    char *pszFirst = Time_GetLocalTime("-");
    m_clock.advance(1);
    EXPECT_EQ(Time_GetLocalTime(nullptr), pszFirst);
    EXPECT_STREQ(pszFirst, "240305060709009");
    char szDate[6];
    Time_GetLocalTime("-");
    GetTransDate(szDate);
    EXPECT_STREQ(pszFirst, "240305060709009") << "the date goes through the same buffer";
}

TEST_F(Time, OverlongTextIsCutAt127Characters)
{
    for (size_t nLen : {size_t{18}, size_t{19}, size_t{20}, size_t{100}, size_t{126}, size_t{1000}, size_t{100000}}) {
        const std::string sSeparator(nLen, '.');
        std::string sWhole;
        for (const char *pszField : {"24", "03", "05", "06", "07", "08"})
            sWhole += pszField + sSeparator;
        sWhole += "009";
        EXPECT_EQ(Time_GetLocalTime(sSeparator.c_str()), sWhole.substr(0, 127)) << nLen;
    }
}

TEST_F(Time, TheSharedBufferMayBeItsOwnSeparator)
{
    EXPECT_STREQ(Time_GetLocalTime(Time_GetLocalTime(nullptr)), "24240305060708009"
                                                                "03240305060708009"
                                                                "05240305060708009"
                                                                "06240305060708009"
                                                                "07240305060708009"
                                                                "08240305060708009"
                                                                "009");
}

TEST_F(Time, LocalTimeLogsStartAndResult)
{
    logOn();
    Time_GetLocalTime("-");
    EXPECT_EQ(logTexts(),
              (Texts{"[Time_GetLocalTime] Start ", "[Time_GetLocalTime] End szTime = 24-03-05-06-07-08-009 "}));
    EXPECT_NE(rawLog().find("INFO:    Public:  [Time_GetLocalTime] Start \r\n"), std::string::npos);
    EXPECT_NE(rawLog().find("INFO:    Public:  [Time_GetLocalTime] End szTime = "), std::string::npos);
}

TEST_F(Time, TransDateAndTimeCopySixCharactersWithoutNul)
{
    char szOut[8];
    std::memset(szOut, 'x', sizeof szOut);
    GetTransDate(szOut);
    EXPECT_EQ(std::string(szOut, 8), "240305xx");
    std::memset(szOut, 'x', sizeof szOut);
    GetTransTime(szOut);
    EXPECT_EQ(std::string(szOut, 8), "060708xx");
    GetTransDate(nullptr);
    GetTransTime(nullptr);
    m_clock.set(localSeconds(2031, 12, 30, 23, 0, 59), 999);
    GetTransDate(szOut);
    EXPECT_EQ(std::string(szOut, 6), "311230");
    GetTransTime(szOut);
    EXPECT_EQ(std::string(szOut, 6), "230059");
}

// ---- another zone -----------------------------------------------------------------------------------------------------------

// Each call follows by itself: none leans on the one before it.
TEST_F(Time, ZoneThatAHostChangesHoldsFromTheNextCallOn)
{
    m_clock.set(localSeconds(2024, 3, 5, 4, 7, 8), 9); // 2024-03-04 19:37:08 UTC
    EXPECT_STREQ(GetLogTime(), "03-05 04:07:08(009)");
    {
        const Zone zone("UTC0");
        EXPECT_STREQ(GetLogTime(), "03-04 19:37:08(009)");
    }
    EXPECT_STREQ(Time_GetLocalTime(nullptr), "240305040708009");
    {
        const Zone zone("UTC0");
        EXPECT_STREQ(Time_GetLocalTime(nullptr), "240304193708009");
    }
    EXPECT_EQ(pGetLogPath(), libraryDirectory() + "/log/QV_20240305.log");
    {
        const Zone zone("UTC0");
        EXPECT_EQ(pGetLogPath(), libraryDirectory() + "/log/QV_20240304.log");
    }
}

// ---- date check --------------------------------------------------------------------------------------------------------------

struct DateRow {
    const char *pszBcd;
    int32_t nResult;
};

TEST_F(Time, DateIsValidOrNot)
{
    const DateRow aRows[] = {
        {"00 02 29", 0},  {"99 02 29", -1}, {"24 02 29", 0},  {"24 13 01", -1}, {"24 04 31", -1}, {"2A 01 01", -1},
        {"A2 01 01", -1}, {"24 0A 01", -1}, {"24 A0 01", -1}, {"24 01 0A", -1}, {"24 01 A0", -1}, {"24 1F 01", -1},
        {"24 00 01", -1}, {"24 01 00", -1}, {"24 01 01", 0},  {"24 01 31", 0},  {"24 01 32", -1}, {"24 02 30", -1},
        {"23 02 28", 0},  {"23 02 29", -1}, {"24 12 31", 0},  {"24 12 32", -1}, {"24 99 01", -1}, {"24 01 99", -1},
        {"49 12 31", 0},  {"50 02 29", -1}, {"52 02 29", 0},  {"48 02 29", 0},  {"96 02 29", 0},  {"00 00 00", -1},
        {"FF FF FF", -1},
    };
    for (const DateRow &row : aRows)
        EXPECT_EQ(time_Valid_YYMMDD(bytes(row.pszBcd).data()), row.nResult) << row.pszBcd;
    EXPECT_EQ(time_Valid_YYMMDD(nullptr), -1);
}

bool isBcd(int n)
{
    return n / 16 <= 9 && n % 16 <= 9;
}

int fromBcd(int n)
{
    return n / 16 * 10 + n % 16;
}

bool isValidDate(int nYearBcd, int nMonthBcd, int nDayBcd)
{
    if (!isBcd(nYearBcd) || !isBcd(nMonthBcd) || !isBcd(nDayBcd))
        return false;
    const int nYear = fromBcd(nYearBcd) + (nYearBcd < 0x50 ? 2000 : 1900);
    const int nMonth = fromBcd(nMonthBcd);
    const int nDay = fromBcd(nDayBcd);
    if (nMonth < 1 || nMonth > 12 || nDay < 1)
        return false;
    if (nMonth == 2)
        return nDay <= (nYear % 4 == 0 ? 29 : 28); // no year from 1950 to 2049 is an exception
    return nDay <= (nMonth == 4 || nMonth == 6 || nMonth == 9 || nMonth == 11 ? 30 : 31);
}

TEST_F(Time, EveryMonthAndDayIsCheckedAndEveryYearsFebruary)
{
    auto check = [](int nYear, int nMonth, int nDay) {
        const uint8_t aBcd[] = {static_cast<uint8_t>(nYear), static_cast<uint8_t>(nMonth), static_cast<uint8_t>(nDay)};
        ASSERT_EQ(time_Valid_YYMMDD(aBcd), isValidDate(nYear, nMonth, nDay) ? 0 : -1) << hex(aBcd);
    };
    for (int nYear : {0x00, 0x23, 0x24, 0x4F})
        for (int nMonth = 0; nMonth < 256; ++nMonth)
            for (int nDay = 0; nDay < 256; ++nDay)
                check(nYear, nMonth, nDay);
    for (int nYear = 0; nYear < 256; ++nYear)
        for (int nDay : {0x01, 0x28, 0x29, 0x30})
            for (int nMonth : {0x01, 0x02, 0x12})
                check(nYear, nMonth, nDay);
}

// ---- milliseconds --------------------------------------------------------------------------------------------------------------

TEST_F(Time, TickCountIsMillisecondsCutTo32Bits)
{
    struct {
        time_t nSeconds;
        int nMillis;
        uint32_t nTicks;
    } const aRows[] = {
        {0, 0, 0},         {0, 1, 1},
        {1, 999, 1999},    {4294967, 295, 4294967295U}, // the last before the wrap
        {4294967, 296, 0}, {4294967, 297, 1},
        {8589934, 592, 0}, {1700000000, 123, 3487918203U}, // 1700000000123 modulo 2^32
    };
    for (const auto &row : aRows) {
        m_clock.set(row.nSeconds, row.nMillis);
        EXPECT_EQ(GetTickCount(), row.nTicks) << row.nSeconds << "." << row.nMillis;
    }
}

TEST_F(Time, TickCountIs0WhenTheClockCannotBeRead)
{
    EXPECT_NE(GetTickCount(), 0U);
    m_clock.breakMillis();
    EXPECT_EQ(GetTickCount(), 0U);
}

TEST_F(Time, StampsAreStoredReturnedAndSubtracted)
{
    m_clock.set(1700000000, 123);
    EXPECT_EQ(GetTickCountStartTime(), 1700000000123);
    EXPECT_EQ(g_stStartTime, 1700000000123);
    m_clock.set(1700000012, 23);
    EXPECT_EQ(GetTickCountEndTime(), 1700000012023);
    EXPECT_EQ(g_stEndTime, 1700000012023);
    EXPECT_EQ(g_stStartTime, 1700000000123) << "the end leaves the start";
    EXPECT_EQ(GetTickCountTimeOut(), 11900);

    g_stStartTime = 50;
    g_stEndTime = 45;
    EXPECT_EQ(GetTickCountTimeOut(), -5);
    g_stEndTime = 5000000000;
    EXPECT_EQ(GetTickCountTimeOut(), 4999999950);
}

TEST_F(Time, StampsAreLogged)
{
    m_clock.set(1700000000, 123);
    logOn();
    GetTickCountStartTime();
    EXPECT_EQ(logTexts(), Texts{"g_stStartTime= 1700000000123"});
    EXPECT_NE(rawLog().find("INFO:    Public:  g_stStartTime= "), std::string::npos);
    m_clock.set(1700000001, 0);
    logOn();
    GetTickCountEndTime();
    EXPECT_EQ(logTexts(), Texts{"g_stEndTime= 1700000001000"});
    EXPECT_NE(rawLog().find("INFO:    Public:  g_stEndTime= "), std::string::npos);
    logOn();
    GetTickCountTimeOut();
    EXPECT_EQ(logTexts(), Texts{"877 "});
    EXPECT_NE(rawLog().find("INFO:    Public:  877 \r\n"), std::string::npos);
    g_stStartTime = g_stEndTime + 5;
    logOn();
    GetTickCountTimeOut();
    EXPECT_EQ(logTexts(), Texts{"-5 "});
}

// ---- sleeping ----------------------------------------------------------------------------------------------------------------

TEST_F(Time, SleepIsInWholeSecondsOf200)
{
    struct {
        int32_t n;
        unsigned nSeconds;
    } const aRows[] = {{200, 1}, {201, 1}, {399, 1}, {400, 2}, {599, 2}, {600, 3}, {200000, 1000}, {INT_MAX, 10737418}};
    for (const auto &row : aRows) {
        s_slept.clear();
        GeneralSleep(row.n);
        unsigned nSum = 0;
        for (unsigned n : s_slept)
            nSum += n;
        EXPECT_EQ(nSum, row.nSeconds) << row.n;
    }
}

TEST_F(Time, SleepBelow200OrNegativeReturnsAtOnce)
{
    s_slept.clear();
    for (int32_t n : {0, 1, 100, 199, -1, -199, -200, -201, -1000000, INT_MIN})
        GeneralSleep(n);
    for (unsigned n : s_slept)
        EXPECT_EQ(n, 0U);
}

TEST_F(Time, SignalDoesNotCutASleepShort)
{
    s_slept.clear();
    s_leftOver = {2, 3};
    GeneralSleep(1000);
    EXPECT_EQ(s_slept, (std::vector<unsigned>{5, 3, 2}));
}

} // namespace
