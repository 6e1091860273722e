// usb_libusb.cpp - the reader as a raw USB device, past the kernel's HID driver.
//
// What goes out and comes in are whole reports of the size that the endpoints declare: zero-padded on the way out; on
// the way in the padding of each report is taken off (where the flag says so), and trailing zeros of the whole reply
// are never counted. A reply that does not come, or is cancelled, is therefore an empty reply here.
//
// Owns the device list, the device and its handle (all null: closed). A cancel from another thread sets a flag that the
// read sees after the running transfer, within 1 s.

#include "clock.h"
#include "hid_reply.h"
#include "log.h"
#include "qvreader/transport.h"
#include "usb_interface.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <libusb.h>

using qv::kLogCommDev;

libusb_device *m_targetDev = nullptr;
libusb_device **m_devs = nullptr;
libusb_device_handle *m_handle = nullptr;
uint32_t g_bIsLinuxHidClearZero = 1;

namespace {

constexpr int32_t nNoDevice = -50;
constexpr int32_t nLongWait = 2000;        // seconds, for a time-out below 1
constexpr unsigned nTransferMillis = 1000; // time-out of one transfer
constexpr int nReportsMax = 5;             // of one command
constexpr size_t nCommandMax = 1024;       // bytes of one command
constexpr size_t nReportMax = 0x7FF;       // what the size field of an endpoint can say
constexpr size_t nReplyReportArea = 2048;  // one report on its way in
constexpr uint8_t ucTransferBulk = 2;      // bmAttributes & 3
constexpr uint8_t ucTransferInterrupt = 3; // bmAttributes & 3

qv::ReadFlags s_read; // s_bLinuxLibHidIsReading, s_bCancelLinuxLibHidRead

// A cancel may look at the handle while another thread opens or closes.
libusb_device_handle *handle() noexcept
{
    return std::atomic_ref<libusb_device_handle *>(m_handle).load(std::memory_order_relaxed);
}

void setHandle(libusb_device_handle *pHandle) noexcept
{
    std::atomic_ref<libusb_device_handle *>(m_handle).store(pHandle, std::memory_order_relaxed);
}

size_t reportSize(const EndpointInfo &endpoint) noexcept
{
    return std::min<size_t>(endpoint.cMaxPackeSize[0] * 256u + endpoint.cMaxPackeSize[1], nReportMax);
}

// Gives back whatever an open has got so far, in the order in which it must go.
void giveBack() noexcept
{
    if (libusb_device_handle *pHandle = handle()) {
        setHandle(nullptr);
        libusb_close(pHandle);
    }
    m_targetDev = nullptr;
    if (m_devs != nullptr)
        libusb_free_device_list(m_devs, 1);
    m_devs = nullptr;
    libusb_exit(nullptr);
}

// ---- open ----

// 0, or -50 without a device in the list. The context is open after a 0 only.
int32_t listDevices(int &nCount) noexcept
{
    const int nInit = libusb_init(nullptr);
    if (nInit != 0) {
        QV_LOG(kLogCommDev, "libusb_init failed: %d", nInit);
        QV_LOG(kLogCommDev, " Have No device");
        return nNoDevice;
    }
    nCount = static_cast<int>(libusb_get_device_list(nullptr, &m_devs));
    QV_LOG(kLogCommDev, "libusb_get_device_list  nret = %d ", nCount);
    if (nCount > 0)
        return 0;
    QV_LOG(kLogCommDev, " Have No device");
    if (nCount < 0)
        m_devs = nullptr;
    giveBack();
    return nNoDevice;
}

libusb_device *findDevice(int nCount, uint32_t nVID, uint32_t nPID) noexcept
{
    for (libusb_device **ppDevice = m_devs; ppDevice != m_devs + nCount; ++ppDevice) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(*ppDevice, &descriptor) != 0)
            continue;
        QV_LOG(kLogCommDev, "vid=%04X pid=%04X\n", descriptor.idVendor, descriptor.idProduct);
        if (descriptor.idVendor == nVID && descriptor.idProduct == nPID)
            return *ppDevice;
    }
    return nullptr;
}

// libusb's result.
int claim(uint8_t ucInterface) noexcept
{
    QV_LOG(kLogCommDev, "nInterfaceNum=%02X\n", ucInterface);
    QV_LOG(kLogCommDev, "nInep=%02X,nOutep=%02X\n", g_inep.cEpaddress, g_outep.cEpaddress);
    if (libusb_kernel_driver_active(handle(), ucInterface) == 1)
        libusb_detach_kernel_driver(handle(), ucInterface);
    return libusb_claim_interface(handle(), ucInterface);
}

