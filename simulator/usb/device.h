// One USB device from plugging in to unplugging: who holds its interfaces, and the transfers between hosts and it.
// Knows nothing of sockets and ioctl numbers; its nodes it only signals. Not thread-safe.
//
// Everything of a host is kept per session, one for each time that a node was opened.
#pragma once

#include "usb/behaviour.h"
#include "usb/descriptors.h"
#include "usb/device_node.h"
#include "usb/device_tree.h"

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>

namespace qvsim {

// What a host gave the kernel to carry out, and what came of it.
struct UsbTransfer {
    unsigned long record = 0; // the host's address of it, which names it
    unsigned long buffer = 0; // the host's address of the bytes
    bool isControl = false;
    std::uint8_t type = kTransferInterrupt;
    std::uint8_t endpoint = 0;
    std::size_t length = 0; // how many bytes are to be moved
    Bytes bytes;            // to the device; from the device: what has come so far
    int status = 0;         // 0 or a negative errno
    std::size_t moved = 0;
};

struct UsbSession {
    std::list<UsbTransfer> pending;
    std::deque<UsbTransfer> finished;
    std::set<unsigned> claimed;
    std::size_t readAt = 0; // of the descriptors, which the node gives to whoever reads it
};

struct HidrawSession {
    unsigned interface = 0;
    std::shared_ptr<DeviceNode> node;
    std::deque<Bytes> reports;
    bool gone = false; // the driver left the interface, or the device was unplugged
};

class UsbDevice {
  public:
    // The device got bytes: what one transfer moved, padding included.
    using Receiver = std::function<void(unsigned interface, BytesView bytes)>;

    UsbDevice(DeviceTree &tree, unsigned port, unsigned address, const UsbDeviceOptions &options, Receiver receiver);
    ~UsbDevice();
    UsbDevice(const UsbDevice &) = delete;
    UsbDevice &operator=(const UsbDevice &) = delete;

    // ---- the device's side
    void unplug();
    bool isGone() const { return gone_; }
    void setBehaviour(const UsbBehaviour &behaviour);
    // A report of any length from the device, as it is.
    void send(unsigned interface, Bytes report);
    // Bytes from the device, in as many reports as they need, the last one filled up with zeros.
    void reply(unsigned interface, BytesView bytes);

    // ---- the nodes
    DeviceNode &usbNode() { return *usbNode_; }
    struct Hidraw {
        unsigned number;
        std::shared_ptr<DeviceNode> node;
    };
    const std::map<unsigned, Hidraw> &hidrawNodes() const { return hidraws_; }
    std::shared_ptr<UsbSession> openUsb();
    std::shared_ptr<HidrawSession> openHidraw(unsigned interface);
    void close(const std::shared_ptr<UsbSession> &session);
    void close(const std::shared_ptr<HidrawSession> &session);

    // ---- what a host asks for; results are 0 or an errno
    std::string driverOf(unsigned interface) const; // "usbhid", "usbfs", or empty
    int claim(UsbSession &session, unsigned interface);
    int release(UsbSession &session, unsigned interface);
    int detachDriver(unsigned interface);
    int attachDriver(unsigned interface);
    int setAltSetting(UsbSession &session, unsigned interface, unsigned altSetting);
    int clearHalt(UsbSession &session, std::uint8_t endpoint);
    int reset();
    int submit(UsbSession &session, UsbTransfer transfer);
    int discard(UsbSession &session, unsigned long record);
    std::optional<UsbTransfer> reap(UsbSession &session);
    // One output report without its number, as hidraw passes it on.
    int writeHidraw(HidrawSession &session, BytesView report, std::size_t &moved);
    // Nothing when there is none.
    std::optional<Bytes> readHidraw(HidrawSession &session);

    const UsbDeviceOptions &options() const { return options_; }
    Bytes descriptors() const;

  private:
    bool hasInterface(unsigned interface) const;
    UsbSession *holderOf(unsigned interface) const;
    const UsbEndpoint *findEndpoint(std::uint8_t address) const;
    const UsbEndpoint *endpointOf(unsigned interface, bool in) const;
    int checkAccess(UsbSession &session, unsigned interface);
    void runControl(UsbTransfer &transfer);
    int take(unsigned interface, BytesView bytes, std::size_t &moved);
    void passOn(unsigned interface);
    void runIn(const UsbEndpoint &endpoint, UsbSession &session);
    // True when it is finished.
    bool runOut(const UsbEndpoint &endpoint, UsbTransfer &transfer);
    void runStuck();
    void finishAll(UsbSession &session, int status);
    void dropHidraw(unsigned interface);
    void addHidraw(unsigned interface);
    void signalNodes();

    DeviceTree &tree_;
    unsigned port_;
    UsbDeviceOptions options_;
    Receiver receiver_;
    UsbBehaviour behaviour_;
    std::vector<unsigned> interfaces_;
    std::vector<UsbEndpoint> endpoints_;
    std::map<unsigned, unsigned> altSettings_;      // by interface
    std::set<unsigned> driven_;                     // interfaces that the kernel's driver holds
    std::map<unsigned, std::deque<Bytes>> reports_; // by interface: what nobody has taken yet
    std::unique_ptr<DeviceNode> usbNode_;
    std::map<unsigned, Hidraw> hidraws_; // by interface
    std::vector<std::shared_ptr<UsbSession>> sessions_;
    std::vector<std::shared_ptr<HidrawSession>> hidrawSessions_;
    bool gone_ = false;
};

} // namespace qvsim
