// Standard input and the control socket.
#include "control/server.h"

#include "control/socket_address.h"
#include "system/io.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::size_t kMostClients = 16;
constexpr std::size_t kMostUnsent = 1024 * 1024; // a controller that does not read its answers is dropped
constexpr mode_t kOnlyTheOwner = 0077;           // umask

// Removes what an ended simulator left behind.
void clearPath(const std::string &path, const SocketAddress &address)
{
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0)
        return;
    if (!S_ISSOCK(info.st_mode))
        throw std::runtime_error("control socket " + path + ": exists and is no socket");
    const UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(probe.get(), address.get(), address.length()) == 0)
        throw std::runtime_error("control socket " + path + ": another simulator answers there");
    ::unlink(path.c_str());
}

} // namespace

ControlInput::ControlInput(EventLoop &loop, int fd, ExecuteLine execute, TextOutput &answers)
    : loop_(loop), fd_(fd), execute_(std::move(execute)), answers_(answers)
{
    loop_.watch(fd_, POLLIN, [this](short) { onReadable(); });
}

ControlInput::~ControlInput()
{
    loop_.forget(fd_);
}

void ControlInput::onReadable()
{
    std::array<std::uint8_t, 4096> buffer;
    const ReadResult result = readSome(fd_, buffer);
    if (result.kind == ReadResult::Kind::wouldBlock)
        return;
    if (result.kind != ReadResult::Kind::bytes || !lines_.add(BytesView(buffer).first(result.count))) {
        loop_.setEvents(fd_, 0);
        return;
    }
    while (const std::optional<std::string> line = lines_.take())
        for (const std::string &answer : execute_(*line))
            answers_.line(answer);
}

ControlServer::ControlServer(EventLoop &loop, std::string path, ExecuteLine execute)
    : loop_(loop), path_(std::move(path)), execute_(std::move(execute))
{
    const SocketAddress address(path_);
    clearPath(path_, address);
    listener_ = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const mode_t mask = ::umask(kOnlyTheOwner);
    const bool bound = listener_ && ::bind(listener_.get(), address.get(), address.length()) == 0;
    int error = errno;
    ::umask(mask);
    if (!bound)
        throw std::runtime_error(errorText("control socket " + path_, error));
    struct stat info {};
    if (::listen(listener_.get(), 4) != 0 || ::lstat(path_.c_str(), &info) != 0) {
        error = errno;
        ::unlink(path_.c_str());
        throw std::runtime_error(errorText("control socket " + path_, error));
    }
    device_ = info.st_dev;
    inode_ = info.st_ino;
    loop_.watch(listener_.get(), POLLIN, [this](short) { accept(); });
}

ControlServer::~ControlServer()
{
    for (auto &[fd, client] : clients_) {
        writeTo(client); // the answer to "quit"
        loop_.forget(fd);
    }
    loop_.forget(listener_.get());
    struct stat info {};
    if (::lstat(path_.c_str(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_)
        ::unlink(path_.c_str());
}

void ControlServer::accept()
{
    UniqueFd socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket)
        return;
    const int fd = socket.get();
    clients_[fd].socket = std::move(socket);
    loop_.watch(fd, POLLIN, [this, fd](short revents) { serve(fd, revents); });
    if (clients_.size() == kMostClients)
        loop_.setEvents(listener_.get(), 0);
}

void ControlServer::serve(int fd, short revents)
{
    Client &client = clients_.at(fd);
    if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !client.leaving && !readFrom(client)) {
        drop(fd);
        return;
    }
    if (!writeTo(client) || (client.leaving && client.unsent.empty())) {
        drop(fd);
        return;
    }
    short events = client.leaving ? short{0} : short{POLLIN};
    if (!client.unsent.empty())
        events = static_cast<short>(events | POLLOUT);
    loop_.setEvents(fd, events);
}

// False when the client is to be dropped.
bool ControlServer::readFrom(Client &client)
{
    std::array<std::uint8_t, 4096> buffer;
    const ReadResult result = readSome(client.socket.get(), buffer);
    if (result.kind == ReadResult::Kind::wouldBlock)
        return true;
    if (result.kind == ReadResult::Kind::end) {
        client.leaving = true;
        return true;
    }
    if (result.kind == ReadResult::Kind::failed || !client.lines.add(BytesView(buffer).first(result.count)))
        return false;
    while (const std::optional<std::string> line = client.lines.take())
        for (const std::string &answer : execute_(*line))
            client.unsent.append(answer).push_back('\n');
    return client.unsent.size() <= kMostUnsent;
}

bool ControlServer::writeTo(Client &client)
{
    int error = 0;
    const std::size_t done = sendSome(client.socket.get(), asBytes(client.unsent), error);
    client.unsent.erase(0, done);
    return error == 0;
}

void ControlServer::drop(int fd)
{
    loop_.forget(fd);
    clients_.erase(fd);
    loop_.setEvents(listener_.get(), POLLIN);
}

} // namespace qvsim
