// Life of the device, its interfaces and who holds them, and its hidraw nodes.
#include "usb/device.h"

#include <algorithm>
#include <cerrno>

namespace qvsim {

namespace {

constexpr std::size_t kMostHidrawReports = 64; // the kernel keeps no more for one that has the node open

} // namespace

UsbDevice::UsbDevice(DeviceTree &tree, unsigned port, unsigned address, const UsbDeviceOptions &options,
                     Receiver receiver)
    : tree_(tree), port_(port), options_(options), receiver_(std::move(receiver))
{
    const Bytes configuration = configurationDescriptor(options_);
    interfaces_ = interfacesOf(configuration);
    endpoints_ = endpointsOf(configuration);
    tree_.addDevice(port_, address, options_);
    usbNode_ =
        std::make_unique<DeviceNode>(tree_.path(), DeviceTree::usbNodeName(address), DeviceNode::Polled::forWriting);
    if (options_.kernelDriver)
        for (const unsigned interface : interfaces_)
            addHidraw(interface);
}

UsbDevice::~UsbDevice()
{
    unplug();
}

void UsbDevice::unplug()
{
    if (gone_)
        return;
    gone_ = true;
    for (const std::shared_ptr<UsbSession> &session : sessions_)
        finishAll(*session, -ESHUTDOWN);
    while (!hidraws_.empty())
        dropHidraw(hidraws_.begin()->first);
    usbNode_->remove();
    tree_.removeDevice(port_);
    signalNodes();
}

void UsbDevice::setBehaviour(const UsbBehaviour &behaviour)
{
    behaviour_ = behaviour;
    if (gone_)
        return;
    tree_.setConfigured(port_, !behaviour_.unconfigured);
    usbNode_->hide(behaviour_.cannotOpen);
    runStuck();
    for (const unsigned interface : interfaces_)
        passOn(interface);
}

Bytes UsbDevice::descriptors() const
{
    Bytes bytes = deviceDescriptor(options_);
    const Bytes configuration = configurationDescriptor(options_);
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

bool UsbDevice::hasInterface(unsigned interface) const
{
    return std::find(interfaces_.begin(), interfaces_.end(), interface) != interfaces_.end();
}

UsbSession *UsbDevice::holderOf(unsigned interface) const
{
    for (const std::shared_ptr<UsbSession> &session : sessions_)
        if (session->claimed.contains(interface))
            return session.get();
    return nullptr;
}

const UsbEndpoint *UsbDevice::findEndpoint(std::uint8_t address) const
{
    for (const UsbEndpoint &endpoint : endpoints_) {
        const auto alt = altSettings_.find(endpoint.interface);
        if (endpoint.address == address && endpoint.altSetting == (alt == altSettings_.end() ? 0 : alt->second))
            return &endpoint;
    }
    return nullptr;
}

// The first one of this direction.
const UsbEndpoint *UsbDevice::endpointOf(unsigned interface, bool in) const
{
    for (const UsbEndpoint &endpoint : endpoints_)
        if (endpoint.interface == interface && ((endpoint.address & kEndpointIn) != 0) == in &&
            findEndpoint(endpoint.address) == &endpoint)
            return &endpoint;
    return nullptr;
}

// ---- holding interfaces

std::string UsbDevice::driverOf(unsigned interface) const
{
    if (driven_.contains(interface))
        return "usbhid";
    return holderOf(interface) != nullptr ? "usbfs" : "";
}

int UsbDevice::claim(UsbSession &session, unsigned interface)
{
    if (gone_)
        return ENODEV;
    if (!hasInterface(interface))
        return ENOENT;
    if (session.claimed.contains(interface))
        return 0;
    if (behaviour_.claimBusy || !driverOf(interface).empty())
        return EBUSY;
    session.claimed.insert(interface);
    return 0;
}

int UsbDevice::release(UsbSession &session, unsigned interface)
{
    if (gone_)
        return ENODEV;
    if (!hasInterface(interface))
        return ENOENT;
    return session.claimed.erase(interface) == 1 ? 0 : EINVAL;
}

int UsbDevice::detachDriver(unsigned interface)
{
    if (gone_)
        return ENODEV;
    if (!hasInterface(interface))
        return EINVAL;
    if (behaviour_.detachRefused)
        return EPERM;
    if (driven_.contains(interface)) {
        dropHidraw(interface);
        return 0;
    }
    UsbSession *const holder = holderOf(interface);
    if (holder == nullptr)
        return ENODATA;
    holder->claimed.erase(interface);
    return 0;
}

int UsbDevice::attachDriver(unsigned interface)
{
    if (gone_)
        return ENODEV;
    if (!hasInterface(interface))
        return EINVAL;
    if (!driverOf(interface).empty())
        return EBUSY;
    addHidraw(interface);
    return 0;
}

// As the kernel: what nobody holds is taken with the first use.
int UsbDevice::checkAccess(UsbSession &session, unsigned interface)
{
    return session.claimed.contains(interface) ? 0 : claim(session, interface);
}

int UsbDevice::setAltSetting(UsbSession &session, unsigned interface, unsigned altSetting)
{
    if (const int error = checkAccess(session, interface))
        return error;
    const bool isThere =
        altSetting == 0 || std::any_of(endpoints_.begin(), endpoints_.end(), [&](const UsbEndpoint &e) {
            return e.interface == interface && e.altSetting == altSetting;
        });
    if (!isThere)
        return EINVAL;
    altSettings_[interface] = altSetting;
    return 0;
}

int UsbDevice::clearHalt(UsbSession &session, std::uint8_t endpoint)
{
    if (gone_)
        return ENODEV;
    const UsbEndpoint *const found = findEndpoint(endpoint);
    return found == nullptr ? ENOENT : checkAccess(session, found->interface);
}

// ---- hidraw

void UsbDevice::addHidraw(unsigned interface)
{
    driven_.insert(interface);
    const unsigned number = tree_.addHidraw(port_, interface, options_);
    hidraws_[interface] = {number, std::make_shared<DeviceNode>(tree_.path(), DeviceTree::hidrawNodeName(number),
                                                                DeviceNode::Polled::forReading)};
}

void UsbDevice::dropHidraw(unsigned interface)
{
    driven_.erase(interface);
    const auto found = hidraws_.find(interface);
    if (found == hidraws_.end())
        return;
    tree_.removeHidraw(port_, interface, found->second.number);
    found->second.node->remove();
    for (const std::shared_ptr<HidrawSession> &session : hidrawSessions_)
        if (session->interface == interface)
            session->gone = true;
    signalNodes();
    hidraws_.erase(found);
}

// The kernel's driver reads a device only while somebody has its node open, and begins with throwing away what came
// before.
std::shared_ptr<HidrawSession> UsbDevice::openHidraw(unsigned interface)
{
    if (std::none_of(hidrawSessions_.begin(), hidrawSessions_.end(),
                     [&](const auto &session) { return session->interface == interface && !session->gone; }))
        reports_[interface].clear();
    auto session = std::make_shared<HidrawSession>();
    session->interface = interface;
    session->node = hidraws_.at(interface).node;
    hidrawSessions_.push_back(session);
    return session;
}

void UsbDevice::close(const std::shared_ptr<HidrawSession> &session)
{
    std::erase(hidrawSessions_, session);
    signalNodes();
}

int UsbDevice::writeHidraw(HidrawSession &session, BytesView report, std::size_t &moved)
{
    return gone_ || session.gone ? ENODEV : take(session.interface, report, moved);
}

std::optional<Bytes> UsbDevice::readHidraw(HidrawSession &session)
{
    if (session.reports.empty())
        return std::nullopt;
    Bytes report = std::move(session.reports.front());
    session.reports.pop_front();
    signalNodes();
    return report;
}

// ---- reports to the hosts

// Gives what the device has sent to whoever holds the interface; it waits while nobody does.
void UsbDevice::passOn(unsigned interface)
{
    UsbSession *const holder = holderOf(interface);
    const UsbEndpoint *const endpoint = endpointOf(interface, true);
    if (holder != nullptr && endpoint != nullptr)
        runIn(*endpoint, *holder);
    std::deque<Bytes> &waiting = reports_[interface];
    const auto isReading = [&](const auto &session) { return session->interface == interface && !session->gone; };
    const bool isRead = std::any_of(hidrawSessions_.begin(), hidrawSessions_.end(), isReading);
    while (isRead && !waiting.empty() && behaviour_.in != UsbBehaviour::In::stalled) {
        const Bytes report = std::move(waiting.front());
        waiting.pop_front();
        if (report.empty() || behaviour_.in == UsbBehaviour::In::overflows)
            continue; // the driver drops these
        for (const std::shared_ptr<HidrawSession> &session : hidrawSessions_)
            if (isReading(session) && session->reports.size() < kMostHidrawReports)
                session->reports.push_back(report);
    }
    signalNodes();
}

void UsbDevice::signalNodes()
{
    usbNode_->signal(std::any_of(sessions_.begin(), sessions_.end(),
                                 [](const auto &session) { return !session->finished.empty(); }));
    std::map<DeviceNode *, bool> readable;
    for (const auto &[interface, hidraw] : hidraws_)
        readable[hidraw.node.get()] = false;
    for (const std::shared_ptr<HidrawSession> &session : hidrawSessions_)
        readable[session->node.get()] |= session->gone || !session->reports.empty();
    for (const auto &[node, ready] : readable)
        node->signal(ready);
}

} // namespace qvsim
