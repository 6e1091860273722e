// Blocking sends and receives: a host that has asked does nothing else until it is answered.
#include "usb/preload_link.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

namespace qvsim {

namespace {

enum MessageKind : unsigned long {
    kIoctl = 1,
    kDone = 3,
    kReadMemory = 5,
    kWriteMemory = 6,
    kRead = 7,
    kWrite = 8,
};

// A host that was stopped in the middle of a call must not stop the device for all others.
constexpr timeval kPatience{10, 0};

} // namespace

PreloadLink::PreloadLink(UniqueFd socket) : socket_(std::move(socket))
{
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
}

PreloadRequest PreloadLink::receive()
{
    Message message{};
    receiveAll({reinterpret_cast<std::uint8_t *>(message.data()), sizeof message});
    switch (message[0]) {
    case kIoctl: return {PreloadRequest::Kind::ioctl, message[1], message[2]};
    case kRead: return {PreloadRequest::Kind::read, message[1], message[2]};
    case kWrite: return {PreloadRequest::Kind::write, message[1], message[2]};
    default: throw PreloadLinkLost();
    }
}

Bytes PreloadLink::readMemory(unsigned long address, std::size_t length)
{
    Bytes bytes(length);
    readInto(address, bytes);
    return bytes;
}

void PreloadLink::readInto(unsigned long address, std::span<std::uint8_t> into)
{
    if (into.empty())
        return;
    send(Message{kReadMemory, address, into.size()});
    receiveAll(into);
}

void PreloadLink::writeMemory(unsigned long address, BytesView bytes)
{
    if (bytes.empty())
        return;
    send(Message{kWriteMemory, address, bytes.size()});
    send(bytes);
}

void PreloadLink::answer(const PreloadAnswer &answer)
{
    send(Message{kDone, static_cast<unsigned long>(answer.result), static_cast<unsigned long>(answer.error)});
}

void PreloadLink::send(const Message &message)
{
    send(BytesView{reinterpret_cast<const std::uint8_t *>(message.data()), sizeof message});
}

void PreloadLink::send(BytesView bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw PreloadLinkLost();
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

void PreloadLink::receiveAll(std::span<std::uint8_t> into)
{
    while (!into.empty()) {
        const ssize_t count = ::recv(socket_.get(), into.data(), into.size(), 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw PreloadLinkLost();
        into = into.subspan(static_cast<std::size_t>(count));
    }
}

} // namespace qvsim
