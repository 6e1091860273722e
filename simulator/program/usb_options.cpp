// Options with their help, in a group of their own.
#include "program/usb_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>

namespace qvsim {

namespace {

constexpr char kGroup[] = "USB";
// What would be ignored is a mistake.
constexpr std::array kOnlyUsb{"--ids",         "--interfaces", "--altsettings",      "--endpoints", "--bulk",
                              "--report-size", "--interval",   "--no-kernel-driver", "--usb-set"};
constexpr std::array kNeverUsb{"--link", "--baud", "--terminal", "--aux-port", "--from-log"};

bool isThere(const CLI::App &app, const char *name)
{
    return app.get_option(name)->count() != 0;
}

} // namespace

void UsbOptions::addTo(CLI::App &app, Options &options)
{
    const auto add = [&app](const char *name, auto &value, const char *help) {
        return app.add_option(name, value, help)->group(kGroup)->capture_default_str();
    };
    app.add_flag("--usb", options.isUsb,
                 "The reader is a USB HID device, for libusb and hidapi in the command behind --; the simulator ends "
                 "with the command and with its exit code. Without a command: prints the environment for hosts")
        ->group(kGroup);
    add("--ids", ids_, "Vendor and product; several times: the same reader at several ports")
        ->type_name("VID:PID")
        ->allow_extra_args(false);
    add("--interfaces", device_.interfaces, "How many interfaces")->check(CLI::Range(0U, kMostUsbInterfaces));
    add("--altsettings", device_.altSettings, "Alternate settings of each interface")
        ->check(CLI::Range(1U, kMostAltSettings));
    add("--endpoints", endpoints_, "Of each interface: in,out or out,in or in or out or none or in,out,in")
        ->type_name("LIST")
        ->check([](const std::string &text) {
            return parseUsbEndpoints(text) ? std::string() : "there are no endpoints " + text;
        });
    app.add_flag("--bulk", device_.bulk, "Bulk transfers instead of interrupt transfers")->group(kGroup);
    add("--report-size", device_.reportSize, "Bytes of a report")->check(CLI::Range(1U, kLargestReport));
    add("--interval", device_.intervalMs, "Polling interval of the endpoints, in milliseconds")
        ->check(CLI::Range(1U, 255U));
    app.add_flag("--no-kernel-driver", noDriver_, "No driver on the interfaces, and so no hidraw nodes")->group(kGroup);
    add("--usb-set", options.usbSettings,
        "Misbehaviour from the start, as the control command usb takes it (\"claim busy\"); several times")
        ->type_name("SETTING")
        ->allow_extra_args(false);
}

void UsbOptions::finish(const CLI::App &app, Options &options) const
{
    for (const char *const name : kOnlyUsb)
        if (!options.isUsb && isThere(app, name))
            throw CLI::ValidationError(name, "means nothing without --usb");
    for (const char *const name : kNeverUsb)
        if (options.isUsb && isThere(app, name))
            throw CLI::ValidationError(name, "means nothing with --usb");
    for (const std::string &text : ids_) {
        const std::optional<UsbId> id = parseUsbId(text);
        if (!id)
            throw CLI::ValidationError("--ids", text + ": write VID:PID, four hexadecimal digits each");
        UsbDeviceOptions device = device_;
        device.id = *id;
        device.endpoints = *parseUsbEndpoints(endpoints_);
        device.kernelDriver = !noDriver_;
        options.usbDevices.push_back(std::move(device));
    }
}

int findUsbCommand(int argc, char **argv)
{
    char **const end = argv + argc;
    char **const usb = std::find(argv, end, std::string_view("--usb"));
    return static_cast<int>(std::find(usb, end, std::string_view("--")) - argv);
}

} // namespace qvsim
