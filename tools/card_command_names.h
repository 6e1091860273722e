// card_command_names.h - what the commands to a card are called.
#pragma once

#include "hex.h"

namespace qvtool {

// "GET BALANCE"; null: unknown.
const char *cardCommandName(BytesView command);

} // namespace qvtool
