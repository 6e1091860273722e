// Random numbers of the kernel.
#pragma once

#include <cstdint>
#include <span>

namespace qvsim {

// Throws std::system_error.
void fillWithRandom(std::span<std::uint8_t> bytes);

} // namespace qvsim
