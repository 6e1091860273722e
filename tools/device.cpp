// The device layer reduces a failed call of LEDs, buzzer and device record to 1 or -1, and over USB takes silence for an
// answer to the LEDs. What came over the line, and the status word of the last reply, tell silence, rubbish, a refusal
// and a line that is gone apart.
#include "device.h"

#include "channel.h"
#include "device_record.h"
#include "line_tap.h"
#include "texts.h"

#include <qvreader/devcall.h>

#include <array>
#include <string_view>

namespace qvtool {

namespace {

using namespace std::chrono_literals;
using std::chrono::seconds;

constexpr size_t nReplyRoom = 1024;
constexpr uint8_t ucFrameHead = 0x01; // of a peripheral frame
constexpr uint8_t ucFrameEnd = 0x04;
constexpr size_t nTrackRoom = 512;
constexpr size_t nJsonRoom = 2048;
constexpr int nReaderMargin = 2;     // seconds that the host waits longer than the reader
constexpr seconds nOpenTimeOut = 3s; // read time-out of a port just opened
constexpr std::string_view sNumberedPort = "/dev/COM";
constexpr char szUsbNumber[] = "0"; // as the JSON call counts ports
constexpr seconds nTidyTime = 1s;   // for the answer to the command that ends a detection

class Device {
  public:
    Device(const Options &options, Port &port, Watch &watch, Session &session, Outcome &outcome)
        : m_options(options), m_port(port), m_watch(watch), m_session(session), m_outcome(outcome)
    {
    }

    void run();

  private:
    void present();
    void info();
    void jsonAnswer(const std::string &sNumber);
    void detect();
    void endDetection();
    void ledOrBeep();
    void reset();

    bool open();
    // A call that reads. nTold: how long the user is told that it may take; nRead: how long it may.
    template <typename Call> int32_t waitFor(const std::string &sWhat, seconds nTold, seconds nRead, Call call)
    {
        const Clock::time_point begin = Clock::now();
        COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nRead.count()));
        Watch::Wait wait(m_watch, sWhat, begin + nTold, begin + nRead + 2s);
        return call();
    }
    // One call that sends a peripheral command and reads its answer. False: failed, and told. body: of the answer.
    template <typename Call> bool ask(const std::string &sDoing, Call call, Bytes &body);
    // What the exchange would have said: 0 an answer came that is a frame, then with its body; -4, -54, -55 or -56.
    int32_t howItWent(Bytes &body) const;
    void say(const char *pszMember, const char *pszLabel, const std::string &sText);
    bool statusIsGood(const std::string &sDoing);
    void fail(const std::string &sDoing, int32_t nResult) { m_outcome.failure = m_session.failed(sDoing, nResult); }
    cJSON *json() const { return m_outcome.json.get(); }
    seconds timeOut() const { return seconds(m_options.nTimeOut); }

    const Options &m_options;
    Port &m_port;
    Watch &m_watch;
    Session &m_session;
    Outcome &m_outcome;
};

bool Device::open()
{
    m_outcome.failure = m_session.open();
    if (!m_port.devicePath().empty())
        addText(json(), "device", m_port.devicePath());
    return !m_outcome.failure;
}

void Device::say(const char *pszMember, const char *pszLabel, const std::string &sText)
{
    std::string sLabel = pszLabel;
    sLabel.resize(16, ' ');
    m_outcome.sLines += sLabel + sText + "\n";
    addText(json(), pszMember, sText);
}

// False: the reader's last reply carried an error status.
bool Device::statusIsGood(const std::string &sDoing)
{
    const uint32_t nStatus = COMM_Rdz_GetRecStatus();
    if (nStatus == 0)
        return true;
    const int32_t nResult = -static_cast<int32_t>(nStatus);
    m_outcome.failure = Failure{Exit::readerError,
                                sDoing + ": the reader reports " + hexWord(nStatus) +
                                    (readerStatusText(nStatus).empty() ? "" : ": " + readerStatusText(nStatus)),
                                nResult};
    return false;
}

