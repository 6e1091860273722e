// Card files out of conversations: card commands and their replies, as they stand inside the frames, become what the
// card in each slot has answered.
//
// Each answered power-on begins a part of the card, one answered with "mute" as well. In a part a command that came
// several times keeps its answers in turn. Parts that the file can do without are left out: power-ons after which
// nothing was asked, and last parts that contradict each other nowhere are written as one.
#pragma once

#include "model/bytes.h"
#include "model/slots.h"

#include <map>

namespace qvsim {

class CardRecorder {
  public:
    // A new command gives up the one that is not yet answered.
    void command(BytesView data);
    // Likewise, where no reply can belong to the new one.
    void noCommand();
    // Status word and body.
    void reply(BytesView data);

    // That of the first answered power-on.
    std::optional<SlotCode> firstPowered() const { return firstPowered_; }
    // Slots of which a card file can be made.
    std::vector<SlotCode> slots() const;
    // APDUs that the card in the slot has answered, or kept silent to.
    std::size_t exchanges(SlotCode slot) const;
    // APDUs to any slot without a card's answer.
    std::size_t unanswered() const { return unanswered_ + (question_ && isTransmit(*question_) ? 1 : 0); }
    // How the card file's first answer to power-on is known.
    enum class FirstAtr {
        heard,
        ofLaterPowerOn, // exchanges came first
        madeUp,         // there was none at all
    };
    FirstAtr firstAtr(SlotCode slot) const;

    std::string cardFile(SlotCode slot) const;

  private:
    using Answer = std::optional<Bytes>; // nothing: the card kept silent
    struct Exchange {
        Bytes command;
        std::vector<Answer> answers;
    };
    struct Part {
        bool powerOnHeard = true;
        std::optional<Bytes> atr;        // nothing: mute, or not heard
        std::vector<Exchange> exchanges; // in the order in which they were first heard
        std::map<Bytes, std::size_t> places;

        Exchange &of(const Bytes &command); // a new one, if need be
    };

    static bool isTransmit(BytesView command);
    static bool agree(const Part &one, const Part &other);
    static void merge(Part &into, const Part &from);
    static void fillIn(std::vector<Part> &parts);
    static std::vector<Part> needed(std::vector<Part> parts);
    static void write(std::string &text, const Part &part);

    void keepPowerOn(SlotCode slot, std::uint16_t status, BytesView body);
    void keepAnswer(SlotCode slot, BytesView command, Answer answer);

    std::optional<Bytes> question_; // the card command that is not yet answered
    std::optional<SlotCode> firstPowered_;
    std::map<SlotCode, std::vector<Part>> parts_;
    std::size_t unanswered_ = 0;
};

} // namespace qvsim
