// steps.h - what the checks of all channels share.
#pragma once

#include "conversation.h"
#include "harness.h"
#include "waiting.h"

#include <cstring>
#include <functional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qvvm {

using qvtest::Answer;
using qvtest::bytes;
using qvtest::Bytes;
using qvtest::hex;
using qvtest::openDescriptors;
using qvtest::powerOn;
using qvtest::send;

// The card that every check puts in: in the simulator's folders, and in the machine.
constexpr char szCard[] = "/vm/long.card";
constexpr char szCardOutside[] = "script:../tests/vm/long.card";
constexpr char szAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 4C 4E";
constexpr char szGetChallenge[] = "00 84 00 00 08";
constexpr char szChallenge[] = "B7 2E 61 0F D8 43 9A C5 90 00";
constexpr char szGetLong[] = "00 C0 00 00 00";

// The card's longest answer: 500 bytes, 01 to FF again and again, and the status.
inline std::string longAnswer()
{
    Bytes all;
    for (int i = 0; i < 500; ++i)
        all.push_back(static_cast<uint8_t>(i % 255 + 1));
    all.push_back(0x90);
    all.push_back(0x00);
    return hex(all);
}

// UPDATE BINARY of nAll bytes in all, none of them zero where a card would not care.
inline std::string longCommand(size_t nAll)
{
    Bytes all = bytes("00 D6 00 00");
    while (all.size() < nAll)
        all.push_back(static_cast<uint8_t>(all.size() % 255 + 1));
    return hex(all);
}

// Runs the step as a user without rights, in a process of its own; its result (0 to 255 as an exit code).
inline int asNobody(const std::function<int()> &step)
{
    const pid_t nPid = fork();
    if (nPid == 0)
        _exit(setgid(65534) == 0 && setuid(65534) == 0 ? step() & 0xFF : 254);
    int nStatus = 0;
    if (nPid < 0 || waitpid(nPid, &nStatus, 0) != nPid || !WIFEXITED(nStatus))
        return 255;
    return WEXITSTATUS(nStatus);
}

// Milliseconds of processor time that this process has used.
inline double processorMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) {
        return 1000.0 * static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1000.0;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

} // namespace qvvm
