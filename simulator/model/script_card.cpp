// Looks commands up in a card script and keeps track of turns.
#include "model/script_card.h"

#include <utility>

namespace qvsim {

ScriptCard::ScriptCard(CardScript script, std::string label, std::shared_ptr<ScriptUse> use)
    : script_(std::move(script)), label_(std::move(label)), use_(std::move(use))
{
    use_->expect(script_);
    rewind();
}

CardAnswer ScriptCard::powerOn()
{
    if (hadPower_ && partIsOver() && part_ + 1 < script_.parts.size())
        ++part_;
    hadPower_ = true;
    asked_ = false;
    rewind();
    use_->played(part().line);
    return part().atr ? CardAnswer::of(*part().atr) : CardAnswer{};
}

bool ScriptCard::partIsOver() const
{
    return asked_ || (part().commands.empty() && part().sections.empty());
}

CardAnswer ScriptCard::transmit(BytesView command)
{
    asked_ = true;
    for (std::size_t s = 0; s < part().sections.size(); ++s) {
        const std::vector<ScriptedCommand> &commands = part().sections[s].commands;
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
    for (std::size_t i = 0; i < part().commands.size(); ++i)
        if (part().commands[i].pattern.matches(command))
            return play(part().commands[i], turns_[i]);
    return CardAnswer::of(part().defaultReply);
}

CardAnswer ScriptCard::answer()
{
    return {}; // everything was answered at once
}

void ScriptCard::rewind()
{
    turns_.assign(part().commands.size(), 0);
    sections_.clear();
    for (const OrderedSection &section : part().sections)
        sections_.push_back({0, std::vector<std::size_t>(section.commands.size(), 0)});
}

CardAnswer ScriptCard::play(const ScriptedCommand &command, std::size_t &turn)
{
    const ScriptReply &reply = command.replies[turn];
    use_->played(reply.line);
    if (turn + 1 < command.replies.size())
        ++turn;
    return reply.bytes ? CardAnswer::of(*reply.bytes) : CardAnswer{};
}

} // namespace qvsim
