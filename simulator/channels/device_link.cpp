// symlink under a temporary name and rename, so that no moment passes without a link.
#include "channels/device_link.h"

#include "system/io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace qvsim {

namespace {

std::string linkTarget(const std::string &path)
{
    std::array<char, 4096> target{};
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    return length < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

} // namespace

DeviceLink::DeviceLink(std::string path, std::string target) : path_(std::move(path)), target_(std::move(target))
{
    struct stat info {};
    if (::lstat(path_.c_str(), &info) == 0 && !S_ISLNK(info.st_mode))
        throw std::runtime_error("link " + path_ + ": exists and is no symbolic link");
    const std::string fresh = path_ + ".new-" + std::to_string(::getpid());
    if (::symlink(target_.c_str(), fresh.c_str()) != 0) {
        const int error = errno;
        throw std::runtime_error(errorText("link " + path_, error));
    }
    if (::rename(fresh.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        ::unlink(fresh.c_str());
        throw std::runtime_error(errorText("link " + path_, error));
    }
}

DeviceLink::~DeviceLink()
{
    // Another simulator may have taken the name over.
    if (linkTarget(path_) == target_)
        ::unlink(path_.c_str());
}

} // namespace qvsim
