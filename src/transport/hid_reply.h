// hid_reply.h - what the reads of the two USB transports have in common: a reply that grows report by report.
#pragma once

#include "qvreader/transport.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace qv {

// How a cancel from another thread reaches a running read: two 32-bit words without locks. A cancel outside a read has
// no lasting effect, since each read starts by clearing it.
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

// Where a read stands after a pass.
enum class ReplyState { GoOn, Full, Complete, TimedOut, Cancelled };

class HidReply {
  public:
    HidReply(uint8_t *pBuf, size_t nMax, int32_t nTimeOut, EndConditionFn pfnEnd, const ReadFlags &flags) noexcept;

    // Marks the start of a pass.
    void startPass() noexcept;
    // Adds what a report carried; what the caller's buffer has no room for is dropped.
    void add(const uint8_t *pData, int32_t nLen) noexcept;
    // Full buffer, end condition, time-out and cancel, in this order. A pass that goes on after it brought nothing at
    // once lasts 100 ms here, so that a device which is gone does not make the read spin.
    ReplyState endPass(bool bNothing) noexcept;

    int32_t count() const noexcept { return static_cast<int32_t>(m_nCount); }

  private:
    uint8_t *m_pBuf;
    size_t m_nMax;
    int32_t m_nTimeOut;
    EndConditionFn m_pfnEnd;
    const ReadFlags &m_flags;
    time_t m_nStart;
    int64_t m_nPassStart = 0;
    size_t m_nCount = 0;
};

} // namespace qv
