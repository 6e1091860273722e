// host_pointers.h - what a host must not leave out.
#pragma once

#include "log.h"

#include <algorithm>
#include <initializer_list>

namespace qv {

// True, with a log line, when one of the pointers is null.
inline bool isMissing(const char *pszCall, std::initializer_list<const void *> needed) noexcept
{
    if (std::find(needed.begin(), needed.end(), nullptr) == needed.end())
        return false;
    QV_LOG(kLogAppIc, "[%s] a null pointer", pszCall);
    return true;
}

} // namespace qv
