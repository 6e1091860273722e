// serial_simulator.h - the simulated reader that stands outside the machine at its second serial port.
//
// ttyS1 leads to the reader itself, ttyS2 takes its control commands, a line each.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvvm {

constexpr char szReaderPort[] = "/dev/ttyS1";

class SerialSimulator {
  public:
    // Throws std::runtime_error.
    SerialSimulator();
    ~SerialSimulator();
    SerialSimulator(const SerialSimulator &) = delete;
    SerialSimulator &operator=(const SerialSimulator &) = delete;

    // The lines of the answer without the last one. Throws std::runtime_error when the simulator refuses.
    std::vector<std::string> command(std::string_view sLine);
    // What stands behind a key in the simulator's state.
    std::optional<std::string> state(std::string_view sKey);
    uint64_t count(std::string_view sKey);

    // No cards, no faults, 9600.
    void reset();

  private:
    std::string line();

    int m_nFd;
    std::string m_sPending;
};

} // namespace qvvm
