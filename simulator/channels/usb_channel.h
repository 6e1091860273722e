// USB: the host finds the reader as an emulated HID device. Replies go to the interface from which the last command
// came; what the host sends comes in reports that are filled up with zeros.
#pragma once

#include "channels/channel.h"
#include "model/trace.h"
#include "system/event_loop.h"
#include "usb/emulation.h"

namespace qvsim {

class UsbChannel final : public Channel {
  public:
    // Every device is the same reader at another port. Throws std::runtime_error.
    UsbChannel(EventLoop &loop, const std::vector<UsbDeviceOptions> &devices, Receiver receiver, Trace &trace);
    ~UsbChannel() override;

    std::string place() const override;
    void send(BytesView bytes, unsigned baud) override;

    // For the hosts' environment.
    const std::string &directory() const { return usb_->directory(); }
    // "claim busy", "in short 20", "report 02 30 03"; see behaviour.h. Returns what is wrong.
    std::optional<std::string> set(std::string_view words);
    std::vector<std::string> describe() const;
    // Return what is wrong.
    std::optional<std::string> unplug();
    std::optional<std::string> plug();

  private:
    void take();

    EventLoop &loop_;
    Receiver receiver_;
    Trace &trace_;
    std::vector<UsbDeviceOptions> devices_;
    UniqueFd arrived_; // eventfd: waiting_ has something
    std::size_t lastDevice_ = 0;
    unsigned lastInterface_ = 0;

    std::mutex mutex_; // guards what follows
    std::vector<UsbReceived> waiting_;

    std::unique_ptr<UsbEmulation> usb_;
};

} // namespace qvsim
