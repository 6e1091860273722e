// kernel_link.cpp - where a kernel function may be found, in this order:
//
//   1. bound by the loader, because the kernel was there first (a weak import);
//   2. in the process's global scope;
//   3. in any loaded object: Python and Java load libraries with local scope, where 1 and 2 do not look.

#include "kernel_link.h"

#include <array>
#include <climits>
#include <dlfcn.h>
#include <link.h>
#include <memory>
#include <string_view>

namespace qv {

namespace {

struct NthObject {
    size_t nWanted;
    size_t nAt;
    std::array<char, PATH_MAX> szName;
    bool bFound;
};

// Copies the name of object number nWanted; the loader must not be called from inside the iteration.
int copyName(dl_phdr_info *pInfo, size_t, void *pContext)
{
    auto *pSearch = static_cast<NthObject *>(pContext);
    if (pSearch->nAt++ != pSearch->nWanted)
        return 0;
    std::string_view sName = pInfo->dlpi_name == nullptr ? "" : pInfo->dlpi_name;
    if (sName.size() >= pSearch->szName.size())
        sName = {};
    pSearch->szName[sName.copy(pSearch->szName.data(), pSearch->szName.size() - 1)] = '\0';
    pSearch->bFound = true;
    return 1;
}

struct CloseLibrary {
    void operator()(void *pHandle) const noexcept { dlclose(pHandle); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

void *findInLoadedObjects(const char *pszName) noexcept
{
    for (size_t n = 0;; ++n) {
        NthObject search{n, 0, {}, false};
        dl_iterate_phdr(copyName, &search);
        if (!search.bFound)
            return nullptr;
        if (search.szName[0] == '\0')
            continue; // the program itself, which the global scope covers
        Library library(dlopen(search.szName.data(), RTLD_NOLOAD | RTLD_LAZY));
        if (library == nullptr)
            continue;
        if (void *pFunction = dlsym(library.get(), pszName))
            return pFunction;
    }
}

} // namespace

void *kernelFunction(const char *pszName, void *pWeak) noexcept
{
    if (pWeak != nullptr)
        return pWeak;
    if (void *pFunction = dlsym(RTLD_DEFAULT, pszName))
        return pFunction;
    return findInLoadedObjects(pszName);
}

} // namespace qv
