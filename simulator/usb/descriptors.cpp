// The descriptors, built byte by byte, and the walk through a configuration.
#include "usb/descriptors.h"

#include <algorithm>
#include <cstdio>

namespace qvsim {

namespace {

enum DescriptorType : std::uint8_t {
    kDevice = 1,
    kConfiguration = 2,
    kString = 3,
    kInterface = 4,
    kEndpoint = 5,
    kHid = 0x21,
    kReport = 0x22,
};

constexpr std::uint8_t kClassHid = 3;
constexpr std::size_t kPacketSizeMask = 0x07FF; // above it: transactions per microframe
constexpr char kManufacturer[] = "qvreader-sim";

std::uint8_t low(std::size_t value)
{
    return static_cast<std::uint8_t>(value & 0xFF);
}

std::uint8_t high(std::size_t value)
{
    return static_cast<std::uint8_t>((value >> 8) & 0xFF);
}

void append(Bytes &to, std::initializer_list<std::uint8_t> bytes)
{
    to.insert(to.end(), bytes);
}

void appendEndpoint(Bytes &to, const UsbDeviceOptions &options, unsigned interface, bool in, unsigned step)
{
    const unsigned number = interface + 1 + step;
    append(to, {7, kEndpoint, low(number | (in ? kEndpointIn : 0U)), options.bulk ? kTransferBulk : kTransferInterrupt,
                low(options.reportSize), high(options.reportSize), low(options.intervalMs)});
}

struct EndpointSetRow {
    UsbEndpointSet set;
    std::string_view name;
    std::vector<bool> directions; // true: IN
};

const EndpointSetRow kEndpointSets[] = {
    {UsbEndpointSet::inOut, "in,out", {true, false}},
    {UsbEndpointSet::outIn, "out,in", {false, true}},
    {UsbEndpointSet::inOnly, "in", {true}},
    {UsbEndpointSet::outOnly, "out", {false}},
    {UsbEndpointSet::none, "none", {}},
    {UsbEndpointSet::inOutIn, "in,out,in", {true, false, true}},
};

std::vector<bool> directionsOf(UsbEndpointSet set)
{
    for (const EndpointSetRow &row : kEndpointSets)
        if (row.set == set)
            return row.directions;
    return {};
}

void appendInterface(Bytes &to, const UsbDeviceOptions &options, unsigned interface, unsigned altSetting)
{
    const std::vector<bool> directions = directionsOf(options.endpoints);
    const std::size_t reportBytes = reportDescriptor(options).size();
    append(to, {9, kInterface, low(interface), low(altSetting), low(directions.size()), kClassHid, 0, 0, 0});
    append(to, {9, kHid, 0x11, 0x01, 0, 1, kReport, low(reportBytes), high(reportBytes)});
    for (std::size_t i = 0; i < directions.size(); ++i)
        // A third endpoint gets an address that no interface uses.
        appendEndpoint(to, options, interface, directions[i], i < 2 ? 0 : kMostUsbInterfaces);
}

// Calls `visit` with each whole descriptor behind the other.
template <typename Visit> void walk(BytesView bytes, Visit visit)
{
    while (bytes.size() >= 2 && bytes[0] >= 2 && bytes[0] <= bytes.size()) {
        visit(bytes.first(bytes[0]));
        bytes = bytes.subspan(bytes[0]);
    }
}

} // namespace

Bytes deviceDescriptor(const UsbDeviceOptions &options)
{
    Bytes bytes;
    append(bytes, {18, kDevice, 0x00, 0x02, 0, 0, 0, 64});
    append(bytes, {low(options.id.vendor), high(options.id.vendor), low(options.id.product), high(options.id.product)});
    append(bytes, {0x00, 0x01, 1, 2, 3, 1});
    return bytes;
}

Bytes configurationDescriptor(const UsbDeviceOptions &options)
{
    if (options.configuration)
        return *options.configuration;
    Bytes interfaces;
    for (unsigned interface = 0; interface < options.interfaces; ++interface)
        for (unsigned altSetting = 0; altSetting < options.altSettings; ++altSetting)
            appendInterface(interfaces, options, interface, altSetting);
    const std::size_t total = 9 + interfaces.size();
    Bytes bytes;
    append(bytes, {9, kConfiguration, low(total), high(total), low(options.interfaces), 1, 0, 0x80, 50});
    bytes.insert(bytes.end(), interfaces.begin(), interfaces.end());
    return bytes;
}

Bytes reportDescriptor(const UsbDeviceOptions &options)
{
    const std::uint8_t few = low(options.reportSize);
    const std::uint8_t many = high(options.reportSize);
    Bytes bytes;
    append(bytes, {0x06, 0xA0, 0xFF, 0x09, 0x01, 0xA1, 0x01}); // vendor's page, an application
    append(bytes, {0x15, 0x00, 0x26, 0xFF, 0x00, 0x75, 0x08}); // whole bytes
    append(bytes, {0x09, 0x02, 0x96, few, many, 0x81, 0x02});  // input
    append(bytes, {0x09, 0x03, 0x96, few, many, 0x91, 0x02});  // output
    bytes.push_back(0xC0);
    return bytes;
}

std::optional<Bytes> stringDescriptor(const UsbDeviceOptions &options, unsigned index)
{
    if (index == 0)
        return Bytes{4, kString, 0x09, 0x04}; // the languages there are: English
    const std::string *const texts[] = {nullptr, &options.product, &options.serial};
    if (index > std::size(texts))
        return std::nullopt;
    const std::string text = index == 1 ? std::string(kManufacturer) : *texts[index - 1];
    const std::size_t most = 126; // characters: the length byte counts two bytes each and the head
    Bytes bytes{low(2 + 2 * std::min(text.size(), most)), kString};
    for (const char c : std::string_view(text).substr(0, most))
        append(bytes, {static_cast<std::uint8_t>(c), 0});
    return bytes;
}

std::vector<UsbEndpoint> endpointsOf(BytesView configuration)
{
    std::vector<UsbEndpoint> endpoints;
    unsigned interface = 0;
    unsigned altSetting = 0;
    walk(configuration, [&](BytesView descriptor) {
        if (descriptor[1] == kInterface && descriptor.size() >= 4) {
            interface = descriptor[2];
            altSetting = descriptor[3];
        }
        if (descriptor[1] != kEndpoint || descriptor.size() < 7)
            return;
        const std::size_t size = (descriptor[4] | std::size_t{descriptor[5]} << 8) & kPacketSizeMask;
        endpoints.push_back({interface, altSetting, descriptor[2], static_cast<std::uint8_t>(descriptor[3] & 0x03),
                             std::max<std::size_t>(size, 1)});
    });
    return endpoints;
}

std::vector<unsigned> interfacesOf(BytesView configuration)
{
    std::vector<unsigned> interfaces;
    walk(configuration, [&](BytesView descriptor) {
        if (descriptor[1] == kInterface && descriptor.size() >= 4 &&
            std::find(interfaces.begin(), interfaces.end(), descriptor[2]) == interfaces.end())
            interfaces.push_back(descriptor[2]);
    });
    return interfaces;
}

std::optional<UsbEndpointSet> parseUsbEndpoints(std::string_view text)
{
    for (const EndpointSetRow &row : kEndpointSets)
        if (row.name == text)
            return row.set;
    return std::nullopt;
}

std::string usbIdText(UsbId id)
{
    char text[10];
    std::snprintf(text, sizeof text, "%04X:%04X", unsigned{id.vendor}, unsigned{id.product});
    return text;
}

std::optional<UsbId> parseUsbId(std::string_view text)
{
    if (text.size() != 9 || text[4] != ':')
        return std::nullopt;
    const std::optional<Bytes> vendor = fromHex(text.substr(0, 4));
    const std::optional<Bytes> product = fromHex(text.substr(5));
    if (!vendor || vendor->size() != 2 || !product || product->size() != 2)
        return std::nullopt;
    const auto word = [](const Bytes &b) { return static_cast<std::uint16_t>(b[0] << 8 | b[1]); };
    return UsbId{word(*vendor), word(*product)};
}

} // namespace qvsim
