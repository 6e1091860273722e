#include "usb_devices.h"

#include "hex.h"
#include "holders.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <unistd.h>

namespace qvtool {

namespace {

namespace fs = std::filesystem;

constexpr char szDevices[] = "/sys/bus/usb/devices";
constexpr char szRule[] = "70-qvreader.rules";
constexpr std::array<const char *, 5> ruleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                                  "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                                  "/lib/udev/rules.d"};
constexpr UsbId oneReaderFirst{0x2B46, 0xBE11}; // whose first interface is the reader's where it has several

struct IdentityRow {
    uint16_t nProduct;
    uint16_t nVendor;
};

constexpr IdentityRow anyTable[] = {
#include "usb_identities.inc"
};
constexpr IdentityRow icTable[] = {
#include "usb_identities_ic.inc"
};
constexpr IdentityRow stripeTable[] = {
#include "usb_identities_stripe.inc"
};

std::span<const IdentityRow> tableOf(UsbSide side)
{
    switch (side) {
    case UsbSide::ic: return icTable;
    case UsbSide::stripe: return stripeTable;
    default: return anyTable;
    }
}

std::vector<UsbId> identities(const std::optional<UsbId> &only, UsbSide side)
{
    if (only)
        return {*only};
    std::vector<UsbId> ids;
    for (const IdentityRow &row : tableOf(side))
        ids.push_back({row.nVendor, row.nProduct});
    return ids;
}

std::string firstLine(const fs::path &file)
{
    std::ifstream in(file);
    std::string sLine;
    std::getline(in, sLine);
    return sLine;
}

// -1: no such number there.
int numberIn(const fs::path &file, int nBase)
{
    const std::string sText = firstLine(file);
    char *pEnd = nullptr;
    const long nValue = std::strtol(sText.c_str(), &pEnd, nBase);
    return pEnd == sText.c_str() || nValue < 0 || nValue > 0xFFFF ? -1 : static_cast<int>(nValue);
}

std::vector<fs::path> entriesOf(const fs::path &folder)
{
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.push_back(entry->path());
    std::sort(entries.begin(), entries.end());
    return entries;
}

// A HID device below the interface has its nodes in a folder of its own.
std::vector<std::string> hidrawsOf(const fs::path &interface)
{
    std::vector<std::string> nodes;
    for (const fs::path &hid : entriesOf(interface))
        for (const fs::path &raw : entriesOf(hid / "hidraw"))
            nodes.push_back("/dev/" + raw.filename().string());
    return nodes;
}

std::vector<UsbInterface> interfacesOf(const fs::path &device)
{
    std::vector<UsbInterface> interfaces;
    for (const fs::path &entry : entriesOf(device)) {
        const int nNumber = numberIn(entry / "bInterfaceNumber", 16);
        if (nNumber < 0)
            continue;
        std::error_code none;
        interfaces.push_back({nNumber, fs::read_symlink(entry / "driver", none).filename().string(), hidrawsOf(entry)});
    }
    return interfaces;
}

std::string nodeOf(int nBus, int nDevice)
{
    std::array<char, 40> szNode{};
    std::snprintf(szNode.data(), szNode.size(), "/dev/bus/usb/%03d/%03d", nBus, nDevice);
    return szNode.data();
}

std::string lowerHex(uint16_t n)
{
    std::string sText = hexWord(n);
    std::transform(sText.begin(), sText.end(), sText.begin(), [](unsigned char c) { return std::tolower(c); });
    return sText;
}

} // namespace

std::string UsbDevice::idText() const
{
    return hexWord(id.nVendor) + ":" + hexWord(id.nProduct);
}

const UsbInterface *UsbDevice::readerInterface() const
{
    if (interfaces.empty())
        return nullptr;
    return &interfaces[interfaces.size() == 1 || id == oneReaderFirst ? 0 : 1];
}

bool sideKnows(UsbSide side, UsbId id)
{
    const std::vector<UsbId> known = identities(std::nullopt, side);
    return std::find(known.begin(), known.end(), id) != known.end();
}

std::vector<UsbDevice> usbReaders(const std::optional<UsbId> &only, UsbSide side)
{
    const std::vector<UsbId> known = identities(only, side);
    std::vector<UsbDevice> devices;
    for (const fs::path &entry : entriesOf(szDevices)) {
        const int nVendor = numberIn(entry / "idVendor", 16);
        const int nProduct = numberIn(entry / "idProduct", 16);
        if (nVendor < 0 || nProduct < 0)
            continue;
        UsbDevice device;
        device.id = {static_cast<uint16_t>(nVendor), static_cast<uint16_t>(nProduct)};
        const auto place = std::find(known.begin(), known.end(), device.id);
        if (place == known.end())
            continue;
        device.nTrial = static_cast<int>(place - known.begin()) + 1;
        device.nBus = numberIn(entry / "busnum", 10);
        device.nDevice = numberIn(entry / "devnum", 10);
        device.sPlace = entry.filename().string();
        device.sProduct = firstLine(entry / "product");
        device.sNode = nodeOf(device.nBus, device.nDevice);
        device.interfaces = interfacesOf(entry);
        devices.push_back(std::move(device));
    }
    std::stable_sort(devices.begin(), devices.end(),
                     [](const UsbDevice &a, const UsbDevice &b) { return a.nTrial < b.nTrial; });
    return devices;
}

std::string usbIdentitiesText(const std::optional<UsbId> &only, UsbSide side)
{
    std::string sText;
    for (const UsbId &id : identities(only, side))
        sText += (sText.empty() ? "" : ", ") + hexWord(id.nVendor) + ":" + hexWord(id.nProduct);
    return sText;
}

UdevRule udevRule(UsbId id)
{
    UdevRule rule;
    for (const char *pszFolder : ruleFolders) {
        const fs::path file = fs::path(pszFolder) / szRule;
        std::ifstream in(file);
        if (!in)
            continue;
        rule.sFile = file;
        for (std::string sLine; std::getline(in, sLine);)
            if (sLine.find("\"" + lowerHex(id.nVendor) + "\"") != sLine.npos &&
                sLine.find("\"" + lowerHex(id.nProduct) + "\"") != sLine.npos)
                rule.bNamesDevice = true;
        return rule; // the first folder's file replaces those of the same name behind it
    }
    return rule;
}

std::string permissionAdvice(UsbId id)
{
    const UdevRule rule = udevRule(id);
    if (rule.sFile.empty())
        return std::string("install the udev rule ") + szRule +
               " in /etc/udev/rules.d, then: sudo udevadm control --reload, and plug the reader in anew";
    if (!rule.bNamesDevice)
        return "the udev rule " + rule.sFile + " does not name this device: add a line for it to a rule of your own";
    return "the udev rule " + rule.sFile +
           " gives it to whoever sits at the machine: plug the reader in anew; over a remote login it gives nothing";
}

NodeTrouble nodeTrouble(const std::string &sNode, const std::string &sWhich, UsbId id)
{
    if (access(sNode.c_str(), R_OK | W_OK) == 0)
        return {};
    const int nError = errno;
    switch (nError) {
    case ENOENT:
    case ENOTDIR:
        return {sWhich + " is not there", "plug the reader in anew; a container has to be given the machine's /dev"};
    case EACCES:
    case EPERM: return {"no permission to open " + sWhich, permissionAdvice(id)};
    default: return {sWhich + " cannot be opened: " + std::strerror(nError), "plug the reader in anew"};
    }
}

UsbTrouble usbTrouble(const UsbDevice &device, bool bFailed)
{
    const std::string sWhich = device.sNode + " (" + device.idText() + ")";
    const NodeTrouble trouble = nodeTrouble(device.sNode, sWhich, device.id);
    if (!trouble.sText.empty())
        return {trouble.sText + "; " + trouble.sAdvice, false};
    // A program may have the node open without holding the reader's interface: that hinders nobody.
    const UsbInterface *pInterface = device.readerInterface();
    const bool bHeld = pInterface != nullptr && pInterface->sDriver == szHeldByProgram;
    if (!bHeld && !bFailed)
        return {};
    for (const Holder &holder : holdersOf(device.sNode))
        if (!holder.bFarEnd)
            return {sWhich + " is busy: " + holder.sProgram + " has it open", true};
    return bHeld ? UsbTrouble{sWhich + " is busy: a program of another user has it open", true} : UsbTrouble{};
}

std::string noReaderText(const std::optional<UsbId> &only, UsbSide side)
{
    return "no reader is on USB (looked for " + usbIdentitiesText(only, side) + "); is it plugged in?";
}

} // namespace qvtool
