// holders.h - which programs have a device open.
#pragma once

#include <string>
#include <vector>

namespace qvtool {

struct Holder {
    std::string sProgram; // "gtkterm (process 4711)"
    bool bFarEnd = false; // it plays the reader: the other end of a pseudo-terminal, the simulator of a device
};

// Other processes that have the device of this path open. Those of other users are seen by root only.
std::vector<Holder> holdersOf(const std::string &sPath);

} // namespace qvtool
