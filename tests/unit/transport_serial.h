// transport_serial.h - what the tests of the serial port share: a port that can be told to fail, and what was asked of it.
#pragma once

#include "device_log.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <termios.h>
#include <vector>

namespace qvtest {

// A monotonic clock, in seconds.
double seconds();

// What the library does to its port, and what the port answers.
struct PortCalls {
    // What write(2) does with the library's port while a row is left: a count (at most so many bytes are taken) or
    // minus an errno.
    static inline std::vector<int> s_writes;
    static inline size_t s_nWrites = 0;

    // The request that the library's port refuses, 0: none.
    static inline unsigned long s_nRefused = 0;

    // What was flushed, as far as it was the library's port.
    static inline std::vector<int> s_flushes;

    // What was asked of the library's port: its flushes and its settings, in order.
    static inline std::vector<std::string> s_requests;

    // How and when the peer's tty was last opened, and when the first flush came after that.
    static inline const char *s_pszPeer = nullptr;
    static inline int s_nOpenFlags = 0;
    static inline double s_nOpenedAt = 0;
    static inline double s_nFlushedAt = 0;

    // The log as it stood when the library's port was last written to.
    static inline bool s_bLookAtLog = false;
    static inline std::string s_sLogAtWrite;

    // How often the switch of the log was looked up.
    static inline size_t s_nLooks = 0;

    // The descriptor whose close a signal interrupts, -1: none; and how often it was closed.
    static inline int s_nInterruptedClose = -1;
    static inline int s_nCloses = 0;

    // The speed that the library's port takes whatever it is told, 0: it obeys.
    static inline unsigned short s_nStubbornSpeed = 0;
};

class Serial : public testing::Test, public PortCalls {
  protected:
    void SetUp() override;
    void TearDown() override;
    const char *path() const { return m_peer->path().c_str(); }
    termios settings() const;
    // A line as a login shell leaves it.
    termios cook(tcflag_t nMoreControl = 0);
    size_t unread() const;
    // Waits until nCount bytes stand unread on the library's side of the line.
    void waitUnread(int nCount) const { qvtest::waitUnread(m_nSecond, nCount); }

    int m_nDescriptors = 0;
    int m_nSecond = -1; // a second view of the tty
    std::optional<PtyPeer> m_peer;
};

} // namespace qvtest
