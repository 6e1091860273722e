// log_files.h - which file the log goes to.
#pragma once

#include <span>

namespace qv {

// Room for a log path.
inline constexpr size_t nLogPathSize = 512;

// The file that the next line goes to (see getLogFilePath).
void writeLogFilePath(std::span<char, nLogPathSize> out) noexcept;

} // namespace qv
