// Names of slots.
#include "model/slots.h"

namespace qvsim {

std::string slotName(SlotCode slot)
{
    if (slot == kContactless)
        return "contactless card";
    if (slot > kLastContactSlot)
        return "slot " + std::to_string(slot) + " (no such slot)";
    if (slot >= kFirstPsamSlot)
        return "PSAM " + std::to_string(slot - kFirstPsamSlot);
    return "slot " + std::to_string(slot);
}

} // namespace qvsim
