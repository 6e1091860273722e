// far_zone.h - local time far enough from UTC that one cannot be mistaken for the other. Before main().
#pragma once

#include <cstdlib>
#include <ctime>

namespace qvtest {

inline const bool g_bZoneSet = [] {
    setenv("TZ", "QVT-8:30", 1);
    tzset();
    return true;
}();

} // namespace qvtest
