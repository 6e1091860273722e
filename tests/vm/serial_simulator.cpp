#include "serial_simulator.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace qvvm {

namespace {

constexpr char szControlPort[] = "/dev/ttyS2";
constexpr int nPatienceMillis = 30'000;

[[noreturn]] void fail(const std::string &sWhat)
{
    throw std::runtime_error(sWhat + ": " + std::strerror(errno));
}

} // namespace

SerialSimulator::SerialSimulator() : m_nFd(open(szControlPort, O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    termios settings{};
    if (m_nFd < 0 || tcgetattr(m_nFd, &settings) != 0)
        fail(szControlPort);
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    settings.c_cflag |= CLOCAL | CREAD;
    if (tcsetattr(m_nFd, TCSAFLUSH, &settings) != 0)
        fail(szControlPort);
}

SerialSimulator::~SerialSimulator()
{
    close(m_nFd);
}

std::string SerialSimulator::line()
{
    for (;;) {
        if (const size_t nEnd = m_sPending.find('\n'); nEnd != std::string::npos) {
            std::string sLine = m_sPending.substr(0, nEnd);
            m_sPending.erase(0, nEnd + 1);
            return sLine;
        }
        pollfd polled{m_nFd, POLLIN, 0};
        if (poll(&polled, 1, nPatienceMillis) <= 0)
            throw std::runtime_error("the simulator does not answer");
        std::array<char, 512> buffer;
        const ssize_t nRead = read(m_nFd, buffer.data(), buffer.size());
        if (nRead <= 0)
            fail("reading the simulator's answer");
        m_sPending.append(buffer.data(), static_cast<size_t>(nRead));
    }
}

std::vector<std::string> SerialSimulator::command(std::string_view sLine)
{
    const std::string sSent = std::string(sLine) + "\n";
    if (write(m_nFd, sSent.data(), sSent.size()) != static_cast<ssize_t>(sSent.size()))
        fail("commanding the simulator");
    std::vector<std::string> lines;
    for (;;) {
        lines.push_back(line());
        if (lines.back().starts_with("error"))
            throw std::runtime_error(std::string(sLine) + ": " + lines.back());
        if (lines.back() == "ok") {
            lines.pop_back();
            return lines;
        }
    }
}

std::optional<std::string> SerialSimulator::state(std::string_view sKey)
{
    const std::string sStart = std::string(sKey) + " ";
    for (const std::string &sLine : command("state"))
        if (sLine.starts_with(sStart))
            return sLine.substr(sStart.size());
    return std::nullopt;
}

uint64_t SerialSimulator::count(std::string_view sKey)
{
    return std::stoull(state(sKey).value_or("0"));
}

void SerialSimulator::reset()
{
    for (const char *pszSlot : {"0", "16"}) {
        const std::optional<std::string> sCard = state(std::string("slot ") + pszSlot);
        if (sCard && !sCard->starts_with("empty"))
            command(std::string("remove ") + pszSlot);
    }
    command("fault off");
    command("baud 9600");
}

} // namespace qvvm
