// The model has no clock of its own: whoever drives it passes the time in.
#pragma once

#include <chrono>

namespace qvsim {

using TimePoint = std::chrono::steady_clock::time_point;

} // namespace qvsim
