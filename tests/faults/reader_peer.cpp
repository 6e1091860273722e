#include "reader_peer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace qvtest {

namespace {

constexpr int nPatienceMillis = 5000;
constexpr uint8_t ucFrameEnd = 0x03;
// Goes through the line once there and once back; no frame holds it.
constexpr uint8_t ucMarker[] = {0xF1, 'q', 'u', 'i', 'e', 't', 0xF2};

bool endsInMarker(const Bytes &data)
{
    return data.size() >= sizeof ucMarker &&
           std::equal(std::begin(ucMarker), std::end(ucMarker), data.end() - sizeof ucMarker);
}

} // namespace

ReaderPeer::ReaderPeer()
{
    checked(pipe2(m_nStopPipe, O_CLOEXEC), "pipe2");
    m_received.reserve(65536);
    m_pending.reserve(65536);
    m_thread = std::thread([this] { run(); });
}

ReaderPeer::~ReaderPeer()
{
    close(m_nStopPipe[1]);
    m_thread.join();
    close(m_nStopPipe[0]);
}

void ReaderPeer::run()
{
    for (;;) {
        pollfd fds[2] = {{m_nStopPipe[0], POLLIN, 0}, {m_line.master(), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[0].revents != 0)
            return;
        uint8_t buf[4096];
        const ssize_t n = read(m_line.master(), buf, sizeof buf);
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
                m_received.erase(m_received.end() - sizeof ucMarker, m_received.end());
                m_pending.clear();
                checked(static_cast<int>(write(m_line.master(), ucMarker, sizeof ucMarker)), "write marker");
            } else if (auto found = m_answers.find(hex(m_pending)); found != m_answers.end()) {
                if (!found->second.empty())
                    checked(static_cast<int>(write(m_line.master(), found->second.data(), found->second.size())),
                            "write");
                m_pending.clear();
            } else if (buf[i] == ucFrameEnd) {
                m_pending.clear();
            }
        }
    }
}

std::string ReaderPeer::settle()
{
    checked(static_cast<int>(write(m_line.slave(), ucMarker, sizeof ucMarker)), "write marker");
    Bytes back;
    while (!endsInMarker(back)) {
        pollfd one{m_line.slave(), POLLIN, 0};
        if (poll(&one, 1, nPatienceMillis) <= 0)
            throw std::runtime_error("the line does not come to rest");
        uint8_t buf[4096];
        const ssize_t n = read(m_line.slave(), buf, sizeof buf);
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
    checked(tcgetattr(m_line.slave(), &now), "tcgetattr");
    return now;
}

void ReaderPeer::restore(const termios &settings) const
{
    checked(tcsetattr(m_line.slave(), TCSANOW, &settings), "tcsetattr");
}

} // namespace qvtest
