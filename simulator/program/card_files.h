// Reads card scripts from disk.
#pragma once

#include "model/card_script.h"

#include <string>

namespace qvsim {

// Only regular files of at most 1 MiB; never waits for a writer as a named pipe would make it.
CardScriptResult readCardFile(const std::string &path);

} // namespace qvsim
