// A thin-client terminal between the host and the reader, which is plugged into one of its aux ports.
//
// What the host sends is text for the screen, until a sequence switches an aux port on. From then on a family that
// wraps (star, gg) sends to the port what stands between its two marks, and shows the rest; one that does not (gw, wyse)
// sends everything to the port. Another sequence switches it off. Sequences may arrive in any number of pieces. What the
// reader sends goes to the host as it is, while its port is on. The line between host and terminal has no speed here;
// the aux port has the one that the host's sequence, or else the terminal's set-up, says.
#pragma once

#include "channels/terminal_families.h"
#include "model/bytes.h"
#include "model/trace.h"

#include <functional>

namespace qvsim {

class Terminal {
  public:
    using ToReader = std::function<void(BytesView bytes, unsigned speed)>;

    // `readerPort`: 1 to kMostAuxPorts. `setupSpeed`: of aux ports whose sequence names none, and the first choice where
    // a code means several speeds.
    Terminal(const TerminalFamily &family, unsigned readerPort, unsigned setupSpeed, ToReader toReader, Trace &trace);

    void fromHost(BytesView bytes);
    // What of the reader's bytes the host gets, and how: nothing while the reader's port is off, noise when the reader
    // sends at another speed than its port has.
    Bytes fromReader(BytesView bytes, unsigned readerSpeed);

    // "gg, reader at aux port 1, port 1 on at 9600, 12 bytes shown"
    std::string describe() const;

  private:
    enum class Sink { screen, port };

    void feed(char byte);
    bool isValid(const TerminalSequence &sequence) const;
    Sink sink() const;
    void give(char byte);
    void flush();
    void act(const TerminalSequence &sequence, const SequenceNumbers &numbers);
    void openStep(const TerminalSequence &sequence, const SequenceNumbers &numbers);
    void switchOn();
    void switchOff();
    void tell(const std::string &text);

    const TerminalFamily &family_;
    unsigned readerPort_;
    unsigned setupSpeed_;
    ToReader toReader_;
    Trace &trace_;

    std::string held_; // may still become a sequence
    Bytes run_;        // on their way to one sink
    Sink runSink_ = Sink::screen;

    std::size_t stepsDone_ = 0; // of the open sequence
    SequenceNumbers asked_;     // by the open sequence
    bool on_ = false;
    bool inData_ = false;
    bool screenKept_ = false;
    unsigned port_ = 0;  // while on
    unsigned speed_ = 0; // while on
    std::uint64_t shown_ = 0;
};

} // namespace qvsim