void Device::present()
{
    if (std::optional<std::string> sReason = claimChannel(m_options, m_port)) {
        m_outcome.failure = Failure{Exit::port, *sReason, std::nullopt};
        return;
    }
    const seconds nTime = std::min(timeOut(), nOpenTimeOut);
    const uint64_t nBefore = bytesReceived();
    const int32_t nResult =
        waitFor("a sign of life", nTime, nTime, [&] { return askForLife(m_options, m_port, m_options.nBaud); });
    if (!m_port.devicePath().empty())
        addText(json(), "device", m_port.devicePath());
    addFlag(json(), "present", nResult == 0);
    if (nResult == 0)
        m_outcome.sLines = m_options.channel() == Channel::usb ? "a reader answers over USB\n"
                                                               : "a reader answers on " + m_options.sPort + " " +
                                                                     speedText(m_options, m_options.nBaud) + "\n";
    else if (nResult == RET_PUB_READ_FAIL && !m_port.isGone()) // the call does not tell silence from rubbish
        fail("sign of life", bytesReceived() == nBefore ? RET_PUB_TIMEOUT : RET_PUB_PACKET_ERR);
    else if (nResult == RET_PUB_SEND_FAIL || nResult == RET_PUB_READ_FAIL)
        fail("sign of life", nResult);
    else
        m_outcome.failure = Failure{Exit::port, openFailure(m_options, nResult), nResult};
}

int32_t Device::howItWent(Bytes &body) const
{
    const BytesView came = heard();
    if (sendingFailed())
        return RET_PUB_SEND_FAIL;
    if (came.empty())
        return m_port.isGone() ? RET_PUB_READ_FAIL : RET_PUB_TIMEOUT;
    std::array<uint8_t, 2 * nReplyRoom> reply{};
    uint32_t nLen = 0;
    if (Str_RDZ_ParsePacket(ucFrameHead, ucFrameEnd, came.data(), static_cast<uint32_t>(came.size()), reply.data(),
                            &nLen) == 0) {
        body.assign(reply.begin(), reply.begin() + nLen);
        return 0;
    }
    if (came.back() == ucFrameEnd)
        return RET_PUB_PACKET_ERR;
    return m_port.isGone() ? RET_PUB_READ_FAIL : RET_PUB_TIMEOUT;
}

template <typename Call> bool Device::ask(const std::string &sDoing, Call call, Bytes &body)
{
    waitFor("the answer to " + sDoing, timeOut(), timeOut(), call);
    if (!statusIsGood(sDoing))
        return false;
    const int32_t nWhy = howItWent(body);
    // An empty answer without an error status is what the buzzer's call takes for a failure; the reader confirms it.
    if (nWhy != 0)
        fail(sDoing, nWhy);
    return nWhy == 0;
}

void Device::info()
{
    if (!open())
        return;
    std::array<uint8_t, nReplyRoom> record{};
    Bytes body;
    if (!ask(
            "info", [&] { return COMM_Icc_GetDeviceInfo(record.data()); }, body))
        return;
    if (body.size() < nLeastDeviceRecord) {
        m_outcome.failure = Failure{Exit::readerError,
                                    "info: the reader's device record has " + std::to_string(body.size()) +
                                        " bytes, not " + std::to_string(nLeastDeviceRecord) + " or more",
                                    std::nullopt};
        return;
    }
    const DeviceRecord decoded = decodeDeviceRecord(record);
    say("model", "model", decoded.sModel);
    say("serial", "serial number", decoded.sSerial);
    say("date", "produced", decoded.sDate);
    say("version", "firmware", decoded.sVersion);
    say("version2", "second version", decoded.sVersion2);
    if (!decoded.sMac.empty())
        say("mac", "MAC address", decoded.sMac);
    m_session.close();
    const std::string_view sPort = m_options.sPort;
    if (m_options.channel() == Channel::usb)
        jsonAnswer(szUsbNumber);
    else if (sPort.starts_with(sNumberedPort) && sPort.size() > sNumberedPort.size())
        jsonAnswer(std::string(sPort.substr(sNumberedPort.size())));
}

