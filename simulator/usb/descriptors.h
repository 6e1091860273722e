// What an emulated USB device says of itself: device, configuration, string and report descriptors.
//
//   configuration  = configuration descriptor, then for each interface and each of its alternate settings:
//                    interface descriptor, HID descriptor, endpoint descriptors
//   interface n    has the endpoints 81+n (IN) and 01+n (OUT), n counting from 0
#pragma once

#include "model/bytes.h"

namespace qvsim {

struct UsbId {
    std::uint16_t vendor = 0x2B46;
    std::uint16_t product = 0xBE11;
    friend bool operator==(UsbId, UsbId) = default;
};

// The endpoints of each interface, in the order in which they are described.
enum class UsbEndpointSet { inOut, outIn, inOnly, outOnly, none, inOutIn };

struct UsbDeviceOptions {
    UsbId id;
    unsigned interfaces = 1;  // 0 to kMostUsbInterfaces
    unsigned altSettings = 1; // of each interface, 1 to kMostAltSettings
    UsbEndpointSet endpoints = UsbEndpointSet::inOut;
    bool bulk = false;        // else interrupt transfers
    unsigned reportSize = 64; // bytes, 1 to kLargestReport
    unsigned intervalMs = 1;  // bInterval, 1 to 255
    bool kernelDriver = true; // a HID driver sits on every interface: hidraw nodes, and no claim before a detach
    std::string product = "QV reader";
    std::string serial = "SIM00000001";
    // Instead of the configuration that follows from the above, whatever it says; for hosts that must not trust it.
    std::optional<Bytes> configuration;
};

constexpr unsigned kMostUsbInterfaces = 7;
constexpr unsigned kMostAltSettings = 8;
constexpr unsigned kLargestReport = 1024;

constexpr std::uint8_t kEndpointIn = 0x80; // bit of an endpoint address
constexpr std::uint8_t kTransferBulk = 2;  // bmAttributes
constexpr std::uint8_t kTransferInterrupt = 3;

struct UsbEndpoint {
    unsigned interface;
    unsigned altSetting;
    std::uint8_t address;
    std::uint8_t transfer;  // kTransferBulk, kTransferInterrupt or another kind
    std::size_t packetSize; // bytes, at least 1
};

Bytes deviceDescriptor(const UsbDeviceOptions &options);
Bytes configurationDescriptor(const UsbDeviceOptions &options);
Bytes reportDescriptor(const UsbDeviceOptions &options);
// String descriptor `index`; nothing when the device has none of this number.
std::optional<Bytes> stringDescriptor(const UsbDeviceOptions &options, unsigned index);

// What a configuration holds, read back from its bytes; broken ones end early.
std::vector<UsbEndpoint> endpointsOf(BytesView configuration);
std::vector<unsigned> interfacesOf(BytesView configuration);

// "in,out", "none".
std::optional<UsbEndpointSet> parseUsbEndpoints(std::string_view text);

// "2B46:BE11".
std::string usbIdText(UsbId id);
std::optional<UsbId> parseUsbId(std::string_view text);

} // namespace qvsim
