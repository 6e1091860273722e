// tool_process.h - the command-line tool as its users start it.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace qvvm {

constexpr char szTool[] = "/vm/qvreader";

struct ToolOutcome {
    int nCode = -1;
    std::string sOutput; // both channels
};

inline ToolOutcome tool(const std::string &sPort, const std::string &sArguments)
{
    ToolOutcome outcome;
    FILE *const pPipe = popen((std::string(szTool) + " --port " + sPort + " " + sArguments + " 2>&1").c_str(), "re");
    if (pPipe == nullptr)
        return outcome;
    std::array<char, 512> buffer;
    while (const size_t nRead = fread(buffer.data(), 1, buffer.size(), pPipe))
        outcome.sOutput.append(buffer.data(), nRead);
    const int nStatus = pclose(pPipe);
    outcome.nCode = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 1000 + nStatus;
    return outcome;
}

inline bool contains(const std::string &sText, const std::string &sPart)
{
    return sText.find(sPart) != std::string::npos;
}

} // namespace qvvm
