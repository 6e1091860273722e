// From the emulation's thread to the event loop, and back.
#include "channels/usb_channel.h"

#include "system/io.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::string_view kReport = "report ";

// Zeros behind the last byte are a report's padding; between frames they mean nothing.
BytesView withoutPadding(BytesView bytes)
{
    while (!bytes.empty() && bytes.back() == 0)
        bytes = bytes.first(bytes.size() - 1);
    return bytes;
}

} // namespace

UsbChannel::UsbChannel(EventLoop &loop, const std::vector<UsbDeviceOptions> &devices, Receiver receiver, Trace &trace)
    : loop_(loop), receiver_(std::move(receiver)), trace_(trace), devices_(devices),
      arrived_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!arrived_) {
        const int error = errno;
        throw std::runtime_error(errorText("eventfd", error));
    }
    usb_ = std::make_unique<UsbEmulation>(devices_, UsbHost::children, [this](const UsbReceived &received) {
        {
            const std::lock_guard lock(mutex_);
            waiting_.push_back(received);
        }
        const std::uint64_t one = 1;
        int error = 0;
        writeSome(arrived_.get(), BytesView(reinterpret_cast<const std::uint8_t *>(&one), sizeof one), error);
    });
    loop_.watch(arrived_.get(), POLLIN, [this](short) { take(); });
}

UsbChannel::~UsbChannel()
{
    usb_.reset();
    loop_.forget(arrived_.get());
}

std::string UsbChannel::place() const
{
    std::string text = "usb";
    for (std::size_t i = 0; i < devices_.size(); ++i)
        text += " " + usbIdText(devices_[i].id) + (usb_->isPlugged(i) ? "" : " (unplugged)");
    return text;
}

void UsbChannel::take()
{
    std::array<std::uint8_t, sizeof(std::uint64_t)> count{};
    readSome(arrived_.get(), count);
    std::vector<UsbReceived> received;
    {
        const std::lock_guard lock(mutex_);
        received = std::exchange(waiting_, {});
    }
    for (const UsbReceived &report : received) {
        lastDevice_ = report.device;
        lastInterface_ = report.interface;
        const BytesView bytes = withoutPadding(report.bytes);
        if (!bytes.empty())
            receiver_(bytes, std::nullopt);
    }
}

void UsbChannel::send(BytesView bytes, unsigned)
{
    if (!usb_->isPlugged(lastDevice_) && trace_.wanted())
        trace_.line("     reply lost: the reader is unplugged");
    usb_->reply(bytes, lastInterface_, lastDevice_);
}

std::optional<std::string> UsbChannel::set(std::string_view words)
{
    if (words.starts_with(kReport)) {
        std::optional<Bytes> report = fromHex(words.substr(kReport.size()));
        if (!report)
            return "usb report takes bytes in hexadecimal";
        usb_->sendReport(std::move(*report), lastInterface_, lastDevice_);
        return std::nullopt;
    }
    for (std::size_t i = 0; i < devices_.size(); ++i) {
        UsbBehaviour behaviour = usb_->behaviour(i);
        if (std::optional<std::string> wrong = setUsbBehaviour(behaviour, words))
            return wrong;
        usb_->setBehaviour(behaviour, i);
    }
    return std::nullopt;
}

std::vector<std::string> UsbChannel::describe() const
{
    return describeUsbBehaviour(usb_->behaviour(0));
}

std::optional<std::string> UsbChannel::unplug()
{
    if (!usb_->isPlugged(0))
        return "it is unplugged";
    for (std::size_t i = 0; i < devices_.size(); ++i)
        usb_->unplug(i);
    if (trace_.wanted())
        trace_.line("     unplugged");
    return std::nullopt;
}

std::optional<std::string> UsbChannel::plug()
{
    if (usb_->isPlugged(0))
        return "it is plugged in";
    for (std::size_t i = 0; i < devices_.size(); ++i)
        usb_->plug(i);
    if (trace_.wanted())
        trace_.line("     plugged in");
    return std::nullopt;
}

} // namespace qvsim
