// Wiring of reader, pseudo-terminal and cards.
#include "program/bench.h"

#include "model/script_card.h"
#include "program/card_files.h"
#include "system/tty_speeds.h"

#include <algorithm>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr unsigned kHighestPort = 65535;
constexpr unsigned kUsbBaud = 9600; // of a reader that has no line; only its escape sequences know of it
// Pieces of replies that faults hold back; a host that goes on asking beyond this gets no more of them.
constexpr std::size_t kMostOutgoing = 16'384;
constexpr std::size_t kMostLeftTold = 100; // lines of card files that have not been played

constexpr char kOnlyUsb[] = "this reader is not on USB";

TimePoint now()
{
    return std::chrono::steady_clock::now();
}

} // namespace

const Bench::CardKind Bench::kCardKinds[] = {
    {"script:", &Bench::insertScript},
    {"purse:", &Bench::insertPurse},
    {"psam:", &Bench::insertPsam},
    {"vpcd:", &Bench::insertVpcd},
};

Bench::Bench(EventLoop &loop, unsigned baud, std::chrono::milliseconds cardPatience, Trace &trace)
    : loop_(loop), trace_(trace), reader_(baud, cardPatience, trace)
{
    auto pty = std::make_unique<PtyChannel>(loop, baud, receiver(), trace);
    pty_ = pty.get();
    channel_ = std::move(pty);
}

Bench::Bench(EventLoop &loop, const std::vector<UsbDeviceOptions> &devices, std::chrono::milliseconds cardPatience,
             Trace &trace)
    : loop_(loop), trace_(trace), reader_(kUsbBaud, cardPatience, trace)
{
    auto usb = std::make_unique<UsbChannel>(loop, devices, receiver(), trace);
    usb_ = usb.get();
    channel_ = std::move(usb);
}

Channel::Receiver Bench::receiver()
{
    return [this](BytesView bytes, std::optional<unsigned> lineSpeed) {
        if (terminal_)
            terminal_->fromHost(bytes);
        else
            reader_.receive(bytes, lineSpeed, now());
        settle();
    };
}

void Bench::putTerminal(const TerminalFamily &family, unsigned auxPort)
{
    terminal_ = std::make_unique<Terminal>(
        family, auxPort, reader_.baud(),
        [this](BytesView bytes, unsigned speed) { reader_.receive(bytes, speed, now()); }, trace_);
}

Trouble Bench::insert(SlotCode slot, std::string_view card, std::vector<std::string> &told)
{
    if (fromFiles_.contains(slot) || bridges_.contains(slot))
        return "slot " + std::to_string(slot) + " is taken; remove its card first";
    for (const CardKind &kind : kCardKinds) {
        if (!card.starts_with(kind.prefix))
            continue;
        const Trouble trouble = (this->*kind.insert)(slot, card.substr(kind.prefix.size()), told);
        settle();
        return trouble;
    }
    return "a card is script:FILE, purse:FILE, psam:FILE or vpcd:PORT";
}

Trouble Bench::insertScript(SlotCode slot, std::string_view file, std::vector<std::string> &)
{
    if (file.empty())
        return "script:FILE takes the name of a card file";
    CardScriptResult result = readCardFile(std::string(file));
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        return *wrong;
    CardScript &script = std::get<CardScript>(result);
    std::string label = "script:" + std::string(file);
    if (!script.name.empty())
        label += " (" + script.name + ")";
    std::shared_ptr<ScriptUse> &use = uses_[{slot, std::string(file)}];
    if (!use)
        use = std::make_shared<ScriptUse>();
    putCard(slot, std::make_unique<ScriptCard>(std::move(script), std::move(label), use));
    return std::nullopt;
}

void Bench::putCard(SlotCode slot, std::unique_ptr<Card> card)
{
    fromFiles_.insert(slot);
    reader_.insert(slot, std::move(card), now());
}

