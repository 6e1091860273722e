// A conversation between a host and a reader, overheard: both directions are decoded for the trace, and what one card
// answered is kept as the text of a card file.
//
// The card is the one in the slot that is first powered on with an answer. A command that came several times keeps its
// answers in turn. The card's last word on a power-on is its ATR.
#pragma once

#include "model/line_parser.h"
#include "model/slots.h"
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
    struct Exchange {
        Bytes command;
        std::vector<std::optional<Bytes>> replies; // nothing: the card kept silent
    };

    void tell(const LineEvent &event, std::string_view mark);
    void takeReply(BytesView reply);
    void keepReply(BytesView command, std::optional<Bytes> reply);

    Trace &trace_;
    LineParser host_;
    LineParser reader_{kMostReplyBody + 2};
    std::optional<Bytes> question_; // the card command that is not yet answered
    std::optional<SlotCode> slot_;
    Bytes atr_;
    std::vector<Exchange> exchanges_;
};

} // namespace qvsim
