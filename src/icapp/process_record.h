// process_record.h - writes the fields of the kernel's process record.
#pragma once

#include "qvreader/emv_kernel.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>

namespace qv {

inline constexpr uint8_t ucAllSteps = '1'; // EMV_PROC_MODE where card data are read

// The record is the kernel's bytes; no structure is laid over it.
template <typename T> void setField(size_t nOffset, T value) noexcept
{
    std::memcpy(g_stProc + nOffset, &value, sizeof value);
}

inline void setDataBuffer() noexcept
{
    setField(EMV_PROC_BUFFER, static_cast<void *>(g_szEmvbuf));
    setField<uint32_t>(EMV_PROC_BUFFER_SIZE, sizeof g_szEmvbuf);
}

// A record for a new selection: everything else 0, the data buffer cleared.
inline void beginRecord(int32_t nKind, char cCardType) noexcept
{
    std::fill(std::begin(g_stProc), std::end(g_stProc), uint8_t{0});
    std::fill(std::begin(g_szEmvbuf), std::end(g_szEmvbuf), uint8_t{0});
    setDataBuffer();
    setField(EMV_PROC_CARD_TYPE, cCardType);
    setField(EMV_PROC_KIND, nKind);
}

// The record of a selection that goes on: what the kernel keeps in it stays.
inline void continueRecord(int32_t nKind) noexcept
{
    setField(EMV_PROC_KIND, nKind);
    setField(EMV_PROC_DETAIL, uint8_t{0});
    void *pBuffer = nullptr;
    std::memcpy(&pBuffer, g_stProc + EMV_PROC_BUFFER, sizeof pBuffer);
    if (pBuffer == nullptr)
        setDataBuffer();
}

} // namespace qv
