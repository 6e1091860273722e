// The device layer reduces a failed peripheral call to 1 or -1. The status word of the last reply tells whether the
// reader answered with an error; without one it did not answer.
#include "device.h"

#include "device_record.h"
#include "texts.h"

#include <qvreader/devcall.h>

#include <array>
#include <string_view>

namespace qvtool {

namespace {

using namespace std::chrono_literals;
using std::chrono::seconds;

constexpr size_t nRecordRoom = 1024; // what COMM_Icc_GetDeviceInfo may fill
constexpr size_t nTrackRoom = 512;
constexpr size_t nJsonRoom = 2048;
constexpr int nReaderMargin = 2;     // seconds that the host waits longer than the reader
constexpr seconds nOpenTimeOut = 3s; // read time-out of a port just opened
constexpr std::string_view sNumberedPort = "/dev/COM";
constexpr std::string_view sUsbPort = "HID";
constexpr std::array<const char *, 5> kindNames{"", "contact", "contactless", "magnetic", "identity"};

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
    void peripheral();
    void reset();

    bool open();
    // A call that reads for nTimeOut at most.
    template <typename Call> int32_t waitFor(const std::string &sWhat, seconds nTimeOut, Call call)
    {
        const Clock::time_point end = Clock::now() + nTimeOut;
        COMM_Rdz_ChageReadTimeOut(static_cast<uint32_t>(nTimeOut.count()));
        Watch::Wait wait(m_watch, sWhat, end, end + 2s);
        return call();
    }
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
    if (std::optional<std::string> sReason = m_port.claim(m_options.sPort)) {
        m_outcome.failure = Failure{Exit::port, *sReason, std::nullopt};
        return;
    }
    addText(json(), "device", m_port.devicePath());
    const std::array<uint8_t, 2> szBox{static_cast<uint8_t>(m_options.cBox), 0};
    Dev_Rdz_Ic_RaiseBaundFlag(m_options.bRaise || m_options.cBox != 0 ? 1 : 0);
    const int32_t nResult = waitFor("a sign of life", std::min(timeOut(), nOpenTimeOut), [&] {
        return Dev_Rdz_Ic_ChkDevPresent(m_port.devicePath().c_str(), szBox.data(), m_options.nBaud);
    });
    addFlag(json(), "present", nResult == 0);
    if (nResult == 0)
        m_outcome.sLines =
            "a reader answers on " + m_options.sPort + " at " + std::to_string(m_options.nBaud) + " bit/s\n";
    else if (nResult == RET_PUB_SEND_FAIL || nResult == RET_PUB_READ_FAIL)
        fail("sign of life",
             nResult == RET_PUB_READ_FAIL && !m_port.isGone() ? static_cast<int32_t>(RET_PUB_TIMEOUT) : nResult);
    else
        m_outcome.failure = Failure{Exit::port, m_options.sPort + ": " + resultText(nResult), nResult};
}

void Device::info()
{
    const std::string_view sPort = m_options.sPort;
    if (sPort.starts_with(sUsbPort))
        return jsonAnswer("0");
    if (!open())
        return;
    std::array<uint8_t, nRecordRoom> record{};
    const int32_t nResult =
        waitFor("the device record", timeOut(), [&] { return COMM_Icc_GetDeviceInfo(record.data()); });
    if (!statusIsGood("device record"))
        return;
    if (nResult != 0)
        return fail("device record", nResult == RET_PUB_FAIL ? static_cast<int32_t>(RET_PUB_TIMEOUT) : nResult);
    const DeviceRecord decoded = decodeDeviceRecord(record);
    say("model", "model", decoded.sModel);
    say("serial", "serial number", decoded.sSerial);
    say("date", "produced", decoded.sDate);
    say("version", "firmware", decoded.sVersion);
    say("version2", "second version", decoded.sVersion2);
    if (!decoded.sMac.empty())
        say("mac", "MAC address", decoded.sMac);
    m_session.close();
    if (sPort.starts_with(sNumberedPort) && sPort.size() > sNumberedPort.size())
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
    const int32_t nResult = waitFor("the JSON answer", nOpenTimeOut, [&] {
        return DEV_CommCall(printed(request).c_str(), &nLen, szAnswer.data(), &nLen);
    });
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
    const int32_t nResult = waitFor("a card of any kind", seconds(nHostTime), [&] {
        if (m_options.nKind)
            return COMM_Icc_detectMulComCard(static_cast<uint8_t>(*m_options.nKind), nHostTime, szTrack2.data(),
                                             szTrack3.data(), &nKind);
        return COMM_Icc_detectMulCard(nHostTime, szTrack2.data(), szTrack3.data(), &nKind);
    });
    const int32_t nStatus = -static_cast<int32_t>(COMM_Rdz_GetRecStatus());
    if (nResult != 0 && nStatus != 0)
        return fail("card detection", nStatus);
    if (nResult != 0)
        return fail("card detection", nResult);
    say("kind", "kind", kindNames[nKind]);
    addNumber(json(), "kindNumber", nKind);
    if (szTrack2[0] != '\0')
        say("track2", "track 2", szTrack2.data());
    if (szTrack3[0] != '\0')
        say("track3", "track 3", szTrack3.data());
}

// led and beep. The buzzer goes through the exchange, which tells an empty answer from none.
void Device::peripheral()
{
    if (!open())
        return;
    const std::string sDoing = commandName(m_options.command);
    const auto byteAt = [&](size_t n) { return static_cast<uint8_t>(m_options.numbers[n]); };
    const int32_t nResult = waitFor("the answer to " + sDoing, timeOut(), [&]() -> int32_t {
        if (m_options.command == Command::led)
            return m_options.numbers.size() == 1 ? COMM_Icc_SetLEDStatus(byteAt(0))
                                                 : COMM_Icc_SetLEDStatusEx(byteAt(0), byteAt(1));
        std::array<uint8_t, 16> command{};
        uint32_t nLen = 0;
        INSTR_Ic_SetBeepStatus(m_options.numbers[0], byteAt(1), command.data(), &nLen);
        std::array<uint8_t, nRecordRoom> reply{};
        return COMM_Rdz_SendAndReciveData(1, 0x01, 0x04, command.data(), nLen, reply.data(), reply.size());
    });
    if (!statusIsGood(sDoing))
        return;
    if (nResult < 0 || (nResult == 1 && m_options.command == Command::led))
        return fail(sDoing, nResult < 0 ? nResult : static_cast<int32_t>(RET_PUB_TIMEOUT));
    m_outcome.sLines = "done\n";
}

void Device::reset()
{
    if (!open())
        return;
    const int32_t nResult = COMM_IC_MulModuleReset();
    if (nResult != 0)
        return fail("reset", RET_PUB_SEND_FAIL);
    m_outcome.sLines = "sent; the reader gives no answer to it\n";
}

void Device::run()
{
    addText(json(), "port", m_options.sPort);
    addNumber(json(), "baud", m_options.nBaud);
    switch (m_options.command) {
    case Command::present: return present();
    case Command::info: return info();
    case Command::detect: return detect();
    case Command::led:
    case Command::beep: return peripheral();
    default: return reset();
    }
}

} // namespace

void driveDevice(const Options &options, Port &port, Watch &watch, Session &session, Outcome &outcome)
{
    Device(options, port, watch, session, outcome).run();
}

} // namespace qvtool
