// library -> log -> port -> who holds it -> a sign of life at each speed. What comes later makes no sense without what
// stands before it: the first failure ends the examination, apart from the log, which hinders nothing.
#include "doctor.h"

#include "log_switch.h"

#include <qvreader/icreader.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <set>
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
    bool claim();
    void holders();
    void reader();
    bool answersAt(int nBaud);

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

// Port::claim looks whether it is there, is a tty, may be opened, and is free.
bool Examination::claim()
{
    if (m_options.sPort.empty()) {
        wrong("port", "no port was named", "give --port PATH (ls -l /dev/ttyS* /dev/ttyUSB* /dev/ttyACM*)", Exit::port);
        return false;
    }
    if (std::optional<std::string> sReason = m_port.claim(m_options.sPort)) {
        const size_t nCut = sReason->find("; ");
        std::string sAdvice =
            nCut == sReason->npos ? "name the reader's serial port with --port" : sReason->substr(nCut + 2);
        if (sReason->find(" is busy: ") != sReason->npos)
            sAdvice = "end that program, or wait for it";
        wrong("port", sReason->substr(0, nCut), sAdvice, Exit::port);
        holders();
        return false;
    }
    good("port", m_options.sPort + " is a serial port and may be opened" +
                     (m_port.devicePath() == m_options.sPort ? "" : "; it is " + m_port.devicePath()));
    return true;
}

// Other processes that have the port open. Those of other users are seen by root only.
void Examination::holders()
{
    std::error_code error;
    const fs::path device = fs::canonical(m_options.sPort, error);
    if (error)
        return;
    std::set<std::string> found;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end; process.increment(error)) {
        const std::string sPid = process->path().filename().string();
        if (sPid.find_first_not_of("0123456789") != sPid.npos || sPid == std::to_string(getpid()))
            continue;
        std::error_code denied;
        for (fs::directory_iterator fd(process->path() / "fd", denied); !denied && fd != end; fd.increment(denied)) {
            std::error_code gone;
            if (fs::read_symlink(fd->path(), gone) != device)
                continue;
            std::ifstream comm(process->path() / "comm");
            std::string sName;
            std::getline(comm, sName);
            found.insert(sName + " (process " + sPid + ")");
        }
    }
    if (found.empty())
        return good("held by", geteuid() == 0 ? "nobody else" : "nobody else, as far as this user can see");
    for (const std::string &sHolder : found)
        tell("held by", "note", sHolder, "two programs on one port take each other's answers: end it");
}

bool Examination::answersAt(int nBaud)
{
    constexpr std::array<uint8_t, 2> szNoBox{0, 0};
    const std::array<uint8_t, 2> szBox{static_cast<uint8_t>(m_options.cBox), 0};
    const Clock::time_point end = Clock::now() + (nBaud <= nSlowest ? nSlowPatience : nPatience);
    Dev_Rdz_Ic_RaiseBaundFlag(m_options.cBox != 0 ? 1 : 0);
    Watch::Wait wait(m_watch, "", end, end);
    return Dev_Rdz_Ic_ChkDevPresent(m_port.devicePath().c_str(), m_options.cBox != 0 ? szBox.data() : szNoBox.data(),
                                    nBaud) == 0;
}

void Examination::reader()
{
    for (int nBaud : trySpeeds) {
        if (m_options.cBox != 0 && nBaud != 9600) // behind a switch box the line stays there
            break;
        const bool bAnswers = answersAt(nBaud);
        if (m_watch.signal() != 0) {
            m_outcome.failure = Failure{static_cast<Exit>(signalExit(m_watch.signal())), "cancelled", std::nullopt};
            return;
        }
        if (!bAnswers)
            continue;
        addNumber(m_outcome.json.get(), "baud", nBaud);
        const std::string sSpeed = std::to_string(nBaud);
        if (nBaud == m_options.nBaud)
            return good("reader", "answers at " + sSpeed + " bit/s");
        return wrong("reader", "answers at " + sSpeed + " bit/s, not at " + std::to_string(m_options.nBaud),
                     "use --baud " + sSpeed + ", or switch the reader off and on", Exit::noAnswer);
    }
    wrong("reader", m_port.isGone() ? "the line has hung up" : "no answer at any speed",
          "power and cable of the reader? another device on this port?", Exit::noAnswer);
}

void Examination::run()
{
    addText(m_outcome.json.get(), "port", m_options.sPort);
    library();
    log();
    if (!claim())
        return;
    addText(m_outcome.json.get(), "device", m_port.devicePath());
    holders();
    reader();
}

} // namespace

void examine(const Options &options, Port &port, Watch &watch, Outcome &outcome)
{
    Examination(options, port, watch, outcome).run();
}

} // namespace qvtool
