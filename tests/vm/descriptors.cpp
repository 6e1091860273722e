#include "descriptors.h"

#include <array>

namespace qvvm {

namespace {

constexpr std::uint8_t kDevice = 1, kConfiguration = 2, kString = 3, kInterface = 4, kEndpoint = 5, kHid = 0x21,
                       kReport = 0x22;
constexpr std::uint8_t kHidClass = 3, kVendorClass = 0xFF;
constexpr std::uint8_t kBulk = 2, kInterrupt = 3;
constexpr std::uint8_t kIn = 0x80;

constexpr std::array<const char *, 4> kStrings{"", "Simulated", "Card reader", "VM000001"};

std::uint8_t low(std::size_t n)
{
    return static_cast<std::uint8_t>(n & 0xFF);
}
std::uint8_t high(std::size_t n)
{
    return static_cast<std::uint8_t>(n >> 8 & 0xFF);
}

void append(Bytes &to, const Bytes &more)
{
    to.insert(to.end(), more.begin(), more.end());
}

Bytes endpointDescriptor(std::uint8_t address, bool interrupt)
{
    return {7,
            kEndpoint,
            address,
            interrupt ? kInterrupt : kBulk,
            low(kReportSize),
            high(kReportSize),
            static_cast<std::uint8_t>(interrupt ? 1 : 0)};
}

} // namespace

Bytes deviceDescriptor(const DeviceShape &shape)
{
    return {18,
            kDevice,
            0x00, // USB 2.0
            0x02,
            0, // class, subclass and protocol stand in the interfaces
            0,
            0,
            64, // packets of endpoint 0
            low(shape.vendor),
            high(shape.vendor),
            low(shape.product),
            high(shape.product),
            0x00, // release 1.0
            0x01,
            1, // strings: maker, product, serial number
            2,
            3,
            1}; // configurations
}

Bytes configurationDescriptor(const DeviceShape &shape)
{
    Bytes all{9, kConfiguration, 0, 0, low(shape.interfaces.size()), 1, 0, 0x80, 50}; // length later; 100 mA
    for (std::size_t i = 0; i < shape.interfaces.size(); ++i) {
        const InterfaceShape &interface = shape.interfaces[i];
        for (unsigned setting = 0; setting < interface.settings; ++setting) {
            append(all, {9, kInterface, low(i), low(setting), 2, interface.isHid ? kHidClass : kVendorClass, 0, 0, 0});
            if (interface.isHid)
                append(all, {9, kHid, 0x11, 0x01, 0, 1, kReport, low(reportDescriptor().size()), 0});
            append(all, endpointDescriptor(low(kIn + 1 + i), interface.isHid));
            append(all, endpointDescriptor(low(1 + i), interface.isHid));
        }
    }
    all[2] = low(all.size());
    all[3] = high(all.size());
    return all;
}

Bytes stringDescriptor(unsigned index)
{
    if (index == 0)
        return {4, kString, 0x09, 0x04}; // language: English
    if (index >= kStrings.size())
        return {};
    Bytes text;
    for (const char *p = kStrings[index]; *p != '\0'; ++p)
        append(text, {static_cast<std::uint8_t>(*p), 0});
    Bytes all{low(2 + text.size()), kString};
    append(all, text);
    return all;
}

Bytes reportDescriptor()
{
    return {0x06, 0x00, 0xFF,                    // vendor-defined page
            0x09, 0x01, 0xA1, 0x01,              // usage 1, application collection
            0x15, 0x00, 0x26, 0xFF,        0x00, // values 0 to 255
            0x75, 0x08, 0x95, kReportSize,       // 64 fields of 8 bits
            0x09, 0x02, 0x81, 0x02,              // input
            0x09, 0x03, 0x91, 0x02,              // output
            0xC0};
}

} // namespace qvvm
