// A card as the reader sees it.
//
// powerOn() and transmit() answer at once (a script) or say `pending` (a card in another process); the reader then asks
// answer() until it is there, or calls giveUp() when its patience is over. One question is open at a time.
#pragma once

#include "model/bytes.h"

namespace qvsim {

struct CardAnswer {
    enum class Kind {
        bytes,   // ATR or response APDU
        mute,    // the card gives no answer and will give none
        gone,    // the card is no longer there
        pending, // ask again with answer()
    };
    Kind kind = Kind::mute;
    Bytes bytes;

    static CardAnswer of(Bytes bytes) { return {Kind::bytes, std::move(bytes)}; }
};

class Card {
  public:
    virtual ~Card() = default;
    virtual CardAnswer powerOn() = 0;
    virtual CardAnswer transmit(BytesView command) = 0;
    virtual CardAnswer answer() = 0;
    virtual void giveUp() = 0;
    virtual void powerOff() = 0;
    // What `state` shows, in the words of the command that inserted it: "script:purse.card".
    virtual std::string label() const = 0;
};

} // namespace qvsim
