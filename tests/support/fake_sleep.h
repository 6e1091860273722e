// fake_sleep.h - the library's pauses, seen instead of waited for.
//
// The library pauses through nanosleep(2) only. While a FakeSleep object lives, nanosleep returns at once and is kept.
#pragma once

#include <vector>

namespace qvtest {

class FakeSleep {
  public:
    FakeSleep();
    ~FakeSleep();
    FakeSleep(const FakeSleep &) = delete;
    FakeSleep &operator=(const FakeSleep &) = delete;

    // The pauses since the last take, in milliseconds.
    static std::vector<long> take();
};

} // namespace qvtest
