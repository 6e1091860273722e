// test_kernel.cpp - see test_kernel.h. It is also built from the installed headers alone.
//
// No inline variable here, as the algorithms of std::ranges are: a build that emits it makes it a unique symbol, and the
// loader never unloads a library that has one.

#include "test_kernel.h"

#include "qvreader/icapp.h"
#include "qvreader/support.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr int32_t nStandard = 9000;
constexpr size_t nAidListRoom = 1024;
constexpr size_t nObjectRoom = 400;

TestKernel s_kernel = {};

bool isClear(const uint8_t *p, size_t nLen)
{
    return std::all_of(p, p + nLen, [](uint8_t uc) { return uc == 0; });
}

const char *clearness(const void *p, size_t nLen)
{
    return isClear(static_cast<const uint8_t *>(p), nLen) ? "cleared" : "not cleared";
}

const char *shown(const char *psz)
{
    return psz == nullptr ? "null" : psz;
}

// Two hexadecimal digits a byte, up to the room.
struct Hex {
    char sz[5000] = {};
    Hex(const uint8_t *p, size_t nLen)
    {
        for (size_t i = 0; p != nullptr && i < nLen && 2 * i + 3 < sizeof sz; ++i)
            std::snprintf(sz + 2 * i, 3, "%02X", p[i]);
    }
    explicit Hex(const uint8_t *pTag) : Hex(pTag, std::strlen(reinterpret_cast<const char *>(pTag))) {}
};

// Keeps the record as it is now. What the list calls it.
const char *keep(const void *pProc)
{
    if (pProc != g_stProc)
        return "another record";
    std::copy_n(g_stProc, sizeof s_kernel.record, s_kernel.record);
    s_kernel.bBufferClear = isClear(g_szEmvbuf, sizeof g_szEmvbuf);
    return "record";
}

void writeText(char *pszOut, uint32_t *pnLen)
{
    const size_t nLen = std::strlen(s_kernel.szText);
    std::copy_n(s_kernel.szText, nLen + 1, pszOut);
    *pnLen = static_cast<uint32_t>(nLen);
}

} // namespace

TestKernel *testKernel() noexcept
{
    return &s_kernel;
}

void testKernelReset() noexcept
{
    s_kernel = {};
}

void testKernelNote(const char *pszFormat, ...) noexcept
{
    const size_t nRoom = sizeof s_kernel.szCalls - s_kernel.nCalls;
    std::va_list arguments;
    va_start(arguments, pszFormat);
    const int nLen = std::vsnprintf(s_kernel.szCalls + s_kernel.nCalls, nRoom, pszFormat, arguments);
    va_end(arguments);
    if (nLen < 0 || static_cast<size_t>(nLen) + 2 > nRoom)
        return;
    if (s_kernel.bLogsCalls != 0)
        DPrintLogToFile("call %s", s_kernel.szCalls + s_kernel.nCalls);
    s_kernel.nCalls += static_cast<size_t>(nLen);
    s_kernel.szCalls[s_kernel.nCalls++] = '\n';
    s_kernel.szCalls[s_kernel.nCalls] = '\0';
}

const char *testKernelCalls() noexcept
{
    return s_kernel.szCalls;
}

void testKernelStartAnswers(int32_t nResult) noexcept
{
    s_kernel.nStart = nResult;
}

int32_t Emv_SetFunP(int32_t zero, void *const table[10])
{
    testKernelNote("Emv_SetFunP(%d)", zero);
    s_kernel.pTable = table;
    static_assert(sizeof s_kernel.flagsAtTable == sizeof g_stCallBackFunc);
    std::memcpy(s_kernel.flagsAtTable, &g_stCallBackFunc, sizeof g_stCallBackFunc);
    if (table != nullptr && s_kernel.bLeavesTable == 0)
        std::copy_n(table, 10, stICOp);
    return s_kernel.nSetFunP;
}

int32_t Emv_QV_Start(void *proc, int32_t kind)
{
    testKernelNote("Emv_QV_Start(%s, %d)", keep(proc), kind);
    tfunc_GetIcType(&s_kernel.ucTypeAtStart);
    if (s_kernel.pfnAtStart != nullptr)
        s_kernel.pfnAtStart();
    return s_kernel.nStart;
}

int32_t Emv_QV_Trans(void *proc)
{
    testKernelNote("Emv_QV_Trans(%s)", keep(proc));
    return s_kernel.nTrans;
}

