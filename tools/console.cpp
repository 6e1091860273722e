#include "console.h"

#include <cstdio>
#include <unistd.h>

namespace qvtool {

namespace {

constexpr std::string_view sRewrite = "\r\033[K"; // to the line's start, and empty it

} // namespace

Console::Console() : m_bTerminal(isatty(STDERR_FILENO) == 1) {}

Console::~Console()
{
    release();
}

void Console::put(std::string_view sText)
{
    if (m_bHold)
        m_sHeld += sText;
    else
        std::fwrite(sText.data(), 1, sText.size(), stderr);
}

void Console::clearStatus()
{
    if (!m_sStatus.empty())
        put(sRewrite);
    m_sStatus.clear();
}

void Console::line(std::string_view sText)
{
    text(std::string(sText) + "\n");
}

void Console::text(std::string_view sText)
{
    std::scoped_lock lock(m_guard);
    clearStatus();
    put(sText);
    std::fflush(stderr);
}

void Console::hold()
{
    std::scoped_lock lock(m_guard);
    clearStatus();
    m_bHold = true;
}

void Console::release()
{
    std::scoped_lock lock(m_guard);
    m_bHold = false;
    put(m_sHeld);
    m_sHeld.clear();
    std::fflush(stderr);
}

void Console::status(std::string_view sText)
{
    std::scoped_lock lock(m_guard);
    if (!m_bTerminal || m_bHold || sText == m_sStatus)
        return;
    clearStatus();
    put(sText);
    m_sStatus = sText;
    std::fflush(stderr);
}

} // namespace qvtool
