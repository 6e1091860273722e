// One after the other; the first that is wrong ends it.
#include "program/equip.h"

#include <stdexcept>

namespace qvsim {

namespace {

void putStripe(Bench &bench, const StripeOptions &options)
{
    bench.stripe().setChannel(options.channel.front());
    bench.stripe().setSwipeDelay(std::chrono::milliseconds(options.afterMs));
    bench.stripe().setFinalSeparator(options.finalSeparator);
    if (options.once)
        bench.stripe().swipeOnce();
    if (options.file.empty())
        return;
    if (const Trouble trouble = bench.offerStripe(options.file))
        throw std::runtime_error("stripe " + *trouble);
}

} // namespace

std::vector<std::string> equip(Bench &bench, const Options &options)
{
    std::vector<std::string> told;
    for (const auto &[field, value] : options.device)
        if (const Trouble trouble = bench.setDevice(field, value))
            throw std::runtime_error(*trouble);
    for (const auto &[slot, card] : options.cards)
        if (const Trouble trouble = bench.insert(slot, card, told))
            throw std::runtime_error("card " + std::to_string(slot) + "=" + card + ": " + *trouble);
    putStripe(bench, options.stripe);
    return told;
}

bool tellUnplayed(const Bench &bench, TextOutput &err)
{
    std::vector<std::string> lines;
    const Trouble left = bench.expectAllPlayed(lines);
    for (const std::string &line : lines)
        err.line("qvreader-sim: not played: " + line);
    if (left)
        err.line("qvreader-sim: " + *left);
    return !left;
}

} // namespace qvsim
