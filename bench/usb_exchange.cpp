// usb_exchange.cpp - what one exchange over USB costs, beside bare libusb transfers of the same reports.
//
// An emulated reader that answers at once sits in a process of its own, pinned to the same CPU as the host. The library
// has the second interface of the device, the bare loop the first one; both take the same reports to and fro, in rounds
// by turns, and rest as long as an endpoint's interval says behind each interrupt transfer. The best round of each
// counts, so that what the machine does besides does not. The library is loaded from a folder of its own, without an INI
// file.

#include "bench_support.h"

#include "usb/emulation.h"
#include "usb/launch.h"

#include "qvreader/icreader.h"
#include "qvreader/transport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <libusb.h>
#include <limits>
#include <stdexcept>
#include <string>

using namespace qvbench;

namespace {

constexpr double nMost = 1.3; // times what the bare transfers take
constexpr unsigned nReport = 64;
constexpr unsigned nInterval = 1; // ms, of interrupt endpoints
constexpr unsigned nTransferMillis = 1000;
constexpr uint8_t ucBareIn = 0x81, ucBareOut = 0x01; // of the first interface
constexpr char szHost[] = "--host";

struct Kind {
    const char *pszName;
    uint16_t nVendor, nProduct;
    bool bBulk;
    int nRounds, nExchanges; // in a round
};
constexpr Kind kinds[] = {
    {"interrupt", 0x0403, 0xBCD5, false, 30, 10},
    {"bulk", 0x0403, 0xBCD7, true, 60, 25},
};

void check(int nResult, const char *pszWhat)
{
    if (nResult < 0)
        throw std::runtime_error(std::string(pszWhat) + ": " + libusb_error_name(nResult));
}

// ---- the reader

qvsim::UsbDeviceOptions device(const Kind &kind)
{
    qvsim::UsbDeviceOptions options;
    options.id = {kind.nVendor, kind.nProduct};
    options.interfaces = 2;
    options.bulk = kind.bBulk;
    options.reportSize = nReport;
    options.intervalMs = nInterval;
    return options;
}

// Runs the other half of this program as a host of the emulated readers. Its exit code.
int serve(const char *pszSelf, const char *pszLibrary)
{
    if (const std::string sTrouble = qvsim::preloadTrouble(); !sTrouble.empty())
        throw std::runtime_error(sTrouble);
    const Bytes reply = makeReplyFrame();
    qvsim::UsbEmulation *pEmulation = nullptr;
    qvsim::UsbEmulation emulation(
        {device(kinds[0]), device(kinds[1])}, qvsim::UsbHost::children,
        [&](const qvsim::UsbReceived &received) { pEmulation->reply(reply, received.interface, received.device); });
    pEmulation = &emulation; // before a host is there
    return qvsim::UsbCommand({pszSelf, szHost, pszLibrary}, emulation.directory()).wait();
}

// ---- the host's two ways

// Bare transfers on the first interface.
class Bare {
  public:
    explicit Bare(const Kind &kind) : m_bBulk(kind.bBulk)
    {
        check(libusb_init(&m_pContext), "libusb_init");
        m_pHandle = libusb_open_device_with_vid_pid(m_pContext, kind.nVendor, kind.nProduct);
        if (m_pHandle == nullptr)
            throw std::runtime_error("bare libusb cannot open the reader");
        check(libusb_detach_kernel_driver(m_pHandle, 0), "detach");
        check(libusb_claim_interface(m_pHandle, 0), "claim");
    }
    ~Bare()
    {
        libusb_close(m_pHandle);
        libusb_exit(m_pContext);
    }
    Bare(const Bare &) = delete;
    Bare &operator=(const Bare &) = delete;

    // The command in one report, the reply in as many as it takes.
    void exchange()
    {
        std::array<uint8_t, nReport> report{};
        std::copy(m_command.begin(), m_command.end(), report.begin());
        transfer(ucBareOut, report);
        for (size_t nCame = 0; nCame < m_reply.size(); nCame += nReport) {
            transfer(ucBareIn, report);
            if (std::memcmp(report.data(), m_reply.data() + nCame, std::min<size_t>(nReport, m_reply.size() - nCame)))
                throw std::runtime_error("a bare exchange failed");
        }
    }

  private:
    void transfer(uint8_t ucEndpoint, std::array<uint8_t, nReport> &report)
    {
        int nMoved = 0;
        if (m_bBulk) {
            check(libusb_bulk_transfer(m_pHandle, ucEndpoint, report.data(), nReport, &nMoved, nTransferMillis),
                  "bulk transfer");
        } else {
            check(libusb_interrupt_transfer(m_pHandle, ucEndpoint, report.data(), nReport, &nMoved, nTransferMillis),
                  "interrupt transfer");
            const timespec rest{0, nInterval * 1'000'000L};
            nanosleep(&rest, nullptr);
        }
        if (nMoved != static_cast<int>(nReport))
            throw std::runtime_error("a bare transfer moved less than a report");
    }

