// The folder that stands for /sys and /dev of a host under umockdev's preload library: what libusb, libudev and hidapi
// read to find a device. Removed with everything in it at the end.
//
//   sys/devices/pci0000:00/1-2                     a USB device at port 2
//   sys/devices/pci0000:00/1-2/1-2:1.0             its interface 0
//   sys/devices/.../1-2:1.0/0003:2B46:BE11.0001/hidraw/hidraw0
//   sys/bus/usb/devices, sys/class/hidraw          links to them
//   dev, ioctl/dev                                 DeviceNode's files and sockets
#pragma once

#include "usb/descriptors.h"

#include <set>

namespace qvsim {

class DeviceTree {
  public:
    // Makes an empty tree below TMPDIR or, where its name would be too long for a socket, below /tmp. Throws
    // std::runtime_error.
    DeviceTree();
    ~DeviceTree();
    DeviceTree(const DeviceTree &) = delete;
    DeviceTree &operator=(const DeviceTree &) = delete;

    const std::string &path() const { return path_; }

    static std::string usbNodeName(unsigned address);   // "bus/usb/001/002"
    static std::string hidrawNodeName(unsigned number); // "hidraw0"

    // `port` names the place, `address` the device node.
    void addDevice(unsigned port, unsigned address, const UsbDeviceOptions &options);
    void removeDevice(unsigned port);
    void setConfigured(unsigned port, bool configured);
    // Returns the number of the hidraw node: the lowest free one.
    unsigned addHidraw(unsigned port, unsigned interface, const UsbDeviceOptions &options);
    void removeHidraw(unsigned port, unsigned interface, unsigned number);

  private:
    std::string devicePath(unsigned port) const;
    std::string interfacePath(unsigned port, unsigned interface) const;
    void write(const std::string &file, std::string_view text) const;
    void writeBytes(const std::string &file, BytesView bytes) const;

    std::string path_;
    std::set<unsigned> hidraws_; // numbers in use
};

} // namespace qvsim
