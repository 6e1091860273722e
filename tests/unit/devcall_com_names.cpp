#include "devcall.h"

#include <cstdarg>
#include <fcntl.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

using qvtest::ComNames;

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list more;
    va_start(more, nFlags);
    unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    if (std::string_view(pszPath).starts_with("/dev/COM")) {
        ComNames::s_opened.emplace_back(pszPath);
        if (!ComNames::s_sDevice.empty())
            pszPath = ComNames::s_sDevice.c_str();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}
