// last_read.h - what the last read brought, for layers that must tell a reply without body from silence.
#pragma once

#include <cstdint>

namespace qv {

// Bytes of the last read of COMM_Rdz_ReadDataFromReader, markers included, or its negative code; 0: a channel that
// reports silence so.
int32_t lastReadBytes() noexcept;

} // namespace qv
