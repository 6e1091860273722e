#include "waiting.h"

#include <stdexcept>
#include <thread>

namespace qvvm {

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::milliseconds kPause{5};

} // namespace

bool waitUntil(const std::function<bool()> &check)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!check()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

void demand(const std::string &sWhat, const std::function<bool()> &check)
{
    if (!waitUntil(check))
        throw std::runtime_error("waited in vain: " + sWhat);
}

} // namespace qvvm
