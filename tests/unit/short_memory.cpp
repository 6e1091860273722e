#include "short_memory.h"

#include <cerrno>
#include <cstddef>

namespace {

bool s_bShort = false;
int s_nRefused = 0;

} // namespace

extern "C" void *__libc_calloc(size_t nCount, size_t nSize) noexcept;

extern "C" [[gnu::visibility("default")]] void *calloc(size_t nCount, size_t nSize) noexcept
{
    if (!s_bShort)
        return __libc_calloc(nCount, nSize);
    ++s_nRefused;
    errno = ENOMEM;
    return nullptr;
}

namespace qvtest {

ShortMemory::ShortMemory()
{
    s_nRefused = 0;
    s_bShort = true;
}

ShortMemory::~ShortMemory()
{
    s_bShort = false;
}

int ShortMemory::refused()
{
    return s_nRefused;
}

} // namespace qvtest
