// kernel_parts.cpp - kernels of one function each: QV_CONVERTS, the translation of results; else the start.

#include "qvreader/emv_kernel.h"

#ifdef QV_CONVERTS
int32_t TY_ConvertErr(int32_t result, int32_t *standardCode)
{
    *standardCode = result - 9000;
    return 0;
}
#else
extern "C" {
[[gnu::visibility("default")]] extern int32_t g_nStartAnswers;
int32_t g_nStartAnswers = 0;
}

int32_t Emv_QV_Start(void *, int32_t)
{
    return g_nStartAnswers;
}
#endif
