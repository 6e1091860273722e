// watch.h - the second thread: signals, the remark about what is being waited for, and the end of a wait.
//
// SIGINT, SIGTERM and SIGHUP are blocked in every thread and taken here with sigtimedwait, so that the cancel is an
// ordinary call in an ordinary thread. A cancel reaches only a read that runs at that moment; it is therefore repeated
// for as long as the wait lasts. The same call ends a wait that has become longer than it may.
#pragma once

#include "console.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace qvtool {

using Clock = std::chrono::steady_clock;

class Watch {
  public:
    // beforeAbort runs when a second signal ends the process in the middle of a library call.
    // bKeyboard: Ctrl-C reaches the tool; not from a terminal that is the line to the reader.
    Watch(Console &console, std::function<void()> beforeAbort, bool bKeyboard);
    ~Watch();
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    // The first signal that came, 0: none.
    int signal() const { return m_nSignal; }

    // How a wait is cancelled; without it by COMM_Dev_CancelRead. Before the first wait.
    void cancelBy(int32_t (*pfnCancel)(void)) { m_pfnCancel = pfnCancel; }

    // While a wait lasts: what the user is to do by then, told at once, on a terminal as the only line. Until endPrompt().
    void prompt(std::string sWhat, Clock::time_point end);
    void endPrompt();

    // One library call that reads. While the object lives, a signal or the time limit cancels the running read.
    class Wait {
      public:
        // sWhat: "a card in slot 0"; empty: nothing is said. end: what the remark counts down to. limit: when the read is
        // cancelled. bBySignal: false when a signal must not cut it short (tidying up).
        Wait(Watch &watch, std::string sWhat, Clock::time_point end, Clock::time_point limit, bool bBySignal = true);
        ~Wait();
        Wait(const Wait &) = delete;
        Wait &operator=(const Wait &) = delete;

      private:
        Watch &m_watch;
    };

  private:
    void run();
    void takeSignal(int nSignal);
    void attend();
    void say(Clock::time_point now);
    std::string cancelHint() const;

    Console &m_console;
    std::function<void()> m_beforeAbort;
    bool m_bKeyboard;
    int32_t (*m_pfnCancel)(void);
    sigset_t m_signals{};
    std::atomic<int> m_nSignal = 0;
    std::atomic<bool> m_bStop = false;

    std::mutex m_guard; // of the wait that runs
    bool m_bWaiting = false;
    bool m_bBySignal = true;
    std::string m_sWhat;
    std::string m_sPrompt; // empty: none
    std::string m_sSaid;   // stays until something else is waited for: a wait in portions is told once
    Clock::time_point m_begin;
    Clock::time_point m_end;
    Clock::time_point m_limit;

    std::thread m_thread;
};

} // namespace qvtool
