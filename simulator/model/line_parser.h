// Cuts the bytes of the line into frames, escape sequences and rubbish, one byte at a time.
//
// Zero bytes between frames wake the line up and mean nothing. A frame that goes wrong is swallowed up to its end byte,
// so that it is reported once; a head byte or 0x1B always begins something new, since neither can occur inside a frame.
// The same holds for the text of an escape sequence, but for the 0x1B in its end mark; a text that is cut off, or longer
// than kMostEscapeBytes allow, is lost with its sequence.
#pragma once

#include "model/escapes.h"
#include "model/frame.h"

namespace qvsim {

struct LineEvent {
    enum class Kind {
        nothing,
        frame,         // kind and data
        badFrame,      // fault
        escape,        // escape
        unknownEscape, // data: what came behind 0x1B
        rubbish,       // one byte that belongs to nothing
    };
    Kind kind = Kind::nothing;
    FrameKind frame = FrameKind::card;
    FrameFault fault = FrameFault::none;
    const Escape *escape = nullptr;
    Bytes data;               // of an escape: its text
    std::size_t lostText = 0; // bytes of an escape sequence whose text broke off before what the event tells
};

class LineParser {
  public:
    // `mostData`: how many data bytes a frame may have.
    explicit LineParser(std::size_t mostData = kMostCommandData) : mostData_(mostData) {}

    LineEvent feed(std::uint8_t byte);

    // The line was disturbed: whatever had begun is lost.
    LineEvent disturb();

  private:
    enum class State { idle, inFrame, spoiltFrame, inEscape, inText, textEnds, textEnded };

    LineEvent begin(std::uint8_t byte);
    LineEvent abandon();
    LineEvent feedFrame(std::uint8_t byte);
    LineEvent feedEscape(std::uint8_t byte);
    LineEvent feedText(std::uint8_t byte);
    LineEvent finishText();
    std::size_t textBytes() const;

    std::size_t mostData_;
    State state_ = State::idle;
    FrameKind frame_ = FrameKind::card;
    FrameFault spoiltBy_ = FrameFault::none;
    Bytes characters_;
    std::string escapeTail_;
    const Escape *textEscape_ = nullptr; // whose text is coming
    Bytes text_;
};

} // namespace qvsim
