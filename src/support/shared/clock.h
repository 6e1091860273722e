// clock.h - the one place where the library reads the wall clock.
//
// Time-outs count whole seconds as time(2) gives them; stamps of the log and of the time functions come from
// gettimeofday(2). Both are resolved at run time, so that a test program which defines them decides what time it is.
#pragma once

#include <cstdint>
#include <ctime>

namespace qv {

// Seconds since the epoch.
time_t wallSeconds() noexcept;

// Milliseconds since the epoch; -1 if the clock cannot be read.
int64_t wallMillis() noexcept;

// A moment in local time with its milliseconds.
struct LocalTime {
    tm stFields;
    int nMillis;
};
LocalTime localNow() noexcept;

// Time that only ever goes forward, for pauses within one call; milliseconds.
int64_t steadyMillis() noexcept;

// Sleeps that long, also when signals arrive meanwhile.
void pauseMillis(int64_t nMillis) noexcept;

} // namespace qv
