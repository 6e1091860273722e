// time.cpp - local time as compact text, BCD dates, elapsed milliseconds, sleeping.

#include "clock.h"
#include "log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <unistd.h>

int64_t g_stStartTime = 0;
int64_t g_stEndTime = 0;

namespace {

constexpr std::size_t nTimeSize = 128;
std::array<char, nTimeSize> s_szTime{};

constexpr std::array<int, 12> s_daysOfMonth{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr int nSleepUnit = 200; // GeneralSleep counts in 1/200 seconds

bool isLeapYear(int nYear) noexcept
{
    return (nYear % 4 == 0 && nYear % 100 != 0) || nYear % 400 == 0;
}

bool isBcd(uint8_t uc) noexcept
{
    return (uc >> 4) <= 9 && (uc & 0x0F) <= 9;
}

int fromBcd(uint8_t uc) noexcept
{
    return (uc >> 4) * 10 + (uc & 0x0F);
}

// The date and the time of day in the text without separators.
constexpr size_t nFieldSize = 6;
void copyField(size_t nAt, char *pOut) noexcept
{
    if (pOut != nullptr)
        std::copy_n(Time_GetLocalTime(nullptr) + nAt, nFieldSize, pOut);
}

int64_t stamp() noexcept
{
    return std::max<int64_t>(qv::wallMillis(), 0);
}

} // namespace

char *Time_GetLocalTime(const char *pszSep) noexcept
{
    QV_LOG(qv::kLogPublic, "[%s] Start ", __func__);
    const qv::LocalTime now = qv::localNow();
    const char *psz = pszSep == nullptr ? "" : pszSep;
    const tm &st = now.stFields;
    std::array<char, nTimeSize> szTime; // pszSep may be the shared buffer itself
    std::snprintf(szTime.data(), szTime.size(), "%02d%s%02d%s%02d%s%02d%s%02d%s%02d%s%03d", st.tm_year - 100, psz,
                  st.tm_mon + 1, psz, st.tm_mday, psz, st.tm_hour, psz, st.tm_min, psz, st.tm_sec, psz, now.nMillis);
    s_szTime = szTime;
    QV_LOG(qv::kLogPublic, "[%s] End szTime = %s ", __func__, s_szTime.data());
    return s_szTime.data();
}

void GetTransDate(char *pOut) noexcept
{
    copyField(0, pOut);
}

void GetTransTime(char *pOut) noexcept
{
    copyField(nFieldSize, pOut);
}

int32_t time_Valid_YYMMDD(const uint8_t *pBcd) noexcept
{
    if (pBcd == nullptr || !std::all_of(pBcd, pBcd + 3, isBcd))
        return RET_PUB_FAIL;
    const int nYear = fromBcd(pBcd[0]) + (pBcd[0] < 0x50 ? 2000 : 1900);
    const int nMonth = fromBcd(pBcd[1]);
    const int nDay = fromBcd(pBcd[2]);
    if (nMonth < 1 || nMonth > 12)
        return RET_PUB_FAIL;
    const int nDays = nMonth == 2 && isLeapYear(nYear) ? 29 : s_daysOfMonth[static_cast<size_t>(nMonth - 1)];
    return nDay >= 1 && nDay <= nDays ? 0 : RET_PUB_FAIL;
}

uint32_t GetTickCount(void) noexcept
{
    return static_cast<uint32_t>(stamp());
}

int64_t GetTickCountStartTime(void) noexcept
{
    g_stStartTime = stamp();
    QV_LOG(qv::kLogPublic, "g_stStartTime= %ld", g_stStartTime);
    return g_stStartTime;
}

int64_t GetTickCountEndTime(void) noexcept
{
    g_stEndTime = stamp();
    QV_LOG(qv::kLogPublic, "g_stEndTime= %ld", g_stEndTime);
    return g_stEndTime;
}

int64_t GetTickCountTimeOut(void) noexcept
{
    const auto nElapsed =
        static_cast<int64_t>(static_cast<uint64_t>(g_stEndTime) - static_cast<uint64_t>(g_stStartTime));
    QV_LOG(qv::kLogPublic, "%d ", static_cast<int>(nElapsed));
    return nElapsed;
}

void GeneralSleep(int32_t n) noexcept
{
    // A signal does not cut the pause short.
    for (unsigned nLeft = n > 0 ? static_cast<unsigned>(n / nSleepUnit) : 0; nLeft > 0;)
        nLeft = sleep(nLeft);
}
