// tty_settings.h - the settings that a tty had before the library changed it.
#pragma once

#include <sys/ioctl.h>

namespace qv {

// Writes g_stOldTermAttr and what the 16-bit words of termio cannot hold back to the tty. 0 or -1.
int restoreTty(int nFd) noexcept;

} // namespace qv
