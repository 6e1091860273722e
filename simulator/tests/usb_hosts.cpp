// The calls that a host makes, in the order in which it makes them.
#include "usb_hosts.h"

#include "system/io.h"

namespace qvsim::test {

LibusbHost::LibusbHost(UsbId id)
{
    if (::libusb_init(&context_) != 0)
        return;
    handle_ = ::libusb_open_device_with_vid_pid(context_, id.vendor, id.product);
}

LibusbHost::~LibusbHost()
{
    if (handle_ != nullptr)
        ::libusb_close(handle_);
    if (context_ != nullptr)
        ::libusb_exit(context_);
}

int LibusbHost::claim(int interface)
{
    if (::libusb_kernel_driver_active(handle_, interface) == 1) {
        const int detached = ::libusb_detach_kernel_driver(handle_, interface);
        if (detached != 0)
            return detached;
    }
    return ::libusb_claim_interface(handle_, interface);
}

int LibusbHost::write(std::uint8_t endpoint, BytesView bytes, unsigned ms, bool bulk)
{
    Bytes data(bytes.begin(), bytes.end());
    int moved = 0;
    const auto transfer = bulk ? ::libusb_bulk_transfer : ::libusb_interrupt_transfer;
    const int result = transfer(handle_, endpoint, data.data(), static_cast<int>(data.size()), &moved, ms);
    return result == 0 ? moved : result;
}

int LibusbHost::read(std::uint8_t endpoint, std::size_t most, Bytes &into, unsigned ms, bool bulk)
{
    into.assign(most, 0xEE);
    int moved = 0;
    const auto transfer = bulk ? ::libusb_bulk_transfer : ::libusb_interrupt_transfer;
    const int result = transfer(handle_, endpoint, into.data(), static_cast<int>(most), &moved, ms);
    into.resize(static_cast<std::size_t>(moved));
    return result == 0 ? moved : result;
}

HidapiHost::~HidapiHost()
{
    if (device_ != nullptr)
        ::hid_close(device_);
    ::hid_exit();
}

int HidapiHost::write(BytesView bytes)
{
    Bytes report{0};
    report.insert(report.end(), bytes.begin(), bytes.end());
    return ::hid_write(device_, report.data(), report.size());
}

int HidapiHost::read(Bytes &into, int ms)
{
    into.assign(kLargestReport, 0xEE);
    const int count = ::hid_read_timeout(device_, into.data(), into.size(), ms);
    into.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return count;
}

Bytes padded(BytesView bytes, std::size_t size)
{
    Bytes whole(bytes.begin(), bytes.end());
    whole.resize(size);
    return whole;
}

Bytes bytesOf(std::string_view text)
{
    const BytesView view = asBytes(text);
    return {view.begin(), view.end()};
}

} // namespace qvsim::test
