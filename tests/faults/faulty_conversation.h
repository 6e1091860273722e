// faulty_conversation.h - one conversation with a card, from opening the port to closing it, under observation.
#pragma once

#include "fake_clock.h"
#include "fault_table.h"
#include "reader_peer.h"

#include <array>
#include <chrono>
#include <climits>

namespace qvtest {

// What stands beside the library.
enum class Logging {
    NoIni,       // no INI file
    IniSaysNo,   // an INI file with LogFlag=0
    On,          // LogFlag=1 and initDriver called
    OnNoLogName, // LogFlag=1, no log file chosen
};

constexpr int32_t nSkipped = INT_MIN; // a step that was not reached

// Everything that a host, the reader or the next user of the tty can see of a conversation.
struct Outcome {
    std::array<int32_t, nSteps> codes{};
    Bytes atr, response;
    std::string sWire;
    std::string sLog; // of the log files, with descriptor numbers as they are
    int nDescriptors = 0;
    termios after{};
    bool bFired = false;
    std::vector<Call> calls;
    std::chrono::milliseconds nLasted{};
};

class FaultyConversation {
  public:
    explicit FaultyConversation(Logging logging);
    ~FaultyConversation();

    // A conversation without / with one failing call. bNoLogFolder: the folder of the log files is yet to be made.
    Outcome run(bool bNoLogFolder = false);
    Outcome run(const Call &call, const Way &way, bool bNoLogFolder = false);

    const termios &settingsBefore() const { return m_before; }
    // After a conversation that could not put the settings back.
    void restoreSettings() { m_peer.restore(m_before); }
    FakeClock &clock() { return m_clock; }

  private:
    void play(Watch &watch, Outcome &out);
    void lookAround(Outcome &out);
    void prepareFiles(bool bNoLogFolder) const;

    Logging m_logging;
    FakeClock m_clock;
    ReaderPeer m_peer;
    termios m_before;
};

// The frames that go over the wire.
std::string powerOnCommand();
std::string apduCommand();
std::string powerOffCommand();
std::string cardResponse(); // 98 bytes of data, SW1 SW2
Bytes apdu();               // 20 bytes

} // namespace qvtest
