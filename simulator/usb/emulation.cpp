// The thread that serves all nodes, one call of a host at a time.
#include "usb/emulation.h"

#include "system/io.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::size_t kMostRecorded = 100'000;
constexpr std::chrono::seconds kPatience{10};
constexpr unsigned kFirstPort = 1;
constexpr unsigned kHighestAddress = 127;
constexpr char kVariable[] = "UMOCKDEV_DIR";

void wakeUp(int fd)
{
    const std::uint64_t one = 1;
    int error = 0;
    // A full counter is as good a signal as one more.
    writeSome(fd, BytesView(reinterpret_cast<const std::uint8_t *>(&one), sizeof one), error);
}

template <typename T> void keep(std::deque<T> &recorded, T item)
{
    recorded.push_back(std::move(item));
    if (recorded.size() > kMostRecorded)
        recorded.pop_front();
}

} // namespace

UsbEmulation::UsbEmulation(std::vector<UsbDeviceOptions> devices, UsbHost host, Receiver receiver)
    : host_(host), receiver_(std::move(receiver)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      strangers_(listenAt(tree_.path() + "/ioctl/_default"))
{
    if (!wake_) {
        const int error = errno;
        throw std::runtime_error(errorText("eventfd", error));
    }
    for (UsbDeviceOptions &options : devices) {
        places_.push_back({std::move(options), {}, nullptr, {}});
        plugLocked(places_.size() - 1);
    }
    // The environment belongs to all threads: it changes before this one starts and after it has ended.
    if (host_ == UsbHost::thisProcess)
        ::setenv(kVariable, tree_.path().c_str(), 1);
    thread_ = std::thread([this] { serve(); });
}

UsbEmulation::~UsbEmulation()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wakeUp(wake_.get());
    thread_.join();
    if (host_ == UsbHost::thisProcess)
        ::unsetenv(kVariable);
}

// ---- what the device does

void UsbEmulation::plugLocked(std::size_t place)
{
    Place &at = places_[place];
    if (at.device)
        return;
    UsbDevice::Receiver receiver = [this, place](unsigned interface, BytesView bytes) {
        UsbReceived received{place, interface, Bytes(bytes.begin(), bytes.end())};
        keep(received_, received);
        toHand_.push_back(std::move(received));
    };
    const unsigned port = kFirstPort + static_cast<unsigned>(place);
    at.device = std::make_shared<UsbDevice>(tree_, port, nextAddress_, at.options, std::move(receiver));
    nextAddress_ = nextAddress_ == kHighestAddress ? 2 : nextAddress_ + 1;
    at.device->setBehaviour(at.behaviour);
}

void UsbEmulation::sendReport(Bytes report, unsigned interface, std::size_t device)
{
    const std::lock_guard lock(mutex_);
    if (const std::shared_ptr<UsbDevice> &target = places_.at(device).device)
        target->send(interface, std::move(report));
}

void UsbEmulation::reply(BytesView bytes, unsigned interface, std::size_t device)
{
    const std::lock_guard lock(mutex_);
    if (const std::shared_ptr<UsbDevice> &target = places_.at(device).device)
        target->reply(interface, bytes);
}

void UsbEmulation::answerWith(std::vector<Bytes> replies)
{
    const std::lock_guard lock(mutex_);
    answers_.assign(std::make_move_iterator(replies.begin()), std::make_move_iterator(replies.end()));
}

std::size_t UsbEmulation::unusedAnswers() const
{
    const std::lock_guard lock(mutex_);
    return answers_.size();
}

void UsbEmulation::unplug(std::size_t device)
{
    {
        const std::lock_guard lock(mutex_);
        if (const std::shared_ptr<UsbDevice> gone = std::exchange(places_.at(device).device, nullptr))
            gone->unplug();
    }
    wakeUp(wake_.get());
}

void UsbEmulation::plug(std::size_t device)
{
    {
        const std::lock_guard lock(mutex_);
        places_.at(device); // throws for one that there is not
        plugLocked(device);
    }
    wakeUp(wake_.get());
}

bool UsbEmulation::isPlugged(std::size_t device) const
{
    const std::lock_guard lock(mutex_);
    return places_.at(device).device != nullptr;
}

void UsbEmulation::setBehaviour(const UsbBehaviour &behaviour, std::size_t device)
{
    std::unique_lock lock(mutex_);
    Place &place = places_.at(device);
    place.behaviour = behaviour;
    if (place.device)
        place.device->setBehaviour(behaviour);
    handReceived(lock); // transfers that were stuck
}

UsbBehaviour UsbEmulation::behaviour(std::size_t device) const
{
    const std::lock_guard lock(mutex_);
    return places_.at(device).behaviour;
}

// ---- what hosts did

std::vector<std::string> UsbEmulation::calls(std::size_t device) const
{
    const std::lock_guard lock(mutex_);
    const std::deque<std::string> &calls = places_.at(device).calls;
    return {calls.begin(), calls.end()};
}

std::vector<UsbReceived> UsbEmulation::received() const
{
    const std::lock_guard lock(mutex_);
    return {received_.begin(), received_.end()};
}

void UsbEmulation::forgetCalls()
{
    const std::lock_guard lock(mutex_);
    for (Place &place : places_)
        place.calls.clear();
    received_.clear();
    answers_.clear();
}

std::size_t UsbEmulation::openNodes() const
{
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(),
                                                  [](const Connection &c) { return c.device != nullptr; }));
}

