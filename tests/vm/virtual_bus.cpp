#include "virtual_bus.h"

#include "system/io.h"
#include "waiting.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>

namespace qvvm {

namespace {

constexpr char kController[] = "/sys/devices/platform/vhci_hcd.0/";
constexpr std::size_t kHeader = 48;
constexpr std::uint32_t kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4;
constexpr unsigned kDeviceId = 0x10002; // bus 1, device 2 as the far end counts them: any will do
constexpr unsigned kFullSpeed = 2;
constexpr std::size_t kMostData = 1 << 20;

std::uint32_t word(const std::array<std::uint8_t, kHeader> &header, std::size_t at)
{
    return static_cast<std::uint32_t>(header[at]) << 24 | static_cast<std::uint32_t>(header[at + 1]) << 16 |
           static_cast<std::uint32_t>(header[at + 2]) << 8 | header[at + 3];
}

void putWord(Bytes &message, std::size_t at, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i)
        message[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

Bytes reply(std::uint32_t command, std::uint32_t number, int status)
{
    Bytes message(kHeader, 0);
    putWord(message, 0, command);
    putWord(message, 4, number);
    putWord(message, 20, static_cast<std::uint32_t>(status));
    return message;
}

} // namespace

// "hs  0000 004 000 ...": the third word of the first port is 004 while nothing is plugged in.
bool VirtualBus::portIsFree()
{
    std::ifstream in(std::string(kController) + "status");
    std::string line, hub, port, state;
    std::getline(in, line);
    return static_cast<bool>(in >> hub >> port >> state) && port == "0000" && state == "004";
}

VirtualBus::VirtualBus()
{
    demand("a free port of the virtual bus", portIsFree);
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error(qvsim::errorText("socketpair", errno));
    m_link = qvsim::UniqueFd(ends[0]);
    const qvsim::UniqueFd controller(ends[1]);
    const std::string sPath = std::string(kController) + "attach";
    const qvsim::UniqueFd attach(::open(sPath.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string sText =
        "0 " + std::to_string(controller.get()) + " " + std::to_string(kDeviceId) + " " + std::to_string(kFullSpeed);
    if (!attach || ::write(attach.get(), sText.data(), sText.size()) < 0)
        throw std::runtime_error(qvsim::errorText(sPath, errno));
}

bool VirtualBus::readAll(std::span<std::uint8_t> into)
{
    while (!into.empty()) {
        const qvsim::ReadResult result = qvsim::readSome(m_link.get(), into);
        if (result.kind != qvsim::ReadResult::Kind::bytes)
            return false;
        into = into.subspan(result.count);
    }
    return true;
}

BusMessage VirtualBus::receive()
{
    std::array<std::uint8_t, kHeader> header{};
    BusMessage message;
    if (!readAll(header))
        return message;
    const std::uint32_t command = word(header, 0);
    message.number = word(header, 4);
    if (command == kUnlink) {
        message.kind = BusMessage::Kind::unlink;
        message.victim = word(header, 20);
        return message;
    }
    message.in = word(header, 12) != 0;
    message.endpoint = static_cast<std::uint8_t>(word(header, 16));
    message.length = word(header, 24);
    std::copy(header.begin() + 40, header.end(), message.setup.begin());
    if (command != kSubmit || message.length > kMostData)
        return message;
    if (!message.in) {
        message.data.resize(message.length);
        if (!readAll(message.data))
            return message;
    }
    message.kind = BusMessage::Kind::submit;
    return message;
}

void VirtualBus::answer(const BusMessage &submit, int status, BytesView data)
{
    Bytes message = reply(kSubmitted, submit.number, status);
    if (submit.in)
        data = data.first(std::min(data.size(), submit.length));
    putWord(message, 24, static_cast<std::uint32_t>(status != 0 ? 0 : submit.in ? data.size() : submit.length));
    if (submit.in && status == 0)
        message.insert(message.end(), data.begin(), data.end());
    send(message);
}

void VirtualBus::answerUnlink(const BusMessage &unlink, int status)
{
    send(reply(kUnlinked, unlink.number, status));
}

// A controller that hung up is noticed by the next receive.
void VirtualBus::send(const Bytes &message)
{
    int error = 0;
    (void)qvsim::sendSome(m_link.get(), message, error);
}

void VirtualBus::cut()
{
    (void)::shutdown(m_link.get(), SHUT_RDWR);
}

} // namespace qvvm
