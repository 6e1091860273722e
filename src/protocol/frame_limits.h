// frame_limits.h - what a frame may hold.
#pragma once

#include <cstddef>

namespace qv {

inline constexpr size_t nFrameSize = 1024;  // of a command frame, or of a raw command, in bytes
inline constexpr size_t nFrameOverhead = 8; // markers, length and LRC of a command frame
inline constexpr size_t nDataMax = (nFrameSize - nFrameOverhead) / 2;
inline constexpr size_t nReplySize = 4096;                  // of what one read takes in
inline constexpr size_t nReplyTextMax = 1024;               // characters between the markers of a reply
inline constexpr size_t nReplyBytesMax = nReplyTextMax / 2; // the same, decoded

static_assert(nDataMax == 508);

} // namespace qv
