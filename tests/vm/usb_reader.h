// usb_reader.h - a reader with a USB plug: the simulator's reader model behind the kernel's virtual host controller.
//
// Plugged in by its constructor and pulled out by its destructor; both return when the kernel has noticed. It answers
// on the interface on which the command came, in reports of 64 bytes filled up with zeros. A thread of its own serves
// the bus.
#pragma once

#include "descriptors.h"
#include "model/line_faults.h"
#include "model/reader.h"
#include "system/unique_fd.h"
#include "virtual_bus.h"

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace qvvm {

// One OUT transfer as it came.
struct OutReport {
    unsigned interface;
    Bytes bytes;
};

class UsbReader {
  public:
    // Throws std::runtime_error when the kernel does not take it.
    explicit UsbReader(DeviceShape shape = {});
    ~UsbReader();
    UsbReader(const UsbReader &) = delete;
    UsbReader &operator=(const UsbReader &) = delete;

    // Pulls the plug, without waiting for anything.
    void unplug();

    // sFile: a card file. Throws std::runtime_error.
    void insert(qvsim::SlotCode slot, const std::string &sFile);
    void fault(std::string_view sWords);
    // OUT transfers since the last call.
    std::vector<OutReport> takeOutReports();
    // How often the kernel has configured the device: once when it is plugged in, once for each reset.
    unsigned configurations();
    qvsim::ReaderCounts counts();

    // "/sys/bus/usb/devices/1-1", the only port that this device is ever plugged into.
    static std::string sysfsPath();
    // Name of the kernel's driver of an interface: "usbhid", "usbfs", or nothing.
    static std::string driverOf(unsigned interface);
    // True while the interface has a node /dev/hidraw*.
    static bool hasHidraw(unsigned interface);

  private:
    struct Outgoing {
        Bytes bytes;
        qvsim::TimePoint due;
    };
    struct Pipe {
        std::deque<BusMessage> waiting; // IN transfers without data
        std::deque<Bytes> reports;      // data without a transfer
    };

    void serve();
    bool step(std::unique_lock<std::mutex> &lock);
    void handle(const BusMessage &message);
    void handleControl(const BusMessage &message);
    std::optional<Bytes> controlReply(const BusMessage &message);
    void giveUp(const BusMessage &unlink);
    void settle();
    void pump(Pipe &pipe);
    int pollTimeOut() const;
    bool isThere() const;
    void wake();

    const DeviceShape m_shape;
    VirtualBus m_bus;
    qvsim::UniqueFd m_wake;

    std::mutex m_mutex; // guards what follows
    bool m_bStop = false;
    qvsim::NoTrace m_trace;
    qvsim::Reader m_reader;
    qvsim::LineFaults m_faults;
    std::map<unsigned, Pipe> m_pipes; // by endpoint number
    std::deque<Outgoing> m_outgoing;
    unsigned m_nReplyEndpoint = 1;
    unsigned m_nConfigurations = 0;
    std::vector<OutReport> m_outReports;

    std::thread m_thread;
};

} // namespace qvvm
