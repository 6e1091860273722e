#include "stripe_conversation.h"

#include "pty_peer.h"

#include "qvreader/msr.h"
#include "qvreader/support.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace qvtest {

namespace {

constexpr unsigned nHangSeconds = 20; // of real time, until a conversation counts as hung
constexpr size_t nRoom = 64, nBehind = 64;
constexpr char cFill = '#';

constexpr char szReadTime[] = "01 30 30 30 33 32 30 30 34 31 3E 33 3A 04"; // 30 seconds
constexpr char szSeparator[] = "01 30 30 30 33 32 30 30 31 37 3C 35 3D 04";
constexpr char szReadAll[] = "01 30 30 30 32 32 30 30 32 32 32 04";
constexpr char szDone[] = "01 30 30 30 32 30 30 30 30 30 30 04";

// Says what was being tried before the program goes down.
void onHang(int)
{
    const char *psz = Watch::armed();
    [[maybe_unused]] ssize_t n = write(STDERR_FILENO, "hung: ", 6);
    n = write(STDERR_FILENO, psz, strlen(psz));
    n = write(STDERR_FILENO, "\n", 1);
    _exit(1);
}

// Behind the open. readTimeNotRead: what comes of an answer to the read time that is still on the line later.
std::vector<StripePhase> phases(const StripeEffect &readTimeNotRead, std::vector<StripePhase> middle,
                                std::vector<StripePhase> tail)
{
    std::vector<StripePhase> all = {{"1B 30", "", {0, {1}}}, {"1B 3D"}, {szReadTime, szDone, {}, readTimeNotRead}};
    all.insert(all.end(), middle.begin(), middle.end());
    all.insert(all.end(), tail.begin(), tail.end());
    return all;
}

const std::vector<StripePhase> s_readTail = {{"1B 30"}, {"1B 25 41"}, {"1B 30"}};
const std::vector<StripePhase> s_writeTail = {{"1B 30"}, {"1B 25 41"}};
const StripePhase s_status = {"1B 6A", "70", {-4}, {-4}};

} // namespace

const std::vector<StripeCase> &stripeCases()
{
    // A bare reply must begin with its own first byte; a status may have anything in front of it, and so may a frame.
    static const std::vector<StripeCase> cases = {
        {"ReadOfTrack2",
         2,
         false,
         phases({-4, {4}}, {{"1B 5D", "1B 73 36 32 3D 31 3F 1C", {-54, {4}}, {-55, {4}}}, s_status}, s_readTail),
         {"", "62=1", ""}},
        {"ReadOfTracks1And2",
         12,
         false,
         phases({-4, {4}}, {{"1B 44 5D", "1B 73 36 32 41 42 31 3F 1C", {-54, {4}}, {-55, {4}}}, s_status}, s_readTail),
         {"B1", "62", ""}},
        {"ReadOfAllTracks",
         123,
         false,
         phases({0, {}, true},
                {{szSeparator, szDone, {-55, {4}}, {-55, {4}}},
                 {szReadAll, replyFrame(0, "42 31 7C 32 7C 33 7C", 0x01, 0x04), {-54}, {-55}}},
                s_readTail),
         {"B1", "2", "3"}},
        {"WriteOfTrack2", 2, true, phases({}, {{"1B 74 32 32 1D 1B 5C", "", {-1, {4}}}, s_status}, s_writeTail), {}},
        {"WriteOfAllTracks",
         123,
         true,
         phases({}, {{commandFrame("20 03 42 31 7C 32 32 7C 33", 0x01, 0x04), szDone, {-54}, {-55}}}, s_writeTail),
         {}},
    };
    return cases;
}

StripeConversation::StripeConversation(const StripeCase &stripeCase, StripeLog log)
    : m_case(stripeCase), m_clock(localSeconds(2026, 7, 14)), m_before(m_peer.settings())
{
    for (const StripePhase &phase : m_case.phases)
        m_peer.answer(phase.sCommand, phase.sAnswer);
    g_bMsgBaundFlag = 0;
    logOff();
    if (log == StripeLog::IniSaysNo)
        writeIni("[QuorvanLog]\nLogFlag=0\n");
    else if (log == StripeLog::On)
        logOn();
    std::signal(SIGALRM, onHang);
}

StripeConversation::~StripeConversation()
{
    logOff();
}

StripeOutcome StripeConversation::run()
{
    StripeOutcome out;
    {
        Watch watch;
        play(watch, out);
    }
    lookAround(out);
    return out;
}

StripeOutcome StripeConversation::run(const Call &call, const Way &way)
{
    StripeOutcome out;
    {
        Watch watch(call, way);
        play(watch, out);
    }
    lookAround(out);
    return out;
}

void StripeConversation::play(Watch &watch, StripeOutcome &out)
{
    std::array<std::array<char, nRoom + nBehind>, 3> rooms;
    for (auto &room : rooms)
        room.fill(cFill);
    char sz1[] = "B1", sz2[] = "22", sz3[] = "3";
    const char *pszPort = m_peer.path().c_str();
    const auto start = std::chrono::steady_clock::now();
    alarm(nHangSeconds);
    watch.enter(Step::Stripe);
    if (m_case.bWrite)
        out.nResult = MSG_QV_WriteData(pszPort, 38400, nullptr, 0, 0, m_case.nMode, 30, sz1, sz2, sz3);
    else
        out.nResult = MSG_QV_ReadData(pszPort, 38400, nullptr, 0, 0, m_case.nMode, 30, rooms[0].data(), nRoom,
                                      rooms[1].data(), nRoom, rooms[2].data(), nRoom);
    out.bFired = watch.fired();
    out.calls = watch.calls();
    alarm(0);
    out.nLasted = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    for (size_t i = 0; i < 3; ++i) {
        out.bRoomsKept =
            out.bRoomsKept && std::all_of(rooms[i].begin() + nRoom, rooms[i].end(), [](char c) { return c == cFill; });
        out.tracks[i] = rooms[i][0] == cFill ? "" : rooms[i].data();
    }
}

void StripeConversation::lookAround(StripeOutcome &out)
{
    out.nDescriptors = openDescriptors();
    out.after = m_peer.settings();
    out.sWire = m_peer.settle();
}

} // namespace qvtest
