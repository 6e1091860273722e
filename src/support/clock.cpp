// clock.cpp - see shared/clock.h.

#include "clock.h"

#include <cerrno>
#include <sys/time.h>

namespace qv {

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
    tzset(); // a host may have changed TZ
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
