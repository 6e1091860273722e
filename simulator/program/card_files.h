// Card files on disk.
#pragma once

#include "model/card_script.h"
#include "model/purse_data.h"
#include "model/stripe_card.h"

#include <string>

namespace qvsim {

// Only regular files of at most 1 MiB; never waits for a writer as a named pipe would make it.
CardScriptResult readCardFile(const std::string &path);
StripeCardResult readStripeFile(const std::string &path);
PurseDataResult readPurseFile(const std::string &path);
PsamDataResult readPsamFile(const std::string &path);

// A recorded or written card: readable by its owner alone. Throws std::runtime_error when it cannot be written; `what`
// begins its sentence.
void writeCardFile(std::string_view what, const std::string &path, std::string_view text);

} // namespace qvsim
