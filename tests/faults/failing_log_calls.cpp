// Each system call of the log fails in turn: no result and no byte on the wire changes.
//
// The log's lines are alike, so that one call in three and one way of failing for each are enough by default. With
// QV_FAULTS=all in the environment every call fails in every way, which takes minutes.

#include "fault_rules.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>

using namespace qvtest;

namespace {

bool isOfLog(const Call &call)
{
    return call.target == Target::Ini || call.target == Target::Log || call.target == Target::Folder;
}

// One stretch of the conversation, short enough for every way of every call.
bool isOfLogAtTheEdges(const Call &call)
{
    return isOfLog(call) && (call.step == Step::Init || call.step == Step::Close);
}

bool isOfFolder(const Call &call)
{
    return call.target == Target::Folder;
}

bool allAreWanted()
{
    const char *psz = std::getenv("QV_FAULTS");
    return psz != nullptr && std::string_view(psz) == "all";
}

Ways wantedWays()
{
    return allAreWanted() ? Ways::All : Ways::InTurn;
}

// One in three of each step.
bool isEveryThirdOfLog(const Call &call)
{
    return isOfLog(call) && (call.target == Target::Folder || call.nOrdinal % 3 == 0);
}

bool isThirdOfFolder(const Call &call)
{
    return isOfFolder(call) && call.nOrdinal % 3 == 0;
}

TEST(FailingLogCalls, WithADatedLogFileNoFailureOfTheLogChangesAResultOrAByteOnTheWire)
{
    FaultyConversation conversation(Logging::On);
    EXPECT_GT(failEachCall(conversation, allAreWanted() ? isOfLog : isEveryThirdOfLog, wantedWays()), 900);
}

TEST(FailingLogCalls, AtInitDriverAndCloseNoWayOfFailingChangesAResult)
{
    FaultyConversation conversation(Logging::On);
    EXPECT_GT(failEachCall(conversation, isOfLogAtTheEdges), 100);
}

TEST(FailingLogCalls, AFolderThatCannotBeMadeChangesNothingButTheLog)
{
    FaultyConversation conversation(Logging::On);
    EXPECT_GT(failEachCall(conversation, isOfFolder, Ways::All, true), 5);
}

TEST(FailingLogCalls, ALibraryFolderThatCannotBeLookedAtChangesNothingButTheLog)
{
    FaultyConversation conversation(Logging::OnNoLogName);
    EXPECT_GT(failEachCall(conversation, allAreWanted() ? isOfFolder : isThirdOfFolder, wantedWays()), 100);
}

TEST(FailingLogCalls, AClockWithoutMillisecondsChangesNothingButTheTimesInTheLog)
{
    FaultyConversation conversation(Logging::On);
    const Outcome good = conversation.run();
    conversation.clock().breakMillis();
    const Outcome out = conversation.run();
    EXPECT_EQ(out.codes, good.codes);
    EXPECT_EQ(out.sWire, good.sWire);
    EXPECT_EQ(hex(out.response), cardResponse());
    EXPECT_EQ(out.nDescriptors, good.nDescriptors);
}

} // namespace
