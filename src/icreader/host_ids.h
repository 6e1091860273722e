// host_ids.h - which USB identities an open tries.
#pragma once

#include "qvreader/icreader.h"

namespace qv {

// How many identities the next open tries. Changes g_nHidNum (1 while only the host's identity is tried).
int32_t countIdentities() noexcept;

// The identities of one open, in the order in which they are tried.
class IdentityOrder {
  public:
    explicit IdentityOrder(int32_t nCount) noexcept : m_nCount(nCount) {}

    // Number i (from 0) of the open's tries; zeros when there is none.
    IcHidId at(int32_t i) noexcept;

  private:
    int32_t m_nCount;
    int32_t m_nHostUsed = 0;
};

} // namespace qv
