#include "steady_clock.h"

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr long nStartMillis = 5000;
std::atomic<bool> s_bFaked{false};
std::atomic<long> s_nMillis{0};

} // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t nClock, timespec *pNow) noexcept
{
    if (nClock != CLOCK_MONOTONIC || !s_bFaked)
        return static_cast<int>(syscall(SYS_clock_gettime, nClock, pNow));
    const long nNow = s_nMillis;
    *pNow = {nNow / 1000, nNow % 1000 * 1'000'000};
    return 0;
}

namespace qvtest {

SteadyClock::SteadyClock()
{
    s_nMillis = nStartMillis;
    s_bFaked = true;
}

SteadyClock::~SteadyClock()
{
    s_bFaked = false;
}

void SteadyClock::advance(long nMillis)
{
    s_nMillis += nMillis;
}

} // namespace qvtest
