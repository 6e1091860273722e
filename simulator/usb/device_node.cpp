// mkfifo, a listening socket, and the one byte in the pipe.
#include "usb/device_node.h"

#include "control/socket_address.h"
#include "system/io.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr int kPipeBytes = 4096; // the smallest there is
constexpr int kWaitingHosts = 16;
constexpr mode_t kForEverybody = 0666; // the command may run as another user

[[noreturn]] void fail(const std::string &what)
{
    const int error = errno;
    throw std::runtime_error(errorText(what, error));
}

std::string hiddenName(const std::string &file)
{
    return file + ".hidden";
}

} // namespace

UniqueFd listenAt(const std::string &path)
{
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const SocketAddress address(path);
    if (!fd || ::bind(fd.get(), address.get(), address.length()) != 0 || ::chmod(path.c_str(), kForEverybody) != 0 ||
        ::listen(fd.get(), kWaitingHosts) != 0)
        fail(path);
    return fd;
}

DeviceNode::DeviceNode(const std::string &tree, const std::string &name, Polled polled)
    : file_(tree + "/dev/" + name), socketFile_(tree + "/ioctl/dev/" + name), polled_(polled)
{
    if (::mkfifo(file_.c_str(), kForEverybody) != 0 || ::chmod(file_.c_str(), kForEverybody) != 0)
        fail(file_);
    pipe_ = UniqueFd(::open(file_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    // In packet mode a single byte takes a whole page, and with it all the room of a pipe of one page.
    if (!pipe_ || ::fcntl(pipe_.get(), F_SETFL, O_NONBLOCK | O_DIRECT) != 0 ||
        ::fcntl(pipe_.get(), F_SETPIPE_SZ, kPipeBytes) < 0)
        fail(file_);
    listener_ = listenAt(socketFile_);
    signal(true);
    signal(false);
}

DeviceNode::~DeviceNode()
{
    remove();
}

void DeviceNode::signal(bool ready)
{
    const bool wantsByte = ready == (polled_ == Polled::forReading);
    if (wantsByte == pipeHasByte_)
        return;
    std::uint8_t byte = 0;
    int error = 0;
    if (wantsByte)
        writeSome(pipe_.get(), {&byte, 1}, error);
    else
        readSome(pipe_.get(), {&byte, 1});
    pipeHasByte_ = wantsByte;
}

void DeviceNode::remove()
{
    if (!listener_)
        return;
    ::unlink((hidden_ ? hiddenName(file_) : file_).c_str());
    ::unlink(socketFile_.c_str());
    listener_.reset();
}

void DeviceNode::hide(bool hidden)
{
    if (hidden == hidden_ || !listener_)
        return;
    const std::string from = hidden ? file_ : hiddenName(file_);
    const std::string to = hidden ? hiddenName(file_) : file_;
    if (::rename(from.c_str(), to.c_str()) == 0)
        hidden_ = hidden;
}

} // namespace qvsim
