// stripe_conversation.h - a stripe card that is read or written in one call of the library, under observation.
#pragma once

#include "fake_clock.h"
#include "fault_table.h"
#include "reader_peer.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace qvtest {

// What the failure of one command comes to.
struct StripeEffect {
    int32_t nResult = 0;
    std::vector<size_t> skipped = {}; // commands that are then not sent
    bool bTracksVary = false;         // an answer may have been taken for that of another command
};

// One command, its answer (empty: none is awaited), and what happens when it is not sent / when its answer is not read.
// Hexadecimal.
struct StripePhase {
    std::string sCommand;
    std::string sAnswer = {};
    StripeEffect notSent = {};
    StripeEffect notRead = {};
};

struct StripeCase {
    std::string sName;
    int32_t nMode;
    bool bWrite;
    std::vector<StripePhase> phases;
    std::array<std::string, 3> tracks; // what a read brings
};
const std::vector<StripeCase> &stripeCases();

enum class StripeLog { NoIni, IniSaysNo, On };

struct StripeOutcome {
    int32_t nResult = 0;
    std::array<std::string, 3> tracks; // of the read; what the rooms held before is cut off
    bool bRoomsKept = true;            // nothing was written behind the host's rooms
    std::string sWire;
    int nDescriptors = 0;
    termios after{};
    bool bFired = false;
    std::vector<Call> calls;
    std::chrono::milliseconds nLasted{};
};

class StripeConversation {
  public:
    StripeConversation(const StripeCase &stripeCase, StripeLog log);
    ~StripeConversation();

    StripeOutcome run();
    StripeOutcome run(const Call &call, const Way &way);

    const termios &settingsBefore() const { return m_before; }
    // After a conversation that could not put the settings back.
    void restoreSettings() { m_peer.restore(m_before); }

  private:
    void play(Watch &watch, StripeOutcome &out);
    void lookAround(StripeOutcome &out);

    const StripeCase &m_case;
    FakeClock m_clock; // stands still: every command is answered
    ReaderPeer m_peer;
    termios m_before;
};

} // namespace qvtest
