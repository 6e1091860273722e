// stripe.h - the magnetic stripe: stripe read, stripe write.
#pragma once

#include "console.h"
#include "json.h"
#include "port.h"
#include "watch.h"

namespace qvtool {

// Texts that are to be written have been prepared.
void driveStripe(const Options &options, Console &console, Port &port, Watch &watch, Outcome &outcome);

} // namespace qvtool
