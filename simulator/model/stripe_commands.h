// What the trace says of the stripe head's framed commands; their bytes are described in stripe_commands.cpp.
#pragma once

#include "model/bytes.h"

namespace qvsim {

constexpr std::uint8_t kStripeGroup = 0x20;

std::string separatorText(BytesView data);
std::string readAllText(BytesView data);
std::string writeAllText(BytesView data);
std::string readTimeText(BytesView data);

} // namespace qvsim
