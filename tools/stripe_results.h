// stripe_results.h - what the result of a stripe call means for the user.
#pragma once

#include "options.h"
#include "port.h"
#include "session.h"
#include "stripe_conversation.h"
#include "watch.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qvtool {

struct StripeRun {
    const Options &options;
    const Port &port;
    const Watch &watch;
    const StripeConversation &talk;
    bool bWrite;
    int nTracks; // 1, 2, 3, 12, 23, 123
};

// None: the card was read or written. nStatus: of the reader's last frame.
std::optional<Failure> stripeFailure(const StripeRun &run, int32_t nResult, uint32_t nStatus);

// A TY code's message as a host gets it, in UTF-8; empty: the code has none, or it cannot be told here.
std::string tyMessage(int32_t nCode);

} // namespace qvtool
