// Signal mask, signalfd and the standard descriptors.
#include "system/process.h"

#include "system/io.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

sigset_t stopSignals()
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&set, signal);
    return set;
}

} // namespace

void prepareProcess()
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(standard, F_GETFD) < 0)
            (void)::open("/dev/null", O_RDWR); // takes the lowest free number, which is this one; inherited on purpose
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGTTIN, SIG_IGN); // in the background of a terminal: its input is an error then, not a stop
    const sigset_t set = stopSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

StopSignals::StopSignals(EventLoop &loop, Stop stop) : loop_(loop)
{
    const sigset_t set = stopSignals();
    fd_ = UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) {
        const int error = errno;
        throw std::runtime_error(errorText("signalfd", error));
    }
    loop_.watch(fd_.get(), POLLIN, [this, stop = std::move(stop)](short) {
        signalfd_siginfo info{};
        const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t *>(&info), sizeof info);
        if (readSome(fd_.get(), bytes).kind == ReadResult::Kind::bytes)
            stop(static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL);
    });
}

StopSignals::~StopSignals()
{
    loop_.forget(fd_.get());
}

} // namespace qvsim
