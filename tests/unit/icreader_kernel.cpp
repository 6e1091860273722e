// The contactless memory card's power-up belongs to the kernel: found in whatever scope a host has loaded it, at any
// time, and nothing is remembered of it.

#include "harness.h"
#include "kernel_stub.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

int32_t powerUp()
{
    return Dev_Rdz_M1PowerOn(0x1122334455667788U, 2, 0xFFFFFFFFFFFFFFFFU, 4, 0x8000000000000000U, 6, 7,
                             0x0000000100000000U);
}

const std::vector<uint64_t> s_arguments = {0x1122334455667788U, 2, 0xFFFFFFFFFFFFFFFFU, 4, 0x8000000000000000U, 6, 7,
                                           0x0000000100000000U};

// A kernel in the process for as long as this object lives.
class Kernel {
  public:
    Kernel(const char *pszPath, int nScope) : m_pLibrary(dlopen(pszPath, RTLD_NOW | nScope))
    {
        if (m_pLibrary == nullptr)
            ADD_FAILURE() << dlerror();
    }
    ~Kernel() { dlclose(m_pLibrary); }
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    void answers(int32_t nResult) { *static_cast<int32_t *>(dlsym(m_pLibrary, "g_nKernelResult")) = nResult; }
    std::vector<uint64_t> arguments() const
    {
        auto *p = static_cast<const uint64_t *>(dlsym(m_pLibrary, "g_kernelArguments"));
        return {p, p + 8};
    }

  private:
    void *m_pLibrary;
};

void expectHandedOn(Kernel &kernel)
{
    for (int32_t nResult : {0, 1, -1, -4099, INT32_MAX, INT32_MIN}) {
        kernel.answers(nResult);
        EXPECT_EQ(powerUp(), nResult);
    }
    EXPECT_EQ(kernel.arguments(), s_arguments);
}

TEST(KernelPowerUp, WithoutAKernelItFails)
{
    EXPECT_EQ(powerUp(), -1);
}

TEST(KernelPowerUp, AKernelThatIsLoadedLaterWithLocalScopeIsFoundAndMayGo)
{
    for (int i = 0; i < 2; ++i) {
        {
            Kernel kernel(QV_KERNEL, RTLD_LOCAL);
            expectHandedOn(kernel);
        }
        EXPECT_EQ(powerUp(), -1) << "the kernel has gone";
    }
}

TEST(KernelPowerUp, AnotherKernelIsFoundInTheFirstOnesPlace)
{
    std::string sOther = qvtest::libraryDirectory() + "/other_kernel.so";
    std::filesystem::copy_file(QV_KERNEL, sOther);
    std::optional<Kernel> kernel;
    kernel.emplace(QV_KERNEL, RTLD_LOCAL);
    expectHandedOn(*kernel);
    kernel.reset();
    kernel.emplace(sOther.c_str(), RTLD_LOCAL);
    expectHandedOn(*kernel);
}

// The last one: glibc keeps what was found in the global scope loaded.
TEST(KernelPowerUp, TheGlobalScopeGoesFirst)
{
    std::string sOther = qvtest::libraryDirectory() + "/global_kernel.so";
    std::filesystem::copy_file(QV_KERNEL, sOther);
    Kernel local(QV_KERNEL, RTLD_LOCAL);
    Kernel global(sOther.c_str(), RTLD_GLOBAL);
    local.answers(11);
    EXPECT_EQ(local.arguments(), std::vector<uint64_t>(8));
    expectHandedOn(global);
    EXPECT_EQ(local.arguments(), std::vector<uint64_t>(8));
}

} // namespace
