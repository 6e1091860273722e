// The library's read time-outs shrink from read to read, are whole seconds and strictly exceeded; each exchange
// therefore begins with a renewed one. A follow-up command runs on what its first one has left, and nothing left means
// a thousand seconds: the watch ends such a wait.
#include "session.h"

#include "channel.h"
#include "line_tap.h"
#include "texts.h"

#include <qvreader/icreader.h>

#include <algorithm>
#include <array>

namespace qvtool {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds nLongestPowerOn = 60s; // the reader counts its wait for a card in 16 bits of milliseconds
constexpr milliseconds nShortestPowerOn = 100ms;
constexpr seconds nReaderMargin = 2s; // that the host waits longer than the reader, so that its answer comes in
constexpr seconds nTidyTime = 1s;     // for the answer to a power-down at the end
constexpr size_t nResponseRoom = 2048;
constexpr size_t nMostUsbApdu = 153; // what five reports of 64 bytes hold
constexpr std::array<uint8_t, 2> frameEnds{0x03, 0x04};

milliseconds since(Clock::time_point begin)
{
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

// A read time-out of n seconds lasts up to n + 1.
Clock::time_point readLimit(seconds nTimeOut, int nReads)
{
    return Clock::now() + nReads * (nTimeOut + 1s) + 1s;
}

void setReadTimeOut(seconds nTimeOut)
{
    COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nTimeOut.count()));
}

} // namespace

uint32_t Exchange::status() const
{
    size_t nAt = response.size() - 2;
    return static_cast<uint32_t>(response[nAt]) << 8 | response[nAt + 1];
}

Session::Session(const Options &options, Port &port, Watch &watch) : m_options(options), m_port(port), m_watch(watch) {}

Session::~Session()
{
    close();
}

std::optional<Failure> Session::cancelled() const
{
    if (m_watch.signal() == 0)
        return std::nullopt;
    return Failure{static_cast<Exit>(signalExit(m_watch.signal())), "cancelled", std::nullopt};
}

Failure Session::failed(const std::string &sDoing, int32_t nResult)
{
    if (std::optional<Failure> cancel = cancelled())
        return *cancel;
    if (nResult == RET_PUB_CANCEL) // by the watch, since the wait had become too long
        nResult = RET_PUB_TIMEOUT;
    std::string sText = sDoing + ": " + resultText(nResult);
    if (isNoCard(nResult))
        return {Exit::noCard, sText, nResult};
    if (isReaderStatus(nResult))
        return {Exit::readerError, sText, nResult};
    ClearReceiveBuffer(); // a late reply would be taken for the next answer
    if (m_port.isGone())
        sText += m_options.channel() == Channel::usb ? "; the reader is gone: was it unplugged?"
                                                     : "; the line has hung up: was the reader unplugged?";
    else if (nResult == RET_PUB_TIMEOUT)
        sText += silenceHint(m_options);
    return {Exit::noAnswer, sText, nResult};
}

std::optional<Failure> Session::open()
{
    if (std::optional<std::string> sReason = claimChannel(m_options, m_port))
        return Failure{Exit::port, *sReason, std::nullopt};
    const int32_t nResult = openChannel(m_options, m_port);
    m_bOpen = true; // a port may stay open behind a failed raise
    if (nResult == 0)
        return std::nullopt;
    close();
    return Failure{Exit::port, openFailure(m_options, nResult), nResult};
}

int32_t Session::settled(int32_t nResult, size_t nLen) const
{
    if (nResult != 0 || nLen > 0 || m_options.channel() != Channel::usb)
        return nResult;
    const BytesView came = heard();
    const bool bWhole = !came.empty() && std::find(frameEnds.begin(), frameEnds.end(), came.back()) != frameEnds.end();
    return bWhole ? nResult : static_cast<int32_t>(RET_PUB_TIMEOUT);
}