// ---- transfers ----

struct Transfer {
    int nRet = 0;   // libusb's result
    int nMoved = 0; // bytes
    int nErrno = 0;
    bool bNone = false; // the type is none that carries reports
};

// One report over the given endpoint; how it is sent is what the OUT endpoint says, whichever way it goes.
Transfer transfer(const EndpointInfo &endpoint, uint8_t *pReport) noexcept
{
    Transfer done;
    const auto nSize = static_cast<int>(reportSize(endpoint));
    if (g_outep.cTransferType == ucTransferBulk) {
        done.nRet = libusb_bulk_transfer(handle(), endpoint.cEpaddress, pReport, nSize, &done.nMoved, nTransferMillis);
        done.nErrno = errno;
    } else if (g_outep.cTransferType == ucTransferInterrupt) {
        done.nRet =
            libusb_interrupt_transfer(handle(), endpoint.cEpaddress, pReport, nSize, &done.nMoved, nTransferMillis);
        done.nErrno = errno;
        qv::pauseMillis(endpoint.cTimeInterval);
    } else {
        done.bNone = true;
    }
    done.nMoved = std::clamp(done.nMoved, 0, nSize);
    return done;
}

// One report of the reply. False: it brought nothing.
bool receive(qv::HidReply &reply) noexcept
{
    std::array<uint8_t, nReplyReportArea> report{};
    const Transfer done = transfer(g_inep, report.data());
    QV_LOG(kLogCommDev, "read nRetVal:%d, nReadOneTm=%d\n", done.nRet, done.nMoved);
    DPrintDataHexToFile("read data", report.data(), done.nMoved);
    std::array<uint8_t, nReplyReportArea> kept;
    const auto take = g_bIsLinuxHidClearZero != 0 ? GetLinuxDataClearZero : GetLinuxLibDataWithoutZero;
    reply.add(kept.data(), take(report.data(), done.nMoved, kept.data()));
    return done.nMoved > 0;
}

int32_t readReply(qv::HidReply &reply) noexcept
{
    for (;;) {
        reply.startPass();
        const bool bNothing = !receive(reply);
        switch (reply.endPass(bNothing)) {
        case qv::ReplyState::GoOn: break;
        case qv::ReplyState::Full: return reply.count();
        case qv::ReplyState::Complete: QV_LOG(kLogCommDev, "2nReadLen=%d\n", reply.count()); return reply.count();
        case qv::ReplyState::TimedOut: QV_LOG(kLogCommDev, "3\n"); return RET_PUB_TIMEOUT;
        case qv::ReplyState::Cancelled: return RET_PUB_CANCEL;
        }
    }
}

// Bytes up to and including the last one that is not zero.
int32_t lengthWithoutZeros(const uint8_t *pData, int32_t nLen) noexcept
{
    while (nLen > 0 && pData[nLen - 1] == 0)
        --nLen;
    return std::max(nLen, 0);
}

} // namespace

// ---- open ----

int32_t COMM_Hid_SetLinuxHidClearZero(uint32_t flag) noexcept
{
    g_bIsLinuxHidClearZero = flag;
    return 0;
}

int32_t COMM_Hid_OpenLinuxUsbLibHid(uint32_t nVID, uint32_t nPID) noexcept
{
    if (m_targetDev != nullptr) {
        QV_LOG(kLogCommDev, "COMM_Hid_OpenLinuxUsbLibHid  11");
        return 0;
    }
    int nCount = 0;
    if (listDevices(nCount) != 0)
        return nNoDevice;
    m_targetDev = findDevice(nCount, nVID, nPID);
    if (m_targetDev == nullptr) {
        QV_LOG(kLogCommDev, "get hiddev err!\n");
        giveBack();
        return nNoDevice;
    }
    QV_LOG(kLogCommDev, "find target device\n");
    libusb_device_handle *pHandle = nullptr;
    const int nOpened = libusb_open(m_targetDev, &pHandle);
    if (nOpened != 0 || pHandle == nullptr) {
        QV_LOG(kLogCommDev, "libusb open failed\n");
        QV_LOG(kLogCommDev, "libusb_open: %d", nOpened);
        giveBack();
        return RET_PUB_OPEN_FAIL;
    }
    setHandle(pHandle);
    libusb_reset_device(pHandle); // a reader that refuses is used as it is
    uint8_t ucInterface = 0;
    if (!qv::learnInterface(m_targetDev, nVID, nPID, ucInterface)) {
        giveBack();
        return RET_PUB_OPEN_FAIL;
    }
    const int nClaimed = claim(ucInterface);
    if (nClaimed != 0) {
        giveBack();
        QV_LOG(kLogCommDev, "Cannot Claim Interface:%d\n", nClaimed);
        return RET_PUB_OPEN_FAIL;
    }
    QV_LOG(kLogCommDev, "open hiddev success!\n");
    return 0;
}

