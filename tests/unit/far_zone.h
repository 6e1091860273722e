// far_zone.h - local time far enough from UTC that one cannot be mistaken for the other. Before main(). And a host that
// moves to another zone for a while.
#pragma once

#include <cstdlib>
#include <ctime>

namespace qvtest {

inline constexpr char szFarZone[] = "QVT-8:30";

inline const bool g_bZoneSet = [] {
    setenv("TZ", szFarZone, 1);
    tzset();
    return true;
}();

// Another zone while it lives. Nobody calls tzset, so that the library has to see both changes by itself.
class Zone {
  public:
    explicit Zone(const char *pszZone) { setenv("TZ", pszZone, 1); }
    ~Zone() { setenv("TZ", szFarZone, 1); }
    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;
};

} // namespace qvtest
