// poll() and the table of who watches what.
#include "system/event_loop.h"

#include <poll.h>

#include <algorithm>
#include <vector>

namespace qvsim {

namespace {

constexpr int kForever = -1;
constexpr std::int64_t kLongestWaitMs = 60'000;

int pollTimeout(std::optional<std::chrono::steady_clock::time_point> deadline)
{
    if (!deadline)
        return kForever;
    // Rounded up: waking a fraction of a millisecond early would make the last millisecond a busy loop.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, kLongestWaitMs));
}

} // namespace

void EventLoop::watch(int fd, short events, Handler handler)
{
    watches_[fd] = {events, nextId_++, std::make_shared<Handler>(std::move(handler))};
}

void EventLoop::setEvents(int fd, short events)
{
    const auto found = watches_.find(fd);
    if (found != watches_.end())
        found->second.events = events;
}

void EventLoop::forget(int fd)
{
    watches_.erase(fd);
}

void EventLoop::runOnce(std::optional<std::chrono::steady_clock::time_point> deadline)
{
    std::vector<pollfd> polled;
    std::vector<std::uint64_t> ids;
    for (const auto &[fd, watch] : watches_) {
        if (watch.events == 0)
            continue; // poll would report a hang-up again and again to somebody who does not listen
        polled.push_back({fd, watch.events, 0});
        ids.push_back(watch.id);
    }
    if (::poll(polled.data(), polled.size(), pollTimeout(deadline)) <= 0)
        return; // time is up, or a signal came
    for (std::size_t i = 0; i < polled.size(); ++i) {
        if (polled[i].revents == 0)
            continue;
        const auto found = watches_.find(polled[i].fd);
        if (found == watches_.end() || found->second.id != ids[i])
            continue; // an earlier handler of this round has forgotten it
        const std::shared_ptr<Handler> handler = found->second.handler;
        (*handler)(polled[i].revents);
    }
}

} // namespace qvsim
