// One connection of a virtual card: messages out, answers in.
#pragma once

#include "model/bytes.h"
#include "system/unique_fd.h"

#include <deque>

namespace qvsim {

class VpcdLink {
  public:
    explicit VpcdLink(UniqueFd socket) : socket_(std::move(socket)) {}

    int fd() const { return socket_.get(); }
    bool closed() const { return closed_; }
    bool hasUnsent() const { return !unsent_.empty(); }

    // `expectsAnswer`: the protocol answers this message.
    void send(BytesView message, bool expectsAnswer);
    std::optional<Bytes> takeAnswer();
    // The answer of the last question, should it still come, belongs to nobody.
    void skipAnswer();

    void onReadable();
    void onWritable();
    void close();

  private:
    void takeArrived();
    bool readOnce(); // false when nothing was there
    void takeMessages();

    UniqueFd socket_;
    bool closed_ = false;
    Bytes received_;
    Bytes unsent_;
    std::deque<Bytes> answers_;
    std::size_t awaited_ = 0; // answers that the card still owes
    std::size_t toSkip_ = 0;  // the first so many of them belong to nobody
};

} // namespace qvsim
