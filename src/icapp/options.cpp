// options.cpp - what a host chooses once for all later calls; the kernel asks for most of it.

#include "options.h"

#include "qvreader/icapp.h"

namespace {

uint32_t s_nArqcExeFlag = 0;
uint32_t s_nPpseSelect = 1;
uint32_t s_nNoGac2Flag = 0;
uint32_t s_nFastReadFlag = 0;
uint32_t s_nTlvTagFlag = 0;
uint32_t s_nInfoPowerOffFlag = 0;
uint8_t s_ucIcType = 0;

int32_t set(uint32_t &nOption, uint32_t nFlag) noexcept
{
    nOption = nFlag;
    return 0;
}

} // namespace

namespace qv {

bool isFastRead() noexcept
{
    return s_nFastReadFlag == 1;
}

bool isInfoPowerOff() noexcept
{
    return s_nInfoPowerOffFlag == 1;
}

} // namespace qv

int32_t QV_APP_SetArqcExeFlag(uint32_t flag) noexcept
{
    return set(s_nArqcExeFlag, flag);
}

uint32_t QV_APP_GetArqcExeFlag(void) noexcept
{
    return s_nArqcExeFlag;
}

int32_t QV_APP_SetPpseSelect(uint32_t flag) noexcept
{
    return set(s_nPpseSelect, flag);
}

uint32_t QV_APP_GetPpseSelect(void) noexcept
{
    return s_nPpseSelect;
}

int32_t QV_APP_SetNoGac2Flag(uint32_t flag) noexcept
{
    return set(s_nNoGac2Flag, flag);
}

uint32_t QV_APP_GetNoGac2Flag(void) noexcept
{
    return s_nNoGac2Flag;
}

int32_t QV_APP_SetFastReadFlag(uint32_t flag) noexcept
{
    return set(s_nFastReadFlag, flag);
}

int32_t QV_APP_SetTlvTagFlag(uint32_t flag) noexcept
{
    return set(s_nTlvTagFlag, flag);
}

uint32_t QV_APP_GetTlvTagFlag(void) noexcept
{
    return s_nTlvTagFlag;
}

int32_t QV_APP_SetInfoPowerOffFlag(uint32_t flag) noexcept
{
    return set(s_nInfoPowerOffFlag, flag);
}

int32_t QV_APP_SetIcAlgorithm(uint32_t flag) noexcept
{
    return set(g_nIcAlgorithm, flag);
}

int32_t tfunc_SetIcType(uint8_t type) noexcept
{
    s_ucIcType = type;
    return 0;
}

int32_t tfunc_GetIcType(uint8_t *type) noexcept
{
    if (type == nullptr)
        return RET_PUB_INVAL_PARAM;
    *type = s_ucIcType;
    return 0;
}
