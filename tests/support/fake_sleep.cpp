#include "fake_sleep.h"

#include <cerrno>
#include <ctime>
#include <mutex>
#include <utility>

namespace {

std::mutex s_guard;
bool s_bFaked = false;
std::vector<long> s_pauses;

} // namespace

extern "C" int nanosleep(const timespec *pWanted, timespec *pRest)
{
    {
        std::scoped_lock lock(s_guard);
        if (s_bFaked) {
            errno = ENOTTY; // whoever needs it has kept it
            s_pauses.push_back(static_cast<long>(pWanted->tv_sec) * 1000 + pWanted->tv_nsec / 1'000'000);
            return 0;
        }
    }
    int nError = clock_nanosleep(CLOCK_REALTIME, 0, pWanted, pRest);
    if (nError == 0)
        return 0;
    errno = nError;
    return -1;
}

namespace qvtest {

FakeSleep::FakeSleep()
{
    std::scoped_lock lock(s_guard);
    s_bFaked = true;
    s_pauses.clear();
}

FakeSleep::~FakeSleep()
{
    std::scoped_lock lock(s_guard);
    s_bFaked = false;
}

std::vector<long> FakeSleep::take()
{
    std::scoped_lock lock(s_guard);
    return std::exchange(s_pauses, {});
}

} // namespace qvtest
