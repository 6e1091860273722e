// Each system call of a conversation fails in turn: the port's calls under every state of the log, the look at the
// INI file while the log is off.

#include "fault_rules.h"

#include <gtest/gtest.h>

using namespace qvtest;

namespace {

bool isOfPort(const Call &call)
{
    return call.target == Target::Tty || call.target == Target::None;
}

TEST(FailingCalls, WithoutAnIniFileEachFailureEndsAsTheRulesSayAndLeavesNothingBehind)
{
    FaultyConversation conversation(Logging::NoIni);
    EXPECT_GT(failEachCall(conversation, nullptr), 100);
}

TEST(FailingCalls, WithAnIniFileThatSaysNoEachFailureEndsAsTheRulesSayAndLeavesNothingBehind)
{
    FaultyConversation conversation(Logging::IniSaysNo);
    EXPECT_GT(failEachCall(conversation, nullptr), 100);
}

TEST(FailingCalls, WithTheLogOnEachFailureOfThePortEndsAsTheRulesSay)
{
    FaultyConversation conversation(Logging::On);
    EXPECT_GT(failEachCall(conversation, isOfPort), 50);
}

} // namespace
