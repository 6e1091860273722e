// sim_reader.h - the simulated reader on USB, in this process: what the host sends reaches it before the host's call
// returns, and its replies are then waiting.
#pragma once

#include "model/reader.h"
#include "usb/emulation.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

class SimReader {
  public:
    // One reader that is plugged in at as many ports as there are devices.
    explicit SimReader(std::vector<qvsim::UsbDeviceOptions> devices);
    ~SimReader();
    SimReader(const SimReader &) = delete;
    SimReader &operator=(const SimReader &) = delete;

    // A card of simulator/cards: "debit-credit".
    void insert(qvsim::SlotCode slot, std::string_view sCard);
    // A field of the device record.
    void setDevice(std::string_view sField, std::string_view sValue);
    // A magnetic card of simulator/cards: every read or write of the head gets a swipe of it.
    void offerStripe(std::string_view sCard);
    // The text that track 1, 2 or 3 of it holds now.
    std::string stripeTrack(size_t nTrack);
    // What follows "slot N ": "powered ...".
    std::string slot(qvsim::SlotCode slot);
    // Pulled out and put in again: the cards have no power then.
    void replug();

    qvsim::UsbEmulation &usb() { return *m_usb; }

  private:
    void take(const qvsim::UsbReceived &received);

    std::mutex m_guard; // of what follows
    qvsim::NoTrace m_trace;
    qvsim::Reader m_reader;
    qvsim::UsbEmulation *m_line = nullptr; // null: not yet plugged in

    std::unique_ptr<qvsim::UsbEmulation> m_usb;
};

} // namespace qvtest
