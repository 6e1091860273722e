// Parser of card files.
//
//   line           meaning
//   # ...          comment, also behind other content
//   name TEXT      what the trace calls the card
//   atr HEX        answer to power-on
//   mute           instead of atr: the card gives no answer to power-on
//   default HEX    reply to every command that the script does not know (6D00 when left out)
//   > HEX          command; ? stands for any half-byte, * at the end for any further bytes
//   < HEX          reply to the command above; several are played in turn, the last one repeats
//   < silence      the card gives no answer to this command
//   + HEX          goes on with the command or reply above
//   order NAME     the commands up to `end` are known only in the order in which they stand
//   end            end of an ordered section
//   power          what follows is the card from its next power-on on
#include "model/card_script.h"

#include "model/card_text.h"

#include <array>
#include <set>

namespace qvsim {

namespace {

constexpr std::size_t kMostCommand = 1024; // bytes of one command APDU
constexpr std::size_t kMostReply = 4096;   // bytes of one response APDU
constexpr std::size_t kStatusBytes = 2;

// Appends half-bytes and wildcards to a pattern. Returns what is wrong, or null.
const char *appendPattern(CommandPattern &pattern, std::string_view text)
{
    for (const char c : text) {
        if (isBlank(c))
            continue;
        if (pattern.openEnd)
            return "nothing may follow \"*\"";
        if (c == '*') {
            if (pattern.halves.size() % 2 != 0)
                return "\"*\" stands inside a byte";
            pattern.openEnd = true;
            continue;
        }
        const int digit = hexDigit(c);
        if (digit < 0 && c != '?')
            return "a command is hexadecimal digits, \"?\" and \"*\"";
        if (pattern.halves.size() == 2 * kMostCommand)
            return "the command is longer than 1024 bytes";
        pattern.halves.push_back(c == '?' ? CommandPattern::kAnyHalf : static_cast<std::int8_t>(digit));
    }
    return nullptr;
}

class Parser {
  public:
    explicit Parser(std::string_view fileName) : fileName_(fileName) {}

    CardScriptResult parse(std::string_view text)
    {
        if (text.size() > kMostCardFileBytes)
            return std::string(fileName_) + kCardFileTooLarge;
        const char *wrong = nullptr;
        while (wrong == nullptr && !text.empty()) {
            ++line_;
            wrong = takeContent(takeLine(text));
        }
        if (wrong == nullptr)
            wrong = finishPart();
        if (wrong != nullptr)
            return std::string(fileName_) + ":" + std::to_string(line_ == 0 ? 1 : line_) + ": " + wrong;
        return std::move(script_);
    }

  private:
    using Rule = const char *(Parser::*)(std::string_view rest);
    struct RuleRow {
        std::string_view word;
        Rule rule;
    };
    static const std::array<RuleRow, 10> kRules;

    const char *takeContent(std::string_view line)
    {
        if (const char *wrong = lineTrouble(line))
            return wrong;
        line = trimmed(line.substr(0, line.find('#')));
        if (line.empty())
            return nullptr;
        // The marks need no blank behind them, the words do.
        const bool isMark = line[0] == '>' || line[0] == '<' || line[0] == '+';
        const std::size_t wordEnd = isMark ? 1 : line.find_first_of(" \t");
        const std::string_view word = line.substr(0, wordEnd);
        const std::string_view rest =
            wordEnd == std::string_view::npos ? std::string_view() : trimmed(line.substr(wordEnd));
        for (const RuleRow &row : kRules)
            if (row.word == word)
                return (this->*row.rule)(rest);
        return "unknown word; known are name, atr, mute, default, >, <, +, order, end and power";
    }

    const char *takeName(std::string_view rest)
    {
        script_.name = rest;
        return nullptr;
    }

    const char *takeAtr(std::string_view rest)
    {
        if (powerOnGiven_)
            return "the answer to power-on has been given already";
        const std::optional<Bytes> atr = fromHex(rest);
        if (!atr)
            return "the ATR is not hexadecimal";
        if (atr->empty() || atr->size() > kMostAtr)
            return "an ATR has 1 to 33 bytes";
        givePowerOn(atr);
        return nullptr;
    }

    const char *takeMute(std::string_view rest)
    {
        if (!rest.empty())
            return "nothing may follow \"mute\"";
        if (powerOnGiven_)
            return "the answer to power-on has been given already";
        givePowerOn(std::nullopt);
        return nullptr;
    }

    void givePowerOn(const std::optional<Bytes> &atr)
    {
        part().atr = atr;
        part().line = line_;
        powerOnGiven_ = true;
    }

    const char *takeDefault(std::string_view rest)
    {
        const std::optional<Bytes> reply = fromHex(rest);
        if (!reply || reply->size() < kStatusBytes || reply->size() > kMostReply)
            return "the default reply is hexadecimal and ends in two status bytes";
        part().defaultReply = *reply;
        return nullptr;
    }

    const char *takeCommand(std::string_view rest)
    {
        if (const char *wrong = finishCommand())
            return wrong;
        ScriptedCommand command;
        command.line = line_;
        if (const char *wrong = appendPattern(command.pattern, rest))
            return wrong;
        open_ = std::move(command);
        inReply_ = false;
        return nullptr;
    }

    const char *takeReply(std::string_view rest)
    {
        if (!open_)
            return "a reply needs a command (>) above it";
        if (const char *wrong = finishReply())
            return wrong;
        inReply_ = true;
        if (rest == "silence") {
            open_->replies.push_back({std::nullopt, line_});
            return nullptr;
        }
        open_->replies.push_back({Bytes{}, line_});
        return appendReply(rest);
    }

