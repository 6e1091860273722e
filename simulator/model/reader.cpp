// The line, the work in hand and the slots; the commands themselves are reader_commands'.
#include "model/reader.h"

#include <algorithm>
#include <utility>

namespace qvsim {

namespace {

using std::chrono::milliseconds;

// Commands that may wait while a card is at work; a host that sends more without reading is out of step.
constexpr std::size_t kMostWaitingCommands = 16;

std::string decimal(std::uint64_t value, std::string_view what)
{
    return std::to_string(value) + " " + std::string(what);
}

} // namespace

Reader::Reader(unsigned baud, milliseconds cardPatience, Trace &trace)
    : trace_(trace), baud_(baud), cardPatience_(cardPatience), stripe_(trace)
{
}

// ---- the line

void Reader::receive(BytesView bytes, std::optional<unsigned> lineSpeed, TimePoint now)
{
    if (trace_.wanted())
        trace_.line("in   " + toHex(bytes));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (lineSpeed && *lineSpeed != baud_) {
            const std::size_t rest = bytes.size() - i;
            flushRubbish();
            take(parser_.disturb(), now);
            counts_.garbageBytes += rest;
            boxJustSelected_ = false;
            traceLine("     " + decimal(rest, "bytes at ") + std::to_string(*lineSpeed) +
                      " are garbage to a reader at " + std::to_string(baud_));
            return;
        }
        take(parser_.feed(bytes[i]), now);
    }
    flushRubbish();
}

std::vector<SentBytes> Reader::takeOutput()
{
    return std::exchange(output_, {});
}

void Reader::setBaud(unsigned baud)
{
    baud_ = baud;
}

void Reader::losePower()
{
    parser_.disturb();
    reset();
    stripe_.losePower();
}

void Reader::traceLine(std::string_view text)
{
    if (trace_.wanted())
        trace_.line(text);
}

void Reader::flushRubbish()
{
    if (rubbishRun_ != 0)
        traceLine("     " + decimal(rubbishRun_, "bytes belong to no frame"));
    rubbishRun_ = 0;
}

void Reader::take(LineEvent event, TimePoint now)
{
    if (event.lostText != 0) {
        flushRubbish();
        counts_.garbageBytes += event.lostText;
        traceLine("     " + decimal(event.lostText, "bytes of a text without an end are garbage"));
        boxJustSelected_ = false;
    }
    if (event.kind == LineEvent::Kind::nothing)
        return;
    if (event.kind == LineEvent::Kind::rubbish) {
        ++counts_.garbageBytes;
        ++rubbishRun_;
        boxJustSelected_ = false;
        return;
    }
    flushRubbish();
    switch (event.kind) {
    case LineEvent::Kind::escape:
        if (!isForStripe(event.escape->kind))
            return takeEscape(*event.escape);
        if (reachesStripe())
            giveUpWaiting(event);
        runInTurn(std::move(event), now);
        break;
    case LineEvent::Kind::unknownEscape:
        counts_.garbageBytes += 1 + event.data.size();
        traceLine("> 1B " + toHex(event.data) + "  unknown escape sequence, ignored");
        break;
    case LineEvent::Kind::badFrame:
        ++counts_.rejectedFrames;
        traceLine(std::string("> frame answered with silence: ") + faultText(event.fault));
        break;
    case LineEvent::Kind::frame:
        giveUpWaiting(event);
        runInTurn(std::move(event), now);
        break;
    case LineEvent::Kind::nothing:
    case LineEvent::Kind::rubbish: break;
    }
    boxJustSelected_ = false;
}

// What waits for a card makes room for a new command. A status request leaves the stripe head waiting for its swipe.
void Reader::giveUpWaiting(const LineEvent &command)
{
    if (work_ == Work::waitsForCard || work_ == Work::waitsForAnyCard) {
        traceLine("     waiting for " + (work_ == Work::waitsForCard ? slotName(workSlot_) : "any card") +
                  " given up: a new command came");
        work_ = Work::nothing;
    }
    if (command.escape == nullptr || command.escape->kind != EscapeKind::stripeStatus)
        stripe_.giveUp("a new command came");
}

void Reader::runInTurn(LineEvent command, TimePoint now)
{
    if (work_ == Work::nothing) {
        run(command, now);
    } else if (waitingCommands_.size() < kMostWaitingCommands) {
        waitingCommands_.push_back(std::move(command));
    } else {
        counts_.rejectedFrames += command.kind == LineEvent::Kind::frame ? 1 : 0;
        traceLine("> command dropped: too many wait while a card is at work");
    }
}

