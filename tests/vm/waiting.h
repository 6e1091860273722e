// waiting.h - waiting for what can be observed.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace qvvm {

// Asks again and again; false when the answer is still no after 30 seconds, which software emulation on a busy machine
// never takes.
bool waitUntil(const std::function<bool()> &check);

// The same; throws std::runtime_error that names what did not come.
void demand(const std::string &sWhat, const std::function<bool()> &check);

// Milliseconds since the start of its life.
class StopWatch {
  public:
    double ms() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_start).count();
    }

  private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace qvvm
