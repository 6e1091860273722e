// The magnetic stripe head: reads and writes the tracks of a card that is swiped through it. The commands themselves,
// as bytes, are escapes' and reader_commands'.
//
// A read or a write waits for a swipe, at most the read time. It gets one of the card at hand, a while after it began to
// wait; without a card at hand nobody swipes. How the last operation went is what the status tells, in a bare answer
// that ends in "p" or "q"; while an operation waits for its swipe the status waits as well.
//
//   bare read                   ESC "s" text "?" FS; track 3 alone: ESC "s" "A" text "?" FS
//   bare read of two tracks     ESC "s" track 2 "A" other track "?" FS, an empty track being 7F
//   bare write                  none
//   status                      ESC "p" done, ESC "q" failed
//   framed read                 track 1 separator track 2 separator track 3
//   framed write                a status word
//
// A read that nobody swipes for is answered with silence, bare or framed.
#pragma once

#include "model/clock.h"
#include "model/status_words.h"
#include "model/stripe_card.h"
#include "model/trace.h"

namespace qvsim {

constexpr std::size_t kMostSeparator = 16; // characters: three full tracks still fit a reply

// What goes back to the host.
struct StripeAnswer {
    std::optional<Outcome> status; // nothing: bare
    Bytes bytes;                   // of a frame: its body
    std::string meaning;           // of a bare one
};

class StripeHead {
  public:
    using Texts = std::array<std::optional<std::string>, kTracks>;
    enum class Fault { none, noData, read, write, garbled, status, silent };
    enum class Way { bare, framed };

    explicit StripeHead(Trace &trace) : trace_(trace) {}

    // ---- commands
    // A new operation ends the one that waits.
    void read(Way way, TrackSet tracks, TimePoint now);
    // A text that is there replaces its track, an empty one blanks it.
    void write(Way way, Texts texts, TimePoint now);
    // The command is none that could be carried out: a failed write.
    void refuseWrite(Way way, std::string_view why);
    void askStatus();
    void setFormat(StripeFormat format) { format_ = format; }
    void setSeparator(std::string separator);
    void setReadTime(std::chrono::seconds time);
    // Ends what waits; the format is ISO again.
    void reset();
    // A host's new command came: what waits is not answered any more.
    void giveUp(std::string_view why);
    // As after being unplugged: settings are those of the start. The card at hand stays as it is.
    void losePower();

    void tick(TimePoint now);
    std::optional<TimePoint> deadline() const;
    std::vector<StripeAnswer> takeAnswers();

    // ---- the desk
    // `label`: what `state` and the trace call it.
    void offer(StripeCard card, std::string label);
    void takeAway();
    const StripeCard *card() const { return card_ ? &*card_ : nullptr; }
    // The switch box's port that leads here: A, B, C or K. Who selects another one does not reach the head.
    void setChannel(char channel) { channel_ = channel; }
    char channel() const { return channel_; }
    // How long after an operation began to wait the card is swiped.
    void setSwipeDelay(std::chrono::milliseconds delay) { swipeDelay_ = delay; }
    // One swipe more and then none.
    void swipeOnce();
    void swipeAlways() { onlyOnce_ = false; }
    // A framed read has a separator behind track 3, too.
    void setFinalSeparator(bool on) { finalSeparator_ = on; }
    // `once`: off after it has struck.
    void setFault(Fault fault, bool once);

    std::vector<std::string> describe(TimePoint now) const;

  private:
    struct Operation {
        Way way = Way::bare;
        TrackSet tracks = 0; // of a read
        Texts texts;         // of a write
        bool isWrite = false;
        TimePoint began;
    };
    struct Counts {
        std::uint64_t begun = 0;
        std::uint64_t failed = 0;
    };

    void begin(Operation operation, TimePoint now);
    std::optional<TimePoint> swipeTime() const;
    void swipe();
    void finishRead(const Operation &operation);
    void finishWrite(const Operation &operation);
    void missSwipe();
    void end(bool isWrite, bool wentWell);

    Outcome judge(TrackSet tracks);
    bool strikes(Fault fault);
    Bytes bareText(TrackSet tracks, bool readable) const;
    Bytes framedText() const;
    void answer(StripeAnswer answer);
    void answerStatus();
    void tell(std::string_view text);

    Trace &trace_;
    StripeFormat format_ = StripeFormat::iso;
    std::string separator_{kFirstSeparator};
    std::chrono::seconds readTime_{kFirstReadTime};
    bool wentWell_ = false; // the last operation
    std::optional<Operation> waiting_;
    bool statusWaits_ = false; // for the end of the operation
    Counts reads_, writes_;
    std::vector<StripeAnswer> answers_;

    std::optional<StripeCard> card_;
    std::string label_;
    char channel_ = 'A';
    std::chrono::milliseconds swipeDelay_{0};
    bool onlyOnce_ = false;
    bool wasSwiped_ = false; // since it was laid down, or since the order to swipe it once
    bool finalSeparator_ = false;
    Fault fault_ = Fault::none;
    bool faultOnce_ = false;

    static constexpr char kFirstSeparator[] = "|";
    static constexpr std::chrono::seconds kFirstReadTime{10};
};

// The names of the faults as control commands take them: "nodata", "read" ...; nothing for another word.
std::optional<StripeHead::Fault> findStripeFault(std::string_view name);
const char *stripeFaultName(StripeHead::Fault fault);

} // namespace qvsim