// ---- write ----

int32_t COMM_Hid_WriteLinuxUsbLibHid(const uint8_t *data, uint32_t len) noexcept
{
    DPrintDataHexToFile("hid write", data, qv::loggedLength(len));
    if (handle() == nullptr)
        return nNoDevice;
    if (data == nullptr) {
        QV_LOG(kLogCommDev, "no command");
        return RET_PUB_SEND_FAIL;
    }
    if (len > nCommandMax) {
        QV_LOG(kLogCommDev, "a command has at most %d bytes, not %u", static_cast<int>(nCommandMax), len);
        return RET_PUB_SEND_FAIL;
    }
    std::array<uint8_t, nCommandMax + nReportMax> staging{}; // the last report is filled up with zeros
    std::memcpy(staging.data(), data, len);
    size_t nSent = 0;
    for (int nTimes = 0; nTimes < nReportsMax; ++nTimes) {
        const Transfer done = transfer(g_outep, staging.data() + nSent);
        if (done.bNone)
            QV_LOG(kLogCommDev, "no support transfer type!\n");
        if (done.nRet < 0) {
            QV_LOG(kLogCommDev, "nTimes:%d sendlen%d ret:%d %s\n", nTimes, done.nMoved, done.nRet,
                   std::strerror(done.nErrno));
            return RET_PUB_SEND_FAIL;
        }
        nSent += static_cast<size_t>(done.nMoved);
        if (nSent >= len) {
            QV_LOG(kLogCommDev, "write ok:%d\n", static_cast<int>(len));
            return static_cast<int32_t>(len);
        }
    }
    QV_LOG(kLogCommDev, "%d reports carried %d of %u bytes", nReportsMax, static_cast<int>(nSent), len);
    return RET_PUB_SEND_FAIL;
}

// ---- read ----

int32_t GetLinuxDataClearZero(const uint8_t *report, int32_t n, uint8_t *out) noexcept
{
    if (report == nullptr || out == nullptr || n <= 0)
        return 0;
    const int32_t nLen = lengthWithoutZeros(report, n);
    std::memcpy(out, report, static_cast<size_t>(nLen));
    return nLen;
}

int32_t GetLinuxLibDataWithoutZero(const uint8_t *report, int32_t n, uint8_t *out) noexcept
{
    if (report == nullptr || out == nullptr || n <= 0)
        return 0;
    std::memcpy(out, report, static_cast<size_t>(n));
    return n;
}

int32_t GetLinuxDataReallenth(const uint8_t *buf, int32_t len) noexcept
{
    return buf == nullptr ? 0 : lengthWithoutZeros(buf, len);
}

int32_t COMM_Hid_ReadLinuxUsbLibHid(uint8_t *buf, uint32_t nMax, int32_t nTimeOut, EndConditionFn end) noexcept
{
    if (handle() == nullptr || buf == nullptr)
        return nNoDevice;
    if (nTimeOut < 1) {
        QV_LOG(kLogCommDev, " Param err");
        nTimeOut = nLongWait;
    }
    s_read.start();
    qv::HidReply reply(buf, nMax, nTimeOut, end, s_read);
    const int32_t nResult = readReply(reply);
    s_read.end();
    const int32_t nRet = GetLinuxDataReallenth(buf, nResult);
    QV_LOG(kLogCommDev, "read ret:%d\n", nRet);
    return nRet;
}

// ---- cancel, close ----

int32_t COMM_Hid_CancelLinuxUsbLibHid(void) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    if (handle() == nullptr)
        return RET_PUB_CANCEL;
    s_read.cancel();
    return 0;
}

int32_t COMM_Hid_CloseLinuxUsbLibHid(void) noexcept
{
    QV_LOG(kLogCommDev, "Close hid!\n");
    if (m_targetDev == nullptr)
        return 0;
    // Always interface 0, also where the second one was claimed: its claim ends with the handle.
    if (handle() != nullptr)
        libusb_release_interface(handle(), 0);
    giveBack();
    QV_LOG(kLogCommDev, "exit libusb!\n");
    return 0;
}
