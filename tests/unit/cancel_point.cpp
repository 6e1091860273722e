#include "cancel_point.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr auto nPrompt = 2s;    // a cancel takes 0.1 s; the rest is for a busy machine
constexpr auto nPatience = 10s; // until a wait that does not end, or a read that does not begin, counts as a failure
constexpr auto nGlance = 1ms;
constexpr int nHopeless = 1'000'000; // seconds that end any wait

constexpr const char *pszNextCommand = "00 84 00 00 04";
constexpr const char *pszNextAnswer = "DE AD BE EF 90 00";

std::string s_sPort; // what every /dev/COM name leads to
std::atomic<int> s_nReads{0};

int32_t portFd()
{
    return std::atomic_ref<int32_t>(g_AuxFd).load();
}

} // namespace

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list more;
    va_start(more, nFlags);
    const unsigned nMode = (nFlags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    const bool bNumbered = std::strncmp(pszPath, "/dev/COM", std::strlen("/dev/COM")) == 0;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, bNumbered ? s_sPort.c_str() : pszPath, nFlags, nMode));
}

// A read that has begun tells that the library waits and takes a cancel.
extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    if (nFd == portFd())
        ++s_nReads;
    return syscall(SYS_read, nFd, pBuf, nLen);
}

namespace qvtest {

namespace {

// Waits for what another thread does.
bool waitFor(const std::function<bool()> &holds)
{
    const auto nEnd = std::chrono::steady_clock::now() + nPatience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > nEnd)
            return false;
        std::this_thread::sleep_for(nGlance);
    }
    return true;
}

// What one wait saw of its cancel.
struct Cancelled {
    bool bWaited = false;
    int32_t nResult = -1; // of the cancel
    int nReads = 0;       // begun by then
    std::chrono::steady_clock::time_point when{};
};

Cancelled cancelOneWait(const std::function<int32_t()> &cancel)
{
    Cancelled cancelled;
    const int nBefore = s_nReads;
    cancelled.bWaited = waitFor([&] { return s_nReads > nBefore; });
    cancelled.when = std::chrono::steady_clock::now();
    cancelled.nResult = cancel();
    cancelled.nReads = s_nReads;
    return cancelled;
}

size_t occurrences(const std::string &sText, const std::string &sPart)
{
    size_t n = 0;
    for (size_t nAt = sText.find(sPart); nAt != sText.npos; nAt = sText.find(sPart, nAt + sPart.size()))
        ++n;
    return n;
}

// A call may choose a log file of its own.
std::string allLogs()
{
    std::string sAll = rawLog();
    const std::string sFolder = libraryDirectory() + "/log";
    if (std::filesystem::exists(sFolder))
        for (const auto &entry : std::filesystem::directory_iterator(sFolder))
            sAll += readFile(entry.path());
    return sAll;
}

bool isWait(const Exchange &exchange)
{
    return exchange.sReply.empty() && exchange.bAwaited;
}

size_t waits(const CancelPoint &point)
{
    return static_cast<size_t>(std::ranges::count_if(point.exchanges, isWait));
}

size_t commandBytes(const CancelPoint &point)
{
    size_t nBytes = 0;
    for (const Exchange &exchange : point.exchanges)
        nBytes += bytes(exchange.sCommand).size();
    return nBytes;
}

} // namespace

std::ostream &operator<<(std::ostream &out, const CancelPoint &point)
{
    return out << point.sName;
}

std::string cardCommand(std::string_view sData)
{
    return commandFrame(sData);
}

std::string cardReply(std::string_view sBody, uint32_t nStatus)
{
    return replyFrame(nStatus, sBody);
}

void CancelPoints::SetUp()
{
    std::filesystem::remove_all(libraryDirectory() + "/log");
    m_nDescriptors = openDescriptors();
    m_clock.emplace(localSeconds(2026, 7, 14));
    m_peer.emplace();
    s_sPort = m_peer->path();
    g_bIcBaundFlag = 0;
    g_nPowerOnTimeout = 60;
    if (std::get<0>(GetParam()).port == Port::OfTheTest) {
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(s_sPort.c_str(), nullptr, 1, 0, 9600), 0);
        COMM_Rdz_ChageReadTimeOut(60);
        COMM_Icc_CardReaderReSetCardSlot();
    }
    if (std::get<1>(GetParam()))
        logOn();
}

