#include "usb_reader.h"

#include "model/script_card.h"
#include "program/card_files.h"
#include "waiting.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace qvvm {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kCardPatience{2500};
constexpr int kStall = -EPIPE;

// bRequest, with bmRequestType in front.
constexpr unsigned kGetStatus = 0x8000, kGetInterfaceStatus = 0x8100, kGetDescriptor = 0x8006,
                   kGetInterfaceDescriptor = 0x8106, kSetConfiguration = 0x0009, kSetInterface = 0x010B,
                   kClearEndpoint = 0x0201, kSetIdle = 0x210A;
constexpr unsigned kDevice = 1, kConfiguration = 2, kString = 3, kReport = 0x22;

qvsim::TimePoint now()
{
    return std::chrono::steady_clock::now();
}

std::string interfacePath(unsigned interface)
{
    return UsbReader::sysfsPath() + ":1." + std::to_string(interface);
}

} // namespace

std::string UsbReader::sysfsPath()
{
    return "/sys/bus/usb/devices/1-1";
}

std::string UsbReader::driverOf(unsigned interface)
{
    std::error_code error;
    return fs::read_symlink(interfacePath(interface) + "/driver", error).filename();
}

// 1-1:1.0/0003:2B46:BE11.0001/hidraw/hidraw0
bool UsbReader::hasHidraw(unsigned interface)
{
    std::error_code error;
    for (const auto &device : fs::directory_iterator(interfacePath(interface), error))
        for (const auto &node : fs::directory_iterator(device.path() / "hidraw", error))
            if (fs::exists("/dev" / node.path().filename(), error))
                return true;
    return false;
}

bool UsbReader::isThere() const
{
    for (unsigned i = 0; i < m_shape.interfaces.size(); ++i) {
        if (!fs::exists(interfacePath(i)))
            return false;
        if (m_shape.interfaces[i].isHid && (driverOf(i) != "usbhid" || !hasHidraw(i)))
            return false;
    }
    return true;
}

UsbReader::UsbReader(DeviceShape shape)
    : m_shape(std::move(shape)), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_reader(9600, kCardPatience, m_trace)
{
    m_thread = std::thread([this] { serve(); });
    if (!waitUntil([this] { return isThere(); })) {
        unplug();
        m_thread.join();
        throw std::runtime_error("the kernel did not take the emulated reader");
    }
}

UsbReader::~UsbReader()
{
    unplug();
    m_thread.join();
    // The next reader would find the port taken.
    (void)waitUntil([] { return !fs::exists(sysfsPath()) && VirtualBus::portIsFree(); });
}

void UsbReader::unplug()
{
    const std::lock_guard lock(m_mutex);
    m_bStop = true;
    m_bus.cut();
    wake();
}

void UsbReader::insert(qvsim::SlotCode slot, const std::string &sFile)
{
    qvsim::CardScriptResult result = qvsim::readCardFile(sFile);
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        throw std::runtime_error(*wrong);
    const std::lock_guard lock(m_mutex);
    m_reader.insert(slot, std::make_unique<qvsim::ScriptCard>(std::move(std::get<qvsim::CardScript>(result)), sFile),
                    now());
    wake();
}

void UsbReader::fault(std::string_view sWords)
{
    const std::lock_guard lock(m_mutex);
    if (const std::optional<std::string> wrong = m_faults.set(sWords))
        throw std::runtime_error(*wrong);
}

std::vector<OutReport> UsbReader::takeOutReports()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_outReports, {});
}

unsigned UsbReader::configurations()
{
    const std::lock_guard lock(m_mutex);
    return m_nConfigurations;
}

qvsim::ReaderCounts UsbReader::counts()
{
    const std::lock_guard lock(m_mutex);
    return m_reader.counts();
}

void UsbReader::wake()
{
    (void)::eventfd_write(m_wake.get(), 1);
}

// ---- the bus's thread

void UsbReader::serve()
{
    std::unique_lock lock(m_mutex);
    while (!m_bStop && step(lock))
        settle();
}

