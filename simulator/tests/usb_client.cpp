// A small host, for tests that need one in a process of its own:
//
//   usb_client libusb|bulk|hidapi VID:PID INTERFACE STEP...
//
//   HEX          a command's data: sent in a frame and in whole reports; prints the data of the reply, or "silence"
//   peripheral:HEX   the same in a peripheral frame
//   bare:HEX     sent without a frame; prints the bare reply, up to 1C, "p" or "q"
//   tell:HEX     sent without a frame, no reply is read
//   hurry        waits only a short time for reports from now on
//   reset        USB reset (libusb)
//   reopen       closes and opens again
//   stop         prints "stopped" and waits for a line on standard input
//
// Ends with 2 when the device cannot be opened, with 3 when its interface cannot be claimed.
#include "usb_hosts.h"

#include <cstdio>
#include <iostream>
#include <memory>

namespace {

using namespace qvsim;
using namespace qvsim::test;

unsigned g_patienceMs = kLongMs; // for one report

class Host {
  public:
    virtual ~Host() = default;
    virtual int write(BytesView report) = 0; // bytes, or negative
    virtual int read(Bytes &report) = 0;     // bytes, 0 for none, negative when the device has gone
    virtual std::size_t reportSize() const = 0;
    virtual void reset() {}
};

class OverLibusb final : public Host {
  public:
    OverLibusb(UsbId id, int interface, bool bulk)
        : host_(id), bulk_(bulk), out_(static_cast<std::uint8_t>(1 + interface)),
          in_(static_cast<std::uint8_t>(0x81 + interface))
    {
        if (!host_.isOpen())
            std::exit(2);
        const int claimed = host_.claim(interface);
        if (claimed != 0) {
            std::cout << ::libusb_error_name(claimed) << std::endl;
            std::exit(3);
        }
        size_ = static_cast<std::size_t>(::libusb_get_max_packet_size(::libusb_get_device(host_.handle()), in_));
    }
    int write(BytesView report) override { return host_.write(out_, report, g_patienceMs, bulk_); }
    int read(Bytes &report) override
    {
        const int count = host_.read(in_, reportSize(), report, g_patienceMs, bulk_);
        return count == LIBUSB_ERROR_TIMEOUT ? 0 : count;
    }
    std::size_t reportSize() const override { return size_; }
    void reset() override { ::libusb_reset_device(host_.handle()); }

  private:
    LibusbHost host_;
    bool bulk_;
    std::uint8_t out_, in_;
    std::size_t size_ = 0;
};

class OverHidapi final : public Host {
  public:
    explicit OverHidapi(UsbId id) : host_(id)
    {
        if (!host_.isOpen())
            std::exit(2);
    }
    int write(BytesView report) override { return host_.write(report); }
    int read(Bytes &report) override { return host_.read(report, static_cast<int>(g_patienceMs)); }
    std::size_t reportSize() const override { return 64; }

  private:
    HidapiHost host_;
};

// In whole reports, the last one filled up with zeros.
bool send(Host &host, Bytes bytes)
{
    const std::size_t size = host.reportSize();
    bytes.resize((bytes.size() + size - 1) / size * size);
    for (std::size_t at = 0; at < bytes.size(); at += size)
        if (host.write(BytesView(bytes).subspan(at, size)) < 0)
            return false;
    return true;
}

// Up to one of the ends. Returns what came instead, or nothing.
std::string receive(Host &host, Bytes &reply, std::string_view ends)
{
    Bytes report;
    for (;;) {
        const int count = host.read(report);
        if (count < 0)
            return "gone";
        if (count == 0)
            return "silence";
        while (!report.empty() && report.back() == 0)
            report.pop_back();
        reply.insert(reply.end(), report.begin(), report.end());
        if (!reply.empty() && ends.find(static_cast<char>(reply.back())) != std::string_view::npos)
            return "";
    }
}

std::string askBare(Host &host, const Bytes &data)
{
    if (!send(host, data))
        return "not sent";
    Bytes reply;
    const std::string trouble = receive(host, reply,
                                        "\x1C"
                                        "pq");
    return trouble.empty() ? toHex(reply) : trouble;
}

std::string ask(Host &host, const Bytes &data, FrameKind kind = FrameKind::card)
{
    if (!send(host, encodeFrame(kind, data)))
        return "not sent";
    Bytes reply;
    const char end = static_cast<char>(marksOf(kind).end);
    if (const std::string trouble = receive(host, reply, {&end, 1}); !trouble.empty())
        return trouble;
    const DecodedFrame decoded = decodeFrame(BytesView(reply).subspan(1, reply.size() - 2));
    return decoded.fault == FrameFault::none ? toHex(decoded.data) : faultText(decoded.fault);
}

// "bare:1B72" and the like. False when it is no such step.
bool runPrefixed(Host &host, const std::string &step)
{
    const std::size_t colon = step.find(':');
    const std::optional<Bytes> data =
        colon == std::string::npos ? std::nullopt : fromHex(std::string_view(step).substr(colon + 1));
    const std::string way = step.substr(0, colon);
    if (!data)
        return false;
    if (way == "bare")
        std::cout << askBare(host, *data) << std::endl;
    else if (way == "peripheral")
        std::cout << ask(host, *data, FrameKind::peripheral) << std::endl;
    else if (way == "tell")
        return send(host, *data);
    else
        return false;
    return true;
}

std::unique_ptr<Host> open(const std::string &way, UsbId id, int interface)
{
    if (way == "hidapi")
        return std::make_unique<OverHidapi>(id);
    return std::make_unique<OverLibusb>(id, interface, way == "bulk");
}

} // namespace

int main(int argc, char **argv)
{
    const std::optional<UsbId> id = argc < 4 ? std::nullopt : parseUsbId(argv[2]);
    if (!id)
        return 1;
    const int interface = std::stoi(argv[3]);
    std::unique_ptr<Host> host = open(argv[1], *id, interface);
    for (int i = 4; i < argc; ++i) {
        const std::string step = argv[i];
        if (step == "hurry") {
            g_patienceMs = kShortMs;
        } else if (step == "reset") {
            host->reset();
        } else if (step == "reopen") {
            host.reset();
            host = open(argv[1], *id, interface);
        } else if (step == "stop") {
            std::cout << "stopped" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        } else if (const std::optional<Bytes> data = fromHex(step)) {
            std::cout << ask(*host, *data) << std::endl;
        } else if (!runPrefixed(*host, step)) {
            return 1;
        }
    }
    return 0;
}
