// pty_pair.h - a pseudo-terminal: the tty that the library opens, and the end that the test speaks on.
#pragma once

#include <string>
#include <termios.h>

namespace qvtest {

// nResult; throws std::system_error with errno when it is negative.
int checked(int nResult, const char *pszWhat);

class PtyPair {
  public:
    // A raw tty; nMoreControl is added to its control modes.
    explicit PtyPair(tcflag_t nMoreControl = 0);
    ~PtyPair();
    PtyPair(const PtyPair &) = delete;
    PtyPair &operator=(const PtyPair &) = delete;

    // Path of the tty.
    const std::string &path() const { return m_sPath; }
    // The end that the test speaks on, -1 after hangUp().
    int master() const { return m_nMaster; }
    // The tty itself. It stays open, so that the line does not hang up when the library closes it.
    int slave() const { return m_nSlave; }
    // Closes the end that the test speaks on.
    void hangUp();

  private:
    int m_nMaster = -1;
    int m_nSlave = -1;
    std::string m_sPath;
};

} // namespace qvtest
