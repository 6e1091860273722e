// kernel_stub.cpp - a kernel of one function: a library that tests load, or a part of a test program.
//
// No inline variable here, as the algorithms of std::ranges are: a build that emits it makes it a unique symbol, and the
// loader never unloads a library that has one.

#include "kernel_stub.h"

#include <algorithm>
#include <iterator>

[[gnu::visibility("default")]] uint64_t g_kernelArguments[8] = {};
[[gnu::visibility("default")]] int32_t g_nKernelResult = 0;

[[gnu::visibility("default")]] int32_t Instr_IC_M1PowerOn(uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4,
                                                          uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8)
{
    const uint64_t arguments[] = {a1, a2, a3, a4, a5, a6, a7, a8};
    std::copy(std::begin(arguments), std::end(arguments), g_kernelArguments);
    return g_nKernelResult;
}
