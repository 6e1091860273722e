// reader_peer.h - a reader on a pseudo-terminal that answers each command it knows, however often it comes.
//
// The reader keeps the tty's other end open, so that its settings can be compared, and says when the line is quiet, so
// that one conversation's late bytes never reach the next.
#pragma once

#include "harness.h"
#include "pty_pair.h"

#include <map>
#include <mutex>
#include <string>
#include <termios.h>
#include <thread>

namespace qvtest {

class ReaderPeer {
  public:
    ReaderPeer();
    ~ReaderPeer();
    ReaderPeer(const ReaderPeer &) = delete;
    ReaderPeer &operator=(const ReaderPeer &) = delete;

    const std::string &path() const { return m_line.path(); }
    // The answer to a command, both in hexadecimal; empty: the command has none.
    void answer(const std::string &sCommand, const std::string &sReply)
    {
        std::scoped_lock lock(m_guard);
        m_answers[sCommand] = bytes(sReply);
    }

    // Waits until nothing is on the line in either direction (at most 5 s). The bytes that came since the last call.
    std::string settle();

    termios settings() const;
    void restore(const termios &settings) const;

  private:
    void run();

    // Hardware flow control on, so that the library has to switch it off and back on.
    PtyPair m_line{CRTSCTS};
    int m_nStopPipe[2] = {-1, -1};
    std::map<std::string, Bytes> m_answers;
    std::mutex m_guard;
    Bytes m_received; // since the last settle()
    Bytes m_pending;  // not yet a whole command
    std::thread m_thread;
};

} // namespace qvtest
