// Options with their help, in a group of their own.
#include "program/stripe_options.h"

#include <CLI/CLI.hpp>

namespace qvsim {

namespace {

constexpr char kGroup[] = "Magnetic stripe";
constexpr unsigned kMostDelayMs = 600'000;

} // namespace

void addStripeOptions(CLI::App &app, StripeOptions &options)
{
    app.add_option("--stripe", options.file,
                   "The magnetic card at hand: every read or write of the stripe head gets a swipe of it")
        ->group(kGroup)
        ->type_name("FILE")
        ->check([](const std::string &text) { return text.empty() ? "a file name is missing" : std::string(); });
    app.add_option("--stripe-after", options.afterMs, "It is swiped so long after the head began to wait")
        ->group(kGroup)
        ->type_name("MS")
        ->capture_default_str()
        ->check(CLI::Range(0U, kMostDelayMs));
    app.add_flag("--stripe-once", options.once, "It is swiped once and then never again")->group(kGroup);
    app.add_option("--stripe-channel", options.channel,
                   "The switch box's port at which the head hangs: A, B, C or K; while another one is selected it is "
                   "silent")
        ->group(kGroup)
        ->type_name("X")
        ->capture_default_str()
        ->check(CLI::IsMember({"A", "B", "C", "K"}));
    app.add_flag("--stripe-final", options.finalSeparator,
                 "A read of all tracks ends in a separator, too, instead of only standing between the tracks")
        ->group(kGroup);
}

} // namespace qvsim
