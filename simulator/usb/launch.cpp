// posix_spawn with an environment, and a look at whether the preload library is there.
#include "usb/launch.h"

#include "system/io.h"

#include <dlfcn.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>

namespace qvsim {

namespace {

constexpr char kPreload[] = "libumockdev-preload.so.0";
constexpr int kSignalled = 128; // as shells tell it

std::string valueOf(const char *name)
{
    const char *const value = ::getenv(name);
    return value == nullptr ? "" : value;
}

std::string behind(const std::string &there, const std::string &text)
{
    return there.empty() ? text : there + ":" + text;
}

std::string nameOf(std::string_view entry)
{
    return std::string(entry.substr(0, entry.find('=')));
}

std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> all;
    for (std::string &text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

// The signals that this process holds back or ignores, as a command expects to find them.
class SpawnAttributes {
  public:
    SpawnAttributes()
    {
        ::posix_spawnattr_init(&attributes_);
        sigset_t none, defaults;
        ::sigemptyset(&none);
        ::sigemptyset(&defaults);
        for (const int number : {SIGPIPE, SIGTTIN})
            ::sigaddset(&defaults, number);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes &) = delete;
    SpawnAttributes &operator=(const SpawnAttributes &) = delete;
    const posix_spawnattr_t *get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

} // namespace

std::vector<std::string> usbHostEnvironment(const std::string &directory)
{
    return {
        "UMOCKDEV_DIR=" + directory,
        "LD_PRELOAD=" + behind(valueOf("LD_PRELOAD"), kPreload),
        // A command with AddressSanitizer would refuse to start behind a preloaded library.
        "ASAN_OPTIONS=" + behind(valueOf("ASAN_OPTIONS"), "verify_asan_link_order=0"),
    };
}

// In a child: the library must not come into this process, whose own files it would redirect.
std::string preloadTrouble()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(::dlopen(kPreload, RTLD_LAZY | RTLD_LOCAL) == nullptr ? 1 : 0);
    int status = 0;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {};
    return std::string(kPreload) + " cannot be loaded; USB emulation needs the package umockdev (apt install umockdev)";
}

UsbCommand::UsbCommand(const std::vector<std::string> &command, const std::string &directory)
{
    std::vector<std::string> arguments = command;
    std::vector<std::string> environment = usbHostEnvironment(directory);
    const std::size_t own = environment.size();
    for (char **entry = environ; *entry != nullptr; ++entry)
        if (std::none_of(environment.begin(), environment.begin() + static_cast<std::ptrdiff_t>(own),
                         [&](const std::string &text) { return nameOf(text) == nameOf(*entry); }))
            environment.emplace_back(*entry);
    const SpawnAttributes attributes;
    const int error = ::posix_spawnp(&pid_, arguments.at(0).c_str(), nullptr, attributes.get(),
                                     pointers(arguments).data(), pointers(environment).data());
    if (error != 0)
        throw std::runtime_error(errorText(command[0], error));
    // By number: the C library's own declaration is not meant for C++.
    end_ = UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    if (!end_) {
        const int why = errno;
        ::kill(pid_, SIGKILL);
        wait();
        throw std::runtime_error(errorText("pidfd_open", why));
    }
}

void UsbCommand::signal(int number) const
{
    if (pid_ > 0)
        ::kill(pid_, number);
}

int UsbCommand::wait()
{
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0)
        if (errno != EINTR)
            return 1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

} // namespace qvsim
