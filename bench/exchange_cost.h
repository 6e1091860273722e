// exchange_cost.h - what one ICC_CardCmdVisitCOS asks of the system while the log is off, with the reason of each call.
//
// The fault tests hold the library to it, call by call; the exchange bench prints it beside the times.
#pragma once

namespace qvcost {

// The exchange looks this often whether the log is on: once for each line and dump that it would write, once before
// each loop of bytes, once before each dump with a title that has to be made.
constexpr int nLooks = 40;

struct Cost {
    const char *pszCall;
    bool bTty; // a call on the port; else one on the INI file
    int nNoIni, nIniSaysNo;
    const char *pszWhy;
};

constexpr Cost costs[] = {
    {"write", true, 1, 1, "the frame goes out in one piece"},
    {"read", true, 1, 1, "the reply comes in one piece, and its end byte ends the read"},
    {"stat", false, nLooks, 0, "every look at the switch asks for a file that was absent before"},
    {"open", false, 0, nLooks, "every look at the switch reads the file anew"},
    {"read", false, 0, nLooks, "a small file costs a single read"},
    {"close", false, 0, nLooks, "no descriptor is kept"},
};

} // namespace qvcost
