// poll before every write: a pipe that is writable takes at least PIPE_BUF bytes without blocking.
#include "system/text_output.h"

#include "system/io.h"

#include <poll.h>

#include <climits>
#include <string>

namespace qvsim {

bool TextOutput::takesNow() const
{
    pollfd polled{fd_, POLLOUT, 0};
    return ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLOUT) != 0;
}

void TextOutput::put(std::string_view text)
{
    while (!text.empty() && takesNow()) {
        const std::string_view piece = text.substr(0, PIPE_BUF);
        int error = 0;
        const std::size_t done = writeSome(fd_, asBytes(piece), error);
        if (done != piece.size())
            return;
        text.remove_prefix(piece.size());
    }
}

void TextOutput::line(std::string_view text)
{
    if (!takesNow()) {
        ++lost_;
        return;
    }
    std::string whole;
    if (lost_ != 0)
        whole = "(" + std::to_string(lost_) + " lines lost, nobody read them)\n";
    lost_ = 0;
    whole.append(text).push_back('\n');
    put(whole);
}

} // namespace qvsim
