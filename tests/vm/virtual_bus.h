// virtual_bus.h - one device on the kernel's virtual USB host controller (vhci-hcd).
//
// The controller gets one end of a socket pair and speaks USB/IP over it: each message is a header of 48 bytes,
// big-endian words, and data behind it where some go that way.
//
//   at     CMD_SUBMIT (1)   CMD_UNLINK (2)   RET_SUBMIT (3)   RET_UNLINK (4)
//   0      command          command          command          command
//   4      number           number           its number       its number
//   12     0 OUT, 1 IN
//   16     endpoint
//   20                      whose number     status           status
//   24     length                            bytes moved
//   40     setup, 8 bytes
#pragma once

#include "descriptors.h"
#include "system/unique_fd.h"

#include <array>

namespace qvvm {

struct BusMessage {
    enum class Kind { submit, unlink, ended };
    Kind kind = Kind::ended;
    std::uint32_t number = 0;
    std::uint32_t victim = 0; // unlink: the number of the transfer that is given up
    bool in = false;
    std::uint8_t endpoint = 0;
    std::size_t length = 0;
    std::array<std::uint8_t, 8> setup{};
    Bytes data; // OUT
};

class VirtualBus {
  public:
    // Plugs a full-speed device into the first port, when that is free. Throws std::runtime_error.
    VirtualBus();

    int fd() const { return m_link.get(); }
    // The next message; waits for it.
    BusMessage receive();
    // status: 0, or a negative errno. data: IN.
    void answer(const BusMessage &submit, int status, BytesView data = {});
    void answerUnlink(const BusMessage &unlink, int status);
    // Pulls the plug.
    void cut();

    static bool portIsFree();

  private:
    bool readAll(std::span<std::uint8_t> into);
    void send(const Bytes &message);

    qvsim::UniqueFd m_link;
};

} // namespace qvvm
