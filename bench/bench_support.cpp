// bench_support.cpp - see bench_support.h.

#include "bench_support.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <system_error>

namespace qvbench {

namespace {

void addHalves(Bytes &frame, uint8_t uc)
{
    frame.push_back(static_cast<uint8_t>(0x30 + (uc >> 4)));
    frame.push_back(static_cast<uint8_t>(0x30 + (uc & 15)));
}

Bytes makeFrame(const Bytes &data)
{
    Bytes frame{0x02};
    uint8_t ucLrc = 0;
    addHalves(frame, static_cast<uint8_t>(data.size() >> 8));
    addHalves(frame, static_cast<uint8_t>(data.size()));
    for (uint8_t uc : data) {
        addHalves(frame, uc);
        ucLrc ^= uc;
    }
    addHalves(frame, ucLrc);
    frame.push_back(ucEnd);
    return frame;
}

} // namespace

int checked(int nResult, const char *pszWhat)
{
    if (nResult < 0)
        throw std::system_error(errno, std::generic_category(), pszWhat);
    return nResult;
}

void pinToOneCpu()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(0, &set);
    checked(sched_setaffinity(0, sizeof set, &set), "sched_setaffinity");
}

Bytes makeCommand()
{
    Bytes command(nCommand, 0x11);
    command[4] = nCommand - 5;
    return command;
}

Bytes makeCommandFrame()
{
    const Bytes command = makeCommand();
    Bytes framed{0x32, 0x26, 0x00};
    framed.insert(framed.end(), command.begin(), command.end());
    return makeFrame(framed);
}

Bytes makeReplyFrame()
{
    Bytes reply(2 + nReply, 0x22); // status word 0000 and the R-APDU
    reply[0] = reply[1] = 0;
    reply[nReply] = 0x90;
    reply[nReply + 1] = 0x00;
    return makeFrame(reply);
}

Library::Library(const std::string &sFile)
{
    const std::filesystem::path original = std::filesystem::canonical(sFile);
    std::string sDir = (std::filesystem::temp_directory_path() / "qvbench-XXXXXX").string();
    if (mkdtemp(sDir.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    m_dir = sDir;
    std::filesystem::copy_file(original, m_dir / "libqvreader.so.1");
    m_pHandle = dlopen((m_dir / "libqvreader.so.1").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_pHandle == nullptr) {
        const std::string sWhy = dlerror();
        std::filesystem::remove_all(m_dir);
        throw std::runtime_error(sWhy);
    }
}

Library::~Library()
{
    dlclose(m_pHandle);
    std::filesystem::remove_all(m_dir);
}

void Library::writeIni() const
{
    std::ofstream(ini()) << "[QuorvanLog]\nLogFlag=0\n";
}

} // namespace qvbench