    const bool m_bBulk;
    const Bytes m_command = makeCommandFrame(), m_reply = makeReplyFrame();
    libusb_context *m_pContext = nullptr;
    libusb_device_handle *m_pHandle = nullptr;
};

int32_t endsAtEndByte(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == ucEnd ? 0 : -1;
}

// The library on the second interface: its transport alone, and the exchange of an APDU on top of it.
class Ours {
  public:
    Ours(const Library &library, const Kind &kind)
        : m_pfnClose(library.find<decltype(Dev_Rdz_Ic_ClosePort)>("Dev_Rdz_Ic_ClosePort")),
          m_pfnWrite(library.find<decltype(COMM_Hid_WriteLinuxUsbLibHid)>("COMM_Hid_WriteLinuxUsbLibHid")),
          m_pfnRead(library.find<decltype(COMM_Hid_ReadLinuxUsbLibHid)>("COMM_Hid_ReadLinuxUsbLibHid")),
          m_pfnVisit(library.find<decltype(ICC_CardCmdVisitCOS)>("ICC_CardCmdVisitCOS")),
          m_pfnSetTimeOut(library.find<decltype(COMM_Rdz_ChageReadTimeOut)>("COMM_Rdz_ChageReadTimeOut"))
    {
        library.find<decltype(Dev_Rdz_Ic_AddHid)>("Dev_Rdz_Ic_AddHid")(-1, kind.nProduct, kind.nVendor);
        if (library.find<decltype(Dev_Rdz_Ic_OpenPort)>("Dev_Rdz_Ic_OpenPort")("HID", nullptr, 0, 0, 9600) != 0)
            throw std::runtime_error("the library cannot open the reader");
    }
    ~Ours() { m_pfnClose(); }
    Ours(const Ours &) = delete;
    Ours &operator=(const Ours &) = delete;

    void transport()
    {
        const auto nFrame = static_cast<uint32_t>(m_frame.size());
        if (m_pfnWrite(m_frame.data(), nFrame) != static_cast<int32_t>(nFrame))
            throw std::runtime_error("a write failed");
        const int32_t nRead = m_pfnRead(m_buf.data(), static_cast<uint32_t>(m_buf.size()), nSeconds, endsAtEndByte);
        if (nRead != static_cast<int32_t>(m_reply.size()) || !std::equal(m_reply.begin(), m_reply.end(), m_buf.begin()))
            throw std::runtime_error("a read failed");
    }
    void apdu()
    {
        uint32_t nLen = 0;
        if (m_pfnVisit(m_command.data(), nCommand, m_buf.data(), &nLen) != 0 || nLen != nReply)
            throw std::runtime_error("an exchange failed");
    }
    // Reads share a budget.
    void renewTimeOut() { m_pfnSetTimeOut(nSeconds); }

  private:
    static constexpr int nSeconds = 30;

    decltype(&Dev_Rdz_Ic_ClosePort) m_pfnClose;
    decltype(&COMM_Hid_WriteLinuxUsbLibHid) m_pfnWrite;
    decltype(&COMM_Hid_ReadLinuxUsbLibHid) m_pfnRead;
    decltype(&ICC_CardCmdVisitCOS) m_pfnVisit;
    decltype(&COMM_Rdz_ChageReadTimeOut) m_pfnSetTimeOut;
    const Bytes m_command = makeCommand(), m_frame = makeCommandFrame(), m_reply = makeReplyFrame();
    std::array<uint8_t, 1024> m_buf{};
};

// ---- the measurement

struct Best {
    double nTransport = std::numeric_limits<double>::max();
    double nApdu = std::numeric_limits<double>::max();
    double nBare = std::numeric_limits<double>::max();
};

Best measure(const Library &library, const Kind &kind)
{
    Ours ours(library, kind);
    Bare bare(kind); // second, because the library resets the device
    Best best;
    auto round = [&](double &nBest, auto step) { nBest = std::min(nBest, microsPerStep(kind.nExchanges, step)); };
    for (int i = 0; i < kind.nRounds; ++i) {
        ours.renewTimeOut();
        round(best.nTransport, [&] { ours.transport(); });
        round(best.nBare, [&] { bare.exchange(); });
        round(best.nApdu, [&] { ours.apdu(); });
    }
    return best;
}

// True: within the limit.
bool report(const Kind &kind, const char *pszWhat, double nOurs, double nBare)
{
    const double nRatio = nOurs / nBare;
    std::printf("%-10s %-15s %10.1f %12.1f %8.3f %8.1f%s\n", kind.pszName, pszWhat, nOurs, nBare, nRatio, nMost,
                nRatio > nMost ? "  above" : "");
    return nRatio <= nMost;
}

int runHost(const char *pszLibrary)
{
    const Library library(pszLibrary);
    std::printf(
        "one exchange over USB, %zu bytes out in 1 report and %zu in, in %zu, microseconds; the best of %d rounds "
        "of %d (interrupt,\na rest of %u ms behind each transfer) and of %d rounds of %d (bulk)\n",
        makeCommandFrame().size(), makeReplyFrame().size(), (makeReplyFrame().size() + nReport - 1) / nReport,
        kinds[0].nRounds, kinds[0].nExchanges, nInterval, kinds[1].nRounds, kinds[1].nExchanges);
    std::printf("%-10s %-15s %10s %12s %8s %8s\n", "transfers", "what", "qvreader", "bare libusb", "ratio", "limit");
    bool bWithin = true;
    for (const Kind &kind : kinds) {
        const Best best = measure(library, kind);
        bWithin &= report(kind, "write + read", best.nTransport, best.nBare);
        bWithin &= report(kind, "APDU exchange", best.nApdu, best.nBare);
    }
    return bWithin ? 0 : 1;
}

} // namespace

// bench_usb LIBRARY: exit code 1 when the library takes more than its limit.
int main(int nArgs, char **ppArgs)
{
    try {
        if (nArgs == 3 && ppArgs[1] == std::string(szHost))
            return runHost(ppArgs[2]);
        if (nArgs != 2) {
            std::fprintf(stderr, "usage: bench_usb LIBRARY\n");
            return 2;
        }
        pinToOneCpu();
        return serve("/proc/self/exe", ppArgs[1]);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "bench_usb: %s\n", failure.what());
        return 2;
    }
}
