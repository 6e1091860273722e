// Time stamps in front of trace lines.
#include "program/trace_file.h"

#include "system/io.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr mode_t kTraceMode = 0600; // a trace shows card data
constexpr long kNanosecondsPerMillisecond = 1'000'000;

std::string timeStamp()
{
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    std::tm local{};
    ::localtime_r(&time.tv_sec, &local);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
    const std::string fraction = std::to_string(time.tv_nsec / kNanosecondsPerMillisecond);
    return std::string(date.data()) + "." + std::string(3 - fraction.size(), '0') + fraction + " ";
}

} // namespace

TraceFile::TraceFile(const std::string &path)
{
    if (path.empty())
        return;
    if (path == "-") {
        output_.emplace(STDERR_FILENO);
        return;
    }
    UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kTraceMode));
    if (!file) {
        const int error = errno;
        throw std::runtime_error(errorText("trace file " + path, error));
    }
    output_.emplace(std::move(file));
}

void TraceFile::line(std::string_view text)
{
    if (output_)
        output_->line(timeStamp().append(text));
}

} // namespace qvsim
