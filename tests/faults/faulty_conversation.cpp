#include "faulty_conversation.h"

#include "pty_peer.h"

#include "qvreader/icreader.h"
#include "qvreader/support.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace qvtest {

namespace {

namespace fs = std::filesystem;

constexpr uint32_t nTimeOut = 20;     // seconds of the fake clock, one for each idle read pass
constexpr unsigned nHangSeconds = 20; // of real time, until a conversation counts as hung
constexpr char szAtr[] = "3B 6D 00 00 80 31 80 65 B0 87 27 01 BC 83 08 90 00";

// Says what was being tried before the program goes down.
void onHang(int)
{
    const char *psz = Watch::armed();
    [[maybe_unused]] ssize_t n = write(STDERR_FILENO, "hung: ", 6);
    n = write(STDERR_FILENO, psz, strlen(psz));
    n = write(STDERR_FILENO, "\n", 1);
    _exit(1);
}

std::string logFolder()
{
    return libraryDirectory() + "/log";
}

} // namespace

Bytes apdu()
{
    return bytes("00 A4 04 00 0F 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31 00");
}

std::string cardResponse()
{
    std::string s;
    for (int i = 0; i < 98; ++i)
        s += hex(Bytes{static_cast<uint8_t>(i * 7)}) + " ";
    return s + "90 00";
}

std::string powerOnCommand()
{
    return commandFrame("32 22 4E 20 00");
}

std::string apduCommand()
{
    return commandFrame("32 26 00 " + hex(apdu()));
}

std::string powerOffCommand()
{
    return commandFrame("32 23 00");
}

FaultyConversation::FaultyConversation(Logging logging)
    : m_logging(logging), m_clock(localSeconds(2026, 7, 14)), m_before(m_peer.settings())
{
    m_peer.answer(powerOnCommand(), replyFrame(0x9000, szAtr));
    m_peer.answer(apduCommand(), replyFrame(0x9000, cardResponse()));
    m_peer.answer(powerOffCommand(), replyFrame(0x9000));
    g_nPowerOnTimeout = nTimeOut;
    g_bIcBaundFlag = 0;
    QV_DPritLogSetFileName(nullptr);
    if (logging == Logging::NoIni)
        removeIni();
    else
        writeIni(logging == Logging::IniSaysNo ? "[QuorvanLog]\nLogFlag=0\n" : "[QuorvanLog]\nLogFlag=1\n");
    std::signal(SIGALRM, onHang);
}

FaultyConversation::~FaultyConversation()
{
    removeIni();
    QV_DPritLogSetFileName(nullptr);
    g_nPowerOnTimeout = 0;
    fs::remove_all(logFolder());
    fs::remove(libraryDirectory() + "/Alg_debug.log");
}

void FaultyConversation::prepareFiles(bool bNoLogFolder) const
{
    fs::remove(libraryDirectory() + "/Alg_debug.log");
    if (m_logging != Logging::On)
        return;
    fs::remove_all(logFolder());
    if (bNoLogFolder)
        return;
    fs::create_directory(logFolder());
    writeFile(logFolder() + "/QV_20200101.log", "too old\r\n");
}

Outcome FaultyConversation::run(bool bNoLogFolder)
{
    prepareFiles(bNoLogFolder);
    Outcome out;
    {
        Watch watch([this] { m_clock.advance(1); });
        play(watch, out);
    }
    lookAround(out);
    return out;
}

Outcome FaultyConversation::run(const Call &call, const Way &way, bool bNoLogFolder)
{
    prepareFiles(bNoLogFolder);
    Outcome out;
    {
        Watch watch(call, way, [this] { m_clock.advance(1); });
        play(watch, out);
    }
    lookAround(out);
    return out;
}

void FaultyConversation::lookAround(Outcome &out)
{
    out.nDescriptors = openDescriptors();
    out.after = m_peer.settings();
    out.sWire = m_peer.settle();
    if (m_logging == Logging::On)
        out.sLog = readFile(logFolder() + "/QV_20260714.log");
    else if (m_logging == Logging::OnNoLogName)
        out.sLog = readFile(libraryDirectory() + "/Alg_debug.log");
}

void FaultyConversation::play(Watch &watch, Outcome &out)
{
    out.codes.fill(nSkipped);
    m_clock.set(localSeconds(2026, 7, 14));
    const auto start = std::chrono::steady_clock::now();
    alarm(nHangSeconds);
    auto step = [&](Step which, auto call) {
        watch.enter(which);
        const int32_t nRet = call();
        out.codes[static_cast<size_t>(which)] = nRet;
        return nRet == 0;
    };
    std::array<uint8_t, 1024> buf{};
    uint32_t nLen = 0;
    if (m_logging == Logging::On)
        step(Step::Init, [] { return initDriver(); });
    if (step(Step::Open, [&] { return Dev_Rdz_Ic_OpenPort(m_peer.path().c_str(), nullptr, 1, 0, 38400); }) &&
        step(Step::PowerOn, [&] { return Dev_Rdz_IccPowerOn('1', buf.data(), &nLen); })) {
        out.atr.assign(buf.begin(), buf.begin() + nLen);
        const Bytes command = apdu();
        if (step(Step::Apdu, [&] {
                return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), buf.data(), &nLen);
            })) {
            out.response.assign(buf.begin(), buf.begin() + nLen);
            step(Step::PowerOff, [] { return Dev_Rdz_Ic_PowerOff(); });
        }
    }
    step(Step::Close, [] { return Dev_Rdz_Ic_ClosePort(); });
    out.bFired = watch.fired();
    out.calls = watch.calls();
    alarm(0);
    out.nLasted = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

} // namespace qvtest