// Waits, without the lock, for the bus, a command of the test or the next deadline. False: the link has ended.
bool UsbReader::step(std::unique_lock<std::mutex> &lock)
{
    const int nTimeOut = pollTimeOut();
    lock.unlock();
    std::array<pollfd, 2> polled{{{m_bus.fd(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}}};
    (void)::poll(polled.data(), polled.size(), nTimeOut);
    lock.lock();
    if (polled[1].revents != 0) {
        eventfd_t count = 0;
        (void)::eventfd_read(m_wake.get(), &count);
    }
    if (polled[0].revents == 0 || m_bStop)
        return true;
    const BusMessage message = m_bus.receive();
    if (message.kind == BusMessage::Kind::ended)
        return false;
    handle(message);
    return true;
}

int UsbReader::pollTimeOut() const
{
    std::optional<qvsim::TimePoint> due = m_reader.deadline();
    if (!m_outgoing.empty())
        due = due ? std::min(*due, m_outgoing.front().due) : m_outgoing.front().due;
    if (!due)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void UsbReader::handle(const BusMessage &message)
{
    if (message.kind == BusMessage::Kind::unlink) {
        giveUp(message);
    } else if (message.endpoint == 0) {
        handleControl(message);
    } else if (message.in) {
        Pipe &pipe = m_pipes[message.endpoint];
        pipe.waiting.push_back(message);
        pump(pipe);
    } else {
        m_nReplyEndpoint = message.endpoint;
        m_outReports.push_back({message.endpoint - 1u, message.data});
        m_bus.answer(message, 0);
        m_reader.receive(message.data, std::nullopt, now());
    }
}

void UsbReader::handleControl(const BusMessage &message)
{
    if (const std::optional<Bytes> data = controlReply(message))
        m_bus.answer(message, 0, *data);
    else
        m_bus.answer(message, kStall);
}

// Nothing: refused.
std::optional<Bytes> UsbReader::controlReply(const BusMessage &message)
{
    const unsigned request = message.setup[0] * 256u + message.setup[1];
    const unsigned index = message.setup[2], type = message.setup[3];
    switch (request) {
    case kGetStatus:
    case kGetInterfaceStatus: return Bytes{0, 0};
    case kGetDescriptor:
        if (type == kDevice)
            return deviceDescriptor(m_shape);
        if (type == kConfiguration)
            return configurationDescriptor(m_shape);
        if (type == kString && !stringDescriptor(index).empty())
            return stringDescriptor(index);
        return std::nullopt;
    case kGetInterfaceDescriptor:
        if (type == kReport)
            return reportDescriptor();
        return std::nullopt;
    case kSetConfiguration:
        ++m_nConfigurations;
        m_pipes.clear();
        m_outgoing.clear();
        return Bytes{};
    case kSetInterface:
    case kClearEndpoint:
    case kSetIdle: return Bytes{};
    default: return std::nullopt;
    }
}

// A transfer that timed out or was cancelled on the host's side.
void UsbReader::giveUp(const BusMessage &unlink)
{
    for (auto &[endpoint, pipe] : m_pipes) {
        const auto victim = std::find_if(pipe.waiting.begin(), pipe.waiting.end(),
                                         [&](const BusMessage &m) { return m.number == unlink.victim; });
        if (victim == pipe.waiting.end())
            continue;
        pipe.waiting.erase(victim);
        m_bus.answerUnlink(unlink, -ECONNRESET);
        return;
    }
    m_bus.answerUnlink(unlink, 0); // answered already
}

// Whatever happened: cards may have answered, the reader may have something to say, something may be due.
void UsbReader::settle()
{
    m_reader.tick(now());
    for (qvsim::SentBytes &sent : m_reader.takeOutput()) {
        qvsim::TimePoint due = m_outgoing.empty() ? now() : std::max(now(), m_outgoing.back().due);
        for (qvsim::TimedBytes &piece : m_faults.apply(std::move(sent.bytes)).pieces) {
            due += piece.after;
            m_outgoing.push_back({std::move(piece.bytes), due});
        }
    }
    Pipe &pipe = m_pipes[m_nReplyEndpoint];
    while (!m_outgoing.empty() && m_outgoing.front().due <= now()) {
        const BytesView bytes = m_outgoing.front().bytes;
        for (std::size_t at = 0; at < bytes.size(); at += kReportSize) {
            const BytesView part = bytes.subspan(at, std::min(kReportSize, bytes.size() - at));
            Bytes report(part.begin(), part.end());
            report.resize(kReportSize, 0);
            pipe.reports.push_back(std::move(report));
        }
        m_outgoing.pop_front();
    }
    pump(pipe);
}

void UsbReader::pump(Pipe &pipe)
{
    while (!pipe.waiting.empty() && !pipe.reports.empty()) {
        m_bus.answer(pipe.waiting.front(), 0, pipe.reports.front());
        pipe.waiting.pop_front();
        pipe.reports.pop_front();
    }
}

} // namespace qvvm
