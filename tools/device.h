// device.h - the commands that need a reader but no card: present, info, detect, led, beep, reset.
#pragma once

#include "json.h"
#include "session.h"

namespace qvtool {

void driveDevice(const Options &options, Port &port, Watch &watch, Session &session, Outcome &outcome);

} // namespace qvtool
