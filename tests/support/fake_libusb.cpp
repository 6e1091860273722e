#include "fake_libusb_bus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <utility>

namespace {

using namespace qvtest;

// Keeps a call as text. Called with the guard held.
void keep(const std::string &sText)
{
    bus().calls.push_back(sText);
    if (bus().onCall)
        bus().onCall(sText);
}

// A call that can fail: keeps it as text and says what the script has for it. Called with the guard held.
std::optional<int> called(const std::string &sName, const std::string &sText = "")
{
    Bus &b = bus();
    keep(sText.empty() ? sName : sText);
    if (b.nFailAt && (*b.nFailAt)-- == 0) {
        b.nFailAt.reset();
        return b.nFailResult;
    }
    auto &queue = b.results[sName];
    if (queue.empty())
        return std::nullopt;
    int n = queue.front();
    queue.pop_front();
    return n;
}

std::string numbered(const char *pszName, size_t n)
{
    return std::string(pszName) + " " + std::to_string(n);
}

bool isOpen(libusb_device_handle *pHandle, const char *pszCall)
{
    bool bOpen = bus().handles.count(pHandle) != 0;
    if (!bOpen)
        ADD_FAILURE() << pszCall << " with a handle that is not open";
    return bOpen;
}

bool isListed(libusb_device *pDevice, const char *pszCall)
{
    for (const auto &[ppList, devices] : bus().lists) {
        for (const auto &p : devices) {
            if (p.get() == pDevice)
                return true;
        }
    }
    ADD_FAILURE() << pszCall << " with a device of no list";
    return false;
}

void requireContext(libusb_context *pContext, const char *pszCall)
{
    if (pContext != nullptr)
        ADD_FAILURE() << pszCall << " on another than the default context";
    if (bus().nContexts <= 0)
        ADD_FAILURE() << pszCall << " without a context";
}

std::unique_ptr<Config> configOf(const UsbDevice &device)
{
    auto config = std::make_unique<Config>();
    for (const UsbInterface &interface : device.interfaces) {
        auto &settings = config->settings.emplace_back();
        for (const UsbSetting &setting : interface) {
            auto &endpoints = config->endpoints.emplace_back();
            for (const UsbEndpoint &is : setting.endpoints) {
                libusb_endpoint_descriptor ep{};
                ep.bEndpointAddress = is.ucAddress;
                ep.bmAttributes = is.ucAttributes;
                ep.wMaxPacketSize = is.nPacket;
                ep.bInterval = is.ucInterval;
                endpoints.push_back(ep);
            }
            libusb_interface_descriptor descriptor{};
            descriptor.bInterfaceNumber = setting.ucInterface;
            descriptor.bAlternateSetting = static_cast<uint8_t>(settings.size());
            descriptor.bNumEndpoints = static_cast<uint8_t>(endpoints.size());
            // The heap block stays where it is when the outer vector grows.
            descriptor.endpoint = endpoints.empty() ? nullptr : endpoints.data();
            settings.push_back(descriptor);
        }
        libusb_interface itf{};
        itf.altsetting = settings.empty() ? nullptr : settings.data();
        itf.num_altsetting = static_cast<int>(settings.size());
        config->interfaces.push_back(itf);
    }
    config->head.bNumInterfaces = static_cast<uint8_t>(config->interfaces.size());
    config->head.interface = config->interfaces.empty() ? nullptr : config->interfaces.data();
    return config;
}

int transfer(const char *pszKind, libusb_device_handle *pHandle, uint8_t ucEndpoint, uint8_t *pData, int nLen,
             int *pnMoved, unsigned nTimeOut)
{
    Bus &b = bus();
    std::unique_lock lock(b.guard);
    char sz[64];
    std::snprintf(sz, sizeof sz, "%s %02X %d %u", pszKind, ucEndpoint, nLen, nTimeOut);
    std::optional<int> nFailed = called("transfer", sz);
    if (!isOpen(pHandle, pszKind))
        return LIBUSB_ERROR_NO_DEVICE;
    const bool bIn = (ucEndpoint & LIBUSB_ENDPOINT_IN) != 0;
    Bytes sent;
    if (bIn) {
        ++b.nReads;
    } else {
        sent.assign(pData, pData + nLen);
        b.sent.push_back(sent);
    }
    if (nFailed)
        return *nFailed;
    auto onOut = b.onOut;
    auto onIn = b.onIn;
    size_t nRead = b.nReads;
    lock.unlock();
    if (bIn && onIn)
        onIn(nRead);
    if (!bIn && onOut)
        onOut(sent);
    lock.lock();
    auto &script = bIn ? b.in : b.out;
    if (script.empty()) {
        auto onSilence = b.onSilence;
        lock.unlock();
        *pnMoved = bIn ? 0 : nLen;
        if (bIn && onSilence)
            onSilence();
        return bIn ? LIBUSB_ERROR_TIMEOUT : 0;
    }
    Scripted step = script.front();
    script.pop_front();
    lock.unlock();
    if (step.nMillis > 0) {
        timespec rest{step.nMillis / 1000, (step.nMillis % 1000) * 1'000'000L};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, nullptr);
    }
    if (bIn && step.data.size() > static_cast<size_t>(nLen))
        ADD_FAILURE() << "a report of " << step.data.size() << " bytes does not fit into " << nLen;
    else if (bIn)
        std::copy(step.data.begin(), step.data.end(), pData);
    if (!step.bUntouched)
        *pnMoved = step.nMoved.value_or(bIn ? static_cast<int>(step.data.size()) : nLen);
    if (step.nErrno != 0)
        errno = step.nErrno;
    return step.nResult;
}

} // namespace

