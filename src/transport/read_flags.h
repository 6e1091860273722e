// read_flags.h - how a cancel from another thread reaches a running read.
#pragma once

#include <atomic>
#include <cstdint>

namespace qv {

// Two 32-bit words without locks. A cancel outside a read has no lasting effect, since each read starts by clearing it.
class ReadFlags {
  public:
    void start() noexcept
    {
        m_bCancel = 0;
        m_bIsReading = 1;
    }
    void end() noexcept { m_bIsReading = 0; }
    void cancel() noexcept
    {
        if (m_bIsReading != 0)
            m_bCancel = 1;
    }
    bool isCancelled() const noexcept { return m_bCancel != 0; }

  private:
    std::atomic<int32_t> m_bIsReading{0};
    std::atomic<int32_t> m_bCancel{0};
};
static_assert(std::atomic<int32_t>::is_always_lock_free && sizeof(std::atomic<int32_t>) == sizeof(int32_t));

} // namespace qv
