// Fields and cards that the command line asks for, and whether the cards were used up.
#pragma once

#include "program/bench.h"
#include "program/options.h"
#include "system/text_output.h"

namespace qvsim {

// Returns what there is to tell: "vpcd 0 35963". Throws std::runtime_error with what is wrong.
std::vector<std::string> equip(Bench &bench, const Options &options);

// For --expect: tells what is left of the card files. True when nothing is.
bool tellUnplayed(const Bench &bench, TextOutput &err);

} // namespace qvsim