void CancelPoints::TearDown()
{
    logOff();
    Dev_Rdz_Ic_ClosePort();
    m_peer->finish();
    m_peer.reset();
    m_clock.reset();
    EXPECT_EQ(openDescriptors(), m_nDescriptors);
}

void CancelPoints::writeScript(const CancelPoint &point)
{
    for (const Exchange &exchange : point.exchanges) {
        if (exchange.sCommand.empty())
            continue;
        m_peer->expect(exchange.sCommand);
        if (!exchange.sReply.empty())
            m_peer->reply(exchange.sReply);
    }
    m_peer->expect(commandFrame("32 26 00 " + std::string(pszNextCommand))).reply(replyFrame(0, pszNextAnswer));
}

// Runs the call here and cancels its waits from a second thread.
void CancelPoints::cancelEachWait(const CancelPoint &point)
{
    std::vector<Cancelled> cancels;
    std::atomic<bool> bEnded{false};
    std::thread second([&] {
        size_t nBytes = 0;
        for (const Exchange &exchange : point.exchanges) {
            nBytes += bytes(exchange.sCommand).size();
            if (isWait(exchange) && waitFor([&] { return bEnded || m_peer->received().size() >= nBytes; }))
                cancels.push_back(cancelOneWait(point.cancel));
        }
        // So that a wait which a cancel did not end fails the test, not the run.
        if (!waitFor([&] { return bEnded.load(); }))
            m_clock->advance(nHopeless);
    });
    const int32_t nResult = point.call(s_sPort.c_str());
    const auto nEnd = std::chrono::steady_clock::now();
    bEnded = true;
    second.join();

    EXPECT_EQ(nResult, point.nResult);
    ASSERT_EQ(cancels.size(), waits(point));
    for (const Cancelled &cancelled : cancels) {
        EXPECT_TRUE(cancelled.bWaited) << "the call did not wait";
        EXPECT_EQ(cancelled.nResult, 0);
    }
    EXPECT_LE(s_nReads - cancels.back().nReads, 1) << "read passes after the cancel";
    EXPECT_LT(nEnd - cancels.back().when, nPrompt);
    for (size_t i = 1; i < cancels.size(); ++i)
        EXPECT_LT(cancels[i].when - cancels[i - 1].when, 2 * nPrompt) << "the next wait after cancel " << i;
}

void CancelPoints::exchangeOnce()
{
    if (std::get<0>(GetParam()).port == Port::OfTheCall) {
        EXPECT_EQ(portFd(), -2) << "the call left its port open";
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(s_sPort.c_str(), nullptr, 1, 0, 9600), 0);
    }
    COMM_Rdz_ChageReadTimeOut(60);
    COMM_Icc_CardReaderReSetCardSlot();
    const Bytes command = bytes(pszNextCommand);
    uint8_t response[1024] = {};
    uint32_t nResponse = 0;
    EXPECT_EQ(ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), response, &nResponse), 0);
    EXPECT_EQ(hex(response, nResponse), pszNextAnswer);
}

void CancelPoints::checkLog(const CancelPoint &point) const
{
    const std::string sLog = allLogs();
    if (!std::get<1>(GetParam())) {
        EXPECT_EQ(sLog, "");
        return;
    }
    EXPECT_EQ(occurrences(sLog, "[COMM_Com_ReadLinux ] End nRetVal = -57 \r\n"), waits(point));
    EXPECT_EQ(occurrences(sLog, "[COMM_Com_CancelLinuxRead] Start \r\n"), waits(point));
}

void CancelPoints::run()
{
    const CancelPoint &point = std::get<0>(GetParam());
    if (!std::get<1>(GetParam()))
        writeFile(libraryDirectory() + "/test.log", "");
    writeScript(point);
    cancelEachWait(point);
    checkLog(point);
    // The next open discards what has not been taken yet.
    EXPECT_TRUE(m_peer->waitForBytes(commandBytes(point)));
    if (point.check)
        point.check();
    exchangeOnce();
}

} // namespace qvtest
