// A symbolic link to the pseudo-terminal at a path that stays the same from start to start, for hosts that are set up
// for a fixed name such as /dev/COM7. Lives as long as its owner; an old link is replaced, anything else is left alone.
#pragma once

#include <string>

namespace qvsim {

class DeviceLink {
  public:
    // Throws std::runtime_error when `path` exists and is no symbolic link, or cannot be made.
    DeviceLink(std::string path, std::string target);
    ~DeviceLink();
    DeviceLink(const DeviceLink &) = delete;
    DeviceLink &operator=(const DeviceLink &) = delete;

  private:
    std::string path_;
    std::string target_;
};

} // namespace qvsim
