// Virtual cards of other programs: the simulator listens on the loopback interface, the card connects.
//
//   direction     message (each behind its length, 2 bytes, big-endian)
//   to the card   00 power off, 01 power on, 02 reset: not answered
//   to the card   04 ask for the ATR: answered with the ATR
//   to the card   a command APDU, at least 4 bytes: answered with the response APDU
//
// A card that connects is put into the slot, one that disconnects is pulled out and may come again. One card at a time:
// the next one waits in the queue of the listening socket.
#pragma once

#include "model/card.h"
#include "model/slots.h"
#include "system/event_loop.h"
#include "system/unique_fd.h"

#include <memory>

namespace qvsim {

class VpcdLink;

class VpcdBridge {
  public:
    struct Events {
        std::function<void(std::unique_ptr<Card>)> cardCame;
        std::function<void()> cardWent;
    };

    // Port 0 takes any free one. Throws std::runtime_error when the port cannot be listened on.
    VpcdBridge(EventLoop &loop, std::uint16_t port, Events events);
    ~VpcdBridge();

    std::uint16_t port() const { return port_; }
    bool hasCard() const { return link_ != nullptr; }
    // After the reader has talked to the card: watches for room to send. True when the connection turns out to be
    // broken; the card has then been taken out.
    bool update();

  private:
    void accept();
    void drop();

    EventLoop &loop_;
    Events events_;
    UniqueFd listener_;
    std::uint16_t port_ = 0;
    std::shared_ptr<VpcdLink> link_;
};

} // namespace qvsim
