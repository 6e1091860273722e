// Waits on descriptors and calls whoever watches them. One thread; a handler may watch and forget descriptors,
// its own included.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace qvsim {

class EventLoop {
  public:
    using Handler = std::function<void(short revents)>;

    // `events` are poll's; 0 waits for nothing but keeps the place.
    void watch(int fd, short events, Handler handler);
    void setEvents(int fd, short events);
    void forget(int fd);

    // Waits for one round of events, at most until `deadline`.
    void runOnce(std::optional<std::chrono::steady_clock::time_point> deadline);

  private:
    struct Watch {
        short events;
        std::uint64_t id; // tells a descriptor from a later one of the same number
        std::shared_ptr<Handler> handler;
    };
    std::map<int, Watch> watches_;
    std::uint64_t nextId_ = 1;
};

} // namespace qvsim
