// posix_openpt, the reading thread and the hand-over of what it read to the event loop.
#include "channels/pty_channel.h"

#include "model/line_noise.h"
#include "system/io.h"
#include "system/tty_speeds.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace qvsim {

namespace {

constexpr std::size_t kPieceBytes = 1024;              // read at once, and one line of the trace
constexpr std::size_t kMostWaitingBytes = 1024 * 1024; // beyond this the line itself has to hold the host up

[[noreturn]] void fail(std::string_view what)
{
    const int error = errno;
    throw std::runtime_error(errorText(what, error));
}

UniqueFd makeEvent()
{
    UniqueFd fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd)
        fail("eventfd");
    return fd;
}

void signalEvent(int fd)
{
    const std::uint64_t one = 1;
    int error = 0;
    // A full counter is as good a signal as one more.
    writeSome(fd, BytesView(reinterpret_cast<const std::uint8_t *>(&one), sizeof one), error);
}

void clearEvent(int fd)
{
    std::array<std::uint8_t, sizeof(std::uint64_t)> count{};
    readSome(fd, count);
}

std::string slaveName(int master)
{
    std::array<char, 128> name{};
    if (::ptsname_r(master, name.data(), name.size()) != 0)
        fail("ptsname");
    return name.data();
}

void makeRaw(int fd, unsigned baud)
{
    termios settings{};
    if (::tcgetattr(fd, &settings) != 0)
        fail("tcgetattr");
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    const speed_t code = speedCode(baud).value_or(B9600);
    ::cfsetispeed(&settings, code);
    ::cfsetospeed(&settings, code);
    if (::tcsetattr(fd, TCSANOW, &settings) != 0)
        fail("tcsetattr");
}

// Best effort: without the right to it the thread runs like any other.
void raisePriority()
{
    sched_param parameter{};
    parameter.sched_priority = 1;
    (void)::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameter);
}

} // namespace

PtyChannel::PtyChannel(EventLoop &loop, unsigned baud, Receiver receiver, Trace &trace)
    : loop_(loop), receiver_(std::move(receiver)), trace_(trace)
{
    master_ = UniqueFd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!master_)
        fail("posix_openpt");
    if (::grantpt(master_.get()) != 0)
        fail("grantpt");
    if (::unlockpt(master_.get()) != 0)
        fail("unlockpt");
    path_ = slaveName(master_.get());
    slave_ = UniqueFd(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!slave_)
        fail("open " + path_);
    makeRaw(slave_.get(), baud);
    arrived_ = makeEvent();
    stop_ = makeEvent();
    thread_ = std::thread([this] { readLine(); });
    loop_.watch(arrived_.get(), POLLIN, [this](short) { takePieces(); });
}

PtyChannel::~PtyChannel()
{
    loop_.forget(arrived_.get());
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    taken_.notify_all();
    signalEvent(stop_.get());
    thread_.join();
}

void PtyChannel::send(BytesView bytes, unsigned baud)
{
    const unsigned host = hostBaud();
    int error = 0;
    std::size_t done = 0;
    if (host == baud) {
        done = writeSome(master_.get(), bytes, error);
    } else {
        if (trace_.wanted())
            trace_.line("     the host's end stands at " + std::to_string(host) + ", the reader at " +
                        std::to_string(baud) + ": the reply arrives as garbage");
        done = writeSome(master_.get(), lineNoise(bytes), error);
    }
    if (done != bytes.size() && trace_.wanted())
        trace_.line("     " + std::to_string(bytes.size() - done) + " bytes lost: the host does not read");
}

unsigned PtyChannel::hostBaud() const
{
    termios settings{};
    return ::tcgetattr(slave_.get(), &settings) == 0 ? baudOf(::cfgetospeed(&settings)) : 0;
}

// ---- the reading thread

void PtyChannel::readLine()
{
    raisePriority();
    std::array<pollfd, 2> polled{{{master_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    for (;;) {
        const int ready = ::poll(polled.data(), polled.size(), -1);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0 || polled[1].revents != 0)
            return;
        if (!readPieces())
            return;
    }
}

// False when the thread has to end.
bool PtyChannel::readPieces()
{
    std::array<std::uint8_t, kPieceBytes> buffer;
    for (;;) {
        const unsigned baud = hostBaud();
        const ReadResult result = readSome(master_.get(), buffer);
        if (result.kind == ReadResult::Kind::wouldBlock)
            return true;
        if (result.kind != ReadResult::Kind::bytes) {
            {
                const std::lock_guard lock(mutex_);
                threadFailed_ = true;
            }
            signalEvent(arrived_.get());
            return false;
        }
        if (!hand({Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(result.count)), baud}))
            return false;
    }
}

bool PtyChannel::hand(Piece piece)
{
    {
        std::unique_lock lock(mutex_);
        taken_.wait(lock, [this] { return stopping_ || waitingBytes_ < kMostWaitingBytes; });
        if (stopping_)
            return false;
        waitingBytes_ += piece.bytes.size();
        pieces_.push_back(std::move(piece));
    }
    signalEvent(arrived_.get());
    return true;
}

// ---- the event loop's side

void PtyChannel::takePieces()
{
    clearEvent(arrived_.get());
    std::vector<Piece> pieces;
    {
        const std::lock_guard lock(mutex_);
        pieces = std::exchange(pieces_, {});
        waitingBytes_ = 0;
        failed_ = threadFailed_;
    }
    taken_.notify_all();
    for (const Piece &piece : pieces)
        receiver_(piece.bytes, piece.baud);
}

} // namespace qvsim
