#include "pty_peer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qvtest {

using namespace std::chrono_literals;

namespace {

constexpr auto nPatience = 5s;

// Written behind everything that was sent, so that its arrival proves that nothing is still on the line.
constexpr uint8_t ucMarker[] = {0xF1, 'l', 'i', 'n', 'e', ' ', 'e', 'n', 'd', 0xF2};

} // namespace

PtyPeer::PtyPeer()
{
    checked(pipe2(m_nStopPipe, O_CLOEXEC), "pipe2");
    m_thread = std::thread([this] { run(); });
}

PtyPeer::~PtyPeer()
{
    close(m_nStopPipe[1]);
    m_thread.join();
    close(m_nStopPipe[0]);
}

PtyPeer &PtyPeer::expect(std::string_view sHex)
{
    std::scoped_lock lock(m_guard);
    m_steps.push_back({bytes(sHex), {}});
    return *this;
}

PtyPeer &PtyPeer::reply(std::string_view sHex, std::chrono::milliseconds nDelay)
{
    std::scoped_lock lock(m_guard);
    m_steps.at(m_steps.size() - 1).answers.push_back({nDelay, bytes(sHex), false});
    return *this;
}

PtyPeer &PtyPeer::hangUp()
{
    std::scoped_lock lock(m_guard);
    m_steps.at(m_steps.size() - 1).answers.push_back({0ms, {}, true});
    return *this;
}

void PtyPeer::send(std::string_view sHex)
{
    sendBytes(bytes(sHex));
}

void PtyPeer::sendBytes(const Bytes &data)
{
    for (size_t nAt = 0; nAt < data.size();) {
        ssize_t n = write(m_line.master(), data.data() + nAt, data.size() - nAt);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        nAt += static_cast<size_t>(n);
    }
}

bool PtyPeer::pause(std::chrono::milliseconds nDelay)
{
    if (nDelay == 0ms)
        return true;
    pollfd stop{m_nStopPipe[0], POLLIN, 0};
    return poll(&stop, 1, static_cast<int>(nDelay.count())) == 0;
}

// Plays every step whose bytes are complete.
void PtyPeer::advance()
{
    for (;;) {
        std::vector<Chunk> answers;
        {
            std::scoped_lock lock(m_guard);
            if (!m_sMismatch.empty() || m_nStep >= m_steps.size())
                return;
            const Step &step = m_steps[m_nStep];
            size_t nCompare = std::min(step.expected.size(), m_pending.size());
            if (!std::equal(step.expected.begin(), step.expected.begin() + static_cast<long>(nCompare),
                            m_pending.begin())) {
                m_sMismatch = "step " + std::to_string(m_nStep + 1) + "\n  expected " + hex(step.expected) +
                              "\n  received " + hex(m_pending);
                return;
            }
            if (m_pending.size() < step.expected.size())
                return;
            m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<long>(step.expected.size()));
            answers = step.answers;
            m_bAnswering = true;
        }
        for (const Chunk &chunk : answers) {
            if (!pause(chunk.nDelay))
                return;
            if (chunk.bHangUp) {
                std::scoped_lock lock(m_guard);
                m_line.hangUp();
                break;
            }
            sendBytes(chunk.data);
        }
        {
            std::scoped_lock lock(m_guard);
            m_bAnswering = false;
            ++m_nStep;
        }
        m_changed.notify_all();
    }
}

void PtyPeer::run()
{
    for (;;) {
        pollfd fds[2] = {{m_nStopPipe[0], POLLIN, 0}, {m_line.master(), POLLIN, 0}};
        if (poll(fds, m_line.master() >= 0 ? 2 : 1, -1) < 0 && errno != EINTR)
            return;
        if (fds[0].revents != 0)
            return;
        if (m_line.master() < 0 || fds[1].revents == 0)
            continue;
        uint8_t buf[4096];
        ssize_t n = read(m_line.master(), buf, sizeof buf);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return;
        }
        {
            std::scoped_lock lock(m_guard);
            m_received.insert(m_received.end(), buf, buf + n);
            m_pending.insert(m_pending.end(), buf, buf + n);
        }
        m_changed.notify_all();
        advance();
    }
}

