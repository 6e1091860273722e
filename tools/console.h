// console.h - standard error: remarks, trace lines and, on a terminal, one status line that is rewritten in place.
// May be used from several threads.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace qvtool {

class Console {
  public:
    Console();

    ~Console(); // as release()
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    bool isTerminal() const { return m_bTerminal; }
    // A line of its own.
    void line(std::string_view sText);
    // Whole lines, each with its end.
    void text(std::string_view sText);
    // From here on everything is kept back, since the terminal is the line to a reader; release() tells it.
    void hold();
    void release();
    // Rewrites the status line; only on a terminal. An empty text takes it away.
    void status(std::string_view sText);

  private:
    void put(std::string_view sText);
    void clearStatus();

    std::mutex m_guard;
    bool m_bTerminal;
    std::string m_sStatus; // that stands there; empty: none
    bool m_bHold = false;
    std::string m_sHeld;
};

} // namespace qvtool
