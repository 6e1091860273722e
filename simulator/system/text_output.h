// Lines of text to a descriptor that somebody else may have stopped reading: a line that does not fit is dropped and
// counted, the simulator never waits for its readers.
#pragma once

#include "system/unique_fd.h"

#include <cstdint>
#include <string_view>

namespace qvsim {

class TextOutput {
  public:
    // Borrows the descriptor.
    explicit TextOutput(int fd) : fd_(fd) {}
    // Owns it.
    explicit TextOutput(UniqueFd fd) : owned_(std::move(fd)), fd_(owned_.get()) {}

    void line(std::string_view text);

  private:
    bool takesNow() const;
    void put(std::string_view text);

    UniqueFd owned_;
    int fd_;
    std::uint64_t lost_ = 0;
};

} // namespace qvsim
