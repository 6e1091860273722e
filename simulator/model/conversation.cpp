// Questions and answers of a line that somebody else drives.
#include "model/conversation.h"

namespace qvsim {

void Conversation::hostSays(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("in   " + toHex(bytes));
    for (const std::uint8_t byte : bytes) {
        const LineEvent event = host_.feed(byte);
        tell(event, "> ");
        if (event.kind != LineEvent::Kind::frame)
            continue;
        if (event.frame == FrameKind::card)
            recorder_.command(event.data);
        else
            recorder_.noCommand();
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
            recorder_.reply(event.data);
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

std::optional<std::string> Conversation::cardFile() const
{
    const std::optional<SlotCode> slot = recorder_.firstPowered();
    return slot ? std::optional(recorder_.cardFile(*slot)) : std::nullopt;
}

} // namespace qvsim
