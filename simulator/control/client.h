// The other end of the control socket: `qvreader-sim ctl SOCKETPATH COMMAND...`.
#pragma once

#include <string>

namespace qvsim {

// Sends one line and prints the answer: lines to standard output, "error: ..." to standard error.
// Returns 0 after "ok", 1 after an error or when nobody answers.
int callControl(const std::string &path, const std::string &line);

} // namespace qvsim
