// The reader: bytes of the line in, bytes of the line out, cards in its slots. No I/O and no clock of its own; whoever
// drives it passes the time in and calls tick() when deadline() has come or a card may have answered.
//
// One command is in work at a time. While a power-on, a detection or the stripe head waits for a card, a new command or
// a module reset gives the waiting up (it is then not answered). While a card works, further commands wait for their
// turn and a module reset drops the answer.
#pragma once

#include "model/card.h"
#include "model/clock.h"
#include "model/device_identity.h"
#include "model/line_parser.h"
#include "model/slots.h"
#include "model/status_words.h"
#include "model/stripe_head.h"
#include "model/trace.h"

#include <array>
#include <deque>
#include <map>
#include <memory>

namespace qvsim {

struct ReaderCounts {
    std::uint64_t frames = 0;         // good ones
    std::uint64_t rejectedFrames = 0; // answered with silence
    std::uint64_t replies = 0;        // bare ones included
    std::uint64_t escapes = 0;
    std::uint64_t garbageBytes = 0; // bytes that belong to nothing, or came at another speed than the reader's
};

// A piece of the reply stream and the line speed at which the reader sent it.
struct SentBytes {
    Bytes bytes;
    unsigned baud = 0;
};

// Detection: every kind of card counts.
constexpr std::uint8_t kAnyCardKind = 0;
constexpr std::size_t kMostTrackCharacters = 250; // two tracks, mark, kind and end fit a reply

class Reader {
  public:
    // `cardPatience`: how long a card may take for one answer.
    Reader(unsigned baud, std::chrono::milliseconds cardPatience, Trace &trace);

    // `lineSpeed`: the sender's bits per second; nothing for channels that have no speed.
    void receive(BytesView bytes, std::optional<unsigned> lineSpeed, TimePoint now);
    void tick(TimePoint now);
    std::optional<TimePoint> deadline() const;
    std::vector<SentBytes> takeOutput();

    // False when the slot holds a card already.
    bool insert(SlotCode slot, std::unique_ptr<Card> card, TimePoint now);
    // False when the slot was empty.
    bool remove(SlotCode slot, TimePoint now);
    void setBaud(unsigned baud);
    // As after being unplugged: all cards lose power, what was begun is forgotten.
    void losePower();
    // A magnetic card went through once; it is kept until a detection reports it. False when a track is longer than
    // kMostTrackCharacters or holds anything else than printable ASCII characters without "|".
    bool swipe(const std::string &track2, const std::string &track3);
    void setIdentityCard(bool present);
    DeviceIdentity &device() { return device_; }
    // What lies at the stripe head and how it is swiped; tick() afterwards.
    StripeHead &stripe() { return stripe_; }

    unsigned baud() const { return baud_; }
    const ReaderCounts &counts() const { return counts_; }
    // What the reader does and holds, one line each.
    std::vector<std::string> describe(TimePoint now) const;

    struct CommandRow;

  private:
    struct Slot {
        std::unique_ptr<Card> card;
        bool powered = false;
    };
    enum class Work { nothing, waitsForCard, waitsForAnyCard, powersOn, transmits };

    void traceLine(std::string_view text);
    void flushRubbish();
    void take(LineEvent event, TimePoint now);
    void takeEscape(const Escape &escape);
    void giveUpWaiting(const LineEvent &command);
    void runInTurn(LineEvent command, TimePoint now);
    void run(const LineEvent &command, TimePoint now);
    void takeFrame(const LineEvent &frame, TimePoint now);
    void takeStripeEscape(const LineEvent &event, TimePoint now);
    void runWaitingCommands(TimePoint now);

    void powerOnContact(BytesView data, TimePoint now);
    void powerOnContactless(BytesView data, TimePoint now);
    void powerOffContact(BytesView data, TimePoint now);
    void powerOffContactless(BytesView data, TimePoint now);
    void transmit(BytesView data, TimePoint now);
    void cardStatus(BytesView data, TimePoint now);
    void detectAny(BytesView data, TimePoint now);
    void detectKind(BytesView data, TimePoint now);
    void presence(BytesView data, TimePoint now);
    void setLed(BytesView data, TimePoint now);
    void setLedPair(BytesView data, TimePoint now);
    void soundBuzzer(BytesView data, TimePoint now);
    void tellDevice(BytesView data, TimePoint now);
    void setSeparator(BytesView data, TimePoint now);
    void readAllTracks(BytesView data, TimePoint now);
    void writeAllTracks(BytesView data, TimePoint now);
    void setReadTime(BytesView data, TimePoint now);

    bool reachesStripe() const;
    void passStripeAnswers();
    void missStripe();

    void detect(std::uint8_t kinds, unsigned waitSeconds, TimePoint now);
    void noticeCard();
    bool reportCard();

    void powerOn(SlotCode slot, unsigned waitMs, TimePoint now);
    void powerOff(SlotCode slot);
    void askCard(SlotCode slot, Work work, CardAnswer answer, TimePoint now);
    void finishCard(const CardAnswer &answer);
    void reset();
    void abandonWork();

    void reply(SlotCode slot, Outcome outcome, BytesView body = {});
    void sendReply(Bytes bytes, BytesView data, std::string_view meaning);
    Slot *findCard(SlotCode slot);

    static const CommandRow kCommands[];

    Trace &trace_;
    LineParser parser_;
    unsigned baud_;
    std::chrono::milliseconds cardPatience_;
    std::map<SlotCode, Slot> slots_;
    std::vector<SentBytes> output_;
    ReaderCounts counts_;

    char boxPort_ = 0; // 0: none selected
    unsigned boxSpeed_ = 0;
    bool boxJustSelected_ = false; // nothing came since the selection
    StripeHead stripe_;

    std::optional<std::string> swiped_; // the tracks as a reply tells them
    bool identityCard_ = false;
    std::uint8_t wantedKinds_ = kAnyCardKind;

    DeviceIdentity device_;
    std::uint8_t led_ = 0;
    std::array<std::uint8_t, 2> ledPair_{};
    std::uint64_t buzzes_ = 0;
    std::array<std::uint8_t, 3> lastBuzz_{};

    Work work_ = Work::nothing;
    SlotCode workSlot_ = 0;
    TimePoint workDeadline_;
    FrameKind replyFrame_ = FrameKind::card;
    std::deque<LineEvent> waitingCommands_; // came while a card was at work
    std::uint64_t rubbishRun_ = 0;          // not yet traced
};

} // namespace qvsim
