// Emulated USB devices for hosts that run under umockdev's preload library: real libusb and real hidapi find them, open
// them and talk to them. Needs neither hardware nor rights, and no library of umockdev itself.
//
//   host process                                          this process
//   libusb, hidapi -> libc calls -> preload library  -->  unix sockets of the tree -> one thread -> UsbDevice
//
// A host is either a child process with UMOCKDEV_DIR and LD_PRELOAD set (see launch.h), or this very process: then its
// executable is linked with -Wl,--no-as-needed -lumockdev-preload -Wl,--as-needed, and UsbHost::thisProcess is given.
// Calls of calls(), in the order in which they came (what is asked for again and again without effect, such as looking
// for finished transfers, is left out):
//
//   OPEN, CLOSE                         of the USB node
//   RESET                               CLAIM i, RELEASE i             GETDRIVER i, DISCONNECT i, CONNECT i
//   SETINTERFACE i a                    CLEARHALT ee                   CONTROL hh hh hh hh hh hh hh hh
//   INTERRUPT OUT ee n, INTERRUPT IN ee n, BULK OUT ee n, BULK IN ee n: a transfer of n bytes is submitted
//   DISCARD                             a transfer is taken back, as after a time-out
//   HIDRAW OPEN i, HIDRAW CLOSE i, HIDRAW WRITE i n, HIDRAW READ i n
//
// i is an interface, a an alternate setting, ee an endpoint address (hexadecimal), n a number of bytes.
#pragma once

#include "usb/host_calls.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace qvsim {

struct UsbReceived {
    std::size_t device; // by its place in the list given at the start
    unsigned interface;
    Bytes bytes; // of one transfer or one hidraw report, padding included
};

enum class UsbHost { children, thisProcess };

// All functions may be called from any thread.
class UsbEmulation {
  public:
    // Gets what hosts send, on the emulation's thread, before the host's call returns; of transfers that were stuck, on
    // the thread that calls setBehaviour(), before that returns. May call any function here.
    using Receiver = std::function<void(const UsbReceived &received)>;

    // All devices are plugged in. Throws std::runtime_error.
    explicit UsbEmulation(std::vector<UsbDeviceOptions> devices, UsbHost host = UsbHost::thisProcess,
                          Receiver receiver = {});
    ~UsbEmulation();
    UsbEmulation(const UsbEmulation &) = delete;
    UsbEmulation &operator=(const UsbEmulation &) = delete;

    // What UMOCKDEV_DIR has to be for a host.
    const std::string &directory() const { return tree_.path(); }

    // ---- what the device does
    // One report as it is, of any length; in packets where it is longer than the endpoint takes.
    void sendReport(Bytes report, unsigned interface = 0, std::size_t device = 0);
    // Bytes in as many reports as they need, the last one filled up with zeros.
    void reply(BytesView bytes, unsigned interface = 0, std::size_t device = 0);
    // A script: each thing received, on whatever interface, is answered there with the next one of these replies.
    void answerWith(std::vector<Bytes> replies);
    std::size_t unusedAnswers() const;
    void unplug(std::size_t device = 0);
    // Nothing happens when it is plugged in. A device comes back with a new address, its misbehaviour and a driver.
    void plug(std::size_t device = 0);
    bool isPlugged(std::size_t device = 0) const;
    void setBehaviour(const UsbBehaviour &behaviour, std::size_t device = 0);
    UsbBehaviour behaviour(std::size_t device = 0) const;

    // ---- what hosts did: the last 100,000 of each
    std::vector<std::string> calls(std::size_t device = 0) const;
    std::vector<UsbReceived> received() const;
    void forgetCalls(); // and what was received, and unused answers
    // How many nodes hosts have open. A host's close is noticed a moment later: waitClosed() waits, ten seconds at most.
    std::size_t openNodes() const;
    bool waitClosed() const;

  private:
    struct Place {
        UsbDeviceOptions options;
        UsbBehaviour behaviour;
        std::shared_ptr<UsbDevice> device; // null: unplugged
        std::deque<std::string> calls;
    };
    struct Connection {
        PreloadLink host;
        std::size_t place = 0;
        std::shared_ptr<UsbDevice> device; // null: a file that is none of ours
        std::shared_ptr<UsbSession> usb;
        std::shared_ptr<HidrawSession> hidraw;
    };
    struct Listener {
        int fd;
        std::size_t place;
        std::shared_ptr<UsbDevice> device;
        std::optional<unsigned> hidraw;
    };

    void plugLocked(std::size_t place);
    std::vector<Listener> listeners() const;
    void serve();
    bool serveRound();
    void accept(const Listener &listener);
    void drop(Connection &connection);
    bool answer(Connection &connection, std::unique_lock<std::mutex> &lock);
    void handReceived(std::unique_lock<std::mutex> &lock);
    void record(std::size_t place, std::string call);

    mutable std::mutex mutex_; // guards what follows, the tree and the devices
    mutable std::condition_variable closed_;
    DeviceTree tree_;
    UsbHost host_;
    Receiver receiver_;
    std::vector<Place> places_;
    unsigned nextAddress_ = 2; // 1 is the root hub's
    std::deque<Bytes> answers_;
    std::deque<UsbReceived> received_;
    std::vector<UsbReceived> toHand_; // to the receiver, before the host's call returns
    bool stopping_ = false;

    UniqueFd wake_;      // eventfd: the list of nodes has changed, or the thread has to end
    UniqueFd strangers_; // calls on files that are none of ours come here
    std::list<Connection> connections_;
    std::thread thread_;
};

} // namespace qvsim
