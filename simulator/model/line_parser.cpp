// The state machine behind line_parser.h. Memory is bounded: neither a frame nor a text ever keeps more than the longest
// one's characters.
#include "model/line_parser.h"

#include <utility>

namespace qvsim {

namespace {

constexpr std::size_t kLengthAndLrc = 3;
constexpr std::size_t kTextMarkBytes = 3;

bool beginsSomething(std::uint8_t byte)
{
    return byte == kEscape || byte == marksOf(FrameKind::card).head || byte == marksOf(FrameKind::peripheral).head;
}

bool isHalfByteCharacter(std::uint8_t byte)
{
    return byte >= 0x30 && byte <= 0x3F;
}

LineEvent badFrame(FrameFault fault)
{
    LineEvent event;
    event.kind = LineEvent::Kind::badFrame;
    event.fault = fault;
    return event;
}

LineEvent unknownEscape(std::string_view tail)
{
    LineEvent event;
    event.kind = LineEvent::Kind::unknownEscape;
    event.data.assign(tail.begin(), tail.end());
    return event;
}

} // namespace

LineEvent LineParser::feed(std::uint8_t byte)
{
    if (state_ == State::textEnds || state_ == State::textEnded)
        return feedText(byte);
    if (beginsSomething(byte)) {
        LineEvent lost = abandon();
        begin(byte);
        return lost;
    }
    switch (state_) {
    case State::inFrame:
    case State::spoiltFrame: return feedFrame(byte);
    case State::inEscape: return feedEscape(byte);
    case State::inText:
    case State::textEnds:
    case State::textEnded: return feedText(byte);
    case State::idle: break;
    }
    return begin(byte);
}

LineEvent LineParser::disturb()
{
    return abandon();
}

LineEvent LineParser::begin(std::uint8_t byte)
{
    LineEvent event;
    characters_.clear();
    escapeTail_.clear();
    spoiltBy_ = FrameFault::none;
    state_ = State::idle;
    if (byte == kEscape) {
        state_ = State::inEscape;
    } else if (byte == marksOf(FrameKind::card).head) {
        state_ = State::inFrame;
        frame_ = FrameKind::card;
    } else if (byte == marksOf(FrameKind::peripheral).head) {
        state_ = State::inFrame;
        frame_ = FrameKind::peripheral;
    } else if (byte != 0x00) {
        event.kind = LineEvent::Kind::rubbish;
    }
    return event;
}

LineEvent LineParser::abandon()
{
    const State was = state_;
    state_ = State::idle;
    switch (was) {
    case State::inFrame: return badFrame(FrameFault::cutOff);
    case State::spoiltFrame: return badFrame(spoiltBy_);
    case State::inEscape: return unknownEscape(escapeTail_);
    case State::inText:
    case State::textEnds:
    case State::textEnded: {
        LineEvent event;
        event.lostText = textBytes() + (was == State::inText ? 0 : was == State::textEnds ? 1 : 2);
        return event;
    }
    case State::idle: break;
    }
    return {};
}

LineEvent LineParser::feedFrame(std::uint8_t byte)
{
    if (byte == marksOf(frame_).end) {
        const bool spoilt = state_ == State::spoiltFrame;
        state_ = State::idle;
        if (spoilt)
            return badFrame(spoiltBy_);
        DecodedFrame decoded = decodeFrame(characters_, mostData_);
        if (decoded.fault != FrameFault::none)
            return badFrame(decoded.fault);
        LineEvent event;
        event.kind = LineEvent::Kind::frame;
        event.frame = frame_;
        event.data = std::move(decoded.data);
        return event;
    }
    if (state_ == State::spoiltFrame)
        return {};
    if (!isHalfByteCharacter(byte)) {
        state_ = State::spoiltFrame;
        spoiltBy_ = FrameFault::badCharacter;
    } else if (characters_.size() == 2 * (mostData_ + kLengthAndLrc)) {
        state_ = State::spoiltFrame;
        spoiltBy_ = FrameFault::tooLong;
    } else {
        characters_.push_back(byte);
    }
    return {};
}

LineEvent LineParser::feedEscape(std::uint8_t byte)
{
    escapeTail_.push_back(static_cast<char>(byte));
    const EscapeSearch found = findEscape(escapeTail_);
    if (found.match == EscapeMatch::partial)
        return {};
    state_ = State::idle;
    if (found.match == EscapeMatch::none)
        return unknownEscape(escapeTail_);
    if (found.escape->takesText) {
        state_ = State::inText;
        textEscape_ = found.escape;
        text_.clear();
        return {};
    }
    LineEvent event;
    event.kind = LineEvent::Kind::escape;
    event.escape = found.escape;
    return event;
}

// Of the sequence so far, without what may become the end mark.
std::size_t LineParser::textBytes() const
{
    return 1 + textEscape_->tail.size() + text_.size();
}

LineEvent LineParser::feedText(std::uint8_t byte)
{
    if (state_ == State::textEnded && byte == kTextEnd)
        return finishText();
    if (state_ == State::textEnds && byte == kEscape) {
        state_ = State::textEnded;
        return {};
    }
    if (state_ == State::inText && byte == kTextEnds) {
        state_ = State::textEnds;
        return {};
    }
    if (state_ == State::inText && textBytes() + kTextMarkBytes < kMostEscapeBytes) {
        text_.push_back(byte);
        return {};
    }
    // Something else than the end mark: the 0x1B that was taken for a part of it begins anew.
    const bool escapeBegan = state_ == State::textEnded;
    const std::size_t lost = abandon().lostText - (escapeBegan ? 1 : 0);
    if (escapeBegan)
        begin(kEscape);
    LineEvent event = feed(byte);
    event.lostText += lost;
    return event;
}

LineEvent LineParser::finishText()
{
    state_ = State::idle;
    LineEvent event;
    event.kind = LineEvent::Kind::escape;
    event.escape = textEscape_;
    event.data = std::exchange(text_, {});
    return event;
}

} // namespace qvsim
