// The tap: between a host on a pseudo-terminal and a reader on a real tty. Bytes go through both ways; the tty follows
// the line speed that the host sets on its end.
#pragma once

#include "channels/pty_channel.h"
#include "model/conversation.h"

namespace qvsim {

class Tap {
  public:
    // Throws std::runtime_error when the tty cannot be opened or runs at no such speed.
    Tap(EventLoop &loop, const std::string &tty, unsigned baud, Trace &trace);
    ~Tap();
    Tap(const Tap &) = delete;
    Tap &operator=(const Tap &) = delete;

    const std::string &ptyPath() const { return pty_.path(); }
    void stop() { stopped_ = true; }
    // Until stop(). False when one of the two lines broke down.
    bool run();
    // Writes the card file of what was heard, readable by its owner alone. False: no card has answered a power-on, and
    // no file is made. Throws std::runtime_error when it cannot be written.
    bool record(const std::string &path) const;

  private:
    void fromHost(BytesView bytes, std::optional<unsigned> lineSpeed);
    void fromReader();
    void follow(unsigned baud);

    EventLoop &loop_;
    Trace &trace_;
    Conversation conversation_;
    UniqueFd tty_;
    unsigned baud_ = 0;
    PtyChannel pty_;
    bool stopped_ = false;
    bool failed_ = false;
};

} // namespace qvsim
