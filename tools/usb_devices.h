// usb_devices.h - the readers on USB as the kernel shows them below /sys, and what stands in the way of opening one.
#pragma once

#include "options.h"

#include <optional>
#include <string>
#include <vector>

namespace qvtool {

constexpr char szHeldByProgram[] = "usbfs"; // what the kernel calls the driver of an interface that a program holds

// The two sides of the reader try identities of their own in an order of their own.
enum class UsbSide { ic, stripe, any };

struct UsbInterface {
    int nNumber = 0;
    std::string sDriver;              // empty: none
    std::vector<std::string> hidraws; // "/dev/hidraw0"
};

struct UsbDevice {
    UsbId id{};
    int nTrial = 0; // in which place that side tries this identity, counted from 1
    int nBus = 0;
    int nDevice = 0;
    std::string sPlace;   // "1-2": bus and plug
    std::string sProduct; // as it calls itself; may be empty
    std::string sNode;    // "/dev/bus/usb/001/005"
    std::vector<UsbInterface> interfaces;

    std::string idText() const;
    // The one that the library claims; null: the device has none.
    const UsbInterface *readerInterface() const;
};

// Those with an identity that this side knows, or with only this one, in the order in which the library tries them.
std::vector<UsbDevice> usbReaders(const std::optional<UsbId> &only, UsbSide side);

// "0403:BCD5, 0403:BCD7": what usbReaders() looks for.
std::string usbIdentitiesText(const std::optional<UsbId> &only, UsbSide side);

bool sideKnows(UsbSide side, UsbId id);

// The udev rule that lets users open the readers: where it lies (empty: nowhere), and whether it names this device.
struct UdevRule {
    std::string sFile;
    bool bNamesDevice = false;
};
UdevRule udevRule(UsbId id);
// What to do about a missing permission.
std::string permissionAdvice(UsbId id);

// Why a node of the device cannot be opened, and what to do about it; both empty: it can. sWhich: what to call it.
struct NodeTrouble {
    std::string sText;
    std::string sAdvice;
};
NodeTrouble nodeTrouble(const std::string &sNode, const std::string &sWhich, UsbId id);

// Why the library cannot open the device; empty: nothing is to be seen. bFailed: it has tried already.
struct UsbTrouble {
    std::string sText;
    bool bBusy = false; // a program is at work on it
};
UsbTrouble usbTrouble(const UsbDevice &device, bool bFailed);
// "no reader is on USB (looked for ...)".
std::string noReaderText(const std::optional<UsbId> &only, UsbSide side);

} // namespace qvtool
