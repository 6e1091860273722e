#include "results.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace qvtool {

namespace {

[[noreturn]] void giveUp(const std::string &sFile)
{
    throw std::runtime_error(sFile + " cannot be written: " + std::strerror(errno));
}

} // namespace

Results::Results(const Options &options, Console &console)
    : m_console(console), m_bConsole(options.aux.has_value()), m_sFile(options.sOutput)
{
    if (m_sFile.empty())
        return;
    m_file.open(m_sFile, std::ios::trunc);
    if (!m_file)
        giveUp(m_sFile);
}

void Results::put(const std::string &sText)
{
    if (!m_sFile.empty()) {
        if (!m_file.write(sText.data(), static_cast<std::streamsize>(sText.size())).flush())
            giveUp(m_sFile);
    } else if (m_bConsole) {
        m_console.text(sText);
    } else {
        std::fwrite(sText.data(), 1, sText.size(), stdout);
        std::fflush(stdout);
    }
}

} // namespace qvtool
