// pty_peer.h - a scripted reader on a real pseudo-terminal.
//
// A script is a row of steps, each "these bytes come, those go back". The peer compares what it receives, goes on with
// the next step only after a match, and finish() fails the test when a step was not used, when bytes came that no step
// asked for, or when bytes differed.
#pragma once

#include "harness.h"
#include "pty_pair.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qvtest {

class PtyPeer {
  public:
    PtyPeer();
    ~PtyPeer();
    PtyPeer(const PtyPeer &) = delete;
    PtyPeer &operator=(const PtyPeer &) = delete;

    // Path of the tty that the library opens.
    const std::string &path() const { return m_line.path(); }

    // Adds a step: these bytes come (hexadecimal) ...
    PtyPeer &expect(std::string_view sHex);
    // ... and these go back, nDelay after the chunk before. Several chunks may follow one expect().
    PtyPeer &reply(std::string_view sHex, std::chrono::milliseconds nDelay = {});
    // ... and the peer hangs up.
    PtyPeer &hangUp();

    // Sends bytes at once, outside the script.
    void send(std::string_view sHex);

    // Waits until nCount bytes have come since the start (at most 5 s). False: they did not.
    bool waitForBytes(size_t nCount);

    // Everything received so far.
    Bytes received();

    // Everything that was sent up to now, in hexadecimal; waits for what is still on the line. Without a script, or
    // after its end.
    std::string wire();

    // Waits (at most 5 s) for the script's end and checks it (see above).
    void finish();

  private:
    struct Chunk {
        std::chrono::milliseconds nDelay;
        Bytes data;
        bool bHangUp;
    };
    struct Step {
        Bytes expected;
        std::vector<Chunk> answers;
    };

    void run();
    void advance();
    void sendBytes(const Bytes &data);
    bool pause(std::chrono::milliseconds nDelay);
    void settle();

    PtyPair m_line;
    int m_nStopPipe[2] = {-1, -1};
    std::mutex m_guard;
    std::condition_variable m_changed;
    std::vector<Step> m_steps;
    size_t m_nStep = 0;
    bool m_bAnswering = false;
    Bytes m_pending;
    Bytes m_received;
    std::string m_sMismatch;
    std::thread m_thread;
};

// Waits until nCount bytes stand unread in an open tty (at most 5 s).
void waitUnread(int nFd, int nCount);

// What stands in a script, in hexadecimal: the data as a frame / a status word and a body as a reply frame.
std::string commandFrame(std::string_view sDataHex, uint8_t ucHead = 0x02, uint8_t ucEnd = 0x03);
std::string replyFrame(uint32_t nStatus, std::string_view sBodyHex = "", uint8_t ucHead = 0x02, uint8_t ucEnd = 0x03);

// Success when the log since logOn() holds these texts in this order; other lines may stand between them.
testing::AssertionResult logged(std::initializer_list<std::string> texts);

} // namespace qvtest
