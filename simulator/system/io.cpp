// The three loops of io.h.
#include "system/io.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace qvsim {

namespace {

template <typename Write> std::size_t writeWith(Write write, BytesView bytes, int &error)
{
    std::size_t done = 0;
    error = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(bytes.subspan(done));
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        const int why = errno;
        if (count < 0 && why == EINTR)
            continue;
        if (count < 0 && why != EAGAIN && why != EWOULDBLOCK)
            error = why;
        break;
    }
    return done;
}

} // namespace

ReadResult readSome(int fd, std::span<std::uint8_t> into)
{
    for (;;) {
        const ssize_t count = ::read(fd, into.data(), into.size());
        if (count > 0)
            return {ReadResult::Kind::bytes, static_cast<std::size_t>(count), 0};
        if (count == 0)
            return {ReadResult::Kind::end, 0, 0};
        const int why = errno;
        if (why == EINTR)
            continue;
        if (why == EAGAIN || why == EWOULDBLOCK)
            return {ReadResult::Kind::wouldBlock, 0, 0};
        return {ReadResult::Kind::failed, 0, why};
    }
}

std::size_t writeSome(int fd, BytesView bytes, int &error)
{
    return writeWith([fd](BytesView rest) { return ::write(fd, rest.data(), rest.size()); }, bytes, error);
}

std::size_t sendSome(int fd, BytesView bytes, int &error)
{
    return writeWith([fd](BytesView rest) { return ::send(fd, rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT); },
                     bytes, error);
}

std::string errorText(std::string_view what, int error)
{
    return std::string(what) + ": " + std::generic_category().message(error);
}

} // namespace qvsim
