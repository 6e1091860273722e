// The address of a unix socket at a path.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace qvsim {

class SocketAddress {
  public:
    // Throws std::runtime_error when the path is empty or does not fit an address (107 characters).
    explicit SocketAddress(const std::string &path)
    {
        address_.sun_family = AF_UNIX;
        if (path.empty() || path.size() >= sizeof address_.sun_path)
            throw std::runtime_error("control socket " + path + ": a path has 1 to 107 characters");
        std::memcpy(address_.sun_path, path.data(), path.size());
    }

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    socklen_t length() const { return sizeof address_; }

  private:
    sockaddr_un address_{};
};

} // namespace qvsim
