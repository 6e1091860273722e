#include "fault_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace qvtest {

namespace {

struct State {
    std::vector<Call> calls;
    struct Counter {
        const char *pszKind;
        Target target;
        int nCalls;
    };
    std::vector<Counter> counters; // of this step
    Step step = Step::Init;
    std::optional<Call> armed;
    Way way{};
    bool bFired = false;
    std::function<void()> onIdleRead;
    std::array<Target, 1024> targets{}; // by descriptor
};

// Touched by the watched thread only.
State *s_pState = nullptr;
thread_local bool t_bWatched = false;
char s_szArmed[256] = "none";

// The C library's own function behind ours.
template <typename Function> Function *next(Function *, const char *pszName)
{
    void *pFound = dlsym(RTLD_NEXT, pszName);
    return reinterpret_cast<Function *>(pFound);
}

Target targetOf(int nFd)
{
    const auto n = static_cast<size_t>(nFd);
    return nFd >= 0 && n < s_pState->targets.size() ? s_pState->targets[n] : Target::None;
}

Target targetOf(const char *pszPath)
{
    const std::string_view sPath = pszPath;
    if (sPath.starts_with("/dev/"))
        return Target::Tty;
    if (sPath.ends_with(".ini"))
        return Target::Ini;
    return sPath.ends_with(".log") ? Target::Log : Target::Folder;
}

// Records a call. The way it fails, null: it goes through.
const Way *arrive(const char *pszKind, Target target)
{
    State &state = *s_pState;
    auto counter = std::find_if(state.counters.begin(), state.counters.end(), [&](const State::Counter &c) {
        return c.target == target && std::strcmp(c.pszKind, pszKind) == 0;
    });
    if (counter == state.counters.end())
        counter = state.counters.insert(counter, {pszKind, target, 0});
    Call call{pszKind, target, state.step, ++counter->nCalls};
    state.calls.push_back(call);
    if (state.bFired || !state.armed || *state.armed != call)
        return nullptr;
    state.bFired = true;
    errno = state.way.nErrno;
    return &state.way;
}

// The length that a short count leaves.
size_t shortened(const Way &way, size_t nLen)
{
    return way.kind == Way::One ? std::min<size_t>(nLen, 1) : nLen / 2;
}

const char *requestName(unsigned long nRequest)
{
    return nRequest == TCGETA ? "ioctl TCGETA" : nRequest == TCSETAF ? "ioctl TCSETAF" : "ioctl other";
}

} // namespace

const char *name(Target target)
{
    static constexpr const char *names[] = {"tty", "INI file", "log file", "folder", "nothing"};
    return names[static_cast<size_t>(target)];
}

std::string describe(const Call &call)
{
    static constexpr const char *steps[] = {"initDriver", "open",  "power on",   "APDU",
                                            "power off",  "close", "stripe call"};
    return call.sKind + " of " + name(call.target) + ", number " + std::to_string(call.nOrdinal) + " in " +
           steps[static_cast<size_t>(call.step)];
}

std::string describe(const Way &way)
{
    switch (way.kind) {
    case Way::Zero: return "answers 0";
    case Way::One: return "takes one byte";
    case Way::Half: return "takes half";
    default: return std::string("fails with ") + strerrorname_np(way.nErrno);
    }
}

Watch::Watch(std::function<void()> onIdleRead)
{
    s_pState = new State;
    s_pState->onIdleRead = std::move(onIdleRead);
    s_pState->calls.reserve(2048);
    s_pState->targets.fill(Target::None);
    t_bWatched = true;
}

Watch::Watch(const Call &call, const Way &way, std::function<void()> onIdleRead) : Watch(std::move(onIdleRead))
{
    s_pState->armed = call;
    s_pState->way = way;
    std::snprintf(s_szArmed, sizeof s_szArmed, "%s %s", describe(call).c_str(), describe(way).c_str());
}

Watch::~Watch()
{
    t_bWatched = false;
    delete s_pState;
    s_pState = nullptr;
    std::strcpy(s_szArmed, "none");
}

void Watch::enter(Step step)
{
    s_pState->step = step;
    s_pState->counters.clear();
}

const std::vector<Call> &Watch::calls() const
{
    return s_pState->calls;
}

bool Watch::fired() const
{
    return s_pState->bFired;
}

const char *Watch::armed()
{
    return s_szArmed;
}

} // namespace qvtest

using namespace qvtest;

// The C library's function of the same name, looked up once.
#define QV_NEXT(fn) static auto *const s_pNext = next(static_cast<decltype(&fn)>(nullptr), #fn)