Trouble Bench::insertVpcd(SlotCode slot, std::string_view port, std::vector<std::string> &told)
{
    const std::optional<unsigned> number = parseNumber(port, kHighestPort);
    if (!number)
        return "vpcd:PORT takes a port from 0 (any) to 65535";
    try {
        VpcdBridge::Events events{
            [this, slot](std::unique_ptr<Card> card) { reader_.insert(slot, std::move(card), now()); },
            [this, slot] { reader_.remove(slot, now()); },
        };
        auto bridge = std::make_unique<VpcdBridge>(loop_, static_cast<std::uint16_t>(*number), std::move(events));
        told.push_back("vpcd " + std::to_string(slot) + " " + std::to_string(bridge->port()));
        bridges_[slot] = std::move(bridge);
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return std::nullopt;
}

Trouble Bench::remove(SlotCode slot)
{
    if (fromFiles_.erase(slot) == 0 && bridges_.erase(slot) == 0)
        return "slot " + std::to_string(slot) + " is empty";
    reader_.remove(slot, now());
    settle();
    return std::nullopt;
}

Trouble Bench::setBaud(unsigned baud)
{
    if (!speedCode(baud))
        return "no tty runs at " + std::to_string(baud) + " bits per second";
    reader_.setBaud(baud);
    return std::nullopt;
}

Trouble Bench::swipe(std::string_view track2, std::string_view track3)
{
    if (!reader_.swipe(std::string(track2), std::string(track3)))
        return "a track is at most " + std::to_string(kMostTrackCharacters) +
               " printable ASCII characters without |, or - when it is empty";
    settle();
    return std::nullopt;
}

void Bench::setIdentityCard(bool present)
{
    reader_.setIdentityCard(present);
    settle();
}

Trouble Bench::setDevice(std::string_view field, std::string_view value)
{
    return setDeviceField(reader_.device(), field, value);
}

Trouble Bench::unplug()
{
    if (usb_ == nullptr)
        return kOnlyUsb;
    if (Trouble trouble = usb_->unplug())
        return trouble;
    reader_.losePower();
    outgoing_.clear();
    settle();
    return std::nullopt;
}

Trouble Bench::plug()
{
    return usb_ == nullptr ? Trouble(kOnlyUsb) : usb_->plug();
}

Trouble Bench::setUsb(std::string_view words, std::vector<std::string> &told)
{
    if (usb_ == nullptr)
        return kOnlyUsb;
    if (words != "list")
        return usb_->set(words);
    told = usb_->describe();
    return std::nullopt;
}

// A terminal's line is gone with its other end; a USB reader can come back.
void Bench::hangUp()
{
    if (usb_ == nullptr)
        return stop();
    usb_->unplug();
    reader_.losePower();
}

std::vector<std::string> Bench::describe() const
{
    std::vector<std::string> lines = reader_.describe(now());
    lines.insert(lines.begin(), channel_->place());
    if (terminal_)
        lines.push_back("terminal " + terminal_->describe());
    for (const auto &[slot, bridge] : bridges_)
        if (!bridge->hasCard())
            lines.push_back("slot " + std::to_string(slot) + " empty vpcd:" + std::to_string(bridge->port()) +
                            " (no card has connected)");
    return lines;
}

Trouble Bench::expectAllPlayed(std::vector<std::string> &told) const
{
    if (uses_.empty())
        return "no card file has been in a slot";
    std::size_t count = 0;
    for (const auto &[place, use] : uses_)
        for (const std::string &line : use->left())
            if (++count <= kMostLeftTold)
                told.push_back(slotName(place.first) + ": " + place.second + ":" + line);
    if (count == 0)
        return std::nullopt;
    if (count > kMostLeftTold)
        told.push_back("and " + std::to_string(count - kMostLeftTold) + " more");
    return std::to_string(count) + (count == 1 ? " line" : " lines") + " of card files not played";
}

bool Bench::run()
{
    while (!stopped_ && !channel_->failed()) {
        loop_.runOnce(deadline());
        settle();
    }
    return !channel_->failed();
}

// Whatever happened: cards may have answered or gone, time may be over, the reader may have something to say. A card
// that goes may set the reader to work on the next one, so that the bridges are asked until nothing changes any more.
void Bench::settle()
{
    bool changed = true;
    while (changed) {
        reader_.tick(now());
        changed = false;
        for (const auto &[slot, bridge] : bridges_)
            changed = bridge->update() || changed;
    }
    for (SentBytes &sent : reader_.takeOutput())
        queue(std::move(sent));
    sendDue();
}

// Replies keep their order: what is held back holds back what comes behind it.
void Bench::queue(SentBytes reply)
{
    Delivery delivery = faults_.apply(std::move(reply.bytes));
    const bool spoilt = !delivery.faults.empty();
    if (spoilt && trace_.wanted())
        trace_.line("     fault: " + delivery.faults);
    if (delivery.hangsUp)
        hangUp();
    if (outgoing_.size() > kMostOutgoing) {
        if (trace_.wanted())
            trace_.line("     reply lost: too many are held back");
        return;
    }
    TimePoint due = outgoing_.empty() ? now() : std::max(now(), outgoing_.back().due);
    for (TimedBytes &piece : delivery.pieces) {
        due += piece.after;
        outgoing_.push_back({{std::move(piece.bytes), reply.baud}, due, spoilt});
    }
}

void Bench::sendDue()
{
    while (!stopped_ && !outgoing_.empty() && outgoing_.front().due <= now()) {
        const Outgoing &next = outgoing_.front();
        if (next.spoilt && trace_.wanted())
            trace_.line("sent " + toHex(next.sent.bytes));
        send(next.sent);
        outgoing_.pop_front();
    }
}

void Bench::send(const SentBytes &sent)
{
    if (!terminal_)
        channel_->send(sent.bytes, sent.baud);
    else if (const Bytes passed = terminal_->fromReader(sent.bytes, sent.baud); !passed.empty())
        pty_->send(passed, pty_->hostBaud());
}

std::optional<TimePoint> Bench::deadline() const
{
    const std::optional<TimePoint> reader = reader_.deadline();
    if (outgoing_.empty())
        return reader;
    return reader ? std::min(*reader, outgoing_.front().due) : outgoing_.front().due;
}

std::optional<SlotCode> parseSlot(std::string_view text)
{
    const std::optional<unsigned> number = parseNumber(text, kContactless);
    if (!number || !isSlot(static_cast<SlotCode>(*number)))
        return std::nullopt;
    return static_cast<SlotCode>(*number);
}

} // namespace qvsim
