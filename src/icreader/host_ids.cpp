// host_ids.cpp - USB identities: the built-in ones, and those that the host adds.

#include "host_ids.h"

#include "host_identities.h"
#include "log.h"

#include <array>

IcHidId g_Hid[10] = {};
int32_t g_nHidNum = 0;
int32_t g_bIcSetHidFlag = 0;
int32_t g_bUseSetHid = 0;

namespace {

constexpr std::array<IcHidId, 6> s_builtIn{{
#include "usb_identities_ic.inc"
}};
constexpr int32_t nBuiltIn = static_cast<int32_t>(s_builtIn.size());

qv::HostIdentities hostIdentities() noexcept
{
    return {g_Hid, g_nHidNum, g_bIcSetHidFlag, g_bUseSetHid};
}

} // namespace

namespace qv {

int32_t countIdentities() noexcept
{
    if (g_bIcSetHidFlag == 1)
        return hostIdentities().usable() + nBuiltIn;
    if (g_bUseSetHid == 1) {
        g_nHidNum = 1;
        return 1;
    }
    return nBuiltIn;
}

IcHidId IdentityOrder::at(int32_t i) noexcept
{
    if (g_bUseSetHid == 1 && m_nCount == 1)
        return hostIdentities().at(i);
    if (g_bUseSetHid == 0 && i >= 0 && i < nBuiltIn)
        return s_builtIn[static_cast<size_t>(i)];
    if (g_bIcSetHidFlag == 1 && m_nHostUsed < g_nHidNum)
        return hostIdentities().at(m_nHostUsed++);
    return {};
}

} // namespace qv

int32_t Dev_Rdz_Ic_AddHid(int32_t nIndex, uint64_t nPID, uint64_t nVID) noexcept
{
    QV_LOG(qv::kLogCommDev, "[%s] Start nIndex = %d", __func__, nIndex);
    const int32_t nRet = hostIdentities().add(nIndex, {nPID, nVID});
    QV_LOG(qv::kLogCommDev, "[%s] End g_nHidNum = %d  ", __func__, g_nHidNum);
    return nRet;
}
