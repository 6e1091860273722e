// usb_hidapi.cpp - the reader through the kernel's HID driver, by hidapi.
//
// The dispatcher does not lead here; a host that wants this channel calls it directly. Each write is one output report
// with report id 0, whatever its length. Of each input report the first run of bytes that are not zero is kept: frames
// hold no zero byte, so leading wake-up bytes and the padding fall away.
//
// Owns the hidapi handle (null: closed). A cancel from another thread sets a flag that the read sees after the running
// wait, within 200 ms.

#include "clock.h"
#include "hid_reply.h"
#include "log.h"
#include "qvreader/transport.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <hidapi.h>

hid_device *m_pHidHanle = nullptr;
uint32_t g_bIsLinuxSrcHidClearZero = 1;

namespace {

constexpr int32_t nNoDevice = -50;
constexpr int nPassMillis = 200;     // of one wait for a report
constexpr int nReportsMax = 5;       // of one command
constexpr size_t nReportArea = 1024; // one report; on the way out with the report id in front
constexpr size_t nCommandMax = nReportArea - 1;

qv::ReadFlags s_read; // s_bLinuxHidIsReading, s_bCancelLinuxHidRead

// A cancel may look at the handle while another thread opens or closes.
hid_device *handle() noexcept
{
    return std::atomic_ref<hid_device *>(m_pHidHanle).load(std::memory_order_relaxed);
}

void setHandle(hid_device *pHandle) noexcept
{
    std::atomic_ref<hid_device *>(m_pHidHanle).store(pHandle, std::memory_order_relaxed);
}

void closeHandle() noexcept
{
    if (hid_device *pHandle = handle()) {
        setHandle(nullptr);
        hid_close(pHandle);
    }
}

// One report of the reply; hidapi's result.
int receive(qv::HidReply &reply) noexcept
{
    std::array<uint8_t, nReportArea> report{};
    const int nRead = hid_read_timeout(handle(), report.data(), report.size(), nPassMillis);
    DPrintLogToFile("hid_read_timeout:%d\r\n", nRead);
    if (nRead < 0)
        return nRead;
    const int32_t nUsed = std::min(nRead, static_cast<int>(report.size()));
    DPrintDataHexToFile("hid read:", report.data(), nUsed);
    std::array<uint8_t, nReportArea> kept;
    reply.add(kept.data(), GetLinuxSrcDataWithoutZero(report.data(), nUsed, kept.data()));
    return nRead;
}

int32_t readReply(qv::HidReply &reply) noexcept
{
    for (;;) {
        reply.startPass();
        const int nRead = receive(reply);
        if (nRead < 0)
            return RET_PUB_READ_FAIL;
        switch (reply.endPass(nRead == 0)) {
        case qv::ReplyState::GoOn: break;
        case qv::ReplyState::Full:
        case qv::ReplyState::Complete: return reply.count();
        case qv::ReplyState::TimedOut: return RET_PUB_TIMEOUT;
        case qv::ReplyState::Cancelled: return RET_PUB_CANCEL;
        }
    }
}

// One output report. Bytes of the command that it carried, or negative after a failure that has been told.
int writeReport(const uint8_t *pRest, size_t nRest) noexcept
{
    std::array<uint8_t, nReportArea> report{};
    std::memcpy(report.data() + 1, pRest, nRest);
    const int nWritten = hid_write(handle(), report.data(), nRest + 1);
    if (nWritten < 0) {
        const int nError = errno;
        DPrintLogToFile("hid_write err:%d\n", nError);
        errno = nError;
        std::perror("abc");
        return -1;
    }
    return std::max(nWritten - 1, 0);
}

} // namespace

int32_t COMM_Hid_SetSrcLinuxHidClearZero(uint32_t flag) noexcept
{
    g_bIsLinuxSrcHidClearZero = flag;
    return 0;
}

int32_t COMM_Hid_OpenLinuxHid(uint32_t nVID, uint32_t nPID) noexcept
{
    DPrintLogToFile("ICC_OpenLinuxHid:vid-%04x pid-%04x\r\n", nVID, nPID);
    if (handle() != nullptr)
        COMM_Hid_CloseLinuxHid();
    setHandle(hid_open(static_cast<unsigned short>(nVID), static_cast<unsigned short>(nPID), nullptr));
    if (handle() == nullptr) {
        DPrintLogToFile("hid_open err!\n");
        return RET_PUB_OPEN_FAIL;
    }
    DPrintLogToFile("open hiddev success!\n");
    return 0;
}

int32_t COMM_Hid_WriteLinuxHid(const uint8_t *data, uint32_t len) noexcept
{
    DPrintDataHexToFile("hid write", data, qv::loggedLength(len));
    if (handle() == nullptr)
        return nNoDevice;
    if (data == nullptr) {
        DPrintLogToFile("no command");
        return RET_PUB_SEND_FAIL;
    }
    if (len > nCommandMax) {
        DPrintLogToFile("a command has at most %d bytes, not %u", static_cast<int>(nCommandMax), len);
        return RET_PUB_SEND_FAIL;
    }
    size_t nSent = 0;
    for (int nTimes = 0; nTimes < nReportsMax; ++nTimes) {
        const int nCarried = writeReport(data + nSent, len - nSent);
        if (nCarried < 0)
            return RET_PUB_SEND_FAIL;
        DPrintLogToFile("nTimes:%d sendlen%d\n", nTimes, nCarried);
        nSent += static_cast<size_t>(nCarried);
        if (nSent >= len)
            break;
    }
    if (nSent != len) {
        DPrintLogToFile("reports carried %d of %u bytes", static_cast<int>(nSent), len);
        return RET_PUB_SEND_FAIL;
    }
    DPrintLogToFile("write ok:%d\n", static_cast<int>(len));
    return static_cast<int32_t>(len);
}

int32_t GetLinuxSrcDataWithoutZero(const uint8_t *report, int32_t n, uint8_t *out) noexcept
{
    if (report == nullptr || out == nullptr || n <= 0)
        return 0;
    const uint8_t *pEnd = report + n;
    const uint8_t *pFirst = std::find_if(report, pEnd, [](uint8_t uc) { return uc != 0; });
    const uint8_t *pLast = std::find(pFirst, pEnd, uint8_t{0});
    std::copy(pFirst, pLast, out);
    return static_cast<int32_t>(pLast - pFirst);
}

int32_t COMM_Hid_ReadLinuxHid(uint8_t *buf, uint32_t nMax, int32_t nTimeOut, EndConditionFn end) noexcept
{
    if (handle() == nullptr || buf == nullptr)
        return nNoDevice;
    s_read.start();
    qv::HidReply reply(buf, nMax, nTimeOut, end, s_read);
    DPrintLogToFile("hid read maxlen:%d\n", static_cast<int>(nMax));
    const int32_t nRet = readReply(reply);
    if (nRet == RET_PUB_READ_FAIL)
        return nRet; // the read counts as running until the next one: a cancel meanwhile finds one to ask
    DPrintLogToFile("read ret:%d\n", nRet);
    s_read.end();
    return nRet;
}

int32_t COMM_Hid_CancelLinuxRead(void) noexcept
{
    DPrintLogToFile("[%s] Start ", __func__);
    if (handle() == nullptr)
        return RET_PUB_CANCEL;
    s_read.cancel();
    return 0;
}

int32_t COMM_Hid_CloseLinuxHid(void) noexcept
{
    DPrintLogToFile("Close hid!\n");
    if (handle() == nullptr)
        return 0;
    closeHandle();
    DPrintLogToFile("Close hid ok!\n");
    return 0;
}
