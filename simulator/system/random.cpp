// getrandom(2), with short answers and interruptions.
#include "system/random.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace qvsim {

void fillWithRandom(std::span<std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::getrandom(bytes.data(), bytes.size(), 0);
        const int error = errno;
        if (count < 0 && error != EINTR)
            throw std::system_error(error, std::generic_category(), "getrandom");
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

} // namespace qvsim
