// card_options.h - the command line of select and purse.
#pragma once

#include "options.h"

namespace CLI {
class App;
}

namespace qvtool {

void addSelectOptions(CLI::App &select, SelectOptions &options);
void addPurseOptions(CLI::App &purse, PurseOptions &options);

// Which action was chosen; refuses what does not go together. Throws CLI::ValidationError.
void settlePurse(const CLI::App &app, Options &options);

} // namespace qvtool
