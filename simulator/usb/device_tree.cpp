// Folders, links and attribute files.
#include "usb/device_tree.h"

#include "system/io.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace qvsim {

namespace {

namespace fs = std::filesystem;

constexpr char kRoot[] = "/sys/devices/pci0000:00";
constexpr std::size_t kLongestParent = 60; // leaves room for the names below it within a socket's 107 characters
constexpr mode_t kReadableByAll = 0755;

std::string portName(unsigned port)
{
    return "1-" + std::to_string(port);
}

std::string hidName(UsbId id, unsigned number)
{
    char text[32];
    std::snprintf(text, sizeof text, "0003:%04X:%04X.%04X", unsigned{id.vendor}, unsigned{id.product}, number + 1);
    return text;
}

std::string hex4(unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04X", value);
    return text;
}

// As the kernel writes identities in sysfs.
std::string lowerHex4(unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x", value);
    return text;
}

std::string decimal3(unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%03u", value);
    return text;
}

// A tree below /dev would itself be redirected.
fs::path parentFolder()
{
    const char *const wanted = ::getenv("TMPDIR");
    const std::string_view name = wanted == nullptr ? "" : wanted;
    const bool fits = name.starts_with('/') && name.size() <= kLongestParent && !name.starts_with("/dev");
    return fits ? name : "/tmp";
}

void removeFolder(const fs::path &path)
{
    std::error_code error;
    fs::remove_all(path, error);
}

} // namespace

DeviceTree::DeviceTree()
{
    std::string name = parentFolder() / "qvusb-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        const int error = errno;
        throw std::runtime_error(errorText(name, error));
    }
    path_ = name;
    ::chmod(path_.c_str(), kReadableByAll); // the command may run as another user
    try {
        for (const char *folder : {"/sys/bus/usb/devices", "/sys/bus/hid/devices", "/sys/class/hidraw",
                                   "/sys/devices/pci0000:00", "/dev/bus/usb/001", "/ioctl/dev/bus/usb/001"})
            fs::create_directories(path_ + folder);
    } catch (...) {
        removeFolder(path_);
        throw;
    }
}

DeviceTree::~DeviceTree()
{
    removeFolder(path_);
}

std::string DeviceTree::usbNodeName(unsigned address)
{
    return "bus/usb/001/" + decimal3(address);
}

std::string DeviceTree::hidrawNodeName(unsigned number)
{
    return "hidraw" + std::to_string(number);
}

std::string DeviceTree::devicePath(unsigned port) const
{
    return path_ + kRoot + "/" + portName(port);
}

std::string DeviceTree::interfacePath(unsigned port, unsigned interface) const
{
    return devicePath(port) + "/" + portName(port) + ":1." + std::to_string(interface);
}

void DeviceTree::write(const std::string &file, std::string_view text) const
{
    writeBytes(file, asBytes(text));
}

void DeviceTree::writeBytes(const std::string &file, BytesView bytes) const
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush())
        throw std::runtime_error(file + ": cannot be written");
}

void DeviceTree::addDevice(unsigned port, unsigned address, const UsbDeviceOptions &options)
{
    const std::string device = devicePath(port);
    fs::create_directory(device);
    fs::create_symlink("../../../bus/usb", device + "/subsystem");
    Bytes descriptors = deviceDescriptor(options);
    const Bytes configuration = configurationDescriptor(options);
    descriptors.insert(descriptors.end(), configuration.begin(), configuration.end());
    writeBytes(device + "/descriptors", descriptors);
    const unsigned minor = address - 1;
    const std::pair<const char *, std::string> attributes[] = {
        {"busnum", "1"},
        {"devnum", std::to_string(address)},
        {"dev", "189:" + std::to_string(minor)},
        {"bConfigurationValue", "1"},
        {"speed", "480"},
        {"idVendor", lowerHex4(options.id.vendor)},
        {"idProduct", lowerHex4(options.id.product)},
        {"bcdDevice", "0100"},
        {"manufacturer", "qvreader-sim"},
        {"product", options.product},
        {"serial", options.serial},
        {"uevent", "MAJOR=189\nMINOR=" + std::to_string(minor) + "\nDEVNAME=" + usbNodeName(address) +
                       "\nDEVTYPE=usb_device\nBUSNUM=001\nDEVNUM=" + decimal3(address)},
    };
    for (const auto &[name, value] : attributes)
        write(device + "/" + name, value + "\n");
    for (const unsigned interface : interfacesOf(configuration)) {
        const std::string folder = interfacePath(port, interface);
        fs::create_directory(folder);
        fs::create_symlink("../../../../bus/usb", folder + "/subsystem");
        write(folder + "/bInterfaceNumber", "0" + std::to_string(interface) + "\n");
        write(folder + "/bInterfaceClass", "03\n");
        write(folder + "/uevent", "DEVTYPE=usb_interface\n");
    }
    fs::create_symlink("../../../devices/pci0000:00/" + portName(port),
                       path_ + "/sys/bus/usb/devices/" + portName(port));
}

void DeviceTree::removeDevice(unsigned port)
{
    removeFolder(path_ + "/sys/bus/usb/devices/" + portName(port));
    removeFolder(devicePath(port));
}

void DeviceTree::setConfigured(unsigned port, bool configured)
{
    write(devicePath(port) + "/bConfigurationValue", configured ? "1\n" : "");
}

unsigned DeviceTree::addHidraw(unsigned port, unsigned interface, const UsbDeviceOptions &options)
{
    unsigned number = 0;
    while (hidraws_.contains(number))
        ++number;
    hidraws_.insert(number);
    const std::string id = hidName(options.id, number);
    const std::string hid = interfacePath(port, interface) + "/" + id;
    const std::string name = hidrawNodeName(number);
    const std::string raw = hid + "/hidraw/" + name;
    fs::create_directories(raw);
    fs::create_symlink("../../../../../bus/hid", hid + "/subsystem");
    write(hid + "/uevent", "DRIVER=hid-generic\nHID_ID=0003:0000" + hex4(options.id.vendor) + ":0000" +
                               hex4(options.id.product) + "\nHID_NAME=qvreader-sim " + options.product +
                               "\nHID_PHYS=usb-" + portName(port) + "/input" + std::to_string(interface) +
                               "\nHID_UNIQ=" + options.serial + "\n");
    writeBytes(hid + "/report_descriptor", reportDescriptor(options));
    fs::create_symlink("../../../" + id, raw + "/device");
    fs::create_symlink("../../../../../../../class/hidraw", raw + "/subsystem");
    write(raw + "/uevent", "MAJOR=240\nMINOR=" + std::to_string(number) + "\nDEVNAME=" + name + "\n");
    write(raw + "/dev", "240:" + std::to_string(number) + "\n");
    const std::string target = "../../devices/pci0000:00/" + portName(port) + "/" + portName(port) + ":1." +
                               std::to_string(interface) + "/" + id + "/hidraw/" + name;
    fs::create_symlink(target, path_ + "/sys/class/hidraw/" + name);
    return number;
}

void DeviceTree::removeHidraw(unsigned port, unsigned interface, unsigned number)
{
    hidraws_.erase(number);
    removeFolder(path_ + "/sys/class/hidraw/" + hidrawNodeName(number));
    const std::string folder = interfacePath(port, interface);
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, error))
        if (entry.path().filename().string().starts_with("0003:"))
            removeFolder(entry.path());
}

} // namespace qvsim
