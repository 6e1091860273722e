// sim_bench.h - a running simulator for the tests of the library. Its commands go through pipes, a line each.
#pragma once

#include "harness.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qvtest {

// "script:.../NAME.card" of the simulator's cards.
std::string cardFile(std::string_view sName);

// Polls what can be observed; false after 20 seconds.
bool waitUntil(const std::function<bool()> &check);

class SimBench {
  public:
    // arguments: as on the simulator's command line. Throws std::runtime_error when it does not get ready.
    explicit SimBench(std::vector<std::string> arguments = {});
    ~SimBench();
    SimBench(const SimBench &) = delete;
    SimBench &operator=(const SimBench &) = delete;

    // Path of the tty that the library opens.
    const std::string &path() const { return m_sPath; }

    // One command; the lines of its answer. Throws std::runtime_error with the simulator's reason when it refuses.
    std::vector<std::string> command(std::string_view sLine);
    void insert(int nSlot, std::string_view sCard);
    void remove(int nSlot);

    // What stands behind a key in the simulator's state: state("baud"), state("slot 0").
    std::optional<std::string> state(std::string_view sKey);

  private:
    std::string line();

    pid_t m_nPid = -1;
    int m_nIn = -1;  // its standard input
    int m_nOut = -1; // its standard output
    std::string m_sPending;
    std::string m_sPath;
};

} // namespace qvtest
