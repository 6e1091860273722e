// kernel.cpp - the objects that the kernel shares with the library, and the translation of results.

#include "kernel.h"

alignas(8) uint8_t g_stProc[EMV_PROC_SIZE] = {};
alignas(8) uint8_t stICS[200] = {};
char *pszEmvData = nullptr;
alignas(8) uint8_t g_szEmvbuf[8192] = {};
uint32_t g_nIcAlgorithm = 0;

static_assert(sizeof g_stProc == 3168 && sizeof stICS == 200 && sizeof stICOp == 80);

namespace qv {

int32_t standardCode(int32_t nResult) noexcept
{
    int32_t nCode = nResult;
    if (const auto pConvert = findKernel(QV_KERNEL_FN(TY_ConvertErr)))
        pConvert(nResult, &nCode);
    return nCode;
}

} // namespace qv
