// fault_table.h - the system calls of the library, counted and made to fail one at a time.
//
// A program that links fault_table.cpp defines the calls which the library makes (open, read, ioctl, ...), so that the
// loader binds the library to them. Only the thread that holds a Watch, and only while it holds it, is looked at; every
// other caller goes straight through to the C library.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qvtest {

// What a call works on, told from its path or from the open that made its descriptor.
enum class Target { Tty, Ini, Log, Folder, None };

// The calls of the library's interface that a conversation is made of.
enum class Step { Init, Open, PowerOn, Apdu, PowerOff, Close, Stripe };
constexpr size_t nSteps = 6; // of a conversation with a card; a stripe card is read or written in one call

// One call by its place: the nOrdinal-th (from 1) of this kind on this target within this step.
struct Call {
    std::string sKind;
    Target target;
    Step step;
    int nOrdinal;
    bool operator==(const Call &) const = default;
};

// How a call fails.
struct Way {
    enum Kind { Errno, Zero, One, Half } kind;
    int nErrno; // for Errno
};

std::string describe(const Call &call);
std::string describe(const Way &way);
const char *name(Target target);

// While it lives, the calling thread's calls are recorded and its sleeps end at once.
class Watch {
  public:
    // onIdleRead: called when a tty that was really read had nothing to say.
    explicit Watch(std::function<void()> onIdleRead = {});
    // The same with one call failing.
    Watch(const Call &call, const Way &way, std::function<void()> onIdleRead = {});
    ~Watch();
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    void enter(Step step);
    const std::vector<Call> &calls() const;
    // True: the call that was to fail came by.
    bool fired() const;
    // What was armed last, for a message from a signal handler.
    static const char *armed();
};

} // namespace qvtest
