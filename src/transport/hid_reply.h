// hid_reply.h - what the reads of the two USB transports have in common: a reply that grows report by report.
#pragma once

#include "qvreader/transport.h"
#include "read_flags.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace qv {

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
