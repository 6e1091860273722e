// usb_interface.cpp - reads a USB reader's descriptors.
//
// Owns the endpoint records, which keep what was learnt last: an interface that does not tell leaves them as they are.

#include "usb_interface.h"

#include "log.h"

#include <dlfcn.h>
#include <initializer_list>
#include <libusb.h>

// A host's stand-in for libusb may have no more than the calls that reach a reader: the library loads all the same.
#pragma weak libusb_free_config_descriptor

using qv::kLogCommDev;

EndpointInfo g_inep = {};
EndpointInfo g_outep = {};

static_assert(sizeof(EndpointInfo) == 5);

namespace {

constexpr uint8_t ucDirectionIn = 0x80;         // bit of an endpoint's address
constexpr uint32_t nVidFirstInterface = 0x2B46; // the product that has its reader channel on its first interface;
constexpr uint32_t nPidFirstInterface = 0xBE11; // every other one of several interfaces has it on the second

// The interface that carries the reader's channel; null in a configuration without interfaces.
const libusb_interface *chooseInterface(const libusb_config_descriptor &config, uint32_t nVID, uint32_t nPID) noexcept
{
    QV_LOG(kLogCommDev, "the num of interface is=%d\n", config.bNumInterfaces);
    if (config.bNumInterfaces == 0)
        return nullptr;
    if (config.bNumInterfaces == 1) {
        QV_LOG(kLogCommDev, "get default interface_num and endpoint_info\n");
        return &config.interface[0];
    }
    const bool bFirst = nVID == nVidFirstInterface && nPID == nPidFirstInterface;
    return &config.interface[bFirst ? 0 : 1];
}

const void *ownerOf(const void *pFunction) noexcept
{
    Dl_info info{};
    return dladdr(pFunction, &info) != 0 ? info.dli_fbase : nullptr;
}

// Only to the library that made it: beside a stand-in, a call that this one lacks is the system's libusb's.
void giveBack(libusb_config_descriptor *pConfig) noexcept
{
    const auto *pMaker = reinterpret_cast<const void *>(&libusb_get_active_config_descriptor);
    const auto *pFree = reinterpret_cast<const void *>(&libusb_free_config_descriptor);
    if (pFree != nullptr && ownerOf(pFree) == ownerOf(pMaker))
        libusb_free_config_descriptor(pConfig);
}

} // namespace

namespace qv {

bool learnInterface(libusb_device *pDevice, uint32_t nVID, uint32_t nPID, uint8_t &ucInterface) noexcept
{
    libusb_config_descriptor *pConfig = nullptr;
    const int nRet = libusb_get_active_config_descriptor(pDevice, &pConfig);
    if (nRet != 0 || pConfig == nullptr) {
        QV_LOG(kLogCommDev, "get config failed\n");
        return false;
    }
    const libusb_interface *pInterface = chooseInterface(*pConfig, nVID, nPID);
    ucInterface = pInterface == nullptr ? 0 : GetCommInfo(pInterface);
    giveBack(pConfig);
    return true;
}

} // namespace qv

uint8_t GetCommInfo(const libusb_interface *itf) noexcept
{
    const int nSettings = itf == nullptr ? 0 : itf->num_altsetting;
    QV_LOG(kLogCommDev, "GetCommInfo Begin,num_altsetting=%d", nSettings);
    if (nSettings != 1 || itf->altsetting == nullptr) {
        QV_LOG(kLogCommDev, "need choose altsetting by yourself\n");
        return 0;
    }
    return GetInterfaceInfo(&itf->altsetting[0]);
}

uint8_t GetInterfaceInfo(const libusb_interface_descriptor *alt) noexcept
{
    if (alt == nullptr)
        return 0;
    QV_LOG(kLogCommDev, "GetInterfaceInfo Begin,bNumEndpoints=%d", alt->bNumEndpoints);
    if (alt->bNumEndpoints == 2 && alt->endpoint != nullptr)
        GetEndpointInfo(&alt->endpoint[0], &alt->endpoint[1]);
    else
        QV_LOG(kLogCommDev, "need choose endpoint by yourself\n");
    return alt->bInterfaceNumber;
}

void GetEndpointInfo(const libusb_endpoint_descriptor *ep1, const libusb_endpoint_descriptor *ep2) noexcept
{
    if (ep1 == nullptr || ep2 == nullptr)
        return;
    QV_LOG(kLogCommDev, "endpoint1,bEndpointAddress=%02X,bmAttributes=%02X,bInterval=%d,wMaxPacketSize=%04X",
           ep1->bEndpointAddress, ep1->bmAttributes, ep1->bInterval, ep1->wMaxPacketSize);
    QV_LOG(kLogCommDev, "endpoint2,bEndpointAddress=%02X,bmAttributes=%02X,bInterval=%d,wMaxPacketSize=%04X",
           ep2->bEndpointAddress, ep2->bmAttributes, ep2->bInterval, ep2->wMaxPacketSize);
    for (const libusb_endpoint_descriptor *pEndpoint : {ep1, ep2}) {
        EndpointInfo &info = (pEndpoint->bEndpointAddress & ucDirectionIn) != 0 ? g_inep : g_outep;
        info.cEpaddress = pEndpoint->bEndpointAddress;
        info.cTransferType = pEndpoint->bmAttributes & 0x03;
        info.cTimeInterval = pEndpoint->bInterval;
        info.cMaxPackeSize[0] = static_cast<uint8_t>((pEndpoint->wMaxPacketSize >> 8) & 0x07);
        info.cMaxPackeSize[1] = static_cast<uint8_t>(pEndpoint->wMaxPacketSize & 0xFF);
    }
    QV_LOG(kLogCommDev,
           "g_inep,cEpaddress=%02X,cTransferType=%02X,cTimeInterval=%d,cMaxPackeSize[0]=%02X,cMaxPackeSize[1]=%02X",
           g_inep.cEpaddress, g_inep.cTransferType, g_inep.cTimeInterval, g_inep.cMaxPackeSize[0],
           g_inep.cMaxPackeSize[1]);
    QV_LOG(kLogCommDev,
           "g_outep,cEpaddress=%02X,cTransferType=%02X,cTimeInterval=%d,cMaxPackeSize[0]=%02X,cMaxPackeSize[1]=%02X",
           g_outep.cEpaddress, g_outep.cTransferType, g_outep.cTimeInterval, g_outep.cMaxPackeSize[0],
           g_outep.cMaxPackeSize[1]);
}
