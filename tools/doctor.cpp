// library -> log -> USB -> port -> who holds it -> a sign of life at each speed. What comes later makes no sense without
// what stands before it: the first failure of the port ends the examination. The log hinders nothing, and readers on USB
// only matter where the port is USB.
#include "doctor.h"

#include "channel.h"
#include "holders.h"
#include "line_tap.h"
#include "log_switch.h"
#include "usb_devices.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace qvtool {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// The usual speed first, then what a reader may have been raised to, then the rest.
constexpr std::array<int, 10> trySpeeds{9600, 115200, 38400, 19200, 57600, 230400, 4800, 2400, 1200, 300};
constexpr auto nPatience = 1000ms; // a speed; the reader answers a sign of life at once
constexpr int nSlowest = 2400;     // up to here the bytes alone take long
constexpr auto nSlowPatience = 2500ms;

// "A", "A or B".
std::string oneOf(const std::vector<std::string> &names)
{
    std::string sText;
    for (const std::string &sName : names)
        sText += (sText.empty() ? "" : " or ") + sName;
    return sText;
}

// Where only one side of the library tries this identity by itself.
const char *forWhat(UsbId id)
{
    const bool bIc = sideKnows(UsbSide::ic, id);
    const bool bStripe = sideKnows(UsbSide::stripe, id);
    return bIc == bStripe ? "" : bIc ? ", all commands but stripe" : ", stripe only";
}

class Examination {
  public:
    Examination(const Options &options, Port &port, Watch &watch, Outcome &outcome)
        : m_options(options), m_port(port), m_watch(watch), m_outcome(outcome),
          m_pList(cJSON_AddArrayToObject(outcome.json.get(), "checks"))
    {
    }

    void run();

  private:
    void tell(const char *pszName, const char *pszState, const std::string &sText, const std::string &sAdvice);
    void good(const char *pszName, const std::string &sText) { tell(pszName, "ok", sText, {}); }
    void wrong(const char *pszName, const std::string &sText, const std::string &sAdvice, Exit nCode);
    void library();
    void log();
    void usb();
    void usbDevice(const UsbDevice &device);
    void usbNodes(const UsbDevice &device);
    void usbDriver(const UsbDevice &device);
    void usbHolders(const UsbDevice &device);
    bool claim();
    void holders();
    void reader();
    void readerAtAnySpeed();
    bool answersAt(int nBaud);
    bool isCancelled();
    // On USB it is wrong only where the port is USB.
    void badUsb(const char *pszName, const std::string &sText, const std::string &sAdvice);

    const Options &m_options;
    Port &m_port;
    Watch &m_watch;
    Outcome &m_outcome;
    cJSON *m_pList;
};

void Examination::tell(const char *pszName, const char *pszState, const std::string &sText, const std::string &sAdvice)
{
    std::string sHead = pszState;
    sHead.resize(6, ' ');
    sHead += pszName;
    sHead.resize(15, ' ');
    m_outcome.sLines += sHead + sText + (sAdvice.empty() ? "" : "  -> " + sAdvice) + "\n";
    cJSON *pItem = appendObject(m_pList);
    addText(pItem, "name", pszName);
    addText(pItem, "state", pszState);
    addText(pItem, "text", sText);
    addText(pItem, "advice", sAdvice);
}

void Examination::wrong(const char *pszName, const std::string &sText, const std::string &sAdvice, Exit nCode)
{
    tell(pszName, "WRONG", sText, sAdvice);
    if (!m_outcome.failure)
        m_outcome.failure = Failure{nCode, sText, std::nullopt};
}

// The file that the loader took, from the process's own map.
void Examination::library()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string sLine; std::getline(maps, sLine);)
        if (const size_t nAt = sLine.find('/'); nAt != sLine.npos && sLine.find("/libqvreader.so") != sLine.npos)
            return good("library", sLine.substr(nAt));
    tell("library", "note", "its file is not to be seen in /proc/self/maps", "look with ldd");
}

void Examination::log()
{
    const LogPlace place = logPlace();
    good("ini", place.sIni + (fs::exists(place.sIni) ? "" : " (not there: the log is off)"));
    if (place.bOn)
        tell("log", "note", "on; card data and PIN blocks are written, for all users to read",
             "qvreader log off when done");
    else
        good("log", "off");
    good("log file", place.sLogFile.empty() ? "none yet" : place.sLogFile);
}

void Examination::badUsb(const char *pszName, const std::string &sText, const std::string &sAdvice)
{
    if (m_options.channel() == Channel::usb)
        wrong(pszName, sText, sAdvice, Exit::port);
    else
        tell(pszName, "note", sText, sAdvice);
}

