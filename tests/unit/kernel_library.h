// kernel_library.h - a kernel that is loaded while the program runs, and device operations that write themselves down: in
// the kernel's list of calls where it has one, so that the order is a common one.
#pragma once

#include "test_kernel.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <array>
#include <dlfcn.h>
#include <string>

namespace qvtest {

// A library in the process, with local scope, for as long as this object lives.
class Loaded {
  public:
    explicit Loaded(const char *pszPath) : m_pLibrary(dlopen(pszPath, RTLD_NOW | RTLD_LOCAL))
    {
        if (m_pLibrary == nullptr)
            ADD_FAILURE() << dlerror();
    }
    ~Loaded() { dlclose(m_pLibrary); }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;

    template <typename Function> Function *function(const char *pszName) const
    {
        return reinterpret_cast<Function *>(dlsym(m_pLibrary, pszName));
    }

  private:
    void *m_pLibrary;
};

inline void (*s_pfnNote)(const char *, ...) = nullptr;

inline std::string s_sWithoutKernel;

inline int32_t s_nPowerDown = 0; // what the power-down answers

inline void note(const char *pszCall)
{
    if (s_pfnNote != nullptr)
        s_pfnNote("%s", pszCall);
    else
        s_sWithoutKernel += std::string(pszCall) + "\n";
}

inline int32_t openOperation(const char *, const char *, uint32_t, uint32_t, int32_t)
{
    note("open()");
    return 0;
}
inline int32_t closeOperation()
{
    note("close()");
    return 0;
}
inline int32_t powerDownOperation()
{
    note("powerDown()");
    return s_nPowerDown;
}

inline std::array<void *, 10> deviceTable()
{
    std::array<void *, 10> table = {};
    table[1] = reinterpret_cast<void *>(openOperation);
    table[2] = reinterpret_cast<void *>(closeOperation);
    table[5] = reinterpret_cast<void *>(powerDownOperation);
    return table;
}

} // namespace qvtest
