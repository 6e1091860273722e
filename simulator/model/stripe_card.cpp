// Parser and writer of magnetic card files.
//
//   line           meaning
//   # ...          comment, also behind other content and a blank
//   name TEXT      what the trace calls the card
//   format NAME    ISO, IBM, ISO-DK or IBM-DK: of the tracks below (ISO when left out)
//   track1 TEXT    what is recorded; in quotation marks where blanks at an end or " #" belong to it, a quotation mark
//   track2 TEXT    inside being written twice. A track that is missing is empty.
//   track3 TEXT
#include "model/stripe_card.h"

#include "model/card_text.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr char kQuote = '"';
constexpr std::array<const char *, 4> kFormatNames{"ISO", "IBM", "ISO-DK", "IBM-DK"};

struct TrackRow {
    std::string_view word;
    char first; // of its characters
    char last;
    std::size_t most;
    const char *wrongCharacter;
    const char *tooLong;
};

constexpr std::array<TrackRow, kTracks> kTrackRows{{
    {"track1", ' ', '_', 79, "track 1 holds characters from \" \" to \"_\"", "track 1 holds at most 79 characters"},
    {"track2", '0', '?', 40, "track 2 holds characters from \"0\" to \"?\"", "track 2 holds at most 40 characters"},
    {"track3", '0', '?', 107, "track 3 holds characters from \"0\" to \"?\"", "track 3 holds at most 107 characters"},
}};

class Parser {
  public:
    StripeCardResult parse(std::string_view text, std::string_view fileName)
    {
        if (text.size() > kMostCardFileBytes)
            return std::string(fileName) + kCardFileTooLarge;
        const char *wrong = nullptr;
        unsigned line = 0;
        while (wrong == nullptr && !text.empty()) {
            ++line;
            wrong = takeContent(takeLine(text));
        }
        if (wrong != nullptr)
            return std::string(fileName) + ":" + std::to_string(line) + ": " + wrong;
        return std::move(card_);
    }

  private:
    const char *takeContent(std::string_view line)
    {
        if (const char *wrong = lineTrouble(line))
            return wrong;
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            return nullptr;
        const std::size_t wordEnd = std::min(line.find_first_of(" \t"), line.size());
        const std::string_view word = line.substr(0, wordEnd);
        const std::string_view rest = trimmed(line.substr(wordEnd));
        if (word == "name") {
            card_.name = trimmed(withoutComment(rest));
            return nullptr;
        }
        if (word == "format")
            return takeFormat(trimmed(withoutComment(rest)));
        for (std::size_t track = 0; track < kTracks; ++track)
            if (word == kTrackRows[track].word)
                return takeTrack(track, rest);
        return "unknown word; known are name, format, track1, track2 and track3";
    }

    const char *takeFormat(std::string_view name)
    {
        const std::optional<StripeFormat> format = findFormat(name);
        if (!format)
            return "a format is ISO, IBM, ISO-DK or IBM-DK";
        format_ = *format;
        return nullptr;
    }

    const char *takeTrack(std::size_t track, std::string_view rest)
    {
        if (given_[track])
            return "this track has been given already";
        given_[track] = true;
        std::string text;
        if (!rest.starts_with(kQuote))
            text = trimmed(withoutComment(rest));
        else if (const char *wrong = takeQuoted(rest, text))
            return wrong;
        if (text.empty())
            return "a track needs its text; an empty one has no line";
        if (const char *wrong = trackTrouble(track, text))
            return wrong;
        card_.tracks[track] = {std::move(text), format_};
        return nullptr;
    }

    static const char *takeQuoted(std::string_view rest, std::string &text)
    {
        std::size_t at = 1;
        for (; at < rest.size(); ++at) {
            if (rest[at] == kQuote && (at + 1 == rest.size() || rest[at + 1] != kQuote))
                break;
            if (rest[at] == kQuote)
                ++at; // the second one of a pair
            text += rest[at];
        }
        if (at >= rest.size())
            return "the closing quotation mark is missing";
        return trimmed(withoutComment(rest.substr(at + 1))).empty() ? nullptr
                                                                    : "something stands behind the quotation marks";
    }

    StripeCard card_;
    StripeFormat format_ = StripeFormat::iso;
    std::array<bool, kTracks> given_{};
};

std::string quotedWhereNeeded(const std::string &text)
{
    const bool plain = text.front() != ' ' && text.back() != ' ' && text.front() != kQuote &&
                       withoutComment(text).size() == text.size();
    if (plain)
        return text;
    std::string quoted(1, kQuote);
    for (const char c : text)
        quoted.append(c == kQuote ? 2 : 1, c);
    return quoted + kQuote;
}

} // namespace

const char *formatName(StripeFormat format)
{
    return kFormatNames[static_cast<std::size_t>(format)];
}

std::optional<StripeFormat> findFormat(std::string_view name)
{
    const auto found = std::find(kFormatNames.begin(), kFormatNames.end(), name);
    if (found == kFormatNames.end())
        return std::nullopt;
    return static_cast<StripeFormat>(found - kFormatNames.begin());
}

const char *trackTrouble(std::size_t track, std::string_view text)
{
    const TrackRow &row = kTrackRows[track];
    if (std::any_of(text.begin(), text.end(), [&row](char c) { return c < row.first || c > row.last; }))
        return row.wrongCharacter;
    return text.size() > row.most ? row.tooLong : nullptr;
}

StripeCardResult parseStripeCard(std::string_view text, std::string_view fileName)
{
    return Parser().parse(text, fileName);
}

std::string stripeCardText(const StripeCard &card)
{
    std::string text;
    if (!card.name.empty())
        text += "name   " + card.name + "\n";
    StripeFormat format = StripeFormat::iso;
    for (std::size_t track = 0; track < kTracks; ++track) {
        const StripeTrack &recorded = card.tracks[track];
        if (recorded.text.empty())
            continue;
        if (recorded.format != format)
            text += std::string("format ") + formatName(recorded.format) + "\n";
        format = recorded.format;
        text += std::string(kTrackRows[track].word) + " " + quotedWhereNeeded(recorded.text) + "\n";
    }
    return text;
}

} // namespace qvsim
