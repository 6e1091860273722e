// stripe_mask.h - card data as it may be shown.
#pragma once

#include <string>
#include <string_view>

namespace qvtool {

// A track of the same length. In front of the first separator ("=" or "^") a number of 13 digits or more keeps its first
// six and its last four, a shorter one none; behind it letters and digits become "*". A letter at the start (track 1: the
// kind of its layout), blanks and punctuation stay, characters that cannot be printed do not.
std::string maskedTrack(std::string_view sTrack);

} // namespace qvtool
