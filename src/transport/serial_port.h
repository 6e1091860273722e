// serial_port.h - the descriptor that the serial port and the terminal's aux port share.
#pragma once

#include <cstdint>

namespace qv {

constexpr int32_t nNoPort = -2;

// g_AuxFd is a plain word of the interface that a cancel may look at while another thread opens or closes.
int32_t portFd() noexcept;
void setPortFd(int32_t nFd) noexcept;

// Closes the descriptor; g_AuxFd becomes -2. The tty's settings stay as they are.
void closePort() noexcept;

} // namespace qv
