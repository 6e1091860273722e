// library_path.h - the library's own directory: INI file and logs lie there.
#pragma once

namespace qv {

// Without a trailing slash; found once.
const char *libraryDirectory() noexcept;

// <library directory>/QVConfig.ini
const char *iniPath() noexcept;

// <library directory>/log/
const char *logDirectory() noexcept;

} // namespace qv
