// What was answered, by slot and power-on, and the text made of it.
#include "model/card_recorder.h"

#include "model/card_script.h"
#include "model/status_words.h"

#include <algorithm>
#include <utility>

namespace qvsim {

namespace {

constexpr std::uint8_t kCardGroup = 0x32;
constexpr std::uint8_t kPowerOn = 0x22;
constexpr std::uint8_t kPowerOnContactless = 0x24;
constexpr std::uint8_t kTransmit = 0x26;
constexpr std::size_t kTransmitHead = 3;
constexpr std::size_t kSlotAt = 2;
const Bytes kPlainAtr{0x3B, 0x00}; // direct convention, nothing else said

std::optional<SlotCode> poweredSlot(BytesView command)
{
    if (command.size() == 5 && command[0] == kCardGroup && command[1] == kPowerOn)
        return command[4];
    if (command.size() == 4 && command[0] == kCardGroup && command[1] == kPowerOnContactless)
        return kContactless;
    return std::nullopt;
}

} // namespace

bool CardRecorder::isTransmit(BytesView command)
{
    return command.size() > kTransmitHead && command[0] == kCardGroup && command[1] == kTransmit;
}

void CardRecorder::command(BytesView data)
{
    noCommand();
    question_ = Bytes(data.begin(), data.end());
}

void CardRecorder::noCommand()
{
    unanswered_ = unanswered();
    question_.reset();
}

void CardRecorder::reply(BytesView data)
{
    const std::optional<Bytes> question = std::exchange(question_, std::nullopt);
    if (!question || data.size() < 2)
        return;
    const auto status = static_cast<std::uint16_t>((data[0] << 8) | data[1]);
    const BytesView body = data.subspan(2);
    if (const std::optional<SlotCode> slot = poweredSlot(*question)) {
        keepPowerOn(*slot, status, body);
        return;
    }
    if (!isTransmit(*question))
        return;
    const SlotCode slot = (*question)[kSlotAt];
    const BytesView command = BytesView(*question).subspan(kTransmitHead);
    if (status == 0 && body.size() >= 2)
        keepAnswer(slot, command, Bytes(body.begin(), body.end()));
    else if (status == statusWord(Outcome::stoppedAnswering, slot))
        keepAnswer(slot, command, std::nullopt);
    else
        ++unanswered_;
}

void CardRecorder::keepPowerOn(SlotCode slot, std::uint16_t status, BytesView body)
{
    if (!isSlot(slot))
        return;
    if (status == statusWord(Outcome::mute, slot)) {
        parts_[slot].push_back({true, std::nullopt, {}, {}});
    } else if (status == 0 && !body.empty() && body.size() <= kMostAtr) {
        parts_[slot].push_back({true, Bytes(body.begin(), body.end()), {}, {}});
        if (!firstPowered_)
            firstPowered_ = slot;
    }
}

void CardRecorder::keepAnswer(SlotCode slot, BytesView command, Answer answer)
{
    if (!isSlot(slot))
        return;
    std::vector<Part> &parts = parts_[slot];
    if (parts.empty() || (parts.back().powerOnHeard && !parts.back().atr)) // a mute card does not answer
        parts.push_back({false, std::nullopt, {}, {}});
    parts.back().of(Bytes(command.begin(), command.end())).answers.push_back(std::move(answer));
}

CardRecorder::Exchange &CardRecorder::Part::of(const Bytes &command)
{
    const auto [place, isNew] = places.try_emplace(command, exchanges.size());
    if (isNew)
        exchanges.push_back({command, {}});
    return exchanges[place->second];
}

std::vector<SlotCode> CardRecorder::slots() const
{
    std::vector<SlotCode> slots;
    for (const auto &[slot, parts] : parts_)
        slots.push_back(slot);
    return slots;
}

std::size_t CardRecorder::exchanges(SlotCode slot) const
{
    std::size_t count = 0;
    for (const Part &part : parts_.at(slot))
        for (const Exchange &exchange : part.exchanges)
            count += exchange.answers.size();
    return count;
}

CardRecorder::FirstAtr CardRecorder::firstAtr(SlotCode slot) const
{
    const std::vector<Part> &parts = parts_.at(slot);
    if (parts.front().powerOnHeard)
        return FirstAtr::heard;
    const bool later = std::any_of(parts.begin(), parts.end(), [](const Part &part) { return part.atr.has_value(); });
    return later ? FirstAtr::ofLaterPowerOn : FirstAtr::madeUp;
}

// One part can play both: as far as both have asked, a command was answered with the same in its turn.
bool CardRecorder::agree(const Part &one, const Part &other)
{
    if (one.atr != other.atr)
        return false;
    for (const Exchange &exchange : one.exchanges) {
        const auto place = other.places.find(exchange.command);
        if (place == other.places.end())
            continue;
        const std::vector<Answer> &mine = exchange.answers;
        const std::vector<Answer> &theirs = other.exchanges[place->second].answers;
        const auto differ = std::mismatch(mine.begin(), mine.end(), theirs.begin(), theirs.end());
        if (differ.first != mine.end() && differ.second != theirs.end())
            return false;
    }
    return true;
}

void CardRecorder::merge(Part &into, const Part &from)
{
    for (const Exchange &exchange : from.exchanges) {
        Exchange &twin = into.of(exchange.command);
        if (twin.answers.size() < exchange.answers.size())
            twin.answers = exchange.answers;
    }
}

// A power-on that was not heard is taken to have been answered as the slot's next one that was.
void CardRecorder::fillIn(std::vector<Part> &parts)
{
    std::optional<Bytes> atr = kPlainAtr;
    for (std::size_t i = parts.size(); i-- > 0;) {
        if (parts[i].powerOnHeard && parts[i].atr)
            atr = parts[i].atr;
        else if (!parts[i].powerOnHeard)
            parts[i].atr = atr;
    }
}

std::vector<CardRecorder::Part> CardRecorder::needed(std::vector<Part> parts)
{
    fillIn(parts);
    // The last part is played again and again, so that it may be several that say the same.
    while (parts.size() > 1 && agree(parts[parts.size() - 2], parts.back())) {
        merge(parts[parts.size() - 2], parts.back());
        parts.pop_back();
    }
    // A card that has been asked nothing since its power-on stays in its part at the next one.
    for (std::size_t i = parts.size() - 1; i-- > 0;)
        if (parts[i].atr && parts[i].exchanges.empty() && parts[i].atr == parts[i + 1].atr)
            parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(i));
    return parts;
}

void CardRecorder::write(std::string &text, const Part &part)
{
    text += part.atr ? "atr " + toHex(*part.atr) : "mute";
    text += part.powerOnHeard ? "\n" : " # the power-on was not heard\n";
    for (const Exchange &exchange : part.exchanges) {
        text += "> " + toHex(exchange.command) + "\n";
        // The last answer is repeated by itself.
        std::size_t count = exchange.answers.size();
        while (count > 1 && exchange.answers[count - 1] == exchange.answers[count - 2])
            --count;
        for (std::size_t i = 0; i < count; ++i)
            text += "< " + (exchange.answers[i] ? toHex(*exchange.answers[i]) : "silence") + "\n";
    }
}

std::string CardRecorder::cardFile(SlotCode slot) const
{
    std::string text = "name recorded in " + slotName(slot) + "\n";
    const std::vector<Part> parts = needed(parts_.at(slot));
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i != 0)
            text += "power\n";
        write(text, parts[i]);
    }
    return text;
}

} // namespace qvsim
