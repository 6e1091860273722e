// unique_fd.h - owner of a file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace qv {

class UniqueFd {
  public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int nFd) noexcept : m_nFd(nFd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : m_nFd(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_nFd = other.release();
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const noexcept { return m_nFd; }
    explicit operator bool() const noexcept { return m_nFd >= 0; }
    int release() noexcept { return std::exchange(m_nFd, -1); }

    // Whether the system kept all that was written; some file systems tell of a full disk only now. A close that
    // fails, also with EINTR, has given the descriptor back all the same; it is never repeated.
    bool close() noexcept { return m_nFd < 0 || ::close(release()) == 0; }
    void reset() noexcept { close(); }

  private:
    int m_nFd = -1;
};

} // namespace qv
