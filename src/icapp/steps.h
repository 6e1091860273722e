// steps.h - what the steps of a card conversation have in common.
#pragma once

#include "device_table.h"
#include "kernel.h"

namespace qv {

// Where the host says that the reader is.
struct Address {
    const char *pszPort;
    const char *pszParameter;
    int32_t nBaud;

    int32_t open() const noexcept { return openDevice(pszPort, pszParameter, nBaud); }
};

// Result of a step for the host.
inline int32_t stepResult(int32_t nResult) noexcept
{
    const int32_t nConverted = standardCode(nResult);
    QV_LOG(kLogAppIc, "====> nRetConVert  = %d ", nConverted);
    return nConverted;
}

} // namespace qv
