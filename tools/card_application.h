// card_application.h - commands that work with an application of a card.
#pragma once

#include "json.h"
#include "options.h"
#include "port.h"
#include "session.h"

namespace qvtool {

// Opens the reader, runs the command, tells the outcome. The session is closed by its owner.
void driveSelect(const Options &options, Port &port, Session &session, Outcome &outcome);
void drivePurse(const Options &options, Port &port, Session &session, Outcome &outcome);

} // namespace qvtool