    const char *takeMore(std::string_view rest)
    {
        if (!open_)
            return "there is no command or reply to go on with";
        return inReply_ ? appendReply(rest) : appendPattern(open_->pattern, rest);
    }

    const char *takeOrder(std::string_view rest)
    {
        if (const char *wrong = finishCommand())
            return wrong;
        if (inSection_)
            return "an ordered section cannot stand inside another one";
        if (rest.empty())
            return "an ordered section needs a name";
        part().sections.push_back({std::string(rest), {}});
        inSection_ = true;
        return nullptr;
    }

    const char *takeEnd(std::string_view rest)
    {
        if (const char *wrong = finishCommand())
            return wrong;
        if (!inSection_)
            return "\"end\" without \"order\"";
        if (!rest.empty())
            return "nothing may follow \"end\"";
        if (part().sections.back().commands.empty())
            return "the ordered section has no commands";
        inSection_ = false;
        return nullptr;
    }

    // The new part keeps the answer to power-on and the default reply until it gives its own.
    const char *takePower(std::string_view rest)
    {
        if (!rest.empty())
            return "nothing may follow \"power\"";
        if (const char *wrong = finishPart())
            return wrong;
        script_.parts.push_back({part().atr, part().defaultReply, {}, {}, line_});
        powerOnGiven_ = false;
        patternsSeen_.clear();
        return nullptr;
    }

    const char *appendReply(std::string_view text)
    {
        std::optional<Bytes> &reply = open_->replies.back().bytes;
        const std::optional<Bytes> more = fromHex(text);
        if (!reply)
            return "nothing may follow \"silence\"";
        if (!more)
            return "a reply is hexadecimal, or the word \"silence\"";
        if (more->size() > kMostReply - reply->size())
            return "the reply is longer than 4096 bytes";
        reply->insert(reply->end(), more->begin(), more->end());
        return nullptr;
    }

    const char *finishReply()
    {
        if (open_->replies.empty() || !open_->replies.back().bytes)
            return nullptr;
        return open_->replies.back().bytes->size() < kStatusBytes ? "the reply above has no two status bytes" : nullptr;
    }

    const char *finishCommand()
    {
        if (!open_)
            return nullptr;
        if (open_->pattern.halves.size() % 2 != 0)
            return "the command above has half a byte too many";
        if (open_->pattern.halves.empty() && !open_->pattern.openEnd)
            return "the command above is empty";
        if (open_->replies.empty())
            return "the command above has no reply";
        if (const char *wrong = finishReply())
            return wrong;
        std::vector<ScriptedCommand> &list = inSection_ ? part().sections.back().commands : part().commands;
        // In a section the same command may well come twice; outside, the second would never be reached.
        if (!inSection_ && !patternsSeen_.insert(keyOf(open_->pattern)).second)
            return "the command above stands twice; give it several replies instead";
        list.push_back(std::move(*open_));
        open_.reset();
        return nullptr;
    }

    const char *finishPart()
    {
        if (const char *wrong = finishCommand())
            return wrong;
        if (inSection_)
            return "the ordered section has no \"end\"";
        if (!powerOnGiven_ && script_.parts.size() == 1)
            return "no \"atr\"; a card that gives none says \"mute\"";
        return nullptr;
    }

    CardPart &part() { return script_.parts.back(); }

    static std::string keyOf(const CommandPattern &pattern)
    {
        std::string key;
        key.reserve(pattern.halves.size() + 1);
        for (const std::int8_t half : pattern.halves)
            key += static_cast<char>('b' + half);
        if (pattern.openEnd)
            key += '*';
        return key;
    }

    std::string_view fileName_;
    unsigned line_ = 0;
    CardScript script_{{}, {CardPart{}}};
    bool powerOnGiven_ = false; // in this part
    bool inSection_ = false;
    bool inReply_ = false;
    std::optional<ScriptedCommand> open_; // the command whose lines are being read
    std::set<std::string> patternsSeen_;  // of the part
};

const std::array<Parser::RuleRow, 10> Parser::kRules{{
    {"name", &Parser::takeName},
    {"atr", &Parser::takeAtr},
    {"mute", &Parser::takeMute},
    {"default", &Parser::takeDefault},
    {">", &Parser::takeCommand},
    {"<", &Parser::takeReply},
    {"+", &Parser::takeMore},
    {"order", &Parser::takeOrder},
    {"end", &Parser::takeEnd},
    {"power", &Parser::takePower},
}};

} // namespace

bool CommandPattern::matches(BytesView command) const
{
    const std::size_t fixed = halves.size() / 2;
    if (command.size() < fixed || (command.size() > fixed && !openEnd))
        return false;
    for (std::size_t i = 0; i < halves.size(); ++i) {
        const int half = i % 2 == 0 ? command[i / 2] >> 4 : command[i / 2] & 0x0F;
        if (halves[i] != kAnyHalf && halves[i] != half)
            return false;
    }
    return true;
}

std::string CommandPattern::text() const
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < halves.size(); ++i) {
        if (i != 0 && i % 2 == 0)
            text += ' ';
        text += halves[i] == kAnyHalf ? '?' : kDigits[halves[i]];
    }
    if (openEnd)
        text += text.empty() ? "*" : " *";
    return text;
}

CardScriptResult parseCardScript(std::string_view text, std::string_view fileName)
{
    return Parser(fileName).parse(text);
}

} // namespace qvsim
