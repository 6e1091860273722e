// directory.h - owner of a directory stream.
#pragma once

#include <dirent.h>
#include <memory>

namespace qv {

struct CloseDirectory {
    void operator()(DIR *pDir) const noexcept { ::closedir(pDir); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

} // namespace qv
