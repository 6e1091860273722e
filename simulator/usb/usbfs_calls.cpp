// usbfs: linux/usbdevice_fs.h.
#include "usb/host_calls.h"

#include <sys/ioctl.h>

#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace qvsim {

namespace {

constexpr std::uint32_t kCapabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                        USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
constexpr int kMostTransferBytes = 16 * 1024 * 1024; // the kernel's own limit for all of usbfs
constexpr int kSetupBytes = 8;

// One call: where it came from and whom it concerns.
struct Call {
    UsbDevice &device;
    UsbSession &session;
    PreloadLink &host;
    unsigned long argument; // the host's address of the record, or the value itself
    const CallRecord &record;
};

PreloadAnswer resultOf(int error)
{
    return error == 0 ? PreloadAnswer{} : refuse(error);
}

std::string hexByte(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "%02X", value);
    return text;
}

void record(const Call &call, const std::string &what, unsigned number)
{
    call.record(what + " " + std::to_string(number));
}

PreloadAnswer getCapabilities(const Call &call)
{
    call.host.writeRecord(call.argument, kCapabilities);
    return {};
}

PreloadAnswer reset(const Call &call)
{
    call.record("RESET");
    return resultOf(call.device.reset());
}

PreloadAnswer getDriver(const Call &call)
{
    // The number comes first; the room for the name is the host's, and not yet filled.
    const auto interface = call.host.readRecord<unsigned>(call.argument);
    record(call, "GETDRIVER", interface);
    const std::string name = call.device.driverOf(interface);
    if (name.empty())
        return refuse(ENODATA);
    const std::size_t withNul = name.size() + 1;
    call.host.writeMemory(call.argument + offsetof(usbdevfs_getdriver, driver),
                          {reinterpret_cast<const std::uint8_t *>(name.c_str()), withNul});
    return {};
}

PreloadAnswer driverIoctl(const Call &call)
{
    const auto asked = call.host.readRecord<usbdevfs_ioctl>(call.argument);
    const unsigned interface = static_cast<unsigned>(asked.ifno);
    switch (static_cast<unsigned>(asked.ioctl_code)) {
    case USBDEVFS_DISCONNECT:
        record(call, "DISCONNECT", interface);
        return resultOf(call.device.detachDriver(interface));
    case USBDEVFS_CONNECT: {
        record(call, "CONNECT", interface);
        const int error = call.device.attachDriver(interface);
        return error == 0 ? PreloadAnswer{1, 0} : refuse(error); // the kernel counts what was bound
    }
    default: return refuse(ENOTTY);
    }
}

PreloadAnswer claim(const Call &call)
{
    const auto interface = call.host.readRecord<unsigned>(call.argument);
    record(call, "CLAIM", interface);
    return resultOf(call.device.claim(call.session, interface));
}

PreloadAnswer release(const Call &call)
{
    const auto interface = call.host.readRecord<unsigned>(call.argument);
    record(call, "RELEASE", interface);
    return resultOf(call.device.release(call.session, interface));
}

PreloadAnswer setInterface(const Call &call)
{
    const auto asked = call.host.readRecord<usbdevfs_setinterface>(call.argument);
    call.record("SETINTERFACE " + std::to_string(asked.interface) + " " + std::to_string(asked.altsetting));
    return resultOf(call.device.setAltSetting(call.session, asked.interface, asked.altsetting));
}

PreloadAnswer clearHalt(const Call &call)
{
    const auto endpoint = call.host.readRecord<unsigned>(call.argument);
    call.record("CLEARHALT " + hexByte(endpoint));
    return resultOf(call.device.clearHalt(call.session, static_cast<std::uint8_t>(endpoint)));
}