void Reader::run(const LineEvent &command, TimePoint now)
{
    if (command.kind == LineEvent::Kind::frame) {
        giveUpWaiting(command); // of a command that had its turn right before
        takeFrame(command, now);
    } else {
        takeStripeEscape(command, now);
    }
}

void Reader::takeEscape(const Escape &escape)
{
    ++counts_.escapes;
    const bool isSecondSpelling = boxJustSelected_ && escape.kind == EscapeKind::readerSpeed && escape.value == 9600;
    const EscapeKind kind = isSecondSpelling ? EscapeKind::boxSpeed : escape.kind;
    if (trace_.wanted()) {
        const Bytes tail(escape.tail.begin(), escape.tail.end());
        trace_.line("> 1B " + toHex(tail) + "  " + (isSecondSpelling ? "switch box: line at 9600" : escape.meaning));
    }
    boxJustSelected_ = kind == EscapeKind::boxSelect;
    switch (kind) {
    case EscapeKind::boxSelect: boxPort_ = static_cast<char>(escape.value); return;
    case EscapeKind::boxRelease:
        boxPort_ = 0;
        boxSpeed_ = 0;
        return;
    case EscapeKind::boxSpeed: boxSpeed_ = escape.value; return;
    case EscapeKind::readerSpeed: setBaud(escape.value); return;
    case EscapeKind::moduleReset:
        reset();
        if (reachesStripe())
            stripe_.reset();
        return;
    default: return; // the stripe head's
    }
}

void Reader::runWaitingCommands(TimePoint now)
{
    while (work_ == Work::nothing && !waitingCommands_.empty()) {
        const LineEvent command = std::move(waitingCommands_.front());
        waitingCommands_.pop_front();
        run(command, now);
    }
}

// ---- cards

bool Reader::insert(SlotCode slot, std::unique_ptr<Card> card, TimePoint now)
{
    Slot &place = slots_[slot];
    if (place.card)
        return false;
    traceLine("     card put in: " + slotName(slot) + ", " + card->label());
    place.card = std::move(card);
    place.powered = false;
    if (work_ == Work::waitsForCard && workSlot_ == slot)
        askCard(slot, Work::powersOn, place.card->powerOn(), now);
    noticeCard();
    runWaitingCommands(now);
    return true;
}

bool Reader::remove(SlotCode slot, TimePoint now)
{
    if (findCard(slot) == nullptr)
        return false;
    traceLine("     card pulled out: " + slotName(slot));
    slots_.erase(slot);
    if (workSlot_ == slot && (work_ == Work::powersOn || work_ == Work::transmits))
        finishCard({CardAnswer::Kind::gone, {}});
    runWaitingCommands(now);
    return true;
}

void Reader::powerOn(SlotCode slot, unsigned waitMs, TimePoint now)
{
    if (Slot *const place = findCard(slot)) {
        askCard(slot, Work::powersOn, place->card->powerOn(), now);
        return;
    }
    if (waitMs == 0) {
        reply(slot, Outcome::noCard);
        return;
    }
    work_ = Work::waitsForCard;
    workSlot_ = slot;
    workDeadline_ = now + milliseconds(waitMs);
}

void Reader::powerOff(SlotCode slot)
{
    Slot *const place = findCard(slot);
    if (place == nullptr || !place->powered)
        return;
    place->card->powerOff();
    place->powered = false;
}

void Reader::askCard(SlotCode slot, Work work, CardAnswer answer, TimePoint now)
{
    work_ = work;
    workSlot_ = slot;
    if (answer.kind == CardAnswer::Kind::pending)
        workDeadline_ = now + cardPatience_;
    else
        finishCard(answer);
}

void Reader::finishCard(const CardAnswer &answer)
{
    const Work work = std::exchange(work_, Work::nothing);
    const bool isPowerOn = work == Work::powersOn;
    Slot *const place = findCard(workSlot_);
    const bool answered = answer.kind == CardAnswer::Kind::bytes && !answer.bytes.empty();
    if (isPowerOn && place != nullptr) {
        place->powered = answered;
        if (!answered)
            place->card->powerOff();
    }

    if (answer.kind == CardAnswer::Kind::gone)
        reply(workSlot_, Outcome::noCard);
    else if (!answered)
        reply(workSlot_, isPowerOn ? Outcome::mute : Outcome::stoppedAnswering);
    else if (answer.bytes.size() > kMostReplyBody)
        reply(workSlot_, Outcome::answerTooLong);
    else
        reply(workSlot_, Outcome::done, answer.bytes);
}

