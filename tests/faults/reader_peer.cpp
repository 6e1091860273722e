#include "reader_peer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace qvtest {

namespace {

constexpr int nPatienceMillis = 5000;
constexpr uint8_t ucFrameEnd = 0x03;
// Goes through the line once there and once back; no frame holds it.
constexpr uint8_t ucMarker[] = {0xF1, 'q', 'u', 'i', 'e', 't', 0xF2};

int checked(int nResult, const char *pszWhat)
{
    if (nResult < 0)
        throw std::system_error(errno, std::generic_category(), pszWhat);
    return nResult;
}

bool endsInMarker(const Bytes &data)
{
    return data.size() >= sizeof ucMarker &&
           std::equal(std::begin(ucMarker), std::end(ucMarker), data.end() - sizeof ucMarker);
}

} // namespace

ReaderPeer::ReaderPeer()
{
    m_nMaster = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    checked(grantpt(m_nMaster), "grantpt");
    checked(unlockpt(m_nMaster), "unlockpt");
    m_sPath = ptsname(m_nMaster);
    m_nSlave = checked(open(m_sPath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open pty");
    // Hardware flow control on, so that the library has to switch it off and back on.
    termios raw{};
    checked(tcgetattr(m_nSlave, &raw), "tcgetattr");
    cfmakeraw(&raw);
    raw.c_cflag |= CRTSCTS;
    checked(tcsetattr(m_nSlave, TCSANOW, &raw), "tcsetattr");
    checked(pipe2(m_nStopPipe, O_CLOEXEC), "pipe2");
    m_received.reserve(65536);
    m_pending.reserve(65536);
    m_thread = std::thread([this] { run(); });
}

ReaderPeer::~ReaderPeer()
{
    close(m_nStopPipe[1]);
    m_thread.join();
    for (int nFd : {m_nStopPipe[0], m_nSlave, m_nMaster})
        close(nFd);
}

void ReaderPeer::run()
{
    for (;;) {
        pollfd fds[2] = {{m_nStopPipe[0], POLLIN, 0}, {m_nMaster, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[0].revents != 0)
            return;
        uint8_t buf[4096];
        const ssize_t n = read(m_nMaster, buf, sizeof buf);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return;
        }
        std::scoped_lock lock(m_guard);
        for (ssize_t i = 0; i < n; ++i) {
            m_received.push_back(buf[i]);
            m_pending.push_back(buf[i]);
            if (endsInMarker(m_pending)) {
                m_received.resize(m_received.size() - sizeof ucMarker);
                m_pending.clear();
                checked(static_cast<int>(write(m_nMaster, ucMarker, sizeof ucMarker)), "write marker");
            } else if (buf[i] == ucFrameEnd) {
                if (auto found = m_answers.find(hex(m_pending)); found != m_answers.end())
                    checked(static_cast<int>(write(m_nMaster, found->second.data(), found->second.size())), "write");
                m_pending.clear();
            }
        }
    }
}

std::string ReaderPeer::settle()
{
    checked(static_cast<int>(write(m_nSlave, ucMarker, sizeof ucMarker)), "write marker");
    Bytes back;
    while (!endsInMarker(back)) {
        pollfd one{m_nSlave, POLLIN, 0};
        if (poll(&one, 1, nPatienceMillis) <= 0)
            throw std::runtime_error("the line does not come to rest");
        uint8_t buf[4096];
        const ssize_t n = read(m_nSlave, buf, sizeof buf);
        if (n > 0)
            back.insert(back.end(), buf, buf + n);
    }
    std::scoped_lock lock(m_guard);
    std::string sWire = hex(m_received);
    m_received.clear();
    return sWire;
}

termios ReaderPeer::settings() const
{
    termios now{};
    checked(tcgetattr(m_nSlave, &now), "tcgetattr");
    return now;
}

void ReaderPeer::restore(const termios &settings) const
{
    checked(tcsetattr(m_nSlave, TCSANOW, &settings), "tcsetattr");
}

} // namespace qvtest
