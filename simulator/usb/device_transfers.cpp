// Transfers: what hosts submit, when it finishes and with what.
#include "usb/device.h"

#include <algorithm>
#include <cerrno>

namespace qvsim {

namespace {

constexpr std::size_t kMostWaitingReports = 1024; // a device that nobody reads does not grow for ever
constexpr std::size_t kSetupBytes = 8;

enum Request : std::uint8_t { kGetDescriptor = 6, kGetConfiguration = 8, kSetReport = 9, kSetIdle = 10 };
enum RequestType : std::uint8_t { kDeviceIn = 0x80, kInterfaceIn = 0x81, kClassOut = 0x21 };

BytesView partOf(BytesView bytes, std::size_t most)
{
    return bytes.first(std::min(bytes.size(), most));
}

} // namespace

std::shared_ptr<UsbSession> UsbDevice::openUsb()
{
    sessions_.push_back(std::make_shared<UsbSession>());
    return sessions_.back();
}

void UsbDevice::close(const std::shared_ptr<UsbSession> &session)
{
    std::erase(sessions_, session);
    if (gone_)
        return;
    signalNodes();
}

int UsbDevice::reset()
{
    if (gone_)
        return ENODEV;
    if (behaviour_.resetFails)
        return EIO;
    for (const std::shared_ptr<UsbSession> &session : sessions_)
        finishAll(*session, -ENOENT);
    reports_.clear();
    altSettings_.clear();
    signalNodes();
    return 0;
}

int UsbDevice::submit(UsbSession &session, UsbTransfer transfer)
{
    if (gone_)
        return ENODEV;
    if (transfer.isControl) {
        runControl(transfer);
        session.finished.push_back(std::move(transfer));
        signalNodes();
        return 0;
    }
    const UsbEndpoint *const endpoint = findEndpoint(transfer.endpoint);
    if (endpoint == nullptr)
        return ENOENT;
    if (const int error = checkAccess(session, endpoint->interface))
        return error;
    // As the kernel: a bulk transfer also works on an interrupt endpoint, but not the other way round.
    if (transfer.type != endpoint->transfer && transfer.type != kTransferBulk)
        return EINVAL;
    if ((transfer.endpoint & kEndpointIn) == 0 && runOut(*endpoint, transfer)) {
        session.finished.push_back(std::move(transfer));
    } else {
        session.pending.push_back(std::move(transfer));
        if ((endpoint->address & kEndpointIn) != 0)
            passOn(endpoint->interface);
    }
    signalNodes();
    return 0;
}

int UsbDevice::discard(UsbSession &session, unsigned long record)
{
    const auto found = std::find_if(session.pending.begin(), session.pending.end(),
                                    [&](const UsbTransfer &transfer) { return transfer.record == record; });
    if (found == session.pending.end())
        return gone_ ? ENODEV : EINVAL;
    found->status = -ENOENT;
    found->moved = (found->endpoint & kEndpointIn) != 0 ? found->bytes.size() : 0;
    session.finished.push_back(std::move(*found));
    session.pending.erase(found);
    signalNodes();
    return 0;
}

std::optional<UsbTransfer> UsbDevice::reap(UsbSession &session)
{
    if (session.finished.empty())
        return std::nullopt;
    UsbTransfer transfer = std::move(session.finished.front());
    session.finished.pop_front();
    signalNodes();
    return transfer;
}

void UsbDevice::finishAll(UsbSession &session, int status)
{
    for (UsbTransfer &transfer : session.pending) {
        transfer.status = status;
        session.finished.push_back(std::move(transfer));
    }
    session.pending.clear();
}

// ---- to the device

// Bytes for the device on their last step; 0 or an errno.
int UsbDevice::take(unsigned interface, BytesView bytes, std::size_t &moved)
{
    moved = 0;
    if (behaviour_.out == UsbBehaviour::Out::stalled)
        return EPIPE;
    if (behaviour_.out == UsbBehaviour::Out::stuck)
        return ETIMEDOUT;
    moved = behaviour_.outMost == 0 ? bytes.size() : std::min(bytes.size(), behaviour_.outMost);
    receiver_(interface, bytes.first(moved));
    return 0;
}

bool UsbDevice::runOut(const UsbEndpoint &endpoint, UsbTransfer &transfer)
{
    if (behaviour_.out == UsbBehaviour::Out::stuck)
        return false;
    transfer.status = -take(endpoint.interface, transfer.bytes, transfer.moved);
    return true;
}

void UsbDevice::runStuck()
{
    for (const std::shared_ptr<UsbSession> &session : sessions_) {
        for (auto transfer = session->pending.begin(); transfer != session->pending.end();) {
            const UsbEndpoint *const endpoint = findEndpoint(transfer->endpoint);
            if (endpoint == nullptr || (transfer->endpoint & kEndpointIn) != 0 || !runOut(*endpoint, *transfer)) {
                ++transfer;
                continue;
            }
            session->finished.push_back(std::move(*transfer));
            transfer = session->pending.erase(transfer);
        }
    }
}

// ---- from the device

void UsbDevice::send(unsigned interface, Bytes report)
{
    const UsbEndpoint *const endpoint = endpointOf(interface, true);
    if (gone_ || endpoint == nullptr)
        return;
    std::deque<Bytes> &waiting = reports_[interface];
    BytesView rest(report);
    do {
        const BytesView packet = partOf(rest, endpoint->packetSize);
        rest = rest.subspan(packet.size());
        if (waiting.size() < kMostWaitingReports)
            waiting.emplace_back(packet.begin(), packet.end());
    } while (!rest.empty());
    passOn(interface);
}

void UsbDevice::reply(unsigned interface, BytesView bytes)
{
    const UsbEndpoint *const endpoint = endpointOf(interface, true);
    if (endpoint == nullptr)
        return;
    if (behaviour_.emptyReportFirst)
        send(interface, {});
    const std::size_t most = behaviour_.inMost == 0 ? endpoint->packetSize : behaviour_.inMost;
    while (!bytes.empty()) {
        const BytesView part = partOf(bytes, most);
        bytes = bytes.subspan(part.size());
        Bytes report(part.begin(), part.end());
        if (behaviour_.inMost == 0)
            report.resize(endpoint->packetSize);
        send(interface, std::move(report));
    }
}

// Fills the host's transfers with packets; one that is smaller than the endpoint's size ends a transfer.
void UsbDevice::runIn(const UsbEndpoint &endpoint, UsbSession &session)
{
    std::deque<Bytes> &waiting = reports_[endpoint.interface];
    for (auto transfer = session.pending.begin(); transfer != session.pending.end();) {
        if (transfer->endpoint != endpoint.address) {
            ++transfer;
            continue;
        }
        bool finished = false;
        if (behaviour_.in == UsbBehaviour::In::stalled) {
            transfer->status = -EPIPE;
            finished = true;
        }
        while (!finished && !waiting.empty()) {
            const Bytes packet = std::move(waiting.front());
            waiting.pop_front();
            const std::size_t room = transfer->length - transfer->bytes.size();
            const bool overflows = behaviour_.in == UsbBehaviour::In::overflows || packet.size() > room;
            const BytesView fits = partOf(packet, room);
            transfer->bytes.insert(transfer->bytes.end(), fits.begin(), fits.end());
            if (overflows)
                transfer->status = -EOVERFLOW;
            finished = overflows || packet.size() < endpoint.packetSize || transfer->bytes.size() == transfer->length;
        }
        if (!finished)
            return;
        transfer->moved = transfer->bytes.size();
        session.finished.push_back(std::move(*transfer));
        transfer = session.pending.erase(transfer);
    }
}

// ---- endpoint 0

// What the device does not know it answers with a stall.
void UsbDevice::runControl(UsbTransfer &transfer)
{
    const Bytes setup = std::move(transfer.bytes);
    transfer.bytes.clear();
    const unsigned low = setup[2];
    const unsigned high = setup[3];
    const std::size_t most = setup[6] | std::size_t{setup[7]} << 8;
    std::optional<Bytes> answer;
    if (setup[0] == kDeviceIn && setup[1] == kGetDescriptor && high == 1)
        answer = deviceDescriptor(options_);
    else if (setup[0] == kDeviceIn && setup[1] == kGetDescriptor && high == 2)
        answer = configurationDescriptor(options_);
    else if (setup[0] == kDeviceIn && setup[1] == kGetDescriptor && high == 3)
        answer = stringDescriptor(options_, low);
    else if (setup[0] == kInterfaceIn && setup[1] == kGetDescriptor && high == 0x22)
        answer = reportDescriptor(options_);
    else if (setup[0] == kDeviceIn && setup[1] == kGetConfiguration)
        answer = Bytes{static_cast<std::uint8_t>(behaviour_.unconfigured ? 0 : 1)};
    else if (setup[0] == kClassOut && setup[1] == kSetIdle)
        answer.emplace();
    else if (setup[0] == kClassOut && setup[1] == kSetReport) {
        transfer.status = -take(setup[4], BytesView(setup).subspan(kSetupBytes), transfer.moved);
        return;
    }
    if (!answer) {
        transfer.status = -EPIPE;
        return;
    }
    const std::size_t room = transfer.length - kSetupBytes;
    const BytesView part = partOf(*answer, std::min(most, room));
    transfer.bytes.assign(part.begin(), part.end());
    transfer.moved = transfer.bytes.size();
}

} // namespace qvsim
