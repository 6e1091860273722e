// On a tty each read and write is a piece of its own. Over USB a command is cut into reports, the last of which is filled
// up with zeros: it is put together here until its end has gone out, or the library asks for an answer. Commands hold no
// zero bytes.
#include "line_tap.h"

#include <qvreader/transport.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using qvtool::Bytes;
using qvtool::BytesView;

constexpr size_t nMostHeard = 4096;
constexpr uint8_t ucDirectionIn = 0x80; // bit of an endpoint address
constexpr int nUsbTimeOut = -7;         // of libusb: nothing came, and nothing is wrong

std::vector<qvtool::LineListener *> s_listeners;
uint64_t s_nReceived = 0;
Bytes s_heard;
Bytes s_reports; // of the command that is on its way out over USB
bool s_bSendFailed = false;
int s_nToldError = 0; // of the last transfer: a device that is gone fails again and again

void tellSent(BytesView data)
{
    s_heard.clear();
    s_bSendFailed = false;
    for (qvtool::LineListener *pListener : s_listeners)
        pListener->sent(data);
}

void tellReceived(BytesView data)
{
    s_nReceived += data.size();
    const BytesView kept = data.first(std::min(data.size(), nMostHeard - s_heard.size()));
    s_heard.insert(s_heard.end(), kept.begin(), kept.end());
    for (qvtool::LineListener *pListener : s_listeners)
        pListener->received(data);
}

void tellFailed(const char *pszCall, const char *pszError, bool bSending)
{
    if (bSending) {
        s_heard.clear();
        s_bSendFailed = true;
    }
    for (qvtool::LineListener *pListener : s_listeners)
        pListener->failed(pszCall, pszError);
}

BytesView withoutPadding(BytesView data)
{
    while (!data.empty() && data.back() == 0)
        data = data.first(data.size() - 1);
    return data;
}

void tellReports()
{
    if (s_reports.empty())
        return;
    const Bytes reports = std::move(s_reports);
    s_reports.clear();
    tellSent(withoutPadding(reports));
}

// Whether this is a command's last report: one that is filled up, or one that ends as frames and texts do.
bool endsCommand(BytesView report)
{
    constexpr std::array<uint8_t, 3> textEnd{0x1D, 0x1B, 0x5C};
    if (report.empty())
        return false;
    const uint8_t ucLast = report.back();
    return ucLast == 0x00 || ucLast == 0x03 || ucLast == 0x04 ||
           (report.size() >= textEnd.size() &&
            std::equal(textEnd.begin(), textEnd.end(), report.end() - textEnd.size()));
}

// libusb's own words.
const char *transferError(int nResult)
{
    using TextCall = const char *(*)(int);
    static const auto call = reinterpret_cast<TextCall>(dlsym(RTLD_DEFAULT, "libusb_strerror"));
    return call == nullptr ? "failed" : call(nResult);
}

using TransferCall = int (*)(libusb_device_handle *, unsigned char, unsigned char *, int, int *, unsigned);

int transfer(TransferCall call, const char *pszName, libusb_device_handle *pHandle, unsigned char ucEndpoint,
             unsigned char *pData, int nLength, int *pnMoved, unsigned nTimeOut)
{
    constexpr int nOtherError = -99;
    if (call == nullptr)
        return nOtherError;
    const bool bIn = (ucEndpoint & ucDirectionIn) != 0;
    if (bIn)
        tellReports();
    int nMoved = 0;
    const int nResult = call(pHandle, ucEndpoint, pData, nLength, &nMoved, nTimeOut);
    const int nError = errno;
    if (pnMoved != nullptr)
        *pnMoved = nMoved;
    const BytesView moved(pData, static_cast<size_t>(std::max(nMoved, 0)));
    if (!bIn)
        s_reports.insert(s_reports.end(), moved.begin(), moved.end());
    else if (const BytesView data = withoutPadding(moved); !data.empty())
        tellReceived(data);
    const bool bFailed = nResult != 0 && !(bIn && nResult == nUsbTimeOut);
    if (!bIn && (bFailed || endsCommand(moved)))
        tellReports();
    if (bFailed && (!bIn || nResult != s_nToldError))
        tellFailed(pszName, transferError(nResult), !bIn);
    s_nToldError = bFailed ? nResult : 0;
    errno = nError;
    return nResult;
}

TransferCall nextCall(const char *pszName)
{
    return reinterpret_cast<TransferCall>(dlsym(RTLD_NEXT, pszName));
}

} // namespace

extern "C" {

// ssize_t(int, void *, size_t), for every read of this process.
__attribute__((visibility("default"))) ssize_t read(int nFd, void *pBuf, size_t nCount)
{
    ssize_t nResult = syscall(SYS_read, nFd, pBuf, nCount);
    if (nFd != g_AuxFd || nFd < 0 || nResult == 0)
        return nResult;
    int nError = errno;
    if (nResult > 0)
        tellReceived({static_cast<const uint8_t *>(pBuf), static_cast<size_t>(nResult)});
    else
        tellFailed("read", std::strerror(nError), false);
    errno = nError;
    return nResult;
}

// The same for every write.
__attribute__((visibility("default"))) ssize_t write(int nFd, const void *pBuf, size_t nCount)
{
    ssize_t nResult = syscall(SYS_write, nFd, pBuf, nCount);
    if (nFd != g_AuxFd || nFd < 0 || nResult == 0)
        return nResult;
    int nError = errno;
    if (nResult > 0)
        tellSent({static_cast<const uint8_t *>(pBuf), static_cast<size_t>(nResult)});
    else
        tellFailed("write", std::strerror(nError), true);
    errno = nError;
    return nResult;
}

// The two transfer calls of libusb, for every transfer of this process.
__attribute__((visibility("default"))) int libusb_interrupt_transfer(libusb_device_handle *pHandle,
                                                                     unsigned char ucEndpoint, unsigned char *pData,
                                                                     int nLength, int *pnMoved, unsigned nTimeOut)
{
    static const TransferCall call = nextCall("libusb_interrupt_transfer");
    return transfer(call, "interrupt transfer", pHandle, ucEndpoint, pData, nLength, pnMoved, nTimeOut);
}

__attribute__((visibility("default"))) int libusb_bulk_transfer(libusb_device_handle *pHandle, unsigned char ucEndpoint,
                                                                unsigned char *pData, int nLength, int *pnMoved,
                                                                unsigned nTimeOut)
{
    static const TransferCall call = nextCall("libusb_bulk_transfer");
    return transfer(call, "bulk transfer", pHandle, ucEndpoint, pData, nLength, pnMoved, nTimeOut);
}
}

namespace qvtool {

void listenToLine(LineListener &listener)
{
    s_listeners.push_back(&listener);
}

void stopListening(LineListener &listener)
{
    tellReports();
    std::erase(s_listeners, &listener);
}

uint64_t bytesReceived()
{
    return s_nReceived;
}

BytesView heard()
{
    return s_heard;
}

bool sendingFailed()
{
    return s_bSendFailed;
}

} // namespace qvtool
