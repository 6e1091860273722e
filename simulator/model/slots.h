// Slot codes: 0..15 contact slots (0 is the user's), 16..31 PSAM slots, 255 the contactless antenna.
#pragma once

#include <cstdint>
#include <string>

namespace qvsim {

using SlotCode = std::uint8_t;

constexpr SlotCode kFirstPsamSlot = 16;
constexpr SlotCode kLastContactSlot = 31; // PSAM slots included
constexpr SlotCode kContactless = 255;

constexpr bool isContactSlot(SlotCode slot)
{
    return slot <= kLastContactSlot;
}

constexpr bool isSlot(SlotCode slot)
{
    return isContactSlot(slot) || slot == kContactless;
}

// As the trace calls it: "slot 0", "PSAM 1", "contactless card".
std::string slotName(SlotCode slot);

} // namespace qvsim
