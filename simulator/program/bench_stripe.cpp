// The stripe head's desk: which card lies there, how it is swiped and what goes wrong.
//
//   words                                    meaning
//   FILE                                     this magnetic card is at hand
//   none                                     nobody swipes
//   after MS                                 swiped so long after the head began to wait
//   once, always                             swiped once more and then never again; for every operation
//   final on|off                             a framed read ends in a separator, too
//   fault NAME [once], fault off             what goes wrong from now on, or the next time
//   tracks                                   what is on the card
//   save FILE                                the card as a card file
// A card file whose name begins with one of these words is ./none.
#include "program/bench.h"

#include "program/card_files.h"

#include <array>
#include <stdexcept>

namespace qvsim {

namespace {

using Lines = std::vector<std::string>;

constexpr unsigned kMostDelayMs = 600'000;
constexpr char kNoCard[] = "no magnetic card is at hand";

Trouble setDelay(StripeHead &head, std::string_view words, Lines &)
{
    const std::optional<unsigned> delay = parseNumber(words, kMostDelayMs);
    if (!delay)
        return "stripe after takes milliseconds, 0 to " + std::to_string(kMostDelayMs);
    head.setSwipeDelay(std::chrono::milliseconds(*delay));
    return std::nullopt;
}

Trouble setFinal(StripeHead &head, std::string_view words, Lines &)
{
    if (words != "on" && words != "off")
        return "stripe final is on or off";
    head.setFinalSeparator(words == "on");
    return std::nullopt;
}

Trouble setFault(StripeHead &head, std::string_view words, Lines &)
{
    constexpr std::string_view kOnce = " once";
    const bool once = words.ends_with(kOnce);
    if (once)
        words.remove_suffix(kOnce.size());
    const std::optional<StripeHead::Fault> fault = findStripeFault(words.substr(0, words.find_last_not_of(' ') + 1));
    if (!fault || (once && *fault == StripeHead::Fault::none))
        return "a stripe fault is nodata, read, write, garbled, status or silent, with or without once, or off";
    head.setFault(*fault, once);
    return std::nullopt;
}

Trouble tellTracks(StripeHead &head, std::string_view, Lines &told)
{
    if (head.card() == nullptr)
        return kNoCard;
    for (std::size_t track = 0; track < kTracks; ++track)
        told.push_back("track " + std::to_string(track + 1) + ": " + head.card()->tracks[track].text);
    return std::nullopt;
}

Trouble save(StripeHead &head, std::string_view words, Lines &)
{
    if (head.card() == nullptr)
        return kNoCard;
    try {
        writeCardFile("save", std::string(words), stripeCardText(*head.card()));
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return std::nullopt;
}

Trouble swipeOnce(StripeHead &head, std::string_view, Lines &)
{
    head.swipeOnce();
    return std::nullopt;
}

Trouble swipeAlways(StripeHead &head, std::string_view, Lines &)
{
    head.swipeAlways();
    return std::nullopt;
}

Trouble takeAway(StripeHead &head, std::string_view, Lines &)
{
    head.takeAway();
    return std::nullopt;
}

struct Setting {
    std::string_view name;
    std::string_view argument; // as the usage shows it; empty: none
    Trouble (*run)(StripeHead &head, std::string_view words, Lines &told);
};

constexpr std::array<Setting, 8> kSettings{{
    {"none", "", takeAway},
    {"after", "MS", setDelay},
    {"once", "", swipeOnce},
    {"always", "", swipeAlways},
    {"final", "on|off", setFinal},
    {"fault", "NAME [once]|off", setFault},
    {"tracks", "", tellTracks},
    {"save", "FILE", save},
}};

} // namespace

Trouble Bench::offerStripe(const std::string &file)
{
    StripeCardResult result = readStripeFile(file);
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        return *wrong;
    StripeCard &card = std::get<StripeCard>(result);
    std::string label = file;
    if (!card.name.empty())
        label += " (" + card.name + ")";
    reader_.stripe().offer(std::move(card), std::move(label));
    settle();
    return std::nullopt;
}

Trouble Bench::setStripe(std::string_view words, std::vector<std::string> &told)
{
    const std::size_t nameEnd = std::min(words.find(' '), words.size());
    const std::string_view rest = words.substr(std::min(words.find_first_not_of(' ', nameEnd), words.size()));
    for (const Setting &setting : kSettings) {
        if (setting.name != words.substr(0, nameEnd))
            continue;
        if (setting.argument.empty() != rest.empty())
            return "usage: stripe " + std::string(setting.name) + (setting.argument.empty() ? "" : " ") +
                   std::string(setting.argument);
        const Trouble trouble = setting.run(reader_.stripe(), rest, told);
        settle();
        return trouble;
    }
    return offerStripe(std::string(words));
}

} // namespace qvsim
