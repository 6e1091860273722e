// stripe_words.h - what the bytes between a host and the magnetic-stripe head mean, and which of them are card data.
//
// An own reading of the wire, as decode.h is.
#pragma once

#include "hex.h"

#include <string>
#include <vector>

namespace qvtool {

// In which part of a conversation a command stands.
enum class StripeStep { setting, card, status };

struct StripeCommand {
    StripeStep step = StripeStep::setting;
    int nTracks = 0; // that it reads or writes: 1, 2, 3, 12, 23, 123; 0: none
    bool bWrite = false;
    bool bFramed = false; // and so is its reply
    std::string sMeaning;
    std::vector<bool> hidden; // a flag for each byte: card data that is not to be seen
};

// What goes to the head in one piece. bShow: card data is told, too.
StripeCommand stripeCommand(BytesView sent, bool bShow);

// One piece of the conversation as a trace tells it.
struct ToldBytes {
    Bytes data;
    std::string sMeaning;
    std::vector<bool> hidden;
};

class StripeWire {
  public:
    explicit StripeWire(bool bShow) : m_bShow(bShow) {}

    ToldBytes sent(BytesView data);
    // The replies that are complete with these bytes.
    std::vector<ToldBytes> received(BytesView data);
    // What came without becoming complete; empty data: nothing.
    ToldBytes flush();

  private:
    // Length of the reply at the start of what has come, 0: it is not complete.
    size_t replyLength() const;
    ToldBytes reply(BytesView whole) const;

    bool m_bShow;
    StripeCommand m_asked;
    Bytes m_pending;
};

// Body of a framed reply with the three tracks, a "|" behind the first two: the text behind a third track that no "|"
// ends, which the library leaves out. Empty: there is none.
std::string trackWithoutEnd(BytesView framedReply);

} // namespace qvtool
