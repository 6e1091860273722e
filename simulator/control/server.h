// Control commands from standard input and from a unix socket: a line in, answer lines out.
#pragma once

#include "control/line_buffer.h"
#include "system/event_loop.h"
#include "system/text_output.h"
#include "system/unique_fd.h"

#include <sys/types.h>

#include <map>
#include <string>

namespace qvsim {

using ExecuteLine = std::function<std::vector<std::string>(std::string_view line)>;

// Commands from a descriptor that is already open; its end ends nothing but the listening to it.
class ControlInput {
  public:
    ControlInput(EventLoop &loop, int fd, ExecuteLine execute, TextOutput &answers);
    ~ControlInput();
    ControlInput(const ControlInput &) = delete;
    ControlInput &operator=(const ControlInput &) = delete;

  private:
    void onReadable();

    EventLoop &loop_;
    int fd_;
    ExecuteLine execute_;
    TextOutput &answers_;
    LineBuffer lines_;
};

// A unix stream socket for several controllers at once. The socket file belongs to the user alone and goes with its
// owner.
class ControlServer {
  public:
    // Throws std::runtime_error when the path is in use by a running simulator, is no socket, or cannot be bound.
    ControlServer(EventLoop &loop, std::string path, ExecuteLine execute);
    ~ControlServer();
    ControlServer(const ControlServer &) = delete;
    ControlServer &operator=(const ControlServer &) = delete;

  private:
    struct Client {
        UniqueFd socket;
        LineBuffer lines;
        std::string unsent;
        bool leaving = false; // nothing more will come from it
    };

    void accept();
    void serve(int fd, short revents);
    bool readFrom(Client &client);
    bool writeTo(Client &client);
    void drop(int fd);

    EventLoop &loop_;
    std::string path_;
    ExecuteLine execute_;
    UniqueFd listener_;
    dev_t device_ = 0; // of the socket file, to remove only the own one
    ino_t inode_ = 0;
    std::map<int, Client> clients_;
};

} // namespace qvsim