std::optional<Failure> Session::powerUp(Bytes &atr)
{
    const seconds nTimeOut(m_options.nTimeOut);
    const std::string sWhere = slotText(m_options.nSlot);
    const std::string sWhat = "a card " + std::string(m_options.nSlot == 255 ? "on " : "in ") + sWhere;
    const Clock::time_point end = Clock::now() + nTimeOut;
    for (;;) {
        if (std::optional<Failure> cancel = cancelled())
            return cancel;
        milliseconds nWait = std::chrono::ceil<milliseconds>(end - Clock::now());
        nWait = std::clamp(nWait, nShortestPowerOn, nLongestPowerOn);
        const seconds nRead = std::chrono::ceil<seconds>(nWait) + nReaderMargin;
        std::array<uint8_t, nResponseRoom> buf{};
        uint32_t nLen = 0;
        setReadTimeOut(nRead);
        m_bMayBePowered = true;
        const Clock::time_point begin = Clock::now();
        int32_t nResult = 0;
        {
            Watch::Wait wait(m_watch, sWhat, end, readLimit(nRead, 1));
            nResult =
                COMM_Icc_CardReaderPowerOn(m_options.nSlot, buf.data(), &nLen, static_cast<uint32_t>(nWait.count()));
        }
        nResult = settled(nResult, nLen);
        if (nResult == 0 && nLen > 0) {
            atr.assign(buf.begin(), buf.begin() + nLen);
            COMM_Icc_CardReaderSetCardSlot(m_options.nSlot);
            return std::nullopt;
        }
        if (isNoCard(nResult) && end - Clock::now() >= nShortestPowerOn) {
            if (Clock::now() < begin + nWait / 2) // a reader that does not wait itself
                std::this_thread::sleep_for(nShortestPowerOn);
            continue;
        }
        if (nResult == 0)
            return Failure{Exit::readerError, "power-up in " + sWhere + ": the reader gave no answer to reset", 0};
        if ((nResult == RET_PUB_TIMEOUT && m_watch.signal() == 0) || isNoCard(nResult))
            m_bMayBePowered = false;
        return failed("power-up in " + sWhere, nResult);
    }
}

std::optional<Failure> Session::exchange(const Bytes &command, Exchange &out)
{
    if (std::optional<Failure> cancel = cancelled())
        return cancel;
    const seconds nTimeOut(m_options.nTimeOut);
    std::array<uint8_t, nResponseRoom> buf{};
    uint32_t nLen = 0;
    setReadTimeOut(nTimeOut);
    const Clock::time_point begin = Clock::now();
    int32_t nResult = 0;
    {
        Watch::Wait wait(m_watch, "the answer to " + hexText(command), begin + nTimeOut, readLimit(nTimeOut, 2));
        nResult = ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), buf.data(), &nLen);
    }
    out.nMillis = since(begin).count();
    out.command = command;
    nResult = settled(nResult, nLen);
    if (nResult == RET_PUB_SEND_FAIL && m_options.channel() == Channel::usb && command.size() > nMostUsbApdu)
        return Failure{Exit::noAnswer,
                       "command " + hexText(command) + ": " + resultText(nResult) + "; over USB it has at most " +
                           std::to_string(nMostUsbApdu) + " bytes",
                       nResult};
    if (nResult != 0)
        return failed("command " + hexText(command), nResult);
    if (nLen < 2)
        return Failure{Exit::readerError, "command " + hexText(command) + ": the answer has no status word", nResult};
    out.response.assign(buf.begin(), buf.begin() + nLen);
    return std::nullopt;
}

void Session::powerDown()
{
    if (!m_bMayBePowered)
        return;
    m_bMayBePowered = false;
    ClearReceiveBuffer();
    setReadTimeOut(nTidyTime);
    Watch::Wait wait(m_watch, "", Clock::now(), readLimit(nTidyTime, 1), false);
    COMM_Icc_CardReaderPowerOff(m_options.nSlot);
}

void Session::close()
{
    if (!m_bOpen)
        return;
    powerDown();
    closeChannel(m_options);
    m_bOpen = false;
}

} // namespace qvtool
