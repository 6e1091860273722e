// test_kernel.h - an EMV kernel of the tests: offers every function of emv_kernel.h, answers what it is told to and
// writes down who called it with what. A part of a test program, or a library that a host loads.
//
// Each call is one line of a list, in order; a test's own device operations add theirs, so that the list shows both in
// their common order.
#pragma once

#include "qvreader/emv_kernel.h"

#include <cstddef>

struct TestKernel {
    // What the functions of these names answer; 0 after a reset.
    int32_t nSetFunP, nStart, nTrans, nFinal, nEnd, nConvertErr, nDealAidList, nPackAidList, nSaveAidListInfo,
        nSaveInfoTag, nSaveData, nSetTvr, nSetRead5AFlag, nEmvSaveData, nEmvGetData, nGetPbocDetail, nSetTranseData,
        nM1PowerOn;
    int32_t bLeavesTable;     // 1: Emv_SetFunP does not store the table in stICOp
    char szAidList[1024];     // PackAidList writes it
    char szText[2048];        // TY_SaveInfoTag and TY_SaveAidListInfo write it, when they answer 0
    uint8_t packed[8192];     // Pack_Data_Emv_Trance writes it ...
    int32_t nPacked;          // ... and answers this
    uint8_t object[400];      // Emv_GetData writes it, when it answers 0 ...
    uint32_t nObject;         // ... and this as its length
    void (*pfnAtStart)(void); // called by Emv_QV_Start, null: nothing
    int32_t bLogsCalls;       // 1: each line of the list also goes to the log, behind the word "call"

    // What came.
    char szCalls[65536];                 // a line a call, as in "Emv_QV_Start(record, 1)"
    size_t nCalls;                       // characters in it
    void *const *pTable;                 // Emv_SetFunP's
    uint8_t record[EMV_PROC_SIZE];       // at the last call that got it
    int32_t bBufferClear;                // g_szEmvbuf was zero at that moment
    const void *pDetail, *pDetailLen;    // EMV_GetPbocDetail's outputs
    const void *pTranseData;             // Emv_Set_TranseData's
    uint8_t recordAtList[EMV_PROC_SIZE]; // when TY_DealAidList was called
    uint8_t recordAtSave[EMV_PROC_SIZE]; // when Emv_SaveData was called last
    uint8_t ucTypeAtList, ucTypeAtStart; // tfunc_GetIcType's in PackAidList and in Emv_QV_Start
    int32_t flagsAtTable[5];             // g_stCallBackFunc in Emv_SetFunP
};

extern "C" {

// The kernel's state, and the same as in a fresh process. The kernel translates 0 to 0 and any other result by taking
// 9000 off: -2 becomes -9002.
QV_KERNEL TestKernel *testKernel(void) noexcept;
QV_KERNEL void testKernelReset(void) noexcept;

// Adds a line to the list.
QV_KERNEL void testKernelNote(const char *pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));

// For hosts that have no struct: the list, and what Emv_QV_Start answers.
QV_KERNEL const char *testKernelCalls(void) noexcept;
QV_KERNEL void testKernelStartAnswers(int32_t nResult) noexcept;
}
