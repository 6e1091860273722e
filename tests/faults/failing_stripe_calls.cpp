// Each system call of a stripe read and of a stripe write fails in turn: the result is the one that the failed command
// comes to, the head is reset all the same, the port is closed, its settings are back, and the next call works.

#include "stripe_conversation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <optional>

using namespace qvtest;

namespace {

constexpr int32_t nPortNotOpened = -50;
constexpr auto nLongestRun = std::chrono::seconds(4);

Way fails(int nErrno)
{
    return {Way::Errno, nErrno};
}
const Way interrupted = fails(EINTR);
const Way zero{Way::Zero, 0}, one{Way::One, 0}, half{Way::Half, 0};

enum class Consequence { None, NotOpened, NotSent, NotRead };
enum class Settings { AsBefore, NotRestored, FlowControlLost };

struct Rule {
    const char *pszKind;
    Target target;
    bool bAtTheEnd; // in the close, not before it
    std::vector<Way> ways;
    Consequence consequence = Consequence::None;
    Settings settings = Settings::AsBefore;
};

// A call that no row names makes the test fail.
const std::vector<Rule> s_rules = {
    {"open", Target::Tty, false, {fails(ENOENT), fails(EACCES), fails(EMFILE), fails(EIO)}, Consequence::NotOpened},
    {"open", Target::Tty, false, {interrupted}},
    {"fcntl", Target::Tty, false, {fails(EBADF), interrupted}},
    {"usleep", Target::None, false, {interrupted}},
    {"tcflush", Target::Tty, false, {fails(EIO), fails(ENOTTY), interrupted}},
    {"ioctl TCGETA", Target::Tty, false, {fails(EIO), fails(ENOTTY), interrupted}, Consequence::NotOpened},
    {"ioctl TCSETAF", Target::Tty, false, {fails(EIO), fails(ENOTTY)}, Consequence::NotOpened},
    {"ioctl TCSETAF", Target::Tty, false, {interrupted}},
    {"tcgetattr", Target::Tty, false, {fails(EIO), fails(ENOTTY), interrupted}},
    {"tcsetattr", Target::Tty, false, {fails(EIO), fails(EINVAL), interrupted}},

    {"write", Target::Tty, false, {fails(EIO), fails(ENOSPC), fails(EAGAIN), zero}, Consequence::NotSent},
    {"write", Target::Tty, false, {interrupted, one, half}},
    {"read", Target::Tty, false, {fails(EIO), fails(EAGAIN), fails(EBADF)}, Consequence::NotRead},
    {"read", Target::Tty, false, {interrupted, zero, one}},
    {"nanosleep", Target::None, false, {interrupted}},

    {"ioctl TCSETAF", Target::Tty, true, {fails(EIO), fails(ENOTTY)}, Consequence::None, Settings::NotRestored},
    {"ioctl TCSETAF", Target::Tty, true, {interrupted}},
    {"tcgetattr", Target::Tty, true, {fails(EIO), fails(ENOTTY)}, Consequence::None, Settings::FlowControlLost},
    {"tcsetattr", Target::Tty, true, {fails(EIO), fails(EINVAL)}, Consequence::None, Settings::FlowControlLost},
    {"close", Target::Tty, true, {fails(EIO), interrupted}},

    {"stat", Target::Ini, false, {fails(ENOENT), fails(EIO)}},
    {"open", Target::Ini, false, {fails(ENOENT), fails(EMFILE), interrupted}},
    {"read", Target::Ini, false, {fails(EIO), zero, one, interrupted}},
    {"close", Target::Ini, false, {fails(EIO), interrupted}},
    {"open", Target::Log, false, {fails(EACCES), fails(EMFILE), interrupted}},
    {"write", Target::Log, false, {fails(ENOSPC), zero, half, interrupted}},
    {"close", Target::Log, false, {fails(EIO), interrupted}},
    {"mkdir", Target::Folder, false, {fails(EACCES), fails(EEXIST)}},
    {"stat", Target::Folder, false, {fails(ENOENT), fails(EIO)}},
};

bool isOfPort(const Call &call)
{
    return call.target == Target::Tty || call.target == Target::None;
}

// Where the call stands: in the how-manieth command, counted from 0; nothing before the first one.
std::optional<size_t> phaseOf(const std::vector<Call> &calls, const Call &call)
{
    size_t nSent = 0;
    for (const Call &at : calls) {
        if (at == call)
            break;
        nSent += at.sKind == "write" && at.target == Target::Tty ? 1 : 0;
    }
    const bool bIsCommand = call.sKind == "write" && call.target == Target::Tty;
    if (nSent == 0 && !bIsCommand)
        return std::nullopt;
    return bIsCommand ? nSent : nSent - 1;
}

// The close's calls stand behind the last command.
bool isAtTheEnd(const StripeCase &stripeCase, const std::vector<Call> &calls, const Call &call)
{
    const auto nPhase = phaseOf(calls, call);
    return call.target == Target::Tty && call.sKind != "read" && call.sKind != "write" && nPhase &&
           *nPhase + 1 == stripeCase.phases.size();
}

// What the rule's consequence is for the command that it meets.
StripeEffect effectOf(const StripeCase &stripeCase, const Rule &rule, const std::vector<Call> &calls, const Call &call)
{
    switch (rule.consequence) {
    case Consequence::NotOpened: return {nPortNotOpened};
    case Consequence::NotSent: return stripeCase.phases.at(*phaseOf(calls, call)).notSent;
    case Consequence::NotRead: return stripeCase.phases.at(*phaseOf(calls, call)).notRead;
    default: return {};
    }
}

std::string expectedWire(const StripeCase &stripeCase, Consequence consequence, std::optional<size_t> nPhase,
                         const StripeEffect &effect)
{
    std::string sWire;
    if (consequence == Consequence::NotOpened)
        return sWire;
    for (size_t i = 0; i < stripeCase.phases.size(); ++i) {
        const bool bSkipped = std::find(effect.skipped.begin(), effect.skipped.end(), i) != effect.skipped.end();
        if (bSkipped || (consequence == Consequence::NotSent && nPhase == i))
            continue;
        sWire += (sWire.empty() ? "" : " ") + hex(bytes(stripeCase.phases[i].sCommand));
    }
    return sWire;
}

bool sameSettings(termios a, const termios &b, bool bButFlowControl)
{
    if (bButFlowControl)
        a.c_cflag = (a.c_cflag & ~CRTSCTS) | (b.c_cflag & CRTSCTS);
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

// What every outcome must be like, whatever failed.
void checkNothingLeft(const StripeOutcome &out, const StripeOutcome &reference)
{
    EXPECT_EQ(out.nDescriptors, reference.nDescriptors);
    EXPECT_TRUE(out.bRoomsKept) << "something was written behind a room of the host";
    EXPECT_LT(out.nLasted, nLongestRun);
    EXPECT_EQ(std::count_if(out.calls.begin(), out.calls.end(),
                            [](const Call &c) { return c.sKind == "close" && c.target == Target::None; }),
              0)
        << "a descriptor was closed that is not open";
}

void checkComplete(const StripeCase &stripeCase, const StripeOutcome &out, const StripeOutcome &reference,
                   const termios &before)
{
    EXPECT_EQ(out.nResult, 0);
    EXPECT_EQ(out.tracks, stripeCase.tracks);
    EXPECT_EQ(out.sWire, expectedWire(stripeCase, Consequence::None, std::nullopt, {}));
    EXPECT_TRUE(sameSettings(out.after, before, false));
    checkNothingLeft(out, reference);
}

void checkFaulty(const StripeCase &stripeCase, const StripeOutcome &out, const StripeOutcome &reference,
                 const termios &before, const Rule &rule, const Call &call)
{
    const StripeEffect effect = effectOf(stripeCase, rule, out.calls, call);
    EXPECT_EQ(out.nResult, effect.nResult);
    EXPECT_EQ(out.sWire, expectedWire(stripeCase, rule.consequence, phaseOf(out.calls, call), effect));
    if (effect.nResult != 0) {
        EXPECT_EQ(out.tracks, (std::array<std::string, 3>{}));
    } else if (!effect.bTracksVary) {
        EXPECT_EQ(out.tracks, stripeCase.tracks);
    }
    if (rule.settings != Settings::NotRestored) {
        EXPECT_TRUE(sameSettings(out.after, before, rule.settings == Settings::FlowControlLost));
    }
    checkNothingLeft(out, reference);
}

// A call is made as often as the line brings an answer in pieces.
bool mayVary(const Call &call)
{
    return call.sKind == "nanosleep" || (call.sKind == "read" && call.target == Target::Tty) || !isOfPort(call);
}

// The number of injected faults. nEvery: of the log's calls one in so many.
int failEachCall(const StripeCase &stripeCase, StripeLog log, int nEvery)
{
    StripeConversation conversation(stripeCase, log);
    const termios before = conversation.settingsBefore();
    conversation.run(); // what is set up once is set up now
    const StripeOutcome reference = conversation.run();
    checkComplete(stripeCase, reference, reference, before);
    int nFaults = 0;
    for (const Call &call : reference.calls) {
        if (!isOfPort(call) && call.nOrdinal % nEvery != 0)
            continue;
        const bool bAtTheEnd = isAtTheEnd(stripeCase, reference.calls, call);
        bool bKnown = false;
        for (const Rule &rule : s_rules) {
            if (call.sKind != rule.pszKind || call.target != rule.target || bAtTheEnd != rule.bAtTheEnd)
                continue;
            bKnown = true;
            for (size_t i = 0; i < rule.ways.size(); ++i) {
                // Of the log one way for each call, all ways taking turns.
                if (!isOfPort(call) && i != static_cast<size_t>(call.nOrdinal / nEvery) % rule.ways.size())
                    continue;
                SCOPED_TRACE(describe(call) + " " + describe(rule.ways[i]));
                const StripeOutcome out = conversation.run(call, rule.ways[i]);
                EXPECT_TRUE(out.bFired || mayVary(call)) << "the call did not come";
                if (out.bFired)
                    checkFaulty(stripeCase, out, reference, before, rule, call);
                conversation.restoreSettings();
                nFaults += out.bFired ? 1 : 0;
                if (isOfPort(call)) {
                    SCOPED_TRACE("the conversation after it");
                    checkComplete(stripeCase, conversation.run(), reference, before);
                }
                if (testing::Test::HasFailure())
                    return nFaults; // one failing place tells enough
            }
        }
        EXPECT_TRUE(bKnown) << "no rule says what happens when it fails: " << describe(call);
    }
    checkComplete(stripeCase, conversation.run(), reference, before);
    std::printf("  %4d faults, %zu calls in a conversation\n", nFaults, reference.calls.size());
    return nFaults;
}

class FailingStripeCalls : public testing::TestWithParam<StripeCase> {};

TEST_P(FailingStripeCalls, WithoutAnIniFileEachFailureEndsAsTheRulesSayAndLeavesNothingBehind)
{
    EXPECT_GT(failEachCall(GetParam(), StripeLog::NoIni, 7), 80);
}

TEST_P(FailingStripeCalls, WithAnIniFileThatSaysNoEachFailureEndsAsTheRulesSayAndLeavesNothingBehind)
{
    EXPECT_GT(failEachCall(GetParam(), StripeLog::IniSaysNo, 7), 80);
}

TEST_P(FailingStripeCalls, WithTheLogOnNoFailureOfTheLogChangesAResultOrAByteOnTheWire)
{
    EXPECT_GT(failEachCall(GetParam(), StripeLog::On, 7), 150);
}

INSTANTIATE_TEST_SUITE_P(OfA, FailingStripeCalls, testing::ValuesIn(stripeCases()),
                         [](const auto &test) { return test.param.sName; });

} // namespace
