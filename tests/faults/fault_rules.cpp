#include "fault_rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>

namespace qvtest {

namespace {

constexpr int32_t nPortNotOpened = -51, nReadFailed = -55, nSendFailed = -54;

// Patience with a run: what really waits in it is at most a few idle passes of 0.1 s.
constexpr auto nLongestRun = std::chrono::seconds(4);

constexpr int nFaultsOfLogInARow = 50;

Way fails(int nErrno)
{
    return {Way::Errno, nErrno};
}

const Way interrupted = fails(EINTR);
const Way zero{Way::Zero, 0}, one{Way::One, 0}, half{Way::Half, 0};

const std::vector<Step> anyStep = {Step::Init, Step::Open, Step::PowerOn, Step::Apdu, Step::PowerOff, Step::Close};
const std::vector<Step> exchanges = {Step::PowerOn, Step::Apdu, Step::PowerOff};

// A call that no row names makes the test fail.
const std::vector<Rule> s_rules = {
    // ---- the port: opening -----------------------------------------------------------------------------------------
    {"open", Target::Tty, {Step::Open}, {fails(ENOENT), fails(EACCES), fails(EMFILE), fails(EIO)}, nPortNotOpened},
    {"open", Target::Tty, {Step::Open}, {interrupted}},
    // Close-on-exec is a courtesy to the host's children.
    {"fcntl", Target::Tty, {Step::Open}, {fails(EBADF), interrupted}},
    {"usleep", Target::None, {Step::Open}, {interrupted}},
    {"tcflush", Target::Tty, {Step::Open}, {fails(EIO), fails(ENOTTY), interrupted}},
    // Reading the settings never sleeps, so that a signal is no reason to ask again: a failure like another.
    {"ioctl TCGETA", Target::Tty, {Step::Open}, {fails(EIO), fails(ENOTTY), interrupted}, nPortNotOpened},
    {"ioctl TCSETAF", Target::Tty, {Step::Open}, {fails(EIO), fails(ENOTTY)}, nPortNotOpened},
    {"ioctl TCSETAF", Target::Tty, {Step::Open}, {interrupted}},
    // What lies above the 16 bits is improved where the driver lets it.
    {"tcgetattr", Target::Tty, {Step::Open}, {fails(EIO), fails(ENOTTY), interrupted}},
    {"tcsetattr", Target::Tty, {Step::Open}, {fails(EIO), fails(EINVAL), interrupted}},

    // ---- the port: exchanges ---------------------------------------------------------------------------------------
    {"write", Target::Tty, exchanges, {fails(EIO), fails(ENOSPC), fails(EAGAIN), zero}, nSendFailed},
    {"write", Target::Tty, exchanges, {interrupted, one, half}},
    {"read", Target::Tty, exchanges, {fails(EIO), fails(EAGAIN), fails(EBADF)}, nReadFailed},
    // Interrupted, an idle pass, a reply in two pieces.
    {"read", Target::Tty, exchanges, {interrupted, zero, one}},
    {"nanosleep", Target::None, exchanges, {interrupted}},

    // ---- the port: closing, which always succeeds ------------------------------------------------------------------
    {"ioctl TCSETAF", Target::Tty, {Step::Close}, {fails(EIO), fails(ENOTTY)}, 0, Settings::NotRestored},
    {"ioctl TCSETAF", Target::Tty, {Step::Close}, {interrupted}},
    {"tcgetattr", Target::Tty, {Step::Close}, {fails(EIO), fails(ENOTTY)}, 0, Settings::FlowControlLost},
    {"tcsetattr", Target::Tty, {Step::Close}, {fails(EIO), fails(EINVAL)}, 0, Settings::FlowControlLost},
    {"close", Target::Tty, {Step::Close}, {fails(EIO), interrupted}},

    // ---- the switch of the log: nothing but the log may suffer -----------------------------------------------------
    {"stat", Target::Ini, anyStep, {fails(ENOENT), fails(EACCES), fails(EIO)}},
    {"open", Target::Ini, anyStep, {fails(ENOENT), fails(EACCES), fails(EMFILE), fails(EIO)}},
    {"open", Target::Ini, anyStep, {interrupted}, 0, Settings::AsBefore, true},
    {"read", Target::Ini, anyStep, {fails(EIO), zero, one}},
    {"read", Target::Ini, anyStep, {interrupted}, 0, Settings::AsBefore, true},
    {"close", Target::Ini, anyStep, {fails(EIO), interrupted}, 0, Settings::AsBefore, true},

    // ---- the log file ----------------------------------------------------------------------------------------------
    {"open", Target::Log, anyStep, {fails(ENOENT), fails(EACCES), fails(EMFILE), fails(ENOSPC)}},
    {"open", Target::Log, anyStep, {interrupted}, 0, Settings::AsBefore, true},
    {"write", Target::Log, anyStep, {fails(ENOSPC), fails(EIO), zero}},
    {"write", Target::Log, anyStep, {interrupted, one, half}, 0, Settings::AsBefore, true},
    {"close", Target::Log, anyStep, {fails(EIO), interrupted}, 0, Settings::AsBefore, true},

    // ---- its folder ------------------------------------------------------------------------------------------------
    {"mkdir", Target::Folder, anyStep, {fails(EACCES), fails(ENOSPC), fails(EEXIST), fails(EIO)}},
    {"stat", Target::Folder, anyStep, {fails(ENOENT), fails(EACCES), fails(EIO)}},
    {"opendir", Target::Folder, anyStep, {fails(ENOENT), fails(EACCES), fails(EMFILE)}},
    {"readdir", Target::Folder, anyStep, {fails(EIO), fails(EBADF)}},
    {"closedir", Target::Folder, anyStep, {fails(EIO), interrupted}},
    {"remove", Target::Folder, anyStep, {fails(EACCES), fails(ENOENT), fails(EIO)}},
};

bool applies(const Rule &rule, const Call &call)
{
    return call.sKind == rule.pszKind && call.target == rule.target &&
           std::find(rule.steps.begin(), rule.steps.end(), call.step) != rule.steps.end();
}

bool sameSettings(termios a, const termios &b, bool bButFlowControl)
{
    if (bButFlowControl)
        a.c_cflag = (a.c_cflag & ~CRTSCTS) | (b.c_cflag & CRTSCTS);
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

// A call within one exchange is made as often as the line brings its reply in pieces.
bool mayVary(const Call &call)
{
    return call.sKind == "nanosleep" || (call.sKind == "read" && call.target == Target::Tty && call.nOrdinal > 1);
}

// The results of a conversation in which this step ends so.
std::array<int32_t, nSteps> expectedCodes(const Outcome &reference, Step step, int32_t nResult)
{
    auto codes = reference.codes;
    if (nResult == 0)
        return codes;
    const auto nAt = static_cast<size_t>(step), nClose = static_cast<size_t>(Step::Close);
    codes[nAt] = nResult;
    std::fill(codes.begin() + static_cast<long>(nAt) + 1, codes.begin() + static_cast<long>(nClose), nSkipped);
    return codes;
}

std::string expectedWire(Step step, int32_t nResult)
{
    const std::vector<std::pair<Step, std::string>> sent = {
        {Step::PowerOn, powerOnCommand()}, {Step::Apdu, apduCommand()}, {Step::PowerOff, powerOffCommand()}};
    std::string sWire;
    for (const auto &[of, sFrame] : sent) {
        if (nResult != 0 && (of > step || (of == step && nResult == nSendFailed)))
            break;
        sWire += (sWire.empty() ? "" : " ") + hex(bytes(sFrame));
    }
    return sWire;
}

void checkComplete(const Outcome &out, const Outcome &reference, const termios &before)
{
    EXPECT_EQ(out.codes, reference.codes);
    EXPECT_EQ(hex(out.response), cardResponse());
    EXPECT_EQ(hex(out.atr), hex(reference.atr));
    EXPECT_EQ(out.sWire, expectedWire(Step::Close, 0));
    EXPECT_EQ(out.nDescriptors, reference.nDescriptors);
    EXPECT_TRUE(sameSettings(out.after, before, false));
    EXPECT_LT(out.nLasted, nLongestRun);
}

// A close that was told to fail is not repeated: the number may stand for another file by then.
void checkClosedOnce(const Outcome &out)
{
    EXPECT_EQ(std::count_if(out.calls.begin(), out.calls.end(),
                            [](const Call &c) { return c.sKind == "close" && c.target == Target::None; }),
              0)
        << "a descriptor was closed that is not open";
}

void checkFaulty(const Outcome &out, const Outcome &reference, const termios &before, const Rule &rule,
                 const Call &call)
{
    EXPECT_TRUE(out.bFired || mayVary(call)) << "the call did not come";
    if (!out.bFired)
        return;
    EXPECT_EQ(out.codes, expectedCodes(reference, call.step, rule.nResult));
    EXPECT_EQ(out.sWire, expectedWire(call.step, rule.nResult));
    EXPECT_EQ(out.nDescriptors, reference.nDescriptors);
    EXPECT_LT(out.nLasted, nLongestRun);
    if (rule.settings != Settings::NotRestored) {
        EXPECT_TRUE(sameSettings(out.after, before, rule.settings == Settings::FlowControlLost));
    }
    if (rule.nResult == 0) {
        EXPECT_EQ(hex(out.response), cardResponse());
        EXPECT_EQ(hex(out.atr), hex(reference.atr));
    }
    // Idle passes leave lines of their own, so that only a conversation of the same course compares.
    if (rule.bSameLog && std::count_if(out.calls.begin(), out.calls.end(), mayVary) ==
                             std::count_if(reference.calls.begin(), reference.calls.end(), mayVary)) {
        EXPECT_EQ(out.sLog, reference.sLog);
    }
    checkClosedOnce(out);
}

bool isOfPort(const Call &call)
{
    return call.target == Target::Tty || call.target == Target::None;
}

// The rows' ways for a call; with Ways::InTurn one of them, another for each call.
std::vector<std::pair<const Rule *, Way>> waysFor(const Call &call, Ways ways, size_t nTurn)
{
    std::vector<std::pair<const Rule *, Way>> all;
    for (const Rule &rule : s_rules)
        if (applies(rule, call))
            for (const Way &way : rule.ways)
                all.emplace_back(&rule, way);
    if (ways == Ways::InTurn && !all.empty())
        all = {all[nTurn % all.size()]};
    return all;
}

} // namespace

int failEachCall(FaultyConversation &conversation, bool (*pfnWanted)(const Call &), Ways ways, bool bNoLogFolder)
{
    const termios before = conversation.settingsBefore();
    conversation.run(bNoLogFolder); // what is set up once is set up now
    const Outcome reference = conversation.run(bNoLogFolder);
    checkComplete(reference, reference, before);

    int nFaults = 0;
    std::map<std::string, size_t> turns;
    std::map<std::string, int> perKind;
    for (const Call &call : reference.calls) {
        if (pfnWanted != nullptr && !pfnWanted(call))
            continue;
        const std::string sKind = call.sKind + " of " + name(call.target);
        const auto rows = waysFor(call, ways, turns[sKind]++);
        EXPECT_FALSE(rows.empty()) << "no rule says what happens when it fails: " << describe(call);
        for (const auto &[pRule, way] : rows) {
            SCOPED_TRACE(describe(call) + " " + describe(way));
            const Outcome out = conversation.run(call, way, bNoLogFolder);
            checkFaulty(out, reference, before, *pRule, call);
            conversation.restoreSettings();
            nFaults += out.bFired ? 1 : 0;
            perKind[sKind] += out.bFired ? 1 : 0;
            // After a fault of the log the next one's conversation, complete itself, is the one that tells.
            if (isOfPort(call) || nFaults % nFaultsOfLogInARow == 0) {
                SCOPED_TRACE("the conversation after it");
                checkComplete(conversation.run(bNoLogFolder), reference, before);
            }
            if (testing::Test::HasFailure())
                return nFaults; // one failing place tells enough
        }
    }
    checkComplete(conversation.run(bNoLogFolder), reference, before);
    for (const auto &[sKind, n] : perKind)
        std::printf("  %4d faults: %s\n", n, sKind.c_str());
    std::printf("  %4d faults, %zu calls in a conversation\n", nFaults, reference.calls.size());
    return nFaults;
}

} // namespace qvtest
