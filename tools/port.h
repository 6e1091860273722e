// port.h - the port before the library opens it: is it there, is it a tty, may we, is it free.
//
// The library tells only that a port would not open. The tool therefore opens the port itself first, keeps that
// descriptor until the end, and so knows the reason of every failure, shuts a second qvreader out, and can put the
// line's settings back even when it has to end in the middle of a library call.
#pragma once

#include "options.h"

#include <atomic>
#include <optional>
#include <string>
#include <termios.h>
#include <vector>

namespace qvtool {

class Port {
  public:
    Port() = default;
    ~Port();
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    // Opens and claims the port. The reason, in words, when that fails.
    std::optional<std::string> claim(const std::string &sPath);

    // Claims nodes of devices on USB, all of them or none; further calls add to them.
    std::optional<std::string> claimUsb(const std::vector<std::string> &nodes);
    // Those that were claimed.
    std::vector<std::string> usbNodes() const;
    // Behind an open: finds out which of them the library has open, and gives the others back.
    void settleUsb();

    // The identity that alone the library is to try; none: all.
    const std::optional<UsbId> &onlyUsbId() const { return m_onlyUsbId; }
    void setOnlyUsbId(UsbId id) { m_onlyUsbId = id; }

    // The device itself, links resolved: what the library is to open; on USB, what it has opened, empty before that.
    const std::string &devicePath() const { return m_sDevice; }

    // True when the line has hung up, or the device was unplugged, since it was claimed.
    bool isGone() const;

    // Puts the settings back that the line had at claim(). Safe from any thread; does not wait for the line.
    void restoreSettings() const;
    // Waits until what was written has left the port; a change of speed spoils what is still in it.
    void drain() const;
    // Writes to the line past the library, when nothing else will be written to it. Safe from any thread.
    void putLast(const std::string &sText) const;

  private:
    struct UsbNode {
        std::string sNode;
        int nFd; // negative: it would not open
    };

    std::optional<std::string> claimUsbNode(const std::string &sNode);
    void giveBackUsb(size_t nKept);

    std::atomic<int> m_nFd = -1; // of a line, not of USB; set when m_found is
    std::string m_sDevice;
    std::vector<UsbNode> m_usbNodes;
    std::optional<UsbId> m_onlyUsbId;
    termios m_found{};
};

} // namespace qvtool
