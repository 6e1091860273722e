// stripe_texts.h - the texts that are to be written: where they come from, and whether they can be written as they are.
#pragma once

#include "options.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

// Fills the texts (and, unless --format was given, the format) from the card file, where there is one, and checks them.
// warnings: what is worth knowing, but hinders nothing.
std::optional<Failure> prepareTexts(Options &options, std::vector<std::string> &warnings);

// The tracks of these texts: 1, 2, 3, 12, 23 or 123; 13 where the one between is missing; 0: none.
int tracksOf(const TrackTexts &texts);

} // namespace qvtool
