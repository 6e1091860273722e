// library_path.cpp - asks the loader once from which file this library came.

#include "library_path.h"

#include "bounded_text.h"
#include "qvreader/support.h"

#include <array>
#include <dlfcn.h>

namespace qv {

namespace {

constexpr size_t nDirectorySize = 512; // what getSoLocationPath promises to its callers

struct Paths {
    std::array<char, nDirectorySize> szDirectory{};
    std::array<char, nDirectorySize + 16> szIni{};
    std::array<char, nDirectorySize + 16> szLogs{};
};

Paths findPaths() noexcept
{
    Paths paths;
    Dl_info info{};
    copyText(paths.szDirectory, ".");
    if (dladdr(reinterpret_cast<void *>(&findPaths), &info) != 0 && info.dli_fname != nullptr) {
        if (const char *pszSlash = std::strrchr(info.dli_fname, '/')) {
            size_t nLen = std::min<size_t>(static_cast<size_t>(pszSlash - info.dli_fname), nDirectorySize - 1);
            copyText(std::span(paths.szDirectory).first(nLen + 1), info.dli_fname);
        }
    }
    copyText(paths.szIni, paths.szDirectory.data());
    appendText(paths.szIni, "/QVConfig.ini");
    copyText(paths.szLogs, paths.szDirectory.data());
    appendText(paths.szLogs, "/log/");
    return paths;
}

const Paths &paths() noexcept
{
    static const Paths s_paths = findPaths();
    return s_paths;
}

} // namespace

const char *libraryDirectory() noexcept
{
    return paths().szDirectory.data();
}

const char *iniPath() noexcept
{
    return paths().szIni.data();
}

const char *logDirectory() noexcept
{
    return paths().szLogs.data();
}

} // namespace qv

void getSoLocationPath(char *pszPath) noexcept
{
    if (pszPath != nullptr)
        qv::copyText(std::span(pszPath, std::strlen(qv::libraryDirectory()) + 1), qv::libraryDirectory());
}
