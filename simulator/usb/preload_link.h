// The conversation with one descriptor that a host has opened under umockdev's preload library.
//
// Messages are three native unsigned longs, {what, first, second}, on a stream socket. The host asks and waits:
//
//   host     1 ioctl {request, argument}   7 read {buffer, length}   8 write {buffer, length}
//   device   5 read memory {address, length}: the host sends the bytes
//            6 write memory {address, length}, and the bytes behind it
//            3 done {result, errno}; result -100: the host makes the real call
#pragma once

#include "model/bytes.h"
#include "system/unique_fd.h"

#include <array>

namespace qvsim {

// The host went away in the middle of a call.
struct PreloadLinkLost {};

struct PreloadRequest {
    enum class Kind { ioctl, read, write };
    Kind kind;
    unsigned long first;
    unsigned long second;
};

struct PreloadAnswer {
    long result = 0;
    int error = 0; // errno, where the result is -1
};

inline PreloadAnswer refuse(int error)
{
    return {-1, error};
}

constexpr long kMakeRealCall = -100;

// Every function but the constructor throws PreloadLinkLost.
class PreloadLink {
  public:
    explicit PreloadLink(UniqueFd socket);

    int fd() const { return socket_.get(); }
    PreloadRequest receive();
    Bytes readMemory(unsigned long address, std::size_t length);
    void writeMemory(unsigned long address, BytesView bytes);
    void answer(const PreloadAnswer &answer);

    template <typename T> T readRecord(unsigned long address)
    {
        T record; // filled whole
        readInto(address, {reinterpret_cast<std::uint8_t *>(&record), sizeof record});
        return record;
    }
    template <typename T> void writeRecord(unsigned long address, const T &record)
    {
        writeMemory(address, {reinterpret_cast<const std::uint8_t *>(&record), sizeof record});
    }

  private:
    using Message = std::array<unsigned long, 3>;

    void readInto(unsigned long address, std::span<std::uint8_t> into);
    void send(BytesView bytes);
    void send(const Message &message);
    void receiveAll(std::span<std::uint8_t> into);

    UniqueFd socket_;
};

} // namespace qvsim
