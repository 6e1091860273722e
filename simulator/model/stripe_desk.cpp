// What lies at the stripe head, how it is swiped and what goes wrong; and what `state` tells of it.
#include "model/stripe_head.h"

#include <algorithm>

namespace qvsim {

namespace {

using Fault = StripeHead::Fault;

constexpr std::array<const char *, 7> kFaultNames{"off", "nodata", "read", "write", "garbled", "status", "silent"};

// Characters that are none on a screen in hexadecimal.
std::string shown(const std::string &text)
{
    const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
    return plain ? text : toHex(Bytes(text.begin(), text.end()));
}

} // namespace

void StripeHead::offer(StripeCard card, std::string label)
{
    card_ = std::move(card);
    label_ = std::move(label);
    wasSwiped_ = false;
    tell("magnetic card at hand: " + label_);
}

void StripeHead::takeAway()
{
    if (card_)
        tell("no magnetic card at hand");
    card_.reset();
}

void StripeHead::swipeOnce()
{
    onlyOnce_ = true;
    wasSwiped_ = false;
}

void StripeHead::setFault(Fault fault, bool once)
{
    fault_ = fault;
    faultOnce_ = once;
}

std::vector<std::string> StripeHead::describe(TimePoint now) const
{
    std::vector<std::string> lines;
    std::string card = card_ ? label_ : std::string("none");
    if (card_ && swipeDelay_.count() != 0)
        card += ", swiped after " + std::to_string(swipeDelay_.count()) + " ms";
    if (card_ && onlyOnce_)
        card += wasSwiped_ ? ", swiped once and never again" : ", swiped once";
    lines.push_back("stripe card " + card);
    lines.push_back(std::string("stripe head ") + formatName(format_) + ", separator " + shown(separator_) +
                    ", read time " + std::to_string(readTime_.count()) + " s, channel " + channel_);
    if (fault_ != Fault::none)
        lines.push_back(std::string("stripe fault ") + stripeFaultName(fault_) + (faultOnce_ ? " once" : ""));
    lines.push_back("stripe reads " + std::to_string(reads_.begun) + ", failed " + std::to_string(reads_.failed));
    lines.push_back("stripe writes " + std::to_string(writes_.begun) + ", failed " + std::to_string(writes_.failed));
    if (waiting_) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(waiting_->began + readTime_ - now).count();
        lines.push_back("waits for a magnetic card, " + std::to_string(left) + " ms left");
    }
    return lines;
}

std::optional<Fault> findStripeFault(std::string_view name)
{
    const auto found = std::find(kFaultNames.begin(), kFaultNames.end(), name);
    if (found == kFaultNames.end())
        return std::nullopt;
    return static_cast<Fault>(found - kFaultNames.begin());
}

const char *stripeFaultName(Fault fault)
{
    return kFaultNames[static_cast<std::size_t>(fault)];
}

} // namespace qvsim
