// stripe_options.h - the command line of stripe read and stripe write.
#pragma once

#include "options.h"

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace qvtool {

void addStripeOptions(CLI::App &stripe, StripeOptions &options);

// What follows from options and port together; refuses what the stripe side does not do. Throws CLI::ValidationError.
void settleStripe(const CLI::App &app, Options &options);

// "HID", "USB", "1001" or "0", whole, in any letter case.
bool isStripeUsbName(const std::string &sPort);
// "COM3" in any letter case: 3.
std::optional<int> stripeComNumber(const std::string &sPort);

// The library's number of a recording format, by its name in any letter case.
std::optional<int> stripeFormatCode(const std::string &sName);
std::string stripeFormatName(int nCode);

} // namespace qvtool
