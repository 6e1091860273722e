// Questions and answers of a line that somebody else drives.
#include "model/conversation.h"

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

std::optional<SlotCode> poweredSlot(BytesView command)
{
    if (command.size() == 5 && command[0] == kCardGroup && command[1] == kPowerOn)
        return command[4];
    if (command.size() == 4 && command[0] == kCardGroup && command[1] == kPowerOnContactless)
        return kContactless;
    return std::nullopt;
}

bool isTransmit(BytesView command)
{
    return command.size() > kTransmitHead && command[0] == kCardGroup && command[1] == kTransmit;
}

} // namespace

void Conversation::hostSays(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("in   " + toHex(bytes));
    for (const std::uint8_t byte : bytes) {
        const LineEvent event = host_.feed(byte);
        tell(event, "> ");
        if (event.kind == LineEvent::Kind::frame)
            question_ = event.frame == FrameKind::card ? std::optional(event.data) : std::nullopt;
    }
}

void Conversation::readerSays(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("out  " + toHex(bytes));
    for (const std::uint8_t byte : bytes) {
        const LineEvent event = reader_.feed(byte);
        tell(event, "< ");
        if (event.kind == LineEvent::Kind::frame && event.frame == FrameKind::card)
            takeReply(event.data);
    }
}

void Conversation::tell(const LineEvent &event, std::string_view mark)
{
    if (!trace_.wanted())
        return;
    const std::string front(mark);
    switch (event.kind) {
    case LineEvent::Kind::frame: trace_.line(front + toHex(event.data)); return;
    case LineEvent::Kind::badFrame: trace_.line(front + "bad frame: " + faultText(event.fault)); return;
    case LineEvent::Kind::escape:
        trace_.line(front + "1B " + toHex(Bytes(event.escape->tail.begin(), event.escape->tail.end())) + "  " +
                    event.escape->meaning);
        return;
    case LineEvent::Kind::unknownEscape:
        trace_.line(front + "1B " + toHex(event.data) + "  unknown escape sequence");
        return;
    case LineEvent::Kind::rubbish: trace_.line(front + "a byte that belongs to no frame"); return;
    case LineEvent::Kind::nothing: return;
    }
}

void Conversation::takeReply(BytesView reply)
{
    const std::optional<Bytes> question = std::exchange(question_, std::nullopt);
    if (!question || reply.size() < 2)
        return;
    const unsigned status = (unsigned{reply[0]} << 8) | reply[1];
    const BytesView body = reply.subspan(2);
    if (const std::optional<SlotCode> slot = poweredSlot(*question)) {
        if (status != 0 || body.empty() || (slot_ && *slot_ != *slot))
            return;
        slot_ = slot;
        atr_.assign(body.begin(), body.end());
        return;
    }
    if (!isTransmit(*question) || !slot_ || (*question)[2] != *slot_)
        return;
    const BytesView command = BytesView(*question).subspan(kTransmitHead);
    if (status == 0 && body.size() >= 2)
        keepReply(command, Bytes(body.begin(), body.end()));
    else if (status == statusWord(Outcome::stoppedAnswering, *slot_))
        keepReply(command, std::nullopt);
}

void Conversation::keepReply(BytesView command, std::optional<Bytes> reply)
{
    auto found = std::find_if(exchanges_.begin(), exchanges_.end(), [&](const Exchange &exchange) {
        return std::equal(exchange.command.begin(), exchange.command.end(), command.begin(), command.end());
    });
    if (found == exchanges_.end())
        found = exchanges_.insert(found, {Bytes(command.begin(), command.end()), {}});
    found->replies.push_back(std::move(reply));
}

std::optional<std::string> Conversation::cardFile() const
{
    if (!slot_)
        return std::nullopt;
    std::string text = "name recorded in " + slotName(*slot_) + "\natr " + toHex(atr_) + "\n";
    for (const Exchange &exchange : exchanges_) {
        text += "> " + toHex(exchange.command) + "\n";
        // The last answer is repeated by itself.
        std::size_t count = exchange.replies.size();
        while (count > 1 && exchange.replies[count - 1] == exchange.replies[count - 2])
            --count;
        for (std::size_t i = 0; i < count; ++i)
            text += "< " + (exchange.replies[i] ? toHex(*exchange.replies[i]) : "silence") + "\n";
    }
    return text;
}

} // namespace qvsim
