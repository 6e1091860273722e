// A magnetic card: three tracks of text, each recorded in a format. As a text file it is described in cards/README.md.
#pragma once

#include "model/bytes.h"

#include <array>
#include <variant>

namespace qvsim {

// How characters are coded on the stripe. A head reads what was recorded in the format that it stands at.
enum class StripeFormat { iso, ibm, isoDk, ibmDk };

// "ISO", "IBM", "ISO-DK", "IBM-DK".
const char *formatName(StripeFormat format);
std::optional<StripeFormat> findFormat(std::string_view name);

constexpr std::size_t kTracks = 3; // track 1 is number 0 here

// Which tracks: bit 0 is track 1.
using TrackSet = unsigned;
constexpr TrackSet kTrack1 = 1;
constexpr TrackSet kTrack2 = 2;
constexpr TrackSet kTrack3 = 4;
constexpr TrackSet kAllTracks = kTrack1 | kTrack2 | kTrack3;

struct StripeTrack {
    std::string text; // empty: nothing is recorded
    StripeFormat format = StripeFormat::iso;
    bool operator==(const StripeTrack &) const = default;
};

struct StripeCard {
    std::string name;
    std::array<StripeTrack, kTracks> tracks;
};

// Characters of tracks 2 and 3.
constexpr bool isDigitTrackCharacter(char c)
{
    return c >= '0' && c <= '?';
}

// Why a track cannot hold a text, or null. Track 1 holds 79 characters from " " to "_", track 2 holds 40 and track 3
// holds 107 from "0" to "?".
const char *trackTrouble(std::size_t track, std::string_view text);

// Holds the card, or the sentence "FILE:LINE: what is wrong".
using StripeCardResult = std::variant<StripeCard, std::string>;

// `fileName` only names the text in messages.
StripeCardResult parseStripeCard(std::string_view text, std::string_view fileName);

// The card as a card file.
std::string stripeCardText(const StripeCard &card);

} // namespace qvsim
