// A program that is its own kernel: its function is the one that the reader calls, also beside a loaded kernel.

#include "kernel_stub.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <iterator>

namespace {

TEST(KernelInProgram, ItsFunctionGetsTheArgumentsAndGivesTheResult)
{
    for (int32_t nResult : {0, 7, -4099}) {
        g_nKernelResult = nResult;
        EXPECT_EQ(Dev_Rdz_M1PowerOn(0x1122334455667788U, 2, 3, 4, 5, 6, 7, 0x8000000000000000U), nResult);
    }
    const uint64_t expected[] = {0x1122334455667788U, 2, 3, 4, 5, 6, 7, 0x8000000000000000U};
    for (size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(g_kernelArguments[i], expected[i]) << i;
}

TEST(KernelInProgram, AKernelThatIsLoadedBesideItIsNotAsked)
{
    void *pLibrary = dlopen(QV_KERNEL, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(pLibrary, nullptr) << dlerror();
    g_nKernelResult = 5;
    *static_cast<int32_t *>(dlsym(pLibrary, "g_nKernelResult")) = 6;
    EXPECT_EQ(Dev_Rdz_M1PowerOn(1, 2, 3, 4, 5, 6, 7, 8), 5);
    dlclose(pLibrary);
}

} // namespace
