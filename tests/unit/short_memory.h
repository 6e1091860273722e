// short_memory.h - memory that runs out: a test program that has short_memory.cpp decides what calloc gives.
#pragma once

namespace qvtest {

// Every calloc of the process gives null while it lives.
class ShortMemory {
  public:
    ShortMemory();
    ~ShortMemory();
    ShortMemory(const ShortMemory &) = delete;
    ShortMemory &operator=(const ShortMemory &) = delete;

    // How often memory was asked for in vain.
    static int refused();
};

} // namespace qvtest
