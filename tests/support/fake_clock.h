// fake_clock.h - the wall clock as the test says.
//
// The library reads the wall clock through time(2) and gettimeofday(2) only. A test program that is built with
// FAKE_CLOCK defines both itself and so decides what the library sees; without a FakeClock object they tell the true
// time.
#pragma once

#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <vector>

namespace qvtest {

class FakeClock {
  public:
    // Stands at nSeconds.nMillis since the epoch, whatever really passes.
    explicit FakeClock(time_t nSeconds, int nMillis = 0);
    ~FakeClock();
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;

    void set(time_t nSeconds, int nMillis = 0);
    void advance(int nSeconds);
    // The next calls of time() answer these values in turn; the last one stays.
    void script(std::initializer_list<time_t> seconds);
    // gettimeofday fails from now on.
    void breakMillis();
    // Calls of time() so far.
    static int timeCalls();
};

// Seconds since the epoch of a local date and time (months 1 to 12).
time_t localSeconds(int nYear, int nMonth, int nDay, int nHour = 12, int nMinute = 0, int nSecond = 0);

} // namespace qvtest