extern "C" {

int open(const char *pszPath, int nFlags, ...)
{
    static auto *const s_pNext = next(static_cast<int (*)(const char *, int, ...)>(nullptr), "open");
    va_list args;
    va_start(args, nFlags);
    const mode_t nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (!t_bWatched)
        return s_pNext(pszPath, nFlags, nMode);
    const Target target = targetOf(pszPath);
    if (arrive("open", target) != nullptr)
        return -1;
    const int nFd = s_pNext(pszPath, nFlags, nMode);
    if (nFd >= 0 && static_cast<size_t>(nFd) < s_pState->targets.size())
        s_pState->targets[static_cast<size_t>(nFd)] = target;
    return nFd;
}

// As the kernel does it: a close that fails has closed all the same.
int close(int nFd)
{
    QV_NEXT(close);
    if (!t_bWatched)
        return s_pNext(nFd);
    const Way *pWay = arrive("close", targetOf(nFd));
    if (nFd >= 0 && static_cast<size_t>(nFd) < s_pState->targets.size())
        s_pState->targets[static_cast<size_t>(nFd)] = Target::None;
    const int nRet = s_pNext(nFd);
    if (pWay == nullptr)
        return nRet;
    errno = pWay->nErrno;
    return -1;
}

ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    QV_NEXT(read);
    if (!t_bWatched)
        return s_pNext(nFd, pBuf, nLen);
    const Target target = targetOf(nFd);
    const Way *pWay = arrive("read", target);
    if (pWay != nullptr && (pWay->kind == Way::Errno || pWay->kind == Way::Zero))
        return pWay->kind == Way::Zero ? 0 : -1;
    const ssize_t nRead = s_pNext(nFd, pBuf, pWay == nullptr ? nLen : shortened(*pWay, nLen));
    if (nRead == 0 && target == Target::Tty && s_pState->onIdleRead)
        s_pState->onIdleRead();
    return nRead;
}

ssize_t write(int nFd, const void *pBuf, size_t nLen)
{
    QV_NEXT(write);
    if (!t_bWatched)
        return s_pNext(nFd, pBuf, nLen);
    const Way *pWay = arrive("write", targetOf(nFd));
    if (pWay != nullptr && (pWay->kind == Way::Errno || pWay->kind == Way::Zero))
        return pWay->kind == Way::Zero ? 0 : -1;
    return s_pNext(nFd, pBuf, pWay == nullptr ? nLen : shortened(*pWay, nLen));
}

int fcntl(int nFd, int nCommand, ...)
{
    static auto *const s_pNext = next(static_cast<int (*)(int, int, ...)>(nullptr), "fcntl");
    va_list args;
    va_start(args, nCommand);
    void *pArg = va_arg(args, void *);
    va_end(args);
    if (t_bWatched && arrive("fcntl", targetOf(nFd)) != nullptr)
        return -1;
    return s_pNext(nFd, nCommand, pArg);
}

int ioctl(int nFd, unsigned long nRequest, ...) noexcept
{
    static auto *const s_pNext = next(static_cast<int (*)(int, unsigned long, ...)>(nullptr), "ioctl");
    va_list args;
    va_start(args, nRequest);
    void *pArg = va_arg(args, void *);
    va_end(args);
    if (t_bWatched && arrive(requestName(nRequest), targetOf(nFd)) != nullptr)
        return -1;
    return s_pNext(nFd, nRequest, pArg);
}

int tcflush(int nFd, int nQueue) noexcept
{
    QV_NEXT(tcflush);
    return t_bWatched && arrive("tcflush", targetOf(nFd)) != nullptr ? -1 : s_pNext(nFd, nQueue);
}

int tcgetattr(int nFd, termios *pSettings) noexcept
{
    QV_NEXT(tcgetattr);
    return t_bWatched && arrive("tcgetattr", targetOf(nFd)) != nullptr ? -1 : s_pNext(nFd, pSettings);
}

int tcsetattr(int nFd, int nWhen, const termios *pSettings) noexcept
{
    QV_NEXT(tcsetattr);
    return t_bWatched && arrive("tcsetattr", targetOf(nFd)) != nullptr ? -1 : s_pNext(nFd, nWhen, pSettings);
}

int mkdir(const char *pszPath, mode_t nMode) noexcept
{
    QV_NEXT(mkdir);
    return t_bWatched && arrive("mkdir", Target::Folder) != nullptr ? -1 : s_pNext(pszPath, nMode);
}

int stat(const char *pszPath, struct stat *pState) noexcept
{
    static auto *const s_pNext = next(static_cast<int (*)(const char *, struct stat *)>(nullptr), "stat");
    if (!t_bWatched)
        return s_pNext(pszPath, pState);
    const Target target = targetOf(pszPath) == Target::Ini ? Target::Ini : Target::Folder;
    return arrive("stat", target) != nullptr ? -1 : s_pNext(pszPath, pState);
}

DIR *opendir(const char *pszPath)
{
    QV_NEXT(opendir);
    return t_bWatched && arrive("opendir", Target::Folder) != nullptr ? nullptr : s_pNext(pszPath);
}

dirent *readdir(DIR *pDir)
{
    QV_NEXT(readdir);
    return t_bWatched && arrive("readdir", Target::Folder) != nullptr ? nullptr : s_pNext(pDir);
}

int closedir(DIR *pDir)
{
    QV_NEXT(closedir);
    const Way *pWay = t_bWatched ? arrive("closedir", Target::Folder) : nullptr;
    const int nRet = s_pNext(pDir);
    if (pWay == nullptr)
        return nRet;
    errno = pWay->nErrno;
    return -1;
}

int remove(const char *pszPath) noexcept
{
    static auto *const s_pNext = next(static_cast<int (*)(const char *)>(nullptr), "remove");
    return t_bWatched && arrive("remove", Target::Folder) != nullptr ? -1 : s_pNext(pszPath);
}

int usleep(useconds_t nMicros)
{
    QV_NEXT(usleep);
    if (!t_bWatched)
        return s_pNext(nMicros);
    return arrive("usleep", Target::None) != nullptr ? -1 : 0;
}

int nanosleep(const timespec *pTime, timespec *pRest)
{
    QV_NEXT(nanosleep);
    if (!t_bWatched)
        return s_pNext(pTime, pRest);
    return arrive("nanosleep", Target::None) != nullptr ? -1 : 0;
}

} // extern "C"
