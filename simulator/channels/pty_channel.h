// The pseudo-terminal: the host opens its slave end as if it were a serial port.
//
// A thread of its own does nothing but take bytes off the master end, together with the speed that the slave end has
// at that moment: a host that flushes its tty takes back whatever nobody has read yet, and one that changes the speed
// right behind a command would have its bytes judged at the wrong one. The slave end stays open here as well, so that
// the line lives on while no host has it open.
#pragma once

#include "channels/channel.h"
#include "model/trace.h"
#include "system/event_loop.h"
#include "system/unique_fd.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace qvsim {

class PtyChannel final : public Channel {
  public:
    // Throws std::runtime_error when there is no pseudo-terminal to be had. Host settings at start: raw, `baud`.
    PtyChannel(EventLoop &loop, unsigned baud, Receiver receiver, Trace &trace);
    ~PtyChannel() override;

    const std::string &path() const { return path_; }
    void send(BytesView bytes, unsigned baud) override;
    std::string place() const override { return "pty " + path_; }
    // The reading thread ended by an error of the terminal; nothing more will come.
    bool failed() const override { return failed_; }
    // Bits per second at which the host's end stands.
    unsigned hostBaud() const;

  private:
    struct Piece {
        Bytes bytes;
        unsigned baud;
    };

    void readLine();
    bool readPieces();
    bool hand(Piece piece);
    void takePieces();

    EventLoop &loop_;
    Receiver receiver_;
    Trace &trace_;
    UniqueFd master_;
    UniqueFd slave_;
    UniqueFd arrived_; // eventfd: pieces_ has something
    UniqueFd stop_;    // eventfd: the thread has to end
    std::string path_;
    bool failed_ = false;

    std::mutex mutex_; // guards what follows
    std::condition_variable taken_;
    std::vector<Piece> pieces_;
    std::size_t waitingBytes_ = 0;
    bool stopping_ = false;
    bool threadFailed_ = false;

    std::thread thread_;
};

} // namespace qvsim
