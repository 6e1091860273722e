// Test help: the real program as a child process, and the host's end of its pseudo-terminal.
#pragma once

#include "model/frame.h"
#include "system/unique_fd.h"

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace qvsim::test {

// A directory for one test, removed with everything in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

enum class StandardInput { pipe, closed, atEnd };

class SimProcess {
  public:
    explicit SimProcess(std::vector<std::string> arguments, StandardInput input = StandardInput::pipe);
    ~SimProcess();

    // The next line of standard output; empty at its end or after ten seconds.
    std::string readLine();
    // Reads up to "ready PATH" and returns the path.
    std::string waitReady();
    void say(const std::string &line); // to standard input
    // Everything that came on standard error so far, up to its end when the process has ended.
    std::string errors();
    int signalAndWait(int signal);
    // Exit code, or 1000 + signal.
    int wait();
    pid_t pid() const { return pid_; }
    // Milliseconds of processor time used so far.
    long cpuMilliseconds() const;
    std::size_t openDescriptors() const;

  private:
    pid_t pid_ = -1;
    int status_ = -1;
    UniqueFd in_, out_, err_;
    std::string outText_, errText_;
};

struct RunResult {
    int exitCode;
    std::string out;
    std::string err;
};
RunResult runProgram(std::vector<std::string> arguments);

// `qvreader-sim ctl SOCKET words...`; standard output, or standard error behind "!".
std::string control(const std::string &socket, std::vector<std::string> words);

// Looks until `condition` holds; false after ten seconds.
bool eventually(const std::function<bool()> &condition);

// The serial port as a host uses it.
class HostPort {
  public:
    // Opens, flushes and sets raw mode and the speed; restores the old settings when it closes.
    HostPort(const std::string &path, unsigned baud);
    ~HostPort();
    bool isOpen() const { return static_cast<bool>(fd_); }
    void setBaud(unsigned baud);
    unsigned oldBaud() const { return oldBaud_; }
    void write(BytesView bytes);
    void writeHex(const char *hex) { write(*fromHex(hex)); }
    // Up to and with an end byte (03 or 04), or what came within `ms`.
    Bytes readFrame(int ms = 10'000);
    // Exactly so many bytes, or what came within `ms`.
    Bytes read(std::size_t count, int ms = 10'000);
    // A command in a card frame, and the decoded data of its reply.
    std::string ask(const char *data);
    int fd() const { return fd_.get(); }

  private:
    UniqueFd fd_;
    std::vector<unsigned char> oldSettings_;
    unsigned oldBaud_ = 0;
};

} // namespace qvsim::test
