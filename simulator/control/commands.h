// The commands that change a running simulator: a row each in commands.cpp.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvsim {

class Bench;

// What a command is answered with: lines, and "ok" or "error: ..." behind them.
std::vector<std::string> runCommand(Bench &bench, std::string_view line);

// "insert SLOT CARD   puts a card in ..." for each command.
std::vector<std::string> commandHelp();

} // namespace qvsim
