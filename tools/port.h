// port.h - the serial port before the library opens it: is it there, is it a tty, may we, is it free.
//
// The library tells only that a port would not open. The tool therefore opens the port itself first, keeps that
// descriptor until the end, and so knows the reason of every failure, shuts a second qvreader out, and can put the
// line's settings back even when it has to end in the middle of a library call.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <termios.h>

namespace qvtool {

class Port {
  public:
    Port() = default;
    ~Port();
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    // Opens and claims the port. The reason, in words, when that fails.
    std::optional<std::string> claim(const std::string &sPath);

    // The device itself, links resolved: what the library is to open.
    const std::string &devicePath() const { return m_sDevice; }

    // True when the line has hung up since claim().
    bool isGone() const;

    // Puts the settings back that the line had at claim(). Safe from any thread; does not wait for the line.
    void restoreSettings() const;

  private:
    std::atomic<int> m_nFd = -1; // set when m_found is
    std::string m_sDevice;
    termios m_found{};
};

} // namespace qvtool
