// Questions and answers of a line that somebody else drives.
#include "model/conversation.h"

#include <utility>

namespace qvsim {

namespace {

constexpr std::string_view kHost = "> ";
constexpr std::string_view kReader = "< ";

} // namespace

void Conversation::hostSays(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("in   " + toHex(bytes));
    for (const std::uint8_t byte : bytes) {
        const LineEvent event = host_.feed(byte);
        tell(event, kHost);
        if (event.kind != LineEvent::Kind::frame)
            continue;
        if (event.frame == FrameKind::card)
            recorder_.command(event.data);
        else
            recorder_.noCommand();
    }
    tellRubbish(kHost);
}

void Conversation::readerSays(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("out  " + toHex(bytes));
    for (const std::uint8_t byte : bytes) {
        const LineEvent event = reader_.feed(byte);
        tell(event, kReader);
        if (event.kind == LineEvent::Kind::frame && event.frame == FrameKind::card)
            recorder_.reply(event.data);
    }
    tellRubbish(kReader);
}

void Conversation::tell(const LineEvent &event, std::string_view mark)
{
    if (!trace_.wanted())
        return;
    if (event.kind == LineEvent::Kind::nothing && event.lostText == 0)
        return;
    if (event.kind == LineEvent::Kind::rubbish && event.lostText == 0) {
        ++rubbish_;
        return;
    }
    tellRubbish(mark);
    const std::string front(mark);
    if (event.lostText != 0)
        trace_.line(front + "a text without an end");
    switch (event.kind) {
    case LineEvent::Kind::frame: trace_.line(front + toHex(event.data)); return;
    case LineEvent::Kind::badFrame: trace_.line(front + "bad frame: " + faultText(event.fault)); return;
    case LineEvent::Kind::escape:
        trace_.line(front + "1B " + toHex(Bytes(event.escape->tail.begin(), event.escape->tail.end())) +
                    (event.data.empty() ? "" : " " + toHex(event.data)) + (event.escape->takesText ? " 1D 1B 5C" : "") +
                    "  " + event.escape->meaning);
        return;
    case LineEvent::Kind::unknownEscape:
        trace_.line(front + "1B " + toHex(event.data) +
                    (mark == kReader ? "  a bare reply begins" : "  unknown escape sequence"));
        return;
    case LineEvent::Kind::rubbish: ++rubbish_; return;
    case LineEvent::Kind::nothing: return;
    }
}

void Conversation::tellRubbish(std::string_view mark)
{
    if (const std::size_t count = std::exchange(rubbish_, 0); count != 0)
        trace_.line(std::string(mark) + std::to_string(count) + " bytes without a frame");
}

std::optional<std::string> Conversation::cardFile() const
{
    const std::optional<SlotCode> slot = recorder_.firstPowered();
    return slot ? std::optional(recorder_.cardFile(*slot)) : std::nullopt;
}

} // namespace qvsim