// ---- what the library calls -----------------------------------------------------------------------------------------

int libusb_init(libusb_context **ppContext)
{
    Bus &b = bus();
    std::function<void()> onInit;
    {
        std::scoped_lock lock(b.guard);
        if (ppContext != nullptr)
            ADD_FAILURE() << "init of another than the default context";
        onInit = b.onInit;
        if (auto n = called("init"); n && *n != 0)
            return *n;
        ++b.nContexts;
    }
    if (onInit)
        onInit();
    return 0;
}

void libusb_exit(libusb_context *pContext)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    keep("exit");
    requireContext(pContext, "exit");
    if (!b.handles.empty() || !b.lists.empty() || !b.configs.empty())
        ADD_FAILURE() << "exit while something is still held";
    --b.nContexts;
}

ssize_t libusb_get_device_list(libusb_context *pContext, libusb_device ***pppList)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    requireContext(pContext, "list");
    size_t nCount = b.devices.size();
    if (auto n = called("list")) {
        if (*n < 0)
            return *n;
        nCount = 0;
    }
    auto **ppList = new libusb_device *[nCount + 1];
    auto &owned = b.lists[ppList];
    for (size_t i = 0; i < nCount; ++i) {
        owned.push_back(std::make_unique<libusb_device>(libusb_device{i}));
        ppList[i] = owned.back().get();
    }
    ppList[nCount] = nullptr;
    *pppList = ppList;
    return static_cast<ssize_t>(nCount);
}

void libusb_free_device_list(libusb_device **ppList, int nUnref)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    keep("free_list");
    if (ppList == nullptr)
        return;
    if (nUnref != 1)
        ADD_FAILURE() << "the devices of the list are not given back";
    if (b.lists.erase(ppList) == 0)
        ADD_FAILURE() << "free_list with an unknown list";
    else
        delete[] ppList;
}

int libusb_get_device_descriptor(libusb_device *pDevice, libusb_device_descriptor *pOut)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    if (!isListed(pDevice, "descriptor"))
        return LIBUSB_ERROR_INVALID_PARAM;
    *pOut = {}; // also where it fails: nothing of it may then be used
    pOut->idVendor = b.devices.at(pDevice->nIndex).nVendor;
    pOut->idProduct = b.devices.at(pDevice->nIndex).nProduct;
    return called("descriptor", numbered("descriptor", pDevice->nIndex)).value_or(0);
}

