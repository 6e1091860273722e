// The status words that the simulated reader answers with: a row each, README.md shows the same table.
#pragma once

#include "model/slots.h"

#include <cstdint>

namespace qvsim {

enum class Outcome {
    done,
    noSuchSlot,
    notPowered,
    mute,
    noCard,
    stoppedAnswering,
    answerTooLong,
    noCommand,
    unknownCommand,
    wrongCommandLength,
    noSuchKind,
    stripeNoData,
    stripeReadFault,
    stripeWriteFault,
};

// Contact and PSAM slots answer with other words than the antenna.
std::uint16_t statusWord(Outcome outcome, SlotCode slot);
const char *outcomeText(Outcome outcome);

} // namespace qvsim
