// A conversation between a host and a reader, overheard: both directions are decoded for the trace, and what one card
// answered is kept as the text of a card file.
//
// The card is the one in the slot that is first powered on with an answer.
#pragma once

#include "model/card_recorder.h"
#include "model/line_parser.h"
#include "model/trace.h"

namespace qvsim {

class Conversation {
  public:
    explicit Conversation(Trace &trace) : trace_(trace) {}

    void hostSays(BytesView bytes);
    void readerSays(BytesView bytes);

    // Nothing while no card has answered a power-on.
    std::optional<std::string> cardFile() const;

  private:
    void tell(const LineEvent &event, std::string_view mark);
    void tellRubbish(std::string_view mark);

    Trace &trace_;
    LineParser host_;
    LineParser reader_{kMostReplyBody + 2};
    CardRecorder recorder_;
    std::size_t rubbish_ = 0; // bytes without a frame that are not told yet
};

} // namespace qvsim
