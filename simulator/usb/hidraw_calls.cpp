// hidraw: linux/hidraw.h. The first byte of a written report is its number; 0 means that there are no numbers.
#include "usb/host_calls.h"

#include <sys/ioctl.h>

#include <linux/hidraw.h>
#include <linux/input.h>

#include <algorithm>
#include <cerrno>

namespace qvsim {

namespace {

constexpr std::size_t kMostReportBytes = 16'384; // of the kernel
constexpr std::size_t kFewestReportBytes = 2;
constexpr unsigned kTextSize = IOCSIZE_MASK; // bits of a request that tell how much room there is for a text

PreloadAnswer write(UsbDevice &device, HidrawSession &session, PreloadLink &host, const PreloadRequest &request)
{
    if (request.second < kFewestReportBytes || request.second > kMostReportBytes)
        return refuse(EINVAL);
    const Bytes report = host.readMemory(request.first, request.second);
    const std::size_t number = report[0] == 0 ? 1 : 0; // a number that is not 0 goes out with the report
    std::size_t moved = 0;
    if (const int error = device.writeHidraw(session, BytesView(report).subspan(number), moved))
        return refuse(error);
    return {static_cast<long>(moved + number), 0};
}

PreloadAnswer read(UsbDevice &device, HidrawSession &session, PreloadLink &host, const PreloadRequest &request)
{
    const std::optional<Bytes> report = device.readHidraw(session);
    if (!report)
        return refuse(session.gone ? EIO : EAGAIN);
    const BytesView part = BytesView(*report).first(std::min<std::size_t>(report->size(), request.second));
    host.writeMemory(request.first, part);
    return {static_cast<long>(part.size()), 0};
}

PreloadAnswer text(PreloadLink &host, const PreloadRequest &request, const std::string &value)
{
    const std::size_t room = _IOC_SIZE(static_cast<unsigned>(request.first));
    const std::size_t size = std::min(room, value.size() + 1); // with the NUL behind it
    host.writeMemory(request.second, {reinterpret_cast<const std::uint8_t *>(value.c_str()), size});
    return {static_cast<long>(size), 0};
}

PreloadAnswer ioctl(UsbDevice &device, PreloadLink &host, const PreloadRequest &request)
{
    const unsigned number = static_cast<unsigned>(request.first);
    const Bytes descriptor = reportDescriptor(device.options());
    switch (number) {
    case HIDIOCGRDESCSIZE: host.writeRecord(request.second, static_cast<int>(descriptor.size())); return {};
    case HIDIOCGRDESC: {
        const auto wanted = host.readRecord<std::uint32_t>(request.second);
        const std::size_t size = std::min<std::size_t>(wanted, descriptor.size());
        host.writeMemory(request.second + offsetof(hidraw_report_descriptor, value), BytesView(descriptor).first(size));
        return {};
    }
    case HIDIOCGRAWINFO: {
        const UsbId id = device.options().id;
        host.writeRecord(request.second, hidraw_devinfo{BUS_USB, static_cast<std::int16_t>(id.vendor),
                                                        static_cast<std::int16_t>(id.product)});
        return {};
    }
    default: break;
    }
    // The length of the text is part of these numbers.
    const auto is = [&](unsigned name) { return (number & ~kTextSize) == (name & ~kTextSize); };
    if (is(HIDIOCGRAWNAME(0)))
        return text(host, request, "qvreader-sim " + device.options().product);
    if (is(HIDIOCGRAWUNIQ(0)))
        return text(host, request, device.options().serial);
    return refuse(ENOTTY);
}

} // namespace

PreloadAnswer answerHidraw(UsbDevice &device, HidrawSession &session, PreloadLink &host, const PreloadRequest &request,
                           const CallRecord &record)
{
    const std::string interface = std::to_string(session.interface);
    switch (request.kind) {
    case PreloadRequest::Kind::write:
        record("HIDRAW WRITE " + interface + " " + std::to_string(request.second));
        return write(device, session, host, request);
    case PreloadRequest::Kind::read:
        record("HIDRAW READ " + interface + " " + std::to_string(request.second));
        return read(device, session, host, request);
    case PreloadRequest::Kind::ioctl: break;
    }
    return session.gone ? refuse(ENODEV) : ioctl(device, host, request);
}

} // namespace qvsim
