// host_ids.cpp - USB identities: the built-in ones, and those that the host adds.

#include "host_ids.h"

#include "log.h"

#include <algorithm>
#include <array>
#include <iterator>

IcHidId g_Hid[10] = {};
int32_t g_nHidNum = 0;
int32_t g_bIcSetHidFlag = 0;
int32_t g_bUseSetHid = 0;

namespace {

constexpr int32_t nHostMax = static_cast<int32_t>(std::size(g_Hid));

constexpr std::array<IcHidId, 6> s_builtIn{{
#include "usb_identities.inc"
}};
constexpr int32_t nBuiltIn = static_cast<int32_t>(s_builtIn.size());

// The table is the host's to write, so that an index into it is not taken for granted.
IcHidId hostIdentity(int32_t i) noexcept
{
    return i >= 0 && i < nHostMax ? g_Hid[i] : IcHidId{};
}

} // namespace

namespace qv {

int32_t countIdentities() noexcept
{
    if (g_bIcSetHidFlag == 1)
        return std::min(g_nHidNum, nHostMax) + nBuiltIn;
    if (g_bUseSetHid == 1) {
        g_nHidNum = 1;
        return 1;
    }
    return nBuiltIn;
}

IcHidId IdentityOrder::at(int32_t i) noexcept
{
    if (g_bUseSetHid == 1 && m_nCount == 1)
        return hostIdentity(i);
    if (g_bUseSetHid == 0 && i >= 0 && i < nBuiltIn)
        return s_builtIn[static_cast<size_t>(i)];
    if (g_bIcSetHidFlag == 1 && m_nHostUsed < g_nHidNum)
        return hostIdentity(m_nHostUsed++);
    return {};
}

} // namespace qv

int32_t Dev_Rdz_Ic_AddHid(int32_t nIndex, uint64_t nPID, uint64_t nVID) noexcept
{
    QV_LOG(qv::kLogCommDev, "[%s] Start nIndex = %d", __func__, nIndex);
    int32_t nRet = 0;
    g_bUseSetHid = 0; // also when the index is refused
    if (nIndex == -1) {
        g_Hid[0] = {nPID, nVID};
        g_nHidNum = 0;
        g_bIcSetHidFlag = 0;
        g_bUseSetHid = 1;
    } else if (nIndex >= 0 && nIndex < nHostMax) {
        g_Hid[nIndex] = {nPID, nVID};
        g_bIcSetHidFlag = 1;
        g_nHidNum = nIndex + 1;
    } else {
        nRet = RET_PUB_INVAL_PARAM;
    }
    QV_LOG(qv::kLogCommDev, "[%s] End g_nHidNum = %d  ", __func__, g_nHidNum);
    return nRet;
}
