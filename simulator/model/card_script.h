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
    bool operator==(const CommandPattern &) const = default;
};

// Nothing: the card keeps silent.
using ScriptReply = std::optional<Bytes>;

struct ScriptedCommand {
    CommandPattern pattern;
    std::vector<ScriptReply> replies; // played in turn, the last one again and again
    unsigned line = 0;
};

struct OrderedSection {
    std::string name;
    std::vector<ScriptedCommand> commands;
};

struct CardScript {
    std::string name;
    std::optional<Bytes> atr; // nothing: the card is mute
    Bytes defaultReply{0x6D, 0x00};
    std::vector<ScriptedCommand> commands;
    std::vector<OrderedSection> sections;
};

// Holds the script, or the sentence "FILE:LINE: what is wrong".
using CardScriptResult = std::variant<CardScript, std::string>;

// `fileName` only names the text in messages.
CardScriptResult parseCardScript(std::string_view text, std::string_view fileName);

// Largest text that is taken as a card file.
constexpr std::size_t kMostCardFileBytes = std::size_t{1} << 20;

} // namespace qvsim
