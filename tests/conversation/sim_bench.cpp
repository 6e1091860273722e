#include "sim_bench.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace qvtest {

namespace {

using namespace std::chrono_literals;

constexpr auto nPatience = 20s;

struct Pipe {
    int nRead = -1;
    int nWrite = -1;
    Pipe()
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
        nRead = fds[0];
        nWrite = fds[1];
    }
};

} // namespace

std::string cardFile(std::string_view sName)
{
    return "script:" QV_CARDS "/" + std::string(sName) + ".card";
}

bool waitUntil(const std::function<bool()> &check)
{
    auto end = std::chrono::steady_clock::now() + nPatience;
    while (!check()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

SimBench::SimBench(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {QV_SIM, "--quiet"});
    std::vector<char *> args;
    for (std::string &s : arguments)
        args.push_back(s.data());
    args.push_back(nullptr);

    Pipe in;
    Pipe out;
    m_nIn = in.nWrite;
    m_nOut = out.nRead;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.nRead, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.nWrite, STDOUT_FILENO);
    int nError = posix_spawn(&m_nPid, QV_SIM, &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in.nRead);
    close(out.nWrite);
    if (nError != 0)
        throw std::system_error(nError, std::generic_category(), QV_SIM);
    constexpr std::string_view sReady = "ready ";
    for (std::string sLine = line(); m_sPath.empty(); sLine = m_sPath.empty() ? line() : sLine)
        if (sLine.starts_with(sReady))
            m_sPath = sLine.substr(sReady.size());
}

SimBench::~SimBench()
{
    close(m_nIn);
    close(m_nOut);
    if (m_nPid > 0) {
        kill(m_nPid, SIGTERM);
        waitpid(m_nPid, nullptr, 0);
    }
}

std::string SimBench::line()
{
    for (;;) {
        size_t nEnd = m_sPending.find('\n');
        if (nEnd != std::string::npos) {
            std::string sLine = m_sPending.substr(0, nEnd);
            m_sPending.erase(0, nEnd + 1);
            return sLine;
        }
        pollfd ready{m_nOut, POLLIN, 0};
        char buf[1024];
        ssize_t n = poll(&ready, 1, static_cast<int>(std::chrono::milliseconds(nPatience).count())) > 0
                        ? read(m_nOut, buf, sizeof buf)
                        : 0;
        if (n <= 0)
            throw std::runtime_error("the simulator says no more");
        m_sPending.append(buf, static_cast<size_t>(n));
    }
}

std::vector<std::string> SimBench::command(std::string_view sLine)
{
    std::string sSent = std::string(sLine) + "\n";
    if (write(m_nIn, sSent.data(), sSent.size()) != static_cast<ssize_t>(sSent.size()))
        throw std::runtime_error("the simulator takes no more commands");
    std::vector<std::string> told;
    for (;;) {
        std::string sAnswer = line();
        if (sAnswer == "ok")
            return told;
        if (sAnswer.starts_with("error: "))
            throw std::runtime_error(std::string(sLine) + ": " + sAnswer);
        told.push_back(std::move(sAnswer));
    }
}

void SimBench::insert(int nSlot, std::string_view sCard)
{
    command("insert " + std::to_string(nSlot) + " " + cardFile(sCard));
}

void SimBench::remove(int nSlot)
{
    command("remove " + std::to_string(nSlot));
}

std::optional<std::string> SimBench::state(std::string_view sKey)
{
    for (const std::string &sLine : command("state"))
        if (sLine.size() > sKey.size() && sLine.starts_with(sKey) && sLine[sKey.size()] == ' ')
            return sLine.substr(sKey.size() + 1);
    return std::nullopt;
}

} // namespace qvtest
