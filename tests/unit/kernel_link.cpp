// Where a kernel function is looked for: each of the three ways alone, and their order.

#include "kernel_link.h"

#include "harness.h"
#include "kernel_stub.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>

// Exported by this program: the global scope holds it.
extern "C" {
[[gnu::visibility("default")]] int32_t ownFunctionOfTheProgram();
}
int32_t ownFunctionOfTheProgram()
{
    return 1;
}

namespace {

constexpr char szName[] = "Instr_IC_M1PowerOn";

// A copy of the kernel under a name of its own in the process; it stays.
void *load(const std::string &sName, int nScope)
{
    const std::string sPath = qvtest::libraryDirectory() + "/" + sName;
    std::filesystem::copy_file(QV_KERNEL, sPath);
    void *pLibrary = dlopen(sPath.c_str(), RTLD_NOW | nScope);
    EXPECT_NE(pLibrary, nullptr) << dlerror();
    return pLibrary;
}

TEST(KernelLink, WhatTheLoaderBoundIsTakenAsItIs)
{
    int nBound = 0;
    EXPECT_EQ(qv::kernelFunction("no_such_function", &nBound), &nBound);
    EXPECT_EQ(qv::kernelFunction("no_such_function", nullptr), nullptr);
}

TEST(KernelLink, TheGlobalScopeHoldsTheProgramsOwnFunctions)
{
    void *pOwn = reinterpret_cast<void *>(ownFunctionOfTheProgram);
    EXPECT_EQ(qv::kernelFunction("ownFunctionOfTheProgram", nullptr), pOwn);
    int nBound = 0;
    EXPECT_EQ(qv::kernelFunction("ownFunctionOfTheProgram", &nBound), &nBound) << "the loader's binding goes first";
}

// The last one: each library stays from here on.
TEST(KernelLink, ALibraryOfLocalScopeIsFoundAfterTheLoadersBindingAndTheGlobalScope)
{
    EXPECT_EQ(qv::kernelFunction(szName, nullptr), nullptr);
    void *pLocal = load("link_local.so", RTLD_LOCAL);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, szName), nullptr) << "the global scope would show it";
    EXPECT_EQ(qv::kernelFunction(szName, nullptr), dlsym(pLocal, szName));
    int nBound = 0;
    EXPECT_EQ(qv::kernelFunction(szName, &nBound), &nBound);

    void *pGlobal = load("link_global.so", RTLD_GLOBAL);
    EXPECT_NE(dlsym(pGlobal, szName), dlsym(pLocal, szName));
    EXPECT_EQ(qv::kernelFunction(szName, nullptr), dlsym(pGlobal, szName));
    EXPECT_EQ(qv::kernelFunction(szName, &nBound), &nBound);
}

} // namespace