bool UsbEmulation::waitClosed() const
{
    std::unique_lock lock(mutex_);
    return closed_.wait_for(lock, kPatience, [this] {
        return std::none_of(connections_.begin(), connections_.end(),
                            [](const Connection &c) { return c.device != nullptr; });
    });
}

void UsbEmulation::record(std::size_t place, std::string call)
{
    keep(places_[place].calls, std::move(call));
}

// ---- the thread

std::vector<UsbEmulation::Listener> UsbEmulation::listeners() const
{
    std::vector<Listener> all{{strangers_.get(), 0, nullptr, std::nullopt}};
    for (std::size_t i = 0; i < places_.size(); ++i) {
        const std::shared_ptr<UsbDevice> &device = places_[i].device;
        if (!device)
            continue;
        all.push_back({device->usbNode().listener(), i, device, std::nullopt});
        for (const auto &[interface, hidraw] : device->hidrawNodes())
            all.push_back({hidraw.node->listener(), i, device, interface});
    }
    return all;
}

void UsbEmulation::serve()
{
    while (serveRound()) {
    }
}

// False when the thread has to end.
bool UsbEmulation::serveRound()
{
    std::vector<pollfd> polled;
    std::vector<Listener> listening;
    {
        const std::lock_guard lock(mutex_);
        listening = listeners();
        polled.push_back({wake_.get(), POLLIN, 0});
        for (const Listener &listener : listening)
            polled.push_back({listener.fd, POLLIN, 0});
        for (const Connection &connection : connections_)
            polled.push_back({connection.host.fd(), POLLIN | POLLRDHUP, 0});
    }
    if (::poll(polled.data(), polled.size(), -1) < 0)
        return true; // a signal
    std::unique_lock lock(mutex_);
    if (stopping_)
        return false;
    if (polled[0].revents != 0) {
        // The nodes have changed: their listeners may be gone, and the numbers belong to others by now.
        std::array<std::uint8_t, sizeof(std::uint64_t)> count{};
        readSome(wake_.get(), count);
        return true;
    }
    // First those that went away: what they held is free for the ones that came behind them.
    std::size_t at = 1 + listening.size();
    std::vector<std::list<Connection>::iterator> calling;
    for (auto connection = connections_.begin(); connection != connections_.end(); ++at) {
        const auto here = connection++;
        if ((polled[at].revents & (POLLHUP | POLLRDHUP | POLLERR | POLLNVAL)) != 0) {
            drop(*here);
            connections_.erase(here);
            closed_.notify_all();
        } else if (polled[at].revents != 0) {
            calling.push_back(here);
        }
    }
    for (const auto &connection : calling) {
        if (answer(*connection, lock))
            continue;
        drop(*connection);
        connections_.erase(connection);
        closed_.notify_all();
    }
    // A call may have taken nodes away.
    const std::vector<Listener> still = listeners();
    for (std::size_t i = 0; i < listening.size(); ++i)
        if (polled[1 + i].revents != 0 && std::any_of(still.begin(), still.end(), [&](const Listener &l) {
                return l.fd == listening[i].fd && l.device == listening[i].device;
            }))
            accept(listening[i]);
    return true;
}

void UsbEmulation::accept(const Listener &listener)
{
    UniqueFd socket(::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket)
        return; // it went away again
    Connection connection{PreloadLink(std::move(socket)), listener.place, listener.device, nullptr, nullptr};
    if (listener.hidraw) {
        connection.hidraw = listener.device->openHidraw(*listener.hidraw);
        record(listener.place, "HIDRAW OPEN " + std::to_string(*listener.hidraw));
    } else if (listener.device) {
        connection.usb = listener.device->openUsb();
        record(listener.place, "OPEN");
    }
    connections_.push_back(std::move(connection));
}

void UsbEmulation::drop(Connection &connection)
{
    if (connection.usb) {
        connection.device->close(connection.usb);
        record(connection.place, "CLOSE");
    }
    if (connection.hidraw) {
        connection.device->close(connection.hidraw);
        record(connection.place, "HIDRAW CLOSE " + std::to_string(connection.hidraw->interface));
    }
}

// False when the host has gone.
bool UsbEmulation::answer(Connection &connection, std::unique_lock<std::mutex> &lock)
{
    const CallRecord recorder = [&](std::string call) { record(connection.place, std::move(call)); };
    try {
        const PreloadRequest request = connection.host.receive();
        PreloadAnswer answer{kMakeRealCall, 0};
        if (connection.usb)
            answer = answerUsbfs(*connection.device, *connection.usb, connection.host, request, recorder);
        else if (connection.hidraw)
            answer = answerHidraw(*connection.device, *connection.hidraw, connection.host, request, recorder);
        handReceived(lock);
        connection.host.answer(answer);
        return true;
    } catch (const PreloadLinkLost &) {
        return false;
    }
}

// The receiver may call anything here, so that it is called without the lock.
void UsbEmulation::handReceived(std::unique_lock<std::mutex> &lock)
{
    for (const UsbReceived &received : std::exchange(toHand_, {})) {
        if (!answers_.empty()) {
            const Bytes answer = std::move(answers_.front());
            answers_.pop_front();
            if (const std::shared_ptr<UsbDevice> &device = places_[received.device].device)
                device->reply(received.interface, answer);
        }
        if (!receiver_)
            continue;
        lock.unlock();
        receiver_(received);
        lock.lock();
    }
}

} // namespace qvsim
