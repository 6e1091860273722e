#include "port.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qvtool {

namespace {

constexpr char szDevices[] = "/dev/";
constexpr size_t nLongestPath = 255; // what the library takes, less its NUL

std::string systemText(int nError)
{
    return std::strerror(nError);
}

// A bare name such as ttyUSB0 is often meant as a device.
std::string missingText(const std::string &sPath)
{
    std::string sText = sPath + " is not there";
    std::string sDevice = szDevices + sPath;
    if (sPath.find('/') == std::string::npos && access(sDevice.c_str(), F_OK) == 0)
        return sText + "; did you mean " + sDevice + "?";
    return sText + "; is the reader plugged in? (ls -l /dev/ttyS* /dev/ttyUSB* /dev/ttyACM*)";
}

std::string deniedText(const std::string &sPath)
{
    std::string sText = "no permission to open " + sPath;
    struct stat info {};
    if (stat(sPath.c_str(), &info) != 0 || !S_ISCHR(info.st_mode))
        return sText;
    if ((info.st_mode & (S_IRGRP | S_IWGRP)) != (S_IRGRP | S_IWGRP) || info.st_gid == 0)
        return sText + "; it belongs to its owner alone (ls -l " + sPath + ")";
    const group *pGroup = getgrgid(info.st_gid);
    std::string sGroup = pGroup != nullptr ? pGroup->gr_name : std::to_string(info.st_gid);
    return sText + "; it belongs to the group " + sGroup + ": sudo adduser \"$USER\" " + sGroup + ", then log in anew";
}

std::string openText(const std::string &sPath, int nError)
{
    switch (nError) {
    case ENOENT:
    case ENOTDIR: return missingText(sPath);
    case EACCES:
    case EPERM: return deniedText(sPath);
    case EBUSY: return sPath + " is busy: another program has it to itself (fuser -v " + sPath + ")";
    case EISDIR: return sPath + " is a directory, not a serial port";
    case EIO:
    case ENXIO:
    case ENODEV: return "there is no device behind " + sPath + " (" + systemText(nError) + ")";
    default: return sPath + " cannot be opened: " + systemText(nError);
    }
}

} // namespace

Port::~Port()
{
    if (m_nFd >= 0)
        close(m_nFd);
}

std::optional<std::string> Port::claim(const std::string &sPath)
{
    int nFd = open(sPath.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (nFd < 0)
        return openText(sPath, errno);
    int nError = tcgetattr(nFd, &m_found) != 0 ? errno : 0;
    m_nFd = nFd;
    if (nError != 0) {
        if (nError == ENOTTY || nError == EINVAL)
            return sPath + " is not a serial port";
        return openText(sPath, nError);
    }
    std::unique_ptr<char, decltype(&std::free)> resolved(realpath(sPath.c_str(), nullptr), &std::free);
    if (!resolved)
        return openText(sPath, errno);
    m_sDevice = resolved.get();
    if (!m_sDevice.starts_with(szDevices) || m_sDevice.size() > nLongestPath)
        return sPath + " leads to " + m_sDevice + ", which is no path below " + szDevices;
    if (flock(nFd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return sPath + " is busy: another qvreader is at work on it (fuser -v " + m_sDevice + ")";
    return std::nullopt;
}

std::optional<std::string> Port::claimUsb(const std::string &sNode)
{
    m_bUsb = true;
    m_sDevice = sNode;
    // The library resets a device before it finds out that another program has it; a second qvreader must not get so far.
    m_nFd = open(sNode.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_nFd >= 0 && flock(m_nFd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return sNode + " is busy: another qvreader is at work on it (fuser -v " + sNode + ")";
    return std::nullopt;
}

bool Port::isGone() const
{
    if (m_bUsb)
        return access(m_sDevice.c_str(), F_OK) != 0;
    termios now{};
    return m_nFd >= 0 && tcgetattr(m_nFd, &now) != 0;
}

void Port::drain() const
{
    if (m_nFd >= 0 && !m_bUsb)
        tcdrain(m_nFd);
}

void Port::putLast(const std::string &sText) const
{
    if (m_nFd >= 0)
        syscall(SYS_write, m_nFd.load(), sText.data(), sText.size()); // nothing is to be done about a failure
}

void Port::restoreSettings() const
{
    if (m_nFd >= 0 && !m_bUsb)
        tcsetattr(m_nFd, TCSANOW, &m_found);
}

} // namespace qvtool
