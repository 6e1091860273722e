#include "trace.h"

#include <qvreader/transport.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <termios.h>

namespace qvtool {

namespace {

struct SpeedRow {
    speed_t nCode;
    unsigned nBits;
};

constexpr std::array<SpeedRow, 10> speedTable{{{B300, 300},
                                               {B1200, 1200},
                                               {B2400, 2400},
                                               {B4800, 4800},
                                               {B9600, 9600},
                                               {B19200, 19200},
                                               {B38400, 38400},
                                               {B57600, 57600},
                                               {B115200, 115200},
                                               {B230400, 230400}}};

unsigned speedOf(int nFd)
{
    termios settings{};
    if (tcgetattr(nFd, &settings) != 0)
        return 0;
    for (const SpeedRow &row : speedTable)
        if (row.nCode == cfgetospeed(&settings))
            return row.nBits;
    return 0;
}

std::string timeText()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> szText{};
    std::snprintf(szText.data(), szText.size(), "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
                  now.tv_nsec / 1'000'000);
    return szText.data();
}

} // namespace

Trace::Trace(Console &console, std::optional<StripeWire> stripe) : m_console(console), m_stripe(std::move(stripe))
{
    listenToLine(*this);
}

Trace::~Trace()
{
    stopListening(*this);
    flush();
}

void Trace::sent(BytesView data)
{
    flush();
    tellSpeed();
    if (m_stripe)
        return tell('>', m_stripe->sent(data));
    tell('>', data, commandMeaning(data));
    m_replies.expect(data);
}

void Trace::received(BytesView data)
{
    if (m_stripe) {
        for (const ToldBytes &told : m_stripe->received(data))
            tell('<', told);
        return;
    }
    for (const ReplyCutter::Reply &reply : m_replies.feed(data))
        tell('<', reply.data, reply.sMeaning);
}

void Trace::failed(const char *pszCall, const char *pszError)
{
    flush();
    m_console.line(timeText() + " ! " + pszCall + ": " + pszError);
}

void Trace::flush()
{
    if (m_stripe) {
        if (const ToldBytes told = m_stripe->flush(); !told.data.empty())
            tell('<', told);
        return;
    }
    ReplyCutter::Reply reply = m_replies.flush();
    if (!reply.data.empty())
        tell('<', reply.data, reply.sMeaning);
}

void Trace::tell(char cDirection, BytesView data, const std::string &sMeaning)
{
    m_console.line(timeText() + " " + cDirection + " " + spacedHex(data) + "  [" + sMeaning + "]");
}

// Card data that is not to be seen is a row of asterisks.
void Trace::tell(char cDirection, const ToldBytes &told)
{
    std::string sBytes = spacedHex(told.data);
    for (size_t n = 0; n < told.data.size(); ++n)
        if (told.hidden[n])
            sBytes[3 * n] = sBytes[3 * n + 1] = '*';
    m_console.line(timeText() + " " + cDirection + " " + sBytes + "  [" + told.sMeaning + "]");
}

void Trace::tellSpeed()
{
    if (g_AuxFd < 0) // USB has none
        return;
    unsigned nSpeed = speedOf(g_AuxFd);
    if (nSpeed != m_nSpeed)
        m_console.line(timeText() + "   line at " + std::to_string(nSpeed) + " bit/s");
    m_nSpeed = nSpeed;
}

} // namespace qvtool
