// storm.h - a second thread that cancels without pause.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace qvtest {

// Cancels for as long as it lives; every cancel must be taken.
class Storm {
  public:
    explicit Storm(int32_t (*cancel)() noexcept)
        : m_thread([this, cancel] {
              while (!m_bOver) {
                  EXPECT_EQ(cancel(), 0);
                  ++m_nCancels;
                  std::this_thread::yield();
              }
          })
    {
    }
    ~Storm()
    {
        m_bOver = true;
        m_thread.join();
    }
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;
    long cancels() const { return m_nCancels; }

  private:
    std::atomic<bool> m_bOver{false};
    std::atomic<long> m_nCancels{0};
    std::thread m_thread;
};

} // namespace qvtest
