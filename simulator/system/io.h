// Reads and writes that decide on EINTR, short counts and full buffers once for all.
#pragma once

#include "model/bytes.h"

#include <string>

namespace qvsim {

struct ReadResult {
    enum class Kind { bytes, end, wouldBlock, failed };
    Kind kind = Kind::failed;
    std::size_t count = 0;
    int error = 0; // errno of a failure
};

// One read, repeated when a signal interrupts it.
ReadResult readSome(int fd, std::span<std::uint8_t> into);

// Writes until everything is out, the descriptor takes no more, or it fails. Returns the count; `error` becomes errno
// of a failure, or 0.
std::size_t writeSome(int fd, BytesView bytes, int &error);

// The same on a socket, without SIGPIPE.
std::size_t sendSome(int fd, BytesView bytes, int &error);

// "open /dev/ptmx: No such file or directory".
std::string errorText(std::string_view what, int error);

inline BytesView asBytes(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

} // namespace qvsim
