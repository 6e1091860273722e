// One question over the control socket.
#include "control/client.h"

#include "control/line_buffer.h"
#include "control/socket_address.h"
#include "system/io.h"
#include "system/text_output.h"
#include "system/unique_fd.h"

#include <sys/time.h>

#include <array>
#include <cerrno>
#include <iostream>

namespace qvsim {

namespace {

constexpr timeval kPatience{10, 0}; // the simulator answers every command at once

int complain(std::string_view text)
{
    std::cerr << "qvreader-sim: " << text << '\n';
    return 1;
}

} // namespace

int callControl(const std::string &path, const std::string &line)
{
    if (line.find('\n') != std::string::npos)
        return complain("a command is one line");
    const SocketAddress address(path);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket || ::connect(socket.get(), address.get(), address.length()) != 0) {
        const int error = errno;
        return complain(errorText("control socket " + path, error));
    }
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    int error = 0;
    const std::string question = line + "\n";
    if (sendSome(socket.get(), asBytes(question), error) != question.size())
        return complain("the simulator does not take the command");

    LineBuffer lines;
    for (;;) {
        while (const std::optional<std::string> answer = lines.take()) {
            if (*answer == "ok") {
                std::cout << "ok" << std::endl;
                return 0;
            }
            if (answer->starts_with("error: ")) {
                std::cerr << *answer << '\n';
                return 1;
            }
            std::cout << *answer << '\n';
        }
        std::array<std::uint8_t, 4096> buffer;
        const ReadResult result = readSome(socket.get(), buffer);
        if (result.kind != ReadResult::Kind::bytes || !lines.add(BytesView(buffer).first(result.count)))
            return complain("the simulator gave no whole answer");
    }
}

} // namespace qvsim
