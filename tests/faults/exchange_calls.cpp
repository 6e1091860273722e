// What one exchange asks of the system, kind by kind. A change that makes an exchange dearer fails here.

#include "exchange_cost.h"
#include "faulty_conversation.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>

using namespace qvtest;

namespace {

Target targetOf(const qvcost::Cost &cost)
{
    return cost.bTty ? Target::Tty : Target::Ini;
}

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

void compare(std::map<std::string, int> calls, int qvcost::Cost::*pnExpected)
{
    for (const qvcost::Cost &cost : qvcost::costs) {
        const std::string sKind = std::string(cost.pszCall) + " of " + name(targetOf(cost));
        EXPECT_LE(calls[sKind], cost.*pnExpected) << sKind << ": " << cost.pszWhy;
        std::printf("  %3d (at most %3d) %s: %s\n", calls[sKind], cost.*pnExpected, sKind.c_str(), cost.pszWhy);
        calls.erase(sKind);
    }
    for (const auto &[sKind, n] : calls)
        ADD_FAILURE() << n << " calls of a kind that no exchange needs: " << sKind;
}

TEST(ExchangeCalls, WithoutAnIniFileAnExchangeCostsNoMoreThanItsTableSays)
{
    compare(cheapestExchange(Logging::NoIni), &qvcost::Cost::nNoIni);
}

TEST(ExchangeCalls, WithAnIniFileThatSaysNoAnExchangeCostsNoMoreThanItsTableSays)
{
    compare(cheapestExchange(Logging::IniSaysNo), &qvcost::Cost::nIniSaysNo);
}

} // namespace