// The answer that a host gets which asks in JSON. It opens and closes the port by itself.
void Device::jsonAnswer(const std::string &sNumber)
{
    const Json request = newObject();
    addText(request.get(), "FunctionCode", "0001");
    addText(request.get(), "RequestPort", sNumber);
    addText(request.get(), "RequestBaudRate", std::to_string(m_options.nBaud));
    addText(request.get(), "RequestTimeOut", std::to_string(m_options.nTimeOut));
    std::array<char, nJsonRoom> szAnswer{};
    uint32_t nLen = 0;
    const int32_t nResult = waitFor("the JSON answer", nOpenTimeOut, nOpenTimeOut, [&] {
        return DEV_CommCall(printed(request).c_str(), &nLen, szAnswer.data(), &nLen);
    });
    if (m_watch.signal() != 0)
        return fail("JSON call", RET_PUB_CANCEL);
    if (nLen > 0 && nLen < szAnswer.size())
        say("answer", "JSON answer", szAnswer.data());
    if (nResult != 0)
        m_outcome.failure = Failure{
            nLen > 0 ? Exit::noAnswer : Exit::port,
            "JSON call: " + std::string(nLen > 0 ? "the reader does not answer" : m_options.sPort + " would not open"),
            nResult};
}

void Device::detect()
{
    if (!open())
        return;
    std::array<char, nTrackRoom> szTrack2{};
    std::array<char, nTrackRoom> szTrack3{};
    uint32_t nKind = 0;
    const int32_t nHostTime = m_options.nTimeOut + nReaderMargin;
    const std::string sWhat = m_options.nKind ? "a card of kind " + std::to_string(*m_options.nKind) : "a card";
    const int32_t nResult = waitFor(sWhat, timeOut(), seconds(nHostTime), [&] {
        if (m_options.nKind)
            return COMM_Icc_detectMulComCard(static_cast<uint8_t>(*m_options.nKind), nHostTime, szTrack2.data(),
                                             szTrack3.data(), &nKind);
        return COMM_Icc_detectMulCard(nHostTime, szTrack2.data(), szTrack3.data(), &nKind);
    });
    const int32_t nStatus = -static_cast<int32_t>(COMM_Rdz_GetRecStatus());
    // Over USB the library takes silence for a card of an unknown kind.
    const int32_t nSilence = nResult == RET_PUB_PACKET_ERR ? m_session.settled(0, 0) : 0;
    const int32_t nSettled = nSilence != 0 ? nSilence : nResult;
    if (m_watch.signal() != 0)
        endDetection();
    if (nResult != 0 && nStatus != 0)
        return fail("card detection", nStatus);
    if (nSettled != 0)
        return fail("card detection", nSettled);
    say("kind", "kind", cardKindName(nKind));
    addNumber(json(), "kindNumber", nKind);
    if (szTrack2[0] != '\0')
        say("track2", "track 2", szTrack2.data());
    if (szTrack3[0] != '\0')
        say("track3", "track 3", szTrack3.data());
}

// A reader goes on waiting when its host does not; any other command ends that. Otherwise it would report a card that
// comes later to a host that has asked something else.
void Device::endDetection()
{
    ClearReceiveBuffer();
    COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nTidyTime.count()));
    Watch::Wait wait(m_watch, "", Clock::now(), Clock::now() + 2 * nTidyTime, false);
    COMM_Icc_RdzCheckCardIsInSlot(0);
}

void Device::ledOrBeep()
{
    if (!open())
        return;
    const auto byteAt = [&](size_t n) { return static_cast<uint8_t>(m_options.numbers[n]); };
    const auto call = [&] {
        if (m_options.command == Command::beep)
            return COMM_Icc_SetBeepStatus(m_options.numbers[0], byteAt(1));
        return m_options.numbers.size() == 1 ? COMM_Icc_SetLEDStatus(byteAt(0))
                                             : COMM_Icc_SetLEDStatusEx(byteAt(0), byteAt(1));
    };
    Bytes body;
    if (ask(commandName(m_options.command), call, body))
        m_outcome.sLines = "done\n";
}

void Device::reset()
{
    if (!open())
        return;
    const int32_t nResult = COMM_IC_MulModuleReset();
    if (nResult != 0)
        return fail("reset", RET_PUB_SEND_FAIL);
    m_port.drain();
    m_outcome.sLines = "sent; the reader gives no answer to it\n";
}

void Device::run()
{
    addText(json(), "port", m_options.sPort);
    if (m_options.channel() != Channel::usb)
        addNumber(json(), "baud", m_options.nBaud);
    switch (m_options.command) {
    case Command::present: return present();
    case Command::info: return info();
    case Command::detect: return detect();
    case Command::led:
    case Command::beep: return ledOrBeep();
    default: return reset();
    }
}

} // namespace

void driveDevice(const Options &options, Port &port, Watch &watch, Session &session, Outcome &outcome)
{
    Device(options, port, watch, session, outcome).run();
}

} // namespace qvtool
