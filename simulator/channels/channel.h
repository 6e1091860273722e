// A way between the reader model and a host: a pseudo-terminal or USB.
//
// A channel hands what the host sends to its receiver, on the event loop's thread, and takes what the reader sends.
#pragma once

#include "model/bytes.h"

#include <functional>

namespace qvsim {

class Channel {
  public:
    // `lineSpeed`: bits per second at which the host's end stood when the bytes came; nothing where there is no speed.
    using Receiver = std::function<void(BytesView bytes, std::optional<unsigned> lineSpeed)>;

    virtual ~Channel() = default;
    // Bytes that the host's end has no room for are lost, as on any line without flow control.
    virtual void send(BytesView bytes, unsigned baud) = 0;
    // What the state shows: "pty /dev/pts/3".
    virtual std::string place() const = 0;
    // It broke down; nothing more will come.
    virtual bool failed() const { return false; }
};

} // namespace qvsim
