// A device node of the emulated tree: the file that the host opens and polls, and the socket on which its calls come.
//
// The file is a named pipe, so that poll tells the truth. A host polls a USB node for writing: the pipe is full unless a
// transfer is finished. It polls a hidraw node for reading: the pipe holds a byte while a report can be read.
#pragma once

#include "system/unique_fd.h"

#include <string>

namespace qvsim {

class DeviceNode {
  public:
    enum class Polled { forWriting, forReading };

    // `name`: below dev, such as "bus/usb/001/002"; its folders exist under dev and ioctl/dev of `tree`. Throws
    // std::runtime_error.
    DeviceNode(const std::string &tree, const std::string &name, Polled polled);
    ~DeviceNode();
    DeviceNode(const DeviceNode &) = delete;
    DeviceNode &operator=(const DeviceNode &) = delete;

    int listener() const { return listener_.get(); }
    // What poll says from now on, to whoever has the node open.
    void signal(bool ready);
    // Nobody opens it any more; those who have it open keep it.
    void remove();
    // While it is hidden, nobody can open it.
    void hide(bool hidden);

  private:
    std::string file_;
    std::string socketFile_;
    Polled polled_;
    UniqueFd pipe_;
    UniqueFd listener_;
    bool pipeHasByte_ = false;
    bool hidden_ = false;
};

// A stream socket that listens at `path`, not blocking. Throws std::runtime_error.
UniqueFd listenAt(const std::string &path);

} // namespace qvsim
