// reader_state.h - what the files of this room share.
#pragma once

#include "qvreader/icreader.h"

#include <cstddef>

namespace qv {

inline constexpr uint32_t nTypeSerial = 1;
inline constexpr uint32_t nTypePcsc = 2;
inline constexpr int32_t nSlotUser = 0;
inline constexpr int32_t nSlotAntenna = 255;

// Result of every call that talks to a reader which this library does not drive, and of a PC/SC name.
inline constexpr int32_t nUnsupported = -50;
inline constexpr int32_t nPortNotOpened = -51;

// Card frames.
inline constexpr uint8_t ucCardHead = 0x02;
inline constexpr uint8_t ucCardEnd = 0x03;

inline constexpr size_t nReplySize = 1024; // of most replies' buffers

inline bool isOtherReader() noexcept
{
    return stCardReader.nReaderMode != 0;
}

// One command in a card frame and the body of its reply.
inline int32_t exchangeCardFrame(const uint8_t *pSend, uint32_t nLen, uint8_t *pReply, size_t nSize) noexcept
{
    return COMM_Rdz_SendAndReciveData(1, ucCardHead, ucCardEnd, pSend, nLen, pReply, static_cast<uint32_t>(nSize));
}

// The reader's answer where a reply brought no body: minus its status word.
inline int32_t minusStatus() noexcept
{
    return static_cast<int32_t>(0U - COMM_Rdz_GetRecStatus());
}

} // namespace qv
