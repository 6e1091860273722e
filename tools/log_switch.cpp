// The library reads QVConfig.ini on every log call and sees a line only when it ends in a line feed. The file is
// therefore written whole beside the old one and put in its place; other lines in it stay as they are.
#include "log_switch.h"

#include <qvreader/support.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qvtool {

namespace {

namespace fs = std::filesystem;

constexpr char szIniName[] = "/QVConfig.ini";
constexpr char szSection[] = "[QuorvanLog]";
constexpr char szKey[] = "LogFlag";
constexpr size_t nFolderRoom = 512;
constexpr char szWarning[] =
    "a log holds card numbers, PIN blocks and everything else on the line, and its folder is open "
    "to all users: switch it off and delete the files when done";

std::string newestLog(const std::string &sFolder)
{
    std::string sNewest;
    fs::file_time_type newest{};
    std::error_code error;
    auto look = [&](const fs::path &path) {
        const fs::file_time_type time = fs::last_write_time(path, error);
        if (!error && (sNewest.empty() || time > newest)) {
            newest = time;
            sNewest = path.string();
        }
    };
    look(sFolder + "/Alg_debug.log");
    std::error_code noFolder;
    fs::directory_iterator it(sFolder + "/log", noFolder);
    for (; !noFolder && it != fs::directory_iterator(); it.increment(noFolder))
        if (it->path().filename().string().starts_with("QV_"))
            look(it->path());
    return sNewest;
}

std::vector<std::string> linesOf(const std::string &sPath)
{
    std::vector<std::string> lines;
    std::ifstream file(sPath);
    for (std::string sLine; std::getline(file, sLine);)
        lines.push_back(sLine);
    return lines;
}

bool isSwitch(const std::string &sLine)
{
    return !sLine.starts_with("#") && !sLine.starts_with("//") && sLine.find('=') != std::string::npos &&
           sLine.find(szKey) != std::string::npos;
}

// The lines with the switch as wanted: the one that counts is replaced, or one is put behind the section's header.
std::vector<std::string> switched(std::vector<std::string> lines, bool bOn)
{
    const std::string sSwitch = std::string(szKey) + (bOn ? "=1" : "=0");
    size_t nHeader = 0;
    while (nHeader < lines.size() && !lines[nHeader].starts_with(szSection))
        ++nHeader;
    if (nHeader == lines.size())
        lines.emplace_back(szSection);
    for (size_t n = nHeader + 1; n < lines.size(); ++n)
        if (isSwitch(lines[n])) {
            lines[n] = sSwitch;
            return lines;
        }
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(nHeader) + 1, sSwitch);
    return lines;
}

// 0 or errno.
int writeWhole(const std::string &sPath, const std::vector<std::string> &lines)
{
    std::string sText;
    for (const std::string &sLine : lines)
        sText += sLine + "\n";
    std::string sNew = sPath + ".XXXXXX";
    const int nFd = mkostemp(sNew.data(), O_CLOEXEC);
    if (nFd < 0)
        return errno;
    int nError = 0;
    if (::write(nFd, sText.data(), sText.size()) != static_cast<ssize_t>(sText.size()))
        nError = errno != 0 ? errno : ENOSPC;
    if (nError == 0 && fchmod(nFd, 0644) != 0)
        nError = errno;
    if (::close(nFd) != 0 && nError == 0)
        nError = errno;
    if (nError == 0 && std::rename(sNew.c_str(), sPath.c_str()) != 0)
        nError = errno;
    if (nError != 0)
        unlink(sNew.c_str());
    return nError;
}

void tail(const LogPlace &place, int nLines, Outcome &outcome)
{
    cJSON *pList = cJSON_AddArrayToObject(outcome.json.get(), "lines");
    std::ifstream file(place.sLogFile);
    std::deque<std::string> last;
    for (std::string sLine; std::getline(file, sLine);) {
        while (!sLine.empty() && sLine.back() == '\r')
            sLine.pop_back();
        last.push_back(sLine);
        if (last.size() > static_cast<size_t>(nLines))
            last.pop_front();
    }
    if (file.bad() || (last.empty() && access(place.sLogFile.c_str(), R_OK) != 0))
        outcome.failure = Failure{Exit::system,
                                  place.sLogFile.empty() ? "there is no log file in " + place.sFolder
                                                         : place.sLogFile + " cannot be read: " + std::strerror(errno),
                                  std::nullopt};
    for (const std::string &sLine : last) {
        outcome.sLines += sLine + "\n";
        appendText(pList, sLine);
    }
}

} // namespace

LogPlace logPlace()
{
    std::array<char, nFolderRoom> szFolder{};
    getSoLocationPath(szFolder.data());
    LogPlace place;
    place.sFolder = szFolder.data();
    place.sIni = place.sFolder + szIniName;
    place.sLogFile = newestLog(place.sFolder);
    place.bOn = isWriteLog() == 1;
    return place;
}

Outcome switchLog(const Options &options)
{
    Outcome outcome;
    LogPlace place = logPlace();
    addText(outcome.json.get(), "ini", place.sIni);
    if (options.sLogAction == "tail") {
        addText(outcome.json.get(), "logFile", place.sLogFile);
        tail(place, options.nLogLines, outcome);
        return outcome;
    }
    if (options.sLogAction != "show") {
        const bool bOn = options.sLogAction == "on";
        if (bOn || place.bOn) { // nothing is written to switch off what is off
            const int nError = writeWhole(place.sIni, switched(linesOf(place.sIni), bOn));
            if (nError != 0) {
                outcome.failure = Failure{Exit::system,
                                          place.sIni + " cannot be written (" + std::strerror(nError) +
                                              "): only who may write in " + place.sFolder + " can switch the log",
                                          std::nullopt};
                return outcome;
            }
        }
        place.bOn = isWriteLog() == 1;
    }
    addFlag(outcome.json.get(), "on", place.bOn);
    addText(outcome.json.get(), "logFile", place.sLogFile);
    outcome.sLines = std::string("log         ") + (place.bOn ? "on" : "off") + "\nswitch      " + place.sIni +
                     "\nlog file    " +
                     (place.sLogFile.empty() ? "none yet; it will stand in " + place.sFolder : place.sLogFile) + "\n";
    if (place.bOn || !place.sLogFile.empty()) {
        outcome.sLines += std::string("mind        ") + szWarning + "\n";
        addText(outcome.json.get(), "warning", szWarning);
    }
    return outcome;
}

} // namespace qvtool
