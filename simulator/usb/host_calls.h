// A host's calls on an opened node, decoded and carried out: usbfs's and hidraw's ioctls, reads and writes.
#pragma once

#include "usb/device.h"
#include "usb/preload_link.h"

namespace qvsim {

// Gets each call as a line; the lines are listed in emulation.h.
using CallRecord = std::function<void(std::string call)>;

// Both throw PreloadLinkLost.
PreloadAnswer answerUsbfs(UsbDevice &device, UsbSession &session, PreloadLink &host, const PreloadRequest &request,
                          const CallRecord &record);
PreloadAnswer answerHidraw(UsbDevice &device, HidrawSession &session, PreloadLink &host, const PreloadRequest &request,
                           const CallRecord &record);

} // namespace qvsim
