// steady_clock.h - the clock that only goes forward, as the test says.
//
// The library measures the passes of a read by clock_gettime(CLOCK_MONOTONIC). A test program that links
// steady_clock.cpp defines that function; while a SteadyClock object lives, this clock stands unless the test moves it.
#pragma once

namespace qvtest {

class SteadyClock {
  public:
    SteadyClock();
    ~SteadyClock();
    SteadyClock(const SteadyClock &) = delete;
    SteadyClock &operator=(const SteadyClock &) = delete;

    static void advance(long nMillis);
};

} // namespace qvtest
