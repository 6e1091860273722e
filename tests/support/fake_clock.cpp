#include "fake_clock.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <sys/time.h>

namespace {

std::mutex s_guard;
bool s_bFaked = false;
bool s_bBroken = false;
int s_nMillis = 0;
std::vector<time_t> s_script{0};
size_t s_nAt = 0;
std::atomic<int> s_nCalls{0};

time_t current()
{
    return s_script[s_nAt];
}

} // namespace

extern "C" time_t time(time_t *pOut) noexcept
{
    std::scoped_lock lock(s_guard);
    ++s_nCalls;
    time_t nNow = 0;
    if (s_bFaked) {
        nNow = current();
        if (s_nAt + 1 < s_script.size())
            ++s_nAt;
    } else {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        nNow = now.tv_sec;
    }
    if (pOut != nullptr)
        *pOut = nNow;
    return nNow;
}

extern "C" int gettimeofday(timeval *pNow, void *) noexcept
{
    std::scoped_lock lock(s_guard);
    if (s_bFaked && s_bBroken) {
        errno = EFAULT;
        return -1;
    }
    if (s_bFaked) {
        *pNow = {current(), s_nMillis * 1000};
        return 0;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *pNow = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

namespace qvtest {

FakeClock::FakeClock(time_t nSeconds, int nMillis)
{
    set(nSeconds, nMillis);
    std::scoped_lock lock(s_guard);
    s_bFaked = true;
    s_bBroken = false;
    s_nCalls = 0;
}

FakeClock::~FakeClock()
{
    std::scoped_lock lock(s_guard);
    s_bFaked = false;
}

void FakeClock::set(time_t nSeconds, int nMillis)
{
    std::scoped_lock lock(s_guard);
    s_script = {nSeconds};
    s_nAt = 0;
    s_nMillis = nMillis;
}

void FakeClock::advance(int nSeconds)
{
    std::scoped_lock lock(s_guard);
    s_script = {current() + nSeconds};
    s_nAt = 0;
}

void FakeClock::script(std::initializer_list<time_t> seconds)
{
    std::scoped_lock lock(s_guard);
    s_script = seconds;
    s_nAt = 0;
}

void FakeClock::breakMillis()
{
    std::scoped_lock lock(s_guard);
    s_bBroken = true;
}

int FakeClock::timeCalls()
{
    return s_nCalls;
}

time_t localSeconds(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond)
{
    tm local{};
    local.tm_year = nYear - 1900;
    local.tm_mon = nMonth - 1;
    local.tm_mday = nDay;
    local.tm_hour = nHour;
    local.tm_min = nMinute;
    local.tm_sec = nSecond;
    local.tm_isdst = -1;
    return mktime(&local);
}

} // namespace qvtest