void Examination::usb()
{
    const std::vector<UsbDevice> devices = usbReaders(m_options.usbId, UsbSide::any);
    if (devices.empty() && m_options.channel() == Channel::usb)
        wrong("usb", "no reader is on USB (looked for " + usbIdentitiesText(m_options.usbId, UsbSide::any) + ")",
              "is it plugged in? lsusb shows all devices; another identity goes with --usb-id", Exit::port);
    else if (devices.empty())
        good("usb", "no reader is on USB");
    for (const UsbDevice &device : devices)
        usbDevice(device);
}

void Examination::usbDevice(const UsbDevice &device)
{
    good("usb", device.idText() + (device.sProduct.empty() ? "" : " \"" + device.sProduct + "\"") +
                    " is plugged in at " + device.sPlace + " (bus " + std::to_string(device.nBus) + ", device " +
                    std::to_string(device.nDevice) + "); --port HID" + forWhat(device.id));
    usbNodes(device);
    usbDriver(device);
    usbHolders(device);
}

void Examination::usbNodes(const UsbDevice &device)
{
    if (const NodeTrouble trouble = nodeTrouble(device.sNode, device.sNode, device.id); trouble.sText.empty())
        good("usb node", device.sNode + " may be opened");
    else
        badUsb("usb node", trouble.sText, trouble.sAdvice);
    for (const UsbInterface &interface : device.interfaces)
        for (const std::string &sNode : interface.hidraws) {
            const std::string sWhich = sNode + " (interface " + std::to_string(interface.nNumber) + ")";
            if (const NodeTrouble trouble = nodeTrouble(sNode, sWhich, device.id); trouble.sText.empty())
                good("hid node", sWhich + " may be opened");
            else
                tell("hid node", "note", trouble.sText + "; only hosts that go through hidapi need it",
                     trouble.sAdvice);
        }
    const UdevRule rule = udevRule(device.id);
    if (rule.sFile.empty())
        tell("udev", "note", "70-qvreader.rules is not installed", permissionAdvice(device.id));
    else if (!rule.bNamesDevice)
        tell("udev", "note", rule.sFile + " does not name " + device.idText(), permissionAdvice(device.id));
    else
        good("udev", rule.sFile + " names " + device.idText());
}

void Examination::usbDriver(const UsbDevice &device)
{
    const UsbInterface *pInterface = device.readerInterface();
    if (pInterface == nullptr)
        return badUsb("driver", "the device shows no interface", "plug it in anew");
    const std::string sWhich = "interface " + std::to_string(pInterface->nNumber) + ", the reader's, ";
    if (pInterface->sDriver == szHeldByProgram)
        badUsb("driver", sWhich + "is held by a program", "end that program, or wait for it");
    else if (pInterface->sDriver.empty() && pInterface->hidraws.empty())
        tell("driver", "note", sWhich + "has no kernel driver: a program has taken it off",
             "this hinders only hosts that go through hidapi: plug the reader in anew for those");
    else
        good("driver", sWhich + "has the kernel's " +
                           (pInterface->sDriver.empty() ? "HID driver" : pInterface->sDriver) +
                           "; the library takes it off");
}

void Examination::usbHolders(const UsbDevice &device)
{
    std::vector<std::string> nodes{device.sNode};
    for (const UsbInterface &interface : device.interfaces)
        nodes.insert(nodes.end(), interface.hidraws.begin(), interface.hidraws.end());
    bool bAny = false;
    for (const std::string &sNode : nodes)
        for (const Holder &holder : holdersOf(sNode)) {
            if (holder.bFarEnd)
                continue;
            tell("held by", "note", holder.sProgram + " has " + sNode + " open",
                 "two programs on one reader disturb each other: end it");
            bAny = true;
        }
    if (!bAny)
        good("held by", geteuid() == 0 ? "nobody else" : "nobody else, as far as this user can see");
}

