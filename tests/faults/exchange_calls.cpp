// What one exchange asks of the system, kind by kind. A change that makes an exchange dearer fails here.

#include "faulty_conversation.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>

using namespace qvtest;

namespace {

// ICC_CardCmdVisitCOS looks this often whether the log is on: once for each line and dump that it would write, once
// before each loop of bytes, once before each dump with a title that has to be made.
constexpr int nLooks = 40;

struct Cost {
    const char *pszKind;
    Target target;
    int nNoIni, nIniSaysNo;
    const char *pszWhy;
};

constexpr Cost costs[] = {
    {"write", Target::Tty, 1, 1, "the frame goes out in one piece"},
    {"read", Target::Tty, 1, 1, "the reply comes in one piece, and its end byte ends the read"},
    {"open", Target::Ini, nLooks, nLooks, "every look at the switch reads the file anew"},
    {"read", Target::Ini, 0, nLooks, "a small file costs a single read"},
    {"close", Target::Ini, 0, nLooks, "no descriptor is kept"},
};

// The cheapest of several conversations: on a busy machine a reply may come late or in pieces.
std::map<std::string, int> cheapestExchange(Logging logging)
{
    FaultyConversation conversation(logging);
    std::map<std::string, int> cheapest;
    size_t nFewest = SIZE_MAX;
    for (int i = 0; i < 20; ++i) {
        const Outcome out = conversation.run();
        EXPECT_EQ(hex(out.response), cardResponse());
        std::map<std::string, int> calls;
        size_t nCalls = 0;
        for (const Call &call : out.calls) {
            if (call.step != Step::Apdu)
                continue;
            ++calls[call.sKind + " of " + name(call.target)];
            ++nCalls;
        }
        if (nCalls < nFewest) {
            nFewest = nCalls;
            cheapest = calls;
        }
    }
    return cheapest;
}

void compare(std::map<std::string, int> calls, int Cost::*pnExpected)
{
    for (const Cost &cost : costs) {
        const std::string sKind = std::string(cost.pszKind) + " of " + name(cost.target);
        EXPECT_LE(calls[sKind], cost.*pnExpected) << sKind << ": " << cost.pszWhy;
        std::printf("  %3d (at most %3d) %s: %s\n", calls[sKind], cost.*pnExpected, sKind.c_str(), cost.pszWhy);
        calls.erase(sKind);
    }
    for (const auto &[sKind, n] : calls)
        ADD_FAILURE() << n << " calls of a kind that no exchange needs: " << sKind;
}

TEST(ExchangeCalls, WithoutAnIniFileAnExchangeCostsNoMoreThanItsTableSays)
{
    compare(cheapestExchange(Logging::NoIni), &Cost::nNoIni);
}

TEST(ExchangeCalls, WithAnIniFileThatSaysNoAnExchangeCostsNoMoreThanItsTableSays)
{
    compare(cheapestExchange(Logging::IniSaysNo), &Cost::nIniSaysNo);
}

} // namespace
