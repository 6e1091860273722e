// host_identities.h - the USB identities that a host adds to the built-in ones: ten places, a count and two switches,
// which each side of the reader (IC, stripe) exports as objects of its own.
#pragma once

#include "qvreader/protocol.h"

#include <algorithm>

namespace qv {

struct HostIdentities {
    static constexpr int32_t nMax = 10;

    IcHidId (&aId)[nMax];
    int32_t &nCount;
    int32_t &bAdded; // 1: the first nCount are tried after the built-in ones
    int32_t &bOnly;  // 1: only the first one is tried

    // Index -1: the only identity to be tried. 0 to 9: that place, and all before it count. 0; -2 other index, which
    // ends the only-identity mode all the same.
    int32_t add(int32_t nIndex, const IcHidId &identity) const noexcept
    {
        bOnly = 0;
        if (nIndex == -1) {
            aId[0] = identity;
            nCount = 0;
            bAdded = 0;
            bOnly = 1;
            return 0;
        }
        if (nIndex < 0 || nIndex >= nMax)
            return RET_PUB_INVAL_PARAM;
        aId[nIndex] = identity;
        bAdded = 1;
        nCount = nIndex + 1;
        return 0;
    }

    // The objects are the host's to write, so that neither the count nor an index into them is taken for granted.
    int32_t usable() const noexcept { return std::min(nCount, nMax); }
    IcHidId at(int32_t i) const noexcept { return i >= 0 && i < nMax ? aId[i] : IcHidId{}; }
};

} // namespace qv
