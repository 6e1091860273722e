// How an emulated USB device misbehaves; switched while hosts use it. Every setting lasts until it is set back.
#pragma once

#include "model/bytes.h"

namespace qvsim {

struct UsbBehaviour {
    bool claimBusy = false;     // claiming an interface fails with EBUSY
    bool detachRefused = false; // detaching the kernel's driver fails with EPERM
    bool resetFails = false;    // with EIO
    bool unconfigured = false;  // the device has no active configuration
    bool cannotOpen = false;    // the USB node is not there

    enum class Out { taken, stuck, stalled };
    Out out = Out::taken;    // stuck: never complete; they are taken when this ends
    std::size_t outMost = 0; // bytes that an OUT transfer moves at most; 0: all of them
    enum class In { sent, stalled, overflows };
    In in = In::sent;
    std::size_t inMost = 0;        // replies go in reports of at most so many bytes, not padded; 0: in whole ones
    bool emptyReportFirst = false; // a report of no bytes goes before each reply
};

// "claim busy", "in short 20", "in ok". Returns what is wrong; nothing has then changed.
std::optional<std::string> setUsbBehaviour(UsbBehaviour &behaviour, std::string_view words);

// Every setting there is, a line each; what is set is marked.
std::vector<std::string> describeUsbBehaviour(const UsbBehaviour &behaviour);

} // namespace qvsim
