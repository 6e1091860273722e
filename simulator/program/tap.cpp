// One real tty, one pseudo-terminal.
#include "program/tap.h"

#include "program/card_files.h"
#include "system/io.h"
#include "system/tty_speeds.h"

#include <fcntl.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::size_t kPieceBytes = 1024;

UniqueFd openTty(const std::string &path)
{
    UniqueFd tty(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    termios settings{};
    if (!tty || ::tcgetattr(tty.get(), &settings) != 0) {
        const int error = errno;
        throw std::runtime_error(errorText("tty " + path, error));
    }
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    if (::tcsetattr(tty.get(), TCSANOW, &settings) != 0) {
        const int error = errno;
        throw std::runtime_error(errorText("tty " + path, error));
    }
    return tty;
}

} // namespace

Tap::Tap(EventLoop &loop, const std::string &tty, unsigned baud, Trace &trace)
    : loop_(loop), trace_(trace), conversation_(trace), tty_(openTty(tty)),
      pty_(
          loop, baud, [this](BytesView bytes, std::optional<unsigned> lineSpeed) { fromHost(bytes, lineSpeed); }, trace)
{
    follow(baud);
    if (failed_)
        throw std::runtime_error("tty " + tty + " does not run at " + std::to_string(baud) + " bits per second");
    loop_.watch(tty_.get(), POLLIN, [this](short) { fromReader(); });
}

Tap::~Tap()
{
    loop_.forget(tty_.get());
}

bool Tap::run()
{
    while (!stopped_ && !failed_ && !pty_.failed())
        loop_.runOnce(std::nullopt);
    return !failed_ && !pty_.failed();
}

void Tap::fromHost(BytesView bytes, std::optional<unsigned> lineSpeed)
{
    if (lineSpeed && *lineSpeed != 0 && *lineSpeed != baud_)
        follow(*lineSpeed);
    conversation_.hostSays(bytes);
    int error = 0;
    const std::size_t done = writeSome(tty_.get(), bytes, error);
    failed_ = failed_ || error != 0;
    if (done != bytes.size() && trace_.wanted())
        trace_.line("     " + std::to_string(bytes.size() - done) + " bytes lost: the tty takes no more");
}

void Tap::fromReader()
{
    std::array<std::uint8_t, kPieceBytes> buffer;
    const ReadResult result = readSome(tty_.get(), buffer);
    if (result.kind == ReadResult::Kind::wouldBlock)
        return;
    if (result.kind != ReadResult::Kind::bytes) {
        failed_ = true;
        return;
    }
    const BytesView bytes(buffer.data(), result.count);
    conversation_.readerSays(bytes);
    pty_.send(bytes, baud_);
}

// What was written at the old speed leaves first.
void Tap::follow(unsigned baud)
{
    termios settings{};
    const std::optional<speed_t> code = speedCode(baud);
    if (!code || ::tcgetattr(tty_.get(), &settings) != 0) {
        failed_ = true;
        return;
    }
    ::cfsetispeed(&settings, *code);
    ::cfsetospeed(&settings, *code);
    if (::tcsetattr(tty_.get(), TCSADRAIN, &settings) != 0)
        failed_ = true;
    baud_ = baud;
    if (trace_.wanted())
        trace_.line("     line speed " + std::to_string(baud));
}

bool Tap::record(const std::string &path) const
{
    const std::optional<std::string> text = conversation_.cardFile();
    if (!text)
        return false;
    writeCardFile("record", path, *text);
    return true;
}

} // namespace qvsim
