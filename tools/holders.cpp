#include "holders.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace qvtool {

namespace {

namespace fs = std::filesystem;

constexpr char szSimulator[] = "qvreader-sim"; // has the nodes of the devices open that it emulates

bool isTerminal(const fs::path &device)
{
    return device.parent_path() == "/dev/pts";
}

// Whether this process is the other end of the pseudo-terminal: a simulated reader keeps its line open on both ends.
bool servesTerminal(const fs::path &process, const fs::path &device)
{
    std::error_code denied;
    for (fs::directory_iterator fd(process / "fd", denied), end; !denied && fd != end; fd.increment(denied)) {
        std::error_code gone;
        if (fs::read_symlink(fd->path(), gone).filename() != "ptmx")
            continue;
        std::ifstream info(process / "fdinfo" / fd->path().filename());
        for (std::string sLine; std::getline(info, sLine);)
            if (sLine == "tty-index:\t" + device.filename().string())
                return true;
    }
    return false;
}

bool isSameFile(const fs::path &link, const fs::path &device, const struct stat &wanted)
{
    std::error_code gone;
    if (fs::read_symlink(link, gone) == device)
        return true;
    struct stat found {};
    return stat(link.c_str(), &found) == 0 && found.st_dev == wanted.st_dev && found.st_ino == wanted.st_ino;
}

bool hasOpen(const fs::path &process, const fs::path &device, const struct stat &wanted)
{
    std::error_code denied;
    for (fs::directory_iterator fd(process / "fd", denied), end; !denied && fd != end; fd.increment(denied))
        if (isSameFile(fd->path(), device, wanted))
            return true;
    return false;
}

} // namespace

std::vector<Holder> holdersOf(const std::string &sPath)
{
    std::vector<Holder> holders;
    std::error_code error;
    const fs::path device = fs::canonical(sPath, error);
    struct stat wanted {};
    if (error || stat(sPath.c_str(), &wanted) != 0)
        return holders;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end; process.increment(error)) {
        const std::string sPid = process->path().filename().string();
        if (sPid.find_first_not_of("0123456789") != sPid.npos || sPid == std::to_string(getpid()))
            continue;
        if (!hasOpen(process->path(), device, wanted))
            continue;
        std::ifstream comm(process->path() / "comm");
        std::string sName;
        std::getline(comm, sName);
        const bool bFarEnd = isTerminal(device) ? servesTerminal(process->path(), device) : sName == szSimulator;
        holders.push_back({sName + " (process " + sPid + ")", bFarEnd});
    }
    std::sort(holders.begin(), holders.end(), [](const Holder &a, const Holder &b) { return a.sProgram < b.sProgram; });
    return holders;
}

} // namespace qvtool
