// kernel_stub.h - the one kernel function that the reader calls, as a kernel of the tests offers it.
#pragma once

#include <cstdint>

extern "C" {

// The arguments of the last call, and what the next one returns.
extern uint64_t g_kernelArguments[8];
extern int32_t g_nKernelResult;

int32_t Instr_IC_M1PowerOn(uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7,
                           uint64_t a8);
}
