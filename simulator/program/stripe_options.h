// The part of the command line that is about the magnetic stripe head.
#pragma once

#include "program/options.h"

namespace CLI {
class App;
}

namespace qvsim {

void addStripeOptions(CLI::App &app, StripeOptions &options);

// Their names, for what they mean nothing to.
constexpr const char *kStripeOptions[] = {"--stripe", "--stripe-after", "--stripe-once", "--stripe-channel",
                                          "--stripe-final"};

} // namespace qvsim
