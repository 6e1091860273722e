// Child processes and serial ports for tests.
#include "sim_process.h"

#include "system/io.h"
#include "system/tty_speeds.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace qvsim::test {

namespace {

constexpr int kPatienceMs = 10'000;

bool readable(int fd, int ms)
{
    pollfd polled{fd, POLLIN, 0};
    return ::poll(&polled, 1, ms) == 1;
}

} // namespace

TempDir::TempDir()
{
    std::string name = std::filesystem::temp_directory_path() / "qvsim-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("mkdtemp");
    path_ = name;
}

TempDir::~TempDir()
{
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

SimProcess::SimProcess(std::vector<std::string> arguments, StandardInput input)
{
    std::array<int, 2> in{}, out{}, err{};
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0 ||
        ::pipe2(err.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2");
    arguments.insert(arguments.begin(), QVSIM_PROGRAM);
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        if (input == StandardInput::closed)
            UniqueFd(STDIN_FILENO).reset();
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    for (const int fd : {in[0], out[1], err[1]})
        UniqueFd(fd).reset();
    in_ = UniqueFd(in[1]);
    out_ = UniqueFd(out[0]);
    err_ = UniqueFd(err[0]);
    if (input == StandardInput::atEnd)
        in_.reset();
}

SimProcess::~SimProcess()
{
    if (status_ < 0)
        signalAndWait(SIGKILL);
}

std::string SimProcess::readLine()
{
    std::array<std::uint8_t, 4096> buffer;
    for (;;) {
        const std::size_t end = outText_.find('\n');
        if (end != std::string::npos) {
            std::string line = outText_.substr(0, end);
            outText_.erase(0, end + 1);
            return line;
        }
        if (!readable(out_.get(), kPatienceMs))
            return {};
        const ReadResult result = readSome(out_.get(), buffer);
        if (result.kind != ReadResult::Kind::bytes)
            return {};
        outText_.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(result.count));
    }
}

std::string SimProcess::waitReady()
{
    for (std::string line = readLine(); !line.empty(); line = readLine())
        if (line.starts_with("ready "))
            return line.substr(6);
    ADD_FAILURE() << "never ready: " << errors();
    return {};
}

void SimProcess::say(const std::string &line)
{
    int error = 0;
    writeSome(in_.get(), asBytes(line + "\n"), error);
    EXPECT_EQ(error, 0);
}

std::string SimProcess::errors()
{
    std::array<std::uint8_t, 4096> buffer;
    while (readable(err_.get(), status_ < 0 ? 0 : kPatienceMs)) {
        const ReadResult result = readSome(err_.get(), buffer);
        if (result.kind != ReadResult::Kind::bytes)
            break;
        errText_.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(result.count));
    }
    return errText_;
}

int SimProcess::signalAndWait(int signal)
{
    ::kill(pid_, signal);
    return wait();
}

int SimProcess::wait()
{
    if (status_ < 0) {
        int status = 0;
        const bool ended = eventually([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; });
        if (!ended) {
            ADD_FAILURE() << "does not end";
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
        }
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    return status_;
}

long SimProcess::cpuMilliseconds() const
{
    std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    std::istringstream rest(text.substr(text.rfind(')') + 2));
    std::string word;
    long user = 0, system = 0;
    for (int i = 0; i < 11; ++i) // behind the name: state is word 3, user time word 14
        rest >> word;
    rest >> user >> system;
    return (user + system) * 1000 / ::sysconf(_SC_CLK_TCK);
}

std::size_t SimProcess::openDescriptors() const
{
    const std::filesystem::directory_iterator files("/proc/" + std::to_string(pid_) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

RunResult runProgram(std::vector<std::string> arguments)
{
    SimProcess process(std::move(arguments), StandardInput::atEnd);
    RunResult result{};
    for (std::string line = process.readLine(); !line.empty(); line = process.readLine())
        result.out += line + "\n";
    result.exitCode = process.wait();
    result.err = process.errors();
    return result;
}

std::string control(const std::string &socket, std::vector<std::string> words)
{
    words.insert(words.begin(), {"ctl", socket});
    const RunResult result = runProgram(std::move(words));
    return result.exitCode == 0 ? result.out : "!" + result.err;
}

bool eventually(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (std::chrono::steady_clock::now() < end) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return condition();
}

HostPort::HostPort(const std::string &path, unsigned baud) : fd_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    if (!fd_)
        return;
    ::usleep(1000);
    ::tcflush(fd_.get(), TCIOFLUSH);
    termios settings{};
    EXPECT_EQ(::tcgetattr(fd_.get(), &settings), 0);
    oldBaud_ = baudOf(::cfgetospeed(&settings));
    oldSettings_.resize(sizeof settings);
    std::memcpy(oldSettings_.data(), &settings, sizeof settings);
    setBaud(baud);
}

HostPort::~HostPort()
{
    if (!fd_)
        return;
    termios settings{};
    std::memcpy(&settings, oldSettings_.data(), sizeof settings);
    ::tcsetattr(fd_.get(), TCSAFLUSH, &settings);
}

void HostPort::setBaud(unsigned baud)
{
    termios settings{};
    EXPECT_EQ(::tcgetattr(fd_.get(), &settings), 0);
    ::cfmakeraw(&settings);
    ::cfsetispeed(&settings, speedCode(baud).value_or(B0));
    ::cfsetospeed(&settings, speedCode(baud).value_or(B0));
    EXPECT_EQ(::tcsetattr(fd_.get(), TCSAFLUSH, &settings), 0);
}

void HostPort::write(BytesView bytes)
{
    int error = 0;
    EXPECT_EQ(writeSome(fd_.get(), bytes, error), bytes.size());
    EXPECT_EQ(error, 0);
}

Bytes HostPort::readFrame(int ms)
{
    Bytes bytes;
    std::uint8_t byte = 0;
    while (readable(fd_.get(), ms)) {
        if (readSome(fd_.get(), {&byte, 1}).kind != ReadResult::Kind::bytes)
            break;
        bytes.push_back(byte);
        if (byte == 0x03 || byte == 0x04)
            break;
    }
    return bytes;
}

Bytes HostPort::read(std::size_t count, int ms)
{
    Bytes bytes(count);
    std::size_t done = 0;
    while (done < count && readable(fd_.get(), ms)) {
        const ReadResult result = readSome(fd_.get(), std::span(bytes).subspan(done));
        if (result.kind != ReadResult::Kind::bytes)
            break;
        done += result.count;
    }
    bytes.resize(done);
    return bytes;
}

std::string HostPort::ask(const char *data)
{
    write(encodeFrame(FrameKind::card, *fromHex(data)));
    const Bytes frame = readFrame();
    if (frame.size() < 2)
        return "silence";
    const DecodedFrame decoded = decodeFrame(BytesView(frame).subspan(1, frame.size() - 2));
    return decoded.fault == FrameFault::none ? toHex(decoded.data) : faultText(decoded.fault);
}

} // namespace qvsim::test
