#include "watch.h"

#include "exit_codes.h"

#include <qvreader/transport.h>

#include <algorithm>
#include <pthread.h>
#include <unistd.h>

namespace qvtool {

namespace {

using namespace std::chrono_literals;

constexpr timespec pace{0, 20'000'000}; // how often a wait is looked at
constexpr auto nPatience = 300ms;       // shorter waits are not worth a remark

std::string seconds(Clock::duration left)
{
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(std::max(left, Clock::duration::zero())).count()) +
           " s";
}

bool isIgnored(int nSignal)
{
    struct sigaction action {};
    return sigaction(nSignal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

Watch::Watch(Console &console, std::function<void()> beforeAbort, bool bKeyboard)
    : m_console(console), m_beforeAbort(std::move(beforeAbort)), m_bKeyboard(bKeyboard),
      m_pfnCancel(COMM_Dev_CancelRead)
{
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    if (!isIgnored(SIGHUP)) // started by nohup: it is to go on
        sigaddset(&m_signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    m_thread = std::thread([this] { run(); });
}

Watch::~Watch()
{
    m_bStop = true;
    m_thread.join();
}

void Watch::run()
{
    while (!m_bStop) {
        int nSignal = sigtimedwait(&m_signals, nullptr, &pace);
        if (nSignal > 0)
            takeSignal(nSignal);
        attend();
    }
}

void Watch::takeSignal(int nSignal)
{
    if (m_nSignal != 0) {
        m_beforeAbort();
        _exit(signalExit(nSignal));
    }
    m_nSignal = nSignal;
    m_console.line("qvreader: cancelling; once more ends at once");
}

// Looks after the wait that runs.
void Watch::attend()
{
    std::scoped_lock lock(m_guard);
    if (!m_bWaiting)
        return;
    Clock::time_point now = Clock::now();
    if ((m_bBySignal && m_nSignal != 0) || now >= m_limit)
        m_pfnCancel();
    else
        say(now);
}

std::string Watch::cancelHint() const
{
    return m_bKeyboard ? " (Ctrl-C cancels)" : " (SIGTERM cancels)";
}

void Watch::say(Clock::time_point now)
{
    if (!m_sPrompt.empty())
        return m_console.status("qvreader: " + m_sPrompt + ", " + seconds(m_end - now) + " left" + cancelHint() + " ");
    if (m_sWhat.empty() || now - m_begin < nPatience)
        return;
    if (m_sSaid != m_sWhat)
        m_console.line("qvreader: waiting for " + m_sWhat + ", up to " + seconds(m_end - m_begin) + cancelHint());
    m_sSaid = m_sWhat;
    m_console.status("  " + seconds(m_end - now) + " left ");
}

void Watch::prompt(std::string sWhat, Clock::time_point end)
{
    std::scoped_lock lock(m_guard);
    m_sPrompt = std::move(sWhat);
    m_end = end;
    if (!m_console.isTerminal())
        m_console.line("qvreader: " + m_sPrompt + ", within " + seconds(m_end - Clock::now()) + cancelHint());
}

void Watch::endPrompt()
{
    std::scoped_lock lock(m_guard);
    m_sPrompt.clear();
    m_console.status("");
}

Watch::Wait::Wait(Watch &watch, std::string sWhat, Clock::time_point end, Clock::time_point limit, bool bBySignal)
    : m_watch(watch)
{
    std::scoped_lock lock(m_watch.m_guard);
    m_watch.m_bWaiting = true;
    m_watch.m_bBySignal = bBySignal;
    m_watch.m_sWhat = std::move(sWhat);
    m_watch.m_begin = Clock::now();
    m_watch.m_end = end;
    m_watch.m_limit = limit;
}

Watch::Wait::~Wait()
{
    std::scoped_lock lock(m_watch.m_guard);
    m_watch.m_bWaiting = false;
    m_watch.m_sPrompt.clear();
    m_watch.m_console.status("");
}

} // namespace qvtool