PreloadAnswer submit(const Call &call)
{
    const auto urb = call.host.readRecord<usbdevfs_urb>(call.argument);
    UsbTransfer transfer;
    transfer.record = call.argument;
    transfer.buffer = reinterpret_cast<unsigned long>(urb.buffer);
    transfer.isControl = urb.type == USBDEVFS_URB_TYPE_CONTROL;
    transfer.endpoint = urb.endpoint;
    const bool isKnown =
        transfer.isControl || urb.type == USBDEVFS_URB_TYPE_BULK || urb.type == USBDEVFS_URB_TYPE_INTERRUPT;
    if (!isKnown || urb.buffer_length < (transfer.isControl ? kSetupBytes : 0) ||
        urb.buffer_length > kMostTransferBytes)
        return refuse(EINVAL);
    transfer.type = urb.type == USBDEVFS_URB_TYPE_BULK ? kTransferBulk : kTransferInterrupt;
    transfer.length = static_cast<std::size_t>(urb.buffer_length);
    const std::string kind = transfer.type == kTransferBulk ? "BULK " : "INTERRUPT ";
    if (transfer.isControl) {
        transfer.bytes = call.host.readMemory(transfer.buffer, kSetupBytes);
        call.record("CONTROL " + toHex(transfer.bytes));
        if ((transfer.bytes[0] & kEndpointIn) == 0)
            transfer.bytes = call.host.readMemory(transfer.buffer, transfer.length);
    } else if ((transfer.endpoint & kEndpointIn) != 0) {
        call.record(kind + "IN " + hexByte(transfer.endpoint) + " " + std::to_string(transfer.length));
    } else {
        transfer.bytes = call.host.readMemory(transfer.buffer, transfer.length);
        call.record(kind + "OUT " + hexByte(transfer.endpoint) + " " + std::to_string(transfer.length));
    }
    return resultOf(call.device.submit(call.session, std::move(transfer)));
}

PreloadAnswer discard(const Call &call)
{
    call.record("DISCARD");
    return resultOf(call.device.discard(call.session, call.argument));
}

PreloadAnswer reap(const Call &call)
{
    const std::optional<UsbTransfer> transfer = call.device.reap(call.session);
    if (!transfer)
        return refuse(call.device.isGone() ? ENODEV : EAGAIN);
    if (transfer->isControl || (transfer->endpoint & kEndpointIn) != 0)
        call.host.writeMemory(transfer->buffer + (transfer->isControl ? kSetupBytes : 0), transfer->bytes);
    call.host.writeRecord(transfer->record + offsetof(usbdevfs_urb, status), transfer->status);
    call.host.writeRecord(transfer->record + offsetof(usbdevfs_urb, actual_length), static_cast<int>(transfer->moved));
    call.host.writeRecord(call.argument, transfer->record);
    return {};
}

struct Row {
    unsigned long request;
    PreloadAnswer (*run)(const Call &call);
};

constexpr Row kRows[] = {
    {USBDEVFS_GET_CAPABILITIES, getCapabilities},
    {USBDEVFS_RESET, reset},
    {USBDEVFS_GETDRIVER, getDriver},
    {USBDEVFS_IOCTL, driverIoctl},
    {USBDEVFS_CLAIMINTERFACE, claim},
    {USBDEVFS_RELEASEINTERFACE, release},
    {USBDEVFS_SETINTERFACE, setInterface},
    {USBDEVFS_CLEAR_HALT, clearHalt},
    {USBDEVFS_SUBMITURB, submit},
    {USBDEVFS_DISCARDURB, discard},
    {USBDEVFS_REAPURBNDELAY, reap},
};

constexpr unsigned long kRequestBits = 0xFFFFFFFF; // above them: the sign of whatever type the host used

} // namespace

PreloadAnswer answerUsbfs(UsbDevice &device, UsbSession &session, PreloadLink &host, const PreloadRequest &request,
                          const CallRecord &record)
{
    if (request.kind == PreloadRequest::Kind::write)
        return refuse(EINVAL);
    if (request.kind == PreloadRequest::Kind::read) {
        if (device.isGone())
            return refuse(ENODEV);
        const Bytes all = device.descriptors();
        const BytesView rest = BytesView(all).subspan(std::min(session.readAt, all.size()));
        const BytesView part = rest.first(std::min<std::size_t>(rest.size(), request.second));
        host.writeMemory(request.first, part);
        session.readAt += part.size();
        return {static_cast<long>(part.size()), 0};
    }
    const Call call{device, session, host, request.second, record};
    for (const Row &row : kRows) {
        if (row.request != (request.first & kRequestBits))
            continue;
        const bool worksWhenGone = row.run == reap || row.run == discard;
        if (device.isGone() && !worksWhenGone)
            return refuse(ENODEV);
        return row.run(call);
    }
    return refuse(ENOTTY);
}

} // namespace qvsim