int libusb_open(libusb_device *pDevice, libusb_device_handle **ppHandle)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    if (!isListed(pDevice, "open"))
        return LIBUSB_ERROR_NO_DEVICE;
    if (auto n = called("open", numbered("open", pDevice->nIndex)); n && *n != 0)
        return *n;
    auto handle = std::make_unique<libusb_device_handle>(libusb_device_handle{pDevice->nIndex});
    *ppHandle = handle.get();
    b.handles[*ppHandle] = std::move(handle);
    return 0;
}

void libusb_close(libusb_device_handle *pHandle)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    keep("close");
    if (pHandle != nullptr && isOpen(pHandle, "close"))
        b.handles.erase(pHandle);
}

int libusb_reset_device(libusb_device_handle *pHandle)
{
    std::scoped_lock lock(bus().guard);
    return isOpen(pHandle, "reset") ? called("reset").value_or(0) : LIBUSB_ERROR_NO_DEVICE;
}

int libusb_get_active_config_descriptor(libusb_device *pDevice, libusb_config_descriptor **ppOut)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    if (!isListed(pDevice, "active_config"))
        return LIBUSB_ERROR_NO_DEVICE;
    if (auto n = called("active_config"); n && *n != 0)
        return *n;
    auto config = configOf(b.devices.at(pDevice->nIndex));
    *ppOut = &config->head;
    b.configs[*ppOut] = std::move(config);
    return 0;
}

void libusb_free_config_descriptor(libusb_config_descriptor *pConfig)
{
    Bus &b = bus();
    std::scoped_lock lock(b.guard);
    if (pConfig != nullptr && b.configs.erase(pConfig) == 0)
        ADD_FAILURE() << "free of an unknown configuration";
}

int libusb_kernel_driver_active(libusb_device_handle *pHandle, int nInterface)
{
    std::scoped_lock lock(bus().guard);
    if (!isOpen(pHandle, "driver_active"))
        return LIBUSB_ERROR_NO_DEVICE;
    return called("driver_active", numbered("driver_active", static_cast<size_t>(nInterface))).value_or(0);
}

int libusb_detach_kernel_driver(libusb_device_handle *pHandle, int nInterface)
{
    std::scoped_lock lock(bus().guard);
    if (!isOpen(pHandle, "detach"))
        return LIBUSB_ERROR_NO_DEVICE;
    return called("detach", numbered("detach", static_cast<size_t>(nInterface))).value_or(0);
}

int libusb_claim_interface(libusb_device_handle *pHandle, int nInterface)
{
    std::scoped_lock lock(bus().guard);
    if (!isOpen(pHandle, "claim"))
        return LIBUSB_ERROR_NO_DEVICE;
    return called("claim", numbered("claim", static_cast<size_t>(nInterface))).value_or(0);
}

int libusb_release_interface(libusb_device_handle *pHandle, int nInterface)
{
    std::scoped_lock lock(bus().guard);
    if (!isOpen(pHandle, "release"))
        return LIBUSB_ERROR_NO_DEVICE;
    return called("release", numbered("release", static_cast<size_t>(nInterface))).value_or(0);
}

int libusb_interrupt_transfer(libusb_device_handle *pHandle, unsigned char ucEndpoint, unsigned char *pData, int nLen,
                              int *pnMoved, unsigned int nTimeOut)
{
    return transfer("interrupt", pHandle, ucEndpoint, pData, nLen, pnMoved, nTimeOut);
}

int libusb_bulk_transfer(libusb_device_handle *pHandle, unsigned char ucEndpoint, unsigned char *pData, int nLen,
                         int *pnMoved, unsigned int nTimeOut)
{
    return transfer("bulk", pHandle, ucEndpoint, pData, nLen, pnMoved, nTimeOut);
}
