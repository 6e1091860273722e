// The simulator on USB, with a command as its host.
#pragma once

#include "program/options.h"

namespace qvsim {

// Returns the exit code. Throws std::runtime_error.
int serveUsb(const Options &options);

} // namespace qvsim
