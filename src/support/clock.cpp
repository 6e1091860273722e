// clock.cpp - see shared/clock.h.

#include "clock.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <sys/time.h>

namespace qv {

namespace {

// localtime_r looks at TZ once only. A host may change it; reading the zone anew for each line would be dear.
void followZone() noexcept
{
    static std::atomic<size_t> s_nZone{0}; // hash of the text that was seen last
    const char *pszZone = std::getenv("TZ");
    const size_t nZone = pszZone == nullptr ? 1 : std::hash<std::string_view>{}(pszZone);
    if (s_nZone.exchange(nZone, std::memory_order_relaxed) != nZone)
        tzset();
}

} // namespace

time_t wallSeconds() noexcept
{
    return time(nullptr);
}

int64_t wallMillis() noexcept
{
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0)
        return -1;
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

LocalTime localNow() noexcept
{
    int64_t nNow = wallMillis();
    if (nNow < 0)
        nNow = 0;
    LocalTime local{};
    const time_t nSeconds = nNow / 1000;
    followZone();
    localtime_r(&nSeconds, &local.stFields);
    local.nMillis = static_cast<int>(nNow % 1000);
    return local;
}

int64_t steadyMillis() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void pauseMillis(int64_t nMillis) noexcept
{
    if (nMillis <= 0)
        return;
    timespec rest{nMillis / 1000, (nMillis % 1000) * 1'000'000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

} // namespace qv