int32_t EMV_Final(void *proc)
{
    testKernelNote("EMV_Final(%s)", keep(proc));
    return s_kernel.nFinal;
}

int32_t Emv_QV_End(int32_t lastResult)
{
    testKernelNote("Emv_QV_End(%d)", lastResult);
    return s_kernel.nEnd;
}

int32_t TY_ConvertErr(int32_t result, int32_t *standardCode)
{
    testKernelNote("TY_ConvertErr(%d)", result);
    *standardCode = result == 0 ? 0 : result - nStandard;
    return s_kernel.nConvertErr;
}

int32_t TY_DealAidList(const char *list, int32_t len)
{
    testKernelNote("TY_DealAidList(%s, %d)", shown(list), len);
    std::copy_n(g_stProc, sizeof s_kernel.recordAtList, s_kernel.recordAtList);
    return s_kernel.nDealAidList;
}

int32_t PackAidList(char *out1024)
{
    testKernelNote("PackAidList(%s)", clearness(out1024, nAidListRoom));
    tfunc_GetIcType(&s_kernel.ucTypeAtList);
    std::copy_n(s_kernel.szAidList, nAidListRoom, out1024);
    return s_kernel.nPackAidList;
}

int32_t TY_SaveAidListInfo(char *text, uint32_t *len)
{
    testKernelNote("TY_SaveAidListInfo()");
    if (s_kernel.nSaveAidListInfo == 0)
        writeText(text, len);
    return s_kernel.nSaveAidListInfo;
}

int32_t TY_SaveInfoTag(const char *tagList, uint32_t *len, char *text)
{
    testKernelNote("TY_SaveInfoTag(%s)", shown(tagList));
    if (s_kernel.nSaveInfoTag == 0)
        writeText(text, len);
    return s_kernel.nSaveInfoTag;
}

int32_t TY_SaveData(const char *txData)
{
    testKernelNote("TY_SaveData(%s)", shown(txData));
    return s_kernel.nSaveData;
}

int32_t SetTVR(uint32_t v)
{
    testKernelNote("SetTVR(%02X)", v);
    return s_kernel.nSetTvr;
}

int32_t SetRead5AFlag(int32_t v)
{
    testKernelNote("SetRead5AFlag(%d)", v);
    return s_kernel.nSetRead5AFlag;
}

int32_t Pack_Data_Emv_Trance(uint8_t *out, int32_t kind)
{
    testKernelNote("Pack_Data_Emv_Trance(%d)", kind);
    const auto nLen = static_cast<size_t>(std::max(s_kernel.nPacked, 0));
    std::copy_n(s_kernel.packed, std::min(nLen, sizeof s_kernel.packed), out);
    return s_kernel.nPacked;
}

int32_t Emv_SaveData(const uint8_t *tag, const uint8_t *value, int32_t len, int32_t source)
{
    testKernelNote("Emv_SaveData(%s, %s, %d, %d)", Hex(tag).sz, Hex(value, static_cast<size_t>(std::max(len, 0))).sz,
                   len, source);
    std::copy_n(g_stProc, sizeof s_kernel.recordAtSave, s_kernel.recordAtSave);
    return s_kernel.nEmvSaveData;
}

int32_t Emv_GetData(const uint8_t *tag, uint8_t *out, uint32_t *len)
{
    testKernelNote("Emv_GetData(%s, %s)", Hex(tag).sz, clearness(out, nObjectRoom));
    if (s_kernel.nEmvGetData == 0) {
        std::copy_n(s_kernel.object, std::min<size_t>(s_kernel.nObject, nObjectRoom), out);
        *len = s_kernel.nObject;
    }
    return s_kernel.nEmvGetData;
}

int32_t EMV_GetPbocDetail(int32_t kind, char *out, uint32_t *outLen, int32_t one)
{
    testKernelNote("EMV_GetPbocDetail(%d, %d)", kind, one);
    s_kernel.pDetail = out;
    s_kernel.pDetailLen = outLen;
    return s_kernel.nGetPbocDetail;
}

int32_t Emv_Set_TranseData(void *data)
{
    testKernelNote("Emv_Set_TranseData()");
    s_kernel.pTranseData = data;
    return s_kernel.nSetTranseData;
}

int32_t Instr_IC_M1PowerOn(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t)
{
    testKernelNote("Instr_IC_M1PowerOn()");
    return s_kernel.nM1PowerOn;
}
