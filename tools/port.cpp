#include "port.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qvtool {

namespace {

namespace fs = std::filesystem;

constexpr char szDevices[] = "/dev/";
constexpr char szOwnFiles[] = "/proc/self/fd";
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

void closeFile(int nFd)
{
    if (nFd >= 0)
        close(nFd);
}

// Whether this process has it open by a descriptor other than these.
bool isOpenHere(const std::string &sPath, const std::vector<int> &notCounted)
{
    struct stat wanted {};
    if (stat(sPath.c_str(), &wanted) != 0)
        return false;
    std::error_code error;
    for (fs::directory_iterator file(szOwnFiles, error), end; !error && file != end; file.increment(error)) {
        const int nFd = std::atoi(file->path().filename().c_str());
        struct stat found {};
        if (std::find(notCounted.begin(), notCounted.end(), nFd) == notCounted.end() && fstat(nFd, &found) == 0 &&
            found.st_dev == wanted.st_dev && found.st_ino == wanted.st_ino)
            return true;
    }
    return false;
}

} // namespace

Port::~Port()
{
    closeFile(m_nFd);
    giveBackUsb(0);
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

// The library resets a device before it finds out that another program has it; a second qvreader must not get so far.
std::optional<std::string> Port::claimUsbNode(const std::string &sNode)
{
    const int nFd = open(sNode.c_str(), O_RDONLY | O_CLOEXEC);
    m_usbNodes.push_back({sNode, nFd});
    if (nFd >= 0 && flock(nFd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return sNode + " is busy: another qvreader is at work on it (fuser -v " + sNode + ")";
    return std::nullopt;
}

std::optional<std::string> Port::claimUsb(const std::vector<std::string> &nodes)
{
    const size_t nBefore = m_usbNodes.size();
    for (const std::string &sNode : nodes)
        if (std::optional<std::string> sReason = claimUsbNode(sNode)) {
            giveBackUsb(nBefore);
            return sReason;
        }
    return std::nullopt;
}

std::vector<std::string> Port::usbNodes() const
{
    std::vector<std::string> nodes;
    for (const UsbNode &node : m_usbNodes)
        nodes.push_back(node.sNode);
    return nodes;
}

void Port::settleUsb()
{
    std::vector<int> own;
    for (const UsbNode &node : m_usbNodes)
        own.push_back(node.nFd);
    const auto opened = std::find_if(m_usbNodes.begin(), m_usbNodes.end(),
                                     [&](const UsbNode &node) { return isOpenHere(node.sNode, own); });
    if (opened == m_usbNodes.end()) { // it has gone again
        m_sDevice = m_usbNodes.size() == 1 ? m_usbNodes.front().sNode : std::string();
        return;
    }
    m_sDevice = opened->sNode;
    std::iter_swap(m_usbNodes.begin(), opened);
    giveBackUsb(1);
}

void Port::giveBackUsb(size_t nKept)
{
    while (m_usbNodes.size() > nKept) {
        closeFile(m_usbNodes.back().nFd);
        m_usbNodes.pop_back();
    }
}

bool Port::isGone() const
{
    if (!m_usbNodes.empty())
        return !m_sDevice.empty() && access(m_sDevice.c_str(), F_OK) != 0;
    termios now{};
    return m_nFd >= 0 && tcgetattr(m_nFd, &now) != 0;
}

void Port::drain() const
{
    if (m_nFd >= 0)
        tcdrain(m_nFd);
}

void Port::putLast(const std::string &sText) const
{
    if (m_nFd >= 0)
        syscall(SYS_write, m_nFd.load(), sText.data(), sText.size()); // nothing is to be done about a failure
}

void Port::restoreSettings() const
{
    if (m_nFd >= 0)
        tcsetattr(m_nFd, TCSANOW, &m_found);
}

} // namespace qvtool