bool PtyPeer::waitForBytes(size_t nCount)
{
    std::unique_lock lock(m_guard);
    return m_changed.wait_for(lock, nPatience, [&] { return m_received.size() >= nCount; });
}

Bytes PtyPeer::received()
{
    std::scoped_lock lock(m_guard);
    return m_received;
}

// Waits until nothing is on the line any more.
void PtyPeer::settle()
{
    std::unique_lock lock(m_guard);
    if (m_line.master() < 0 || m_bAnswering || m_nStep < m_steps.size() ||
        write(m_line.slave(), ucMarker, sizeof ucMarker) != static_cast<ssize_t>(sizeof ucMarker))
        return;
    auto endsInMarker = [](const Bytes &data) {
        return data.size() >= sizeof ucMarker &&
               std::equal(std::begin(ucMarker), std::end(ucMarker), data.end() - sizeof ucMarker);
    };
    if (!m_changed.wait_for(lock, nPatience, [&] { return endsInMarker(m_received); }))
        return;
    m_received.resize(m_received.size() - sizeof ucMarker);
    if (endsInMarker(m_pending))
        m_pending.resize(m_pending.size() - sizeof ucMarker);
}

std::string PtyPeer::wire()
{
    settle();
    return hex(received());
}

void PtyPeer::finish()
{
    {
        std::unique_lock lock(m_guard);
        m_changed.wait_for(lock, nPatience,
                           [&] { return !m_sMismatch.empty() || (m_nStep >= m_steps.size() && !m_bAnswering); });
    }
    settle();
    std::unique_lock lock(m_guard);
    EXPECT_EQ(m_sMismatch, "");
    EXPECT_EQ(m_nStep, m_steps.size()) << "steps of the script were not used";
    EXPECT_EQ(hex(m_pending), "") << "bytes came that no step asked for";
}

void waitUnread(int nFd, int nCount)
{
    int nUnread = 0;
    for (int i = 0; i < 5000 && nUnread < nCount; ++i) {
        ASSERT_EQ(ioctl(nFd, FIONREAD, &nUnread), 0);
        usleep(1000);
    }
    ASSERT_EQ(nUnread, nCount);
}

namespace {

// The half-byte characters of the wire.
Bytes halves(const Bytes &data)
{
    Bytes out;
    for (uint8_t uc : data) {
        out.push_back(static_cast<uint8_t>(0x30 + (uc >> 4)));
        out.push_back(static_cast<uint8_t>(0x30 + (uc & 15)));
    }
    return out;
}

std::string frame(const Bytes &data, uint8_t ucHead, uint8_t ucEnd)
{
    Bytes plain = {static_cast<uint8_t>(data.size() >> 8), static_cast<uint8_t>(data.size())};
    plain.insert(plain.end(), data.begin(), data.end());
    uint8_t ucCheck = 0;
    for (uint8_t uc : data)
        ucCheck = static_cast<uint8_t>(ucCheck ^ uc);
    plain.push_back(ucCheck);
    Bytes out = halves(plain);
    out.insert(out.begin(), ucHead);
    out.push_back(ucEnd);
    return hex(out);
}

} // namespace

std::string commandFrame(std::string_view sDataHex, uint8_t ucHead, uint8_t ucEnd)
{
    return frame(bytes(sDataHex), ucHead, ucEnd);
}

std::string replyFrame(uint32_t nStatus, std::string_view sBodyHex, uint8_t ucHead, uint8_t ucEnd)
{
    Bytes data = bytes(sBodyHex);
    data.insert(data.begin(), {static_cast<uint8_t>(nStatus >> 8), static_cast<uint8_t>(nStatus)});
    return frame(data, ucHead, ucEnd);
}

testing::AssertionResult logged(std::initializer_list<std::string> texts)
{
    std::vector<std::string> lines = logTexts();
    size_t nAt = 0;
    for (const std::string &sText : texts) {
        while (nAt < lines.size() && lines[nAt] != sText)
            ++nAt;
        if (nAt == lines.size()) {
            auto result = testing::AssertionFailure() << "not in the log, or not in this order: \"" << sText << "\"\n";
            for (const std::string &sLine : lines)
                result << "  |" << sLine << "|\n";
            return result;
        }
        ++nAt;
    }
    return testing::AssertionSuccess();
}

} // namespace qvtest
