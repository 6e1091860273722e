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

void Session::useSlot(int nSlot)
{
    COMM_Icc_CardReaderSetCardSlot(nSlot);
}

std::optional<Failure> Session::powerUp(int nSlot, Bytes &atr)
{
    const seconds nTimeOut(m_options.nTimeOut);
    const std::string sWhere = slotText(nSlot);
    const std::string sWhat = "a card " + std::string(nSlot == 255 ? "on " : "in ") + sWhere;
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
        if (m_mayBePowered.empty() || m_mayBePowered.back() != nSlot)
            m_mayBePowered.push_back(nSlot);
        const Clock::time_point begin = Clock::now();
        int32_t nResult = 0;
        {
            Watch::Wait wait(m_watch, sWhat, end, readLimit(nRead, 1));
            nResult = COMM_Icc_CardReaderPowerOn(nSlot, buf.data(), &nLen, static_cast<uint32_t>(nWait.count()));
        }
        nResult = settled(nResult, nLen);
        if (nResult == 0 && nLen > 0) {
            atr.assign(buf.begin(), buf.begin() + nLen);
            useSlot(nSlot);
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
            m_mayBePowered.pop_back();
        return failed("power-up in " + sWhere, nResult);
    }
}

std::optional<Failure> Session::ask(const std::string &sWhat, size_t nCommand, const AskCall &call, Exchange &out)
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
        Watch::Wait wait(m_watch, "the answer to " + sWhat, begin + nTimeOut, readLimit(nTimeOut, 2));
        nResult = call(buf.data(), &nLen);
    }
    out.nMillis = since(begin).count();
    nResult = settled(nResult, nLen);
    if (nResult == RET_PUB_SEND_FAIL && m_options.channel() == Channel::usb && nCommand > nMostUsbApdu)
        return Failure{Exit::noAnswer,
                       "command " + sWhat + ": " + resultText(nResult) + "; over USB it has at most " +
                           std::to_string(nMostUsbApdu) + " bytes",
                       nResult};
    if (nResult != 0)
        return failed("command " + sWhat, nResult);
    if (nLen < 2)
        return Failure{Exit::readerError, "command " + sWhat + ": the answer has no status word", nResult};
    out.response.assign(buf.begin(), buf.begin() + nLen);
    return std::nullopt;
}

std::optional<Failure> Session::exchange(const Bytes &command, Exchange &out)
{
    out.command = command;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), pResponse, pnLength);
    };
    return ask(hexText(command), command.size(), call, out);
}

std::optional<Failure> Session::exchange(const std::string &sName, const CardCall &card, Exchange &out)
{
    constexpr uint32_t nHighestStatus = 0xFFFF;
    constexpr size_t nShort = 0; // the library's own commands fit every way to the reader
    out.sName = sName;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        const uint32_t nStatus = card(pResponse, pnLength);
        if (nStatus > nHighestStatus)
            return static_cast<int32_t>(nStatus);
        if (nStatus != 0 && *pnLength < 2) {
            pResponse[0] = static_cast<uint8_t>(nStatus >> 8);
            pResponse[1] = static_cast<uint8_t>(nStatus);
            *pnLength = 2;
        }
        return 0;
    };
    return ask(sName, nShort, call, out);
}

void Session::powerDown()
{
    for (; !m_mayBePowered.empty(); m_mayBePowered.pop_back()) {
        ClearReceiveBuffer();
        setReadTimeOut(nTidyTime);
        Watch::Wait wait(m_watch, "", Clock::now(), readLimit(nTidyTime, 1), false);
        COMM_Icc_CardReaderPowerOff(m_mayBePowered.back());
    }
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
