// Looks commands up in a card script and keeps track of turns.
#include "model/script_card.h"

#include <utility>

namespace qvsim {

ScriptCard::ScriptCard(CardScript script, std::string label) : script_(std::move(script)), label_(std::move(label))
{
    rewind();
}

CardAnswer ScriptCard::powerOn()
{
    rewind();
    return script_.atr ? CardAnswer::of(*script_.atr) : CardAnswer{};
}

CardAnswer ScriptCard::transmit(BytesView command)
{
    for (std::size_t s = 0; s < script_.sections.size(); ++s) {
        const std::vector<ScriptedCommand> &commands = script_.sections[s].commands;
        SectionState &state = sections_[s];
        for (const std::size_t candidate : {state.next, std::size_t{0}}) {
            if (!commands[candidate].pattern.matches(command))
                continue;
            if (candidate == 0)
                for (SectionState &other : sections_)
                    other.next = 0;
            state.next = (candidate + 1) % commands.size();
            return play(commands[candidate], state.turns[candidate]);
        }
    }
    for (std::size_t i = 0; i < script_.commands.size(); ++i)
        if (script_.commands[i].pattern.matches(command))
            return play(script_.commands[i], turns_[i]);
    return CardAnswer::of(script_.defaultReply);
}

CardAnswer ScriptCard::answer()
{
    return {}; // everything was answered at once
}

void ScriptCard::rewind()
{
    turns_.assign(script_.commands.size(), 0);
    sections_.clear();
    for (const OrderedSection &section : script_.sections)
        sections_.push_back({0, std::vector<std::size_t>(section.commands.size(), 0)});
}

CardAnswer ScriptCard::play(const ScriptedCommand &command, std::size_t &turn)
{
    const ScriptReply &reply = command.replies[turn];
    if (turn + 1 < command.replies.size())
        ++turn;
    return reply ? CardAnswer::of(*reply) : CardAnswer{};
}

} // namespace qvsim
