// hid_reply.cpp - see hid_reply.h.

#include "hid_reply.h"

#include "clock.h"
#include "qvreader/support.h"

#include <algorithm>
#include <cstring>

namespace qv {

namespace {

constexpr int64_t nEmptyPassMillis = 100;

} // namespace

HidReply::HidReply(uint8_t *pBuf, size_t nMax, int32_t nTimeOut, EndConditionFn pfnEnd, const ReadFlags &flags) noexcept
    : m_pBuf(pBuf), m_nMax(nMax), m_nTimeOut(nTimeOut), m_pfnEnd(pfnEnd), m_flags(flags), m_nStart(wallSeconds())
{
}

void HidReply::startPass() noexcept
{
    m_nPassStart = steadyMillis();
}

void HidReply::add(const uint8_t *pData, int32_t nLen) noexcept
{
    const size_t nTaken = std::min(static_cast<size_t>(std::max(nLen, 0)), m_nMax - m_nCount);
    std::memcpy(m_pBuf + m_nCount, pData, nTaken);
    m_nCount += nTaken;
}

ReplyState HidReply::endPass(bool bNothing) noexcept
{
    if (m_nCount == m_nMax)
        return ReplyState::Full;
    DPrintDataHexToFile("read real data", m_pBuf, count());
    if (m_pfnEnd != nullptr && m_pfnEnd(m_pBuf, count()) == 0)
        return ReplyState::Complete;
    if (wallSeconds() - m_nStart > m_nTimeOut)
        return ReplyState::TimedOut;
    if (m_flags.isCancelled())
        return ReplyState::Cancelled;
    if (bNothing)
        pauseMillis(nEmptyPassMillis - (steadyMillis() - m_nPassStart));
    return ReplyState::GoOn;
}

} // namespace qv
