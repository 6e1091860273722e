// The listening socket, and the card that answers through a connection.
#include "channels/vpcd_bridge.h"

#include "channels/vpcd_link.h"
#include "system/io.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::array<std::uint8_t, 1> kPowerOff{0x00};
constexpr std::array<std::uint8_t, 1> kPowerOn{0x01};
constexpr std::array<std::uint8_t, 1> kReset{0x02};
constexpr std::array<std::uint8_t, 1> kAskAtr{0x04};

// A message of one byte is a control byte, so that shorter ones than a command's header never reach the card.
constexpr std::size_t kLeastCommand = 4;
const Bytes kWrongLength{0x67, 0x00};

class VpcdCard final : public Card {
  public:
    VpcdCard(std::shared_ptr<VpcdLink> link, std::uint16_t port) : link_(std::move(link)), port_(port) {}

    CardAnswer powerOn() override
    {
        link_->send(powered_ ? BytesView(kReset) : BytesView(kPowerOn), false);
        powered_ = true;
        link_->send(kAskAtr, true);
        return answer();
    }

    CardAnswer transmit(BytesView command) override
    {
        if (command.size() < kLeastCommand)
            return CardAnswer::of(kWrongLength);
        link_->send(command, true);
        return answer();
    }

    CardAnswer answer() override
    {
        if (std::optional<Bytes> bytes = link_->takeAnswer())
            return CardAnswer::of(std::move(*bytes));
        return {link_->closed() ? CardAnswer::Kind::gone : CardAnswer::Kind::pending, {}};
    }

    void giveUp() override { link_->skipAnswer(); }

    void powerOff() override
    {
        link_->send(kPowerOff, false);
        powered_ = false;
    }

    std::string label() const override { return "vpcd:" + std::to_string(port_); }

  private:
    std::shared_ptr<VpcdLink> link_;
    std::uint16_t port_;
    bool powered_ = false;
};

[[noreturn]] void fail(std::uint16_t port)
{
    const int error = errno;
    throw std::runtime_error(errorText("vpcd port " + std::to_string(port), error));
}

} // namespace

VpcdBridge::VpcdBridge(EventLoop &loop, std::uint16_t port, Events events) : loop_(loop), events_(std::move(events))
{
    listener_ = UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener_)
        fail(port);
    const int yes = 1;
    ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0 ||
        ::listen(listener_.get(), 4) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        fail(port);
    port_ = ntohs(address.sin_port);
    loop_.watch(listener_.get(), POLLIN, [this](short) { accept(); });
}

VpcdBridge::~VpcdBridge()
{
    if (link_) {
        loop_.forget(link_->fd());
        link_->close();
    }
    loop_.forget(listener_.get());
}

void VpcdBridge::accept()
{
    UniqueFd socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket)
        return; // it went away again
    const int yes = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    link_ = std::make_shared<VpcdLink>(std::move(socket));
    loop_.setEvents(listener_.get(), 0);
    loop_.watch(link_->fd(), POLLIN, [this](short revents) {
        if ((revents & POLLOUT) != 0)
            link_->onWritable();
        if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            link_->onReadable();
        update();
    });
    events_.cardCame(std::make_unique<VpcdCard>(link_, port_));
}

bool VpcdBridge::update()
{
    if (!link_)
        return false;
    if (link_->closed()) {
        drop();
        return true;
    }
    loop_.setEvents(link_->fd(), static_cast<short>(link_->hasUnsent() ? POLLIN | POLLOUT : POLLIN));
    return false;
}

void VpcdBridge::drop()
{
    const std::shared_ptr<VpcdLink> link = std::exchange(link_, nullptr);
    loop_.forget(link->fd());
    link->close();
    loop_.setEvents(listener_.get(), POLLIN);
    events_.cardWent();
}

} // namespace qvsim
