// A command that runs as a host of emulated USB devices.
#pragma once

#include "system/unique_fd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace qvsim {

// "NAME=VALUE" of what a host needs in its environment: UMOCKDEV_DIR, and LD_PRELOAD behind what is there already.
std::vector<std::string> usbHostEnvironment(const std::string &directory);

// What is wrong when umockdev's preload library cannot be loaded; nothing when it can. Before the first thread.
std::string preloadTrouble();

// The command as a child process, with the standard descriptors of this one.
class UsbCommand {
  public:
    // Throws std::runtime_error when it cannot be started.
    UsbCommand(const std::vector<std::string> &command, const std::string &directory);
    UsbCommand(const UsbCommand &) = delete;
    UsbCommand &operator=(const UsbCommand &) = delete;

    // Becomes readable when the command has ended.
    int endEvent() const { return end_.get(); }
    void signal(int number) const;
    // Its exit code, or 128 and the signal that ended it; waits for the end.
    int wait();

  private:
    pid_t pid_ = -1;
    UniqueFd end_;
};

} // namespace qvsim
