// test_main.cpp - runs a test program on a private copy of the library.

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

constexpr char szDirVariable[] = "QV_TEST_LIBRARY_DIR";

std::filesystem::path loadedLibrary()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&initDriver), &info) == 0)
        return {};
    return info.dli_fname;
}

// Copies the library into a new folder and starts this program again with that copy.
int startWithPrivateCopy(char **ppArgs)
{
    std::string sDir = (std::filesystem::temp_directory_path() / "qvtest-XXXXXX").string();
    if (mkdtemp(sDir.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    std::filesystem::copy_file(std::filesystem::canonical(loadedLibrary()), sDir + "/libqvreader.so.1");
    std::string sPath = sDir;
    if (const char *psz = std::getenv("LD_LIBRARY_PATH"); psz != nullptr && *psz != '\0')
        sPath += std::string(":") + psz;
    setenv("LD_LIBRARY_PATH", sPath.c_str(), 1);
    setenv(szDirVariable, sDir.c_str(), 1);
    execv("/proc/self/exe", ppArgs);
    std::perror("execv");
    return 1;
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    const char *pszDir = std::getenv(szDirVariable);
    if (pszDir == nullptr)
        return startWithPrivateCopy(ppArgs);
    if (loadedLibrary().parent_path() != pszDir) {
        std::fprintf(stderr, "the library under test is %s, not the copy in %s\n", loadedLibrary().c_str(), pszDir);
        return 1;
    }
    testing::InitGoogleTest(&nArgs, ppArgs);
    int nResult = RUN_ALL_TESTS();
    std::filesystem::remove_all(pszDir);
    return nResult;
}
