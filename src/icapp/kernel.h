// kernel.h - calls into the EMV kernel, which the host may load before this library, after it, or not at all.
//
//     callKernel(QV_KERNEL_FN(SetTVR), 0x80U)
#pragma once

#include "qvreader/emv_kernel.h"
#include "qvreader/icapp.h"

#include "kernel_link.h"
#include "log.h"

#include <type_traits>

// The loader binds these when a kernel is there before the library; otherwise they are null.
#pragma weak Emv_SetFunP
#pragma weak Emv_QV_Start
#pragma weak Emv_QV_Trans
#pragma weak EMV_Final
#pragma weak Emv_QV_End
#pragma weak TY_ConvertErr
#pragma weak TY_DealAidList
#pragma weak PackAidList
#pragma weak TY_SaveAidListInfo
#pragma weak TY_SaveInfoTag
#pragma weak TY_SaveData
#pragma weak SetTVR
#pragma weak SetRead5AFlag
#pragma weak Pack_Data_Emv_Trance
#pragma weak Emv_SaveData
#pragma weak Emv_GetData
#pragma weak EMV_GetPbocDetail
#pragma weak Emv_Set_TranseData

// The name of a kernel function and what the loader bound to it.
#define QV_KERNEL_FN(fn) #fn, &fn

namespace qv {

// The function as the kernel offers it at this moment; null: it does not.
template <typename... Args>
auto findKernel(const char *pszName, int32_t (*pWeak)(Args...)) noexcept -> int32_t (*)(Args...)
{
    return reinterpret_cast<int32_t (*)(Args...)>(kernelFunction(pszName, reinterpret_cast<void *>(pWeak)));
}

// The kernel function's result; -1 while no kernel offers it.
template <typename... Args>
int32_t callKernel(const char *pszName, int32_t (*pWeak)(Args...), std::type_identity_t<Args>... args) noexcept
{
    const auto pFunction = findKernel(pszName, pWeak);
    if (pFunction == nullptr) {
        QV_LOG(kLogAppIc, "no kernel offers %s", pszName);
        return RET_PUB_FAIL;
    }
    return pFunction(args...);
}

// Calls a kernel function whose result does not count. False while no kernel offers it.
template <typename... Args>
bool tellKernel(const char *pszName, int32_t (*pWeak)(Args...), std::type_identity_t<Args>... args) noexcept
{
    const bool bOffered = findKernel(pszName, pWeak) != nullptr;
    callKernel(pszName, pWeak, args...);
    return bOffered;
}

// The kernel's standard code for a result; the result itself while there is no kernel.
int32_t standardCode(int32_t nResult) noexcept;

} // namespace qv