void Reader::tick(TimePoint now)
{
    if ((work_ == Work::waitsForCard || work_ == Work::waitsForAnyCard) && now >= workDeadline_) {
        work_ = Work::nothing;
        reply(workSlot_, Outcome::noCard);
    } else if (work_ == Work::powersOn || work_ == Work::transmits) {
        Card &card = *slots_.at(workSlot_).card;
        CardAnswer answer = card.answer();
        if (answer.kind == CardAnswer::Kind::pending && now >= workDeadline_) {
            card.giveUp();
            answer.kind = CardAnswer::Kind::mute;
        }
        if (answer.kind != CardAnswer::Kind::pending)
            finishCard(answer);
    }
    stripe_.tick(now);
    passStripeAnswers();
    runWaitingCommands(now);
}

std::optional<TimePoint> Reader::deadline() const
{
    const std::optional<TimePoint> stripe = stripe_.deadline();
    if (work_ == Work::nothing)
        return stripe;
    return stripe ? std::min(*stripe, workDeadline_) : workDeadline_;
}

void Reader::reset()
{
    abandonWork();
    for (auto &[code, slot] : slots_)
        powerOff(code);
}

void Reader::abandonWork()
{
    if (work_ == Work::powersOn || work_ == Work::transmits) {
        Slot &slot = slots_.at(workSlot_);
        slot.card->giveUp();
        slot.powered = true; // it may have come to life by now, whatever its answer would have been
    }
    work_ = Work::nothing;
    waitingCommands_.clear();
}

Reader::Slot *Reader::findCard(SlotCode slot)
{
    const auto found = slots_.find(slot);
    return found == slots_.end() || !found->second.card ? nullptr : &found->second;
}

// ---- answers

void Reader::reply(SlotCode slot, Outcome outcome, BytesView body)
{
    const std::uint16_t status = statusWord(outcome, slot);
    Bytes data{static_cast<std::uint8_t>(status >> 8), static_cast<std::uint8_t>(status)};
    data.insert(data.end(), body.begin(), body.end());
    sendReply(encodeFrame(replyFrame_, data), data, outcomeText(outcome));
}

void Reader::sendReply(Bytes bytes, BytesView data, std::string_view meaning)
{
    if (trace_.wanted()) {
        trace_.line("< " + toHex(data) + "  " + std::string(meaning));
        trace_.line("out  " + toHex(bytes));
    }
    ++counts_.replies;
    output_.push_back({std::move(bytes), baud_});
}

std::vector<std::string> Reader::describe(TimePoint now) const
{
    std::vector<std::string> lines;
    lines.push_back("baud " + std::to_string(baud_));
    std::string box = boxPort_ == 0 ? std::string("box none") : std::string("box ") + boxPort_;
    if (boxSpeed_ != 0)
        box += " at " + std::to_string(boxSpeed_);
    lines.push_back(std::move(box));
    for (const auto &[code, slot] : slots_)
        if (slot.card)
            lines.push_back("slot " + std::to_string(code) + " " + (slot.powered ? "powered" : "unpowered") + " " +
                            slot.card->label());
    if (identityCard_)
        lines.emplace_back("identity card on the reader");
    if (swiped_)
        lines.emplace_back("magnetic card swiped, not yet reported");
    for (std::string &line : stripe_.describe(now))
        lines.push_back(std::move(line));
    if (work_ != Work::nothing) {
        const auto left = std::chrono::duration_cast<milliseconds>(workDeadline_ - now).count();
        const std::string what = work_ == Work::waitsForAnyCard ? "waits for any card"
                                 : work_ == Work::waitsForCard
                                     ? "waits for a card in slot " + std::to_string(workSlot_)
                                     : "waits for the answer of slot " + std::to_string(workSlot_);
        lines.push_back(what + ", " + std::to_string(left) + " ms left");
    }
    lines.push_back("led " + toHex(BytesView(&led_, 1)) + ", pair " + toHex(ledPair_));
    std::string buzzer = "buzzer " + std::to_string(buzzes_);
    if (buzzes_ != 0)
        buzzer += ", last " + toHex(lastBuzz_);
    lines.push_back(std::move(buzzer));
    lines.push_back("frames " + std::to_string(counts_.frames));
    lines.push_back("rejected " + std::to_string(counts_.rejectedFrames));
    lines.push_back("escapes " + std::to_string(counts_.escapes));
    lines.push_back("replies " + std::to_string(counts_.replies));
    lines.push_back("garbage " + std::to_string(counts_.garbageBytes));
    return lines;
}

} // namespace qvsim
