// What the process as a whole is told: signals, standard descriptors.
#pragma once

#include "system/event_loop.h"
#include "system/unique_fd.h"

namespace qvsim {

// First thing in main, before any thread: the standard descriptors exist (a pseudo-terminal must not become standard
// input), a reader that went away is an error and no death, and the signals that ask for an orderly end are held back.
void prepareProcess();

// SIGINT, SIGTERM and SIGHUP as events.
class StopSignals {
  public:
    // `stop` gets the signal, and whether it came from the terminal, which tells all of its foreground processes.
    using Stop = std::function<void(int signal, bool fromTerminal)>;
    StopSignals(EventLoop &loop, Stop stop);
    ~StopSignals();
    StopSignals(const StopSignals &) = delete;
    StopSignals &operator=(const StopSignals &) = delete;

  private:
    EventLoop &loop_;
    UniqueFd fd_;
};

} // namespace qvsim
