// A table of lines, each played or not.
#include "model/script_use.h"

namespace qvsim {

void ScriptUse::expect(const CardScript &script)
{
    for (std::size_t i = 0; i < script.parts.size(); ++i) {
        const CardPart &part = script.parts[i];
        lines_[part.line].what =
            script.parts.size() == 1 ? "power-on" : "power-on, part " + std::to_string(i + 1) + " of the card";
        for (const OrderedSection &section : part.sections)
            expectCommands(section.commands);
        expectCommands(part.commands);
    }
}

void ScriptUse::expectCommands(const std::vector<ScriptedCommand> &commands)
{
    for (const ScriptedCommand &command : commands) {
        const std::size_t count = command.replies.size();
        for (std::size_t i = 0; i < count; ++i) {
            std::string what = "> " + command.pattern.text();
            if (count > 1)
                what += ", answer " + std::to_string(i + 1) + " of " + std::to_string(count);
            lines_[command.replies[i].line].what = std::move(what);
        }
    }
}

void ScriptUse::played(unsigned line)
{
    lines_[line].played = true;
}

std::vector<std::string> ScriptUse::left() const
{
    std::vector<std::string> left;
    for (const auto &[line, entry] : lines_)
        if (!entry.played)
            left.push_back(std::to_string(line) + ": " + entry.what);
    return left;
}

} // namespace qvsim
