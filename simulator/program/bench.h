// The bench: a reader, the channels that lead to it and the cards in its slots, on one event loop.
//
// Control commands call its functions; each returns what is wrong, or nothing when it is done.
#pragma once

#include "channels/pty_channel.h"
#include "channels/terminal.h"
#include "channels/usb_channel.h"
#include "channels/vpcd_bridge.h"
#include "model/line_faults.h"
#include "model/reader.h"
#include "model/script_use.h"
#include "system/event_loop.h"

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace qvsim {

using Trouble = std::optional<std::string>;

class Bench {
  public:
    // On a pseudo-terminal. Throws std::runtime_error.
    Bench(EventLoop &loop, unsigned baud, std::chrono::milliseconds cardPatience, Trace &trace);
    // On USB.
    Bench(EventLoop &loop, const std::vector<UsbDeviceOptions> &devices, std::chrono::milliseconds cardPatience,
          Trace &trace);

    // Of the pseudo-terminal.
    const std::string &ptyPath() const { return pty_->path(); }
    // For the environment of USB hosts.
    const std::string &usbDirectory() const { return usb_->directory(); }

    // The pseudo-terminal becomes the line of a terminal, with the reader on one of its aux ports.
    void putTerminal(const TerminalFamily &family, unsigned auxPort);

    // `card`: "script:FILE", "purse:FILE", "psam:FILE" or "vpcd:PORT". `told` gets lines such as "vpcd 0 35963".
    Trouble insert(SlotCode slot, std::string_view card, std::vector<std::string> &told);
    Trouble remove(SlotCode slot);
    Trouble setBaud(unsigned baud);
    Trouble swipe(std::string_view track2, std::string_view track3);
    void setIdentityCard(bool present);
    // For settings before it runs.
    StripeHead &stripe() { return reader_.stripe(); }
    // A magnetic card lies at the stripe head.
    Trouble offerStripe(const std::string &file);
    // "FILE", "none", "after 500", "fault read once", "tracks"; see bench_stripe.cpp.
    Trouble setStripe(std::string_view words, std::vector<std::string> &told);
    Trouble setDevice(std::string_view field, std::string_view value);
    // "late 3000 every", "off"; see LineFaults.
    Trouble setFault(std::string_view words) { return faults_.set(words); }
    std::vector<std::string> describeFaults() const { return faults_.describe(); }
    // USB alone: the reader leaves and comes back; its cards lose power.
    Trouble unplug();
    Trouble plug();
    // "claim busy", "list"; see UsbChannel.
    Trouble setUsb(std::string_view words, std::vector<std::string> &told);
    std::vector<std::string> describe() const;
    // Nothing when every line of every card file that is or was in a slot has been played. `told` gets the lines that
    // have not.
    Trouble expectAllPlayed(std::vector<std::string> &told) const;
    void stop() { stopped_ = true; }

    // Until stop(), or a fault hangs a pseudo-terminal up. False when the channel broke down.
    bool run();

  private:
    using Inserter = Trouble (Bench::*)(SlotCode slot, std::string_view what, std::vector<std::string> &told);
    struct CardKind {
        std::string_view prefix;
        Inserter insert;
    };
    static const CardKind kCardKinds[];

    Trouble insertScript(SlotCode slot, std::string_view file, std::vector<std::string> &told);
    Trouble insertPurse(SlotCode slot, std::string_view file, std::vector<std::string> &told);
    Trouble insertPsam(SlotCode slot, std::string_view file, std::vector<std::string> &told);
    Trouble insertVpcd(SlotCode slot, std::string_view port, std::vector<std::string> &told);
    void putCard(SlotCode slot, std::unique_ptr<Card> card);
    Channel::Receiver receiver();
    void settle();
    void hangUp();
    void queue(SentBytes reply);
    void sendDue();
    void send(const SentBytes &sent);
    std::optional<TimePoint> deadline() const;

    // A piece of a reply on its way; `spoilt`: a fault has been at it.
    struct Outgoing {
        SentBytes sent;
        TimePoint due;
        bool spoilt;
    };

    EventLoop &loop_;
    Trace &trace_;
    Reader reader_;
    std::unique_ptr<Channel> channel_;
    PtyChannel *pty_ = nullptr;          // the channel, where it is one
    UsbChannel *usb_ = nullptr;          // the same
    std::unique_ptr<Terminal> terminal_; // null: the reader is on the line itself
    LineFaults faults_;
    std::deque<Outgoing> outgoing_;
    std::map<SlotCode, std::unique_ptr<VpcdBridge>> bridges_;
    std::set<SlotCode> fromFiles_; // slots that hold a card from a file
    // By slot and file: a card that is pulled out and put in again goes on counting.
    std::map<std::pair<SlotCode, std::string>, std::shared_ptr<ScriptUse>> uses_;
    bool stopped_ = false;
};

// "0" to "31" and "255".
std::optional<SlotCode> parseSlot(std::string_view text);

} // namespace qvsim
