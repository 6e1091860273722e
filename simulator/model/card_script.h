// A card conversation from a text file; the format is described in cards/README.md.
#pragma once

#include "model/bytes.h"

#include <variant>

namespace qvsim {

// A command of a script: half-bytes with wildcards.
struct CommandPattern {
    static constexpr std::int8_t kAnyHalf = -1;

    std::vector<std::int8_t> halves; // 0..15, or kAnyHalf
    bool openEnd = false;            // "*" at the end: more bytes, or none, may follow

    bool matches(BytesView command) const;
    // As it stands in a card file: "00 A4 0? *".
    std::string text() const;
    bool operator==(const CommandPattern &) const = default;
};

struct ScriptReply {
    std::optional<Bytes> bytes; // nothing: the card keeps silent
    unsigned line = 0;
};

struct ScriptedCommand {
    CommandPattern pattern;
    std::vector<ScriptReply> replies; // played in turn, the last one again and again
    unsigned line = 0;
};

struct OrderedSection {
    std::string name;
    std::vector<ScriptedCommand> commands;
};

// What the card is from one power-on to the next.
struct CardPart {
    std::optional<Bytes> atr; // nothing: the card is mute
    Bytes defaultReply{0x6D, 0x00};
    std::vector<ScriptedCommand> commands;
    std::vector<OrderedSection> sections;
    unsigned line = 0; // of its answer to power-on, or where the part begins when it takes the part's above
};

struct CardScript {
    std::string name;
    std::vector<CardPart> parts; // at least one; the last one stays
};

// Holds the script, or the sentence "FILE:LINE: what is wrong".
using CardScriptResult = std::variant<CardScript, std::string>;

// `fileName` only names the text in messages.
CardScriptResult parseCardScript(std::string_view text, std::string_view fileName);

constexpr std::size_t kMostAtr = 33; // ISO 7816-3

} // namespace qvsim