// Port::claim looks whether it is there, is a tty, may be opened, and is free.
bool Examination::claim()
{
    if (m_options.sPort.empty()) {
        wrong("port", "no port was named",
              "give --port PATH (ls -l /dev/ttyS* /dev/ttyUSB* /dev/ttyACM*), or --port HID for USB", Exit::port);
        return false;
    }
    if (std::optional<std::string> sReason = claimChannel(m_options, m_port)) {
        const size_t nCut = sReason->find("; ");
        std::string sAdvice =
            nCut == sReason->npos ? "name the reader's serial port with --port" : sReason->substr(nCut + 2);
        if (sReason->find(" is busy: ") != sReason->npos)
            sAdvice = "end that program, or wait for it";
        wrong("port", sReason->substr(0, nCut), sAdvice, Exit::port);
        if (m_options.channel() == Channel::serial)
            holders();
        return false;
    }
    switch (m_options.channel()) {
    case Channel::serial:
        good("port", m_options.sPort + " is a serial port and may be opened" +
                         (m_port.devicePath() == m_options.sPort ? "" : "; it is " + m_port.devicePath()));
        break;
    case Channel::usb: good("port", m_options.sPort + " is " + oneOf(m_port.usbNodes())); break;
    case Channel::aux: good("port", m_options.sPort + " of the terminal at " + m_port.devicePath()); break;
    }
    return true;
}

void Examination::holders()
{
    bool bAny = false;
    for (const Holder &holder : holdersOf(m_options.sPort)) {
        if (holder.bFarEnd) {
            good("far end", holder.sProgram + " plays the reader on this pseudo-terminal");
            continue;
        }
        tell("held by", "note", holder.sProgram, "two programs on one port take each other's answers: end it");
        bAny = true;
    }
    if (!bAny)
        good("held by", geteuid() == 0 ? "nobody else" : "nobody else, as far as this user can see");
}

bool Examination::answersAt(int nBaud)
{
    const Clock::time_point end = Clock::now() + (nBaud <= nSlowest ? nSlowPatience : nPatience);
    Watch::Wait wait(m_watch, "", end, end);
    return askForLife(m_options, m_port, nBaud) == 0;
}

bool Examination::isCancelled()
{
    if (m_watch.signal() == 0)
        return false;
    m_outcome.failure = Failure{static_cast<Exit>(signalExit(m_watch.signal())), "cancelled", std::nullopt};
    return true;
}

// USB has no speed, and an aux port is switched to the one that is asked for.
void Examination::reader()
{
    if (m_options.channel() == Channel::serial)
        return readerAtAnySpeed();
    const uint64_t nBefore = bytesReceived();
    const bool bAnswers = answersAt(m_options.nBaud);
    if (isCancelled())
        return;
    const std::string sHow = speedText(m_options, m_options.nBaud);
    if (bAnswers)
        return good("reader", "answers " + sHow);
    const bool bNoise = bytesReceived() != nBefore;
    wrong("reader", std::string("no answer ") + sHow + (bNoise ? ", but bytes that are no valid frame" : ""),
          m_options.aux ? "terminal of another family, reader at another port or speed, power and cable?"
                        : "is the device a reader, and is it switched on?",
          Exit::noAnswer);
}

void Examination::readerAtAnySpeed()
{
    int nNoisySpeed = 0; // the first at which something came that is no answer
    for (int nBaud : trySpeeds) {
        if (m_options.cBox != 0 && nBaud != 9600) // behind a switch box the line stays there
            break;
        const uint64_t nBefore = bytesReceived();
        const bool bAnswers = answersAt(nBaud);
        if (isCancelled())
            return;
        if (!bAnswers) {
            if (nNoisySpeed == 0 && bytesReceived() != nBefore)
                nNoisySpeed = nBaud;
            continue;
        }
        addNumber(m_outcome.json.get(), "baud", nBaud);
        const std::string sSpeed = std::to_string(nBaud);
        if (nBaud == m_options.nBaud)
            return good("reader", "answers at " + sSpeed + " bit/s");
        return wrong("reader", "answers at " + sSpeed + " bit/s, not at " + std::to_string(m_options.nBaud),
                     "use --baud " + sSpeed + ", or switch the reader off and on", Exit::noAnswer);
    }
    if (nNoisySpeed != 0 && !m_port.isGone())
        return wrong("reader",
                     "no answer at any speed, but bytes that are no valid frame at " + std::to_string(nNoisySpeed) +
                         " bit/s",
                     "damaged cable? another device on this port? --trace shows the bytes", Exit::noAnswer);
    wrong("reader", m_port.isGone() ? "the line has hung up" : "no answer at any speed",
          "power and cable of the reader? another device on this port?", Exit::noAnswer);
}

void Examination::run()
{
    addText(m_outcome.json.get(), "port", m_options.sPort);
    library();
    log();
    usb();
    if (!claim())
        return;
    if (m_options.channel() == Channel::serial)
        holders();
    reader();
    if (!m_port.devicePath().empty())
        addText(m_outcome.json.get(), "device", m_port.devicePath());
}

} // namespace

void examine(const Options &options, Port &port, Watch &watch, Outcome &outcome)
{
    Examination(options, port, watch, outcome).run();
}

} // namespace qvtool
