// app_transaction.h - what the tests of transactions share: what the kernel packs and holds, and the completion call.
#pragma once

#include "app_kernel.h"

namespace qvtest {

// What a completion writes; each text has room for one character more than the call may write.
struct CompletionOutput {
    uint32_t nLen = 0xA5A5A5A5;
    char szText[2 * 8192 + 2] = "untouched";
    char szScript[6 + 2 * 400 + 2] = "untouched";
};
inline CompletionOutput s_done;
inline const char *s_pszArpc = "";

inline int32_t complete()
{
    return QV_APP_CtlScriptData(szPort, szParameter, nBaud, "9", "AMT=1", s_pszArpc, &s_done.nLen, s_done.szText,
                                s_done.szScript);
}

// The kernel packs these bytes / holds this data object.
inline void packs(const Bytes &data)
{
    std::copy(data.begin(), data.end(), testKernel()->packed);
    testKernel()->nPacked = static_cast<int32_t>(data.size());
}
inline void holds(const Bytes &data)
{
    std::copy(data.begin(), data.end(), testKernel()->object);
    testKernel()->nObject = static_cast<uint32_t>(data.size());
}

class CompletionTest : public KernelSession {
  protected:
    void SetUp() override
    {
        KernelSession::SetUp();
        s_done = {};
        s_pszArpc = "";
    }
};

} // namespace qvtest
