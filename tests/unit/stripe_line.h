// stripe_line.h - a scripted stripe reader that answers within the library's own calls.
//
// The port is a real tty, but what the library writes to it goes to a script, and what it reads comes from there: no
// second thread, nothing that depends on how busy the machine is. Every write must be one whole command of the script.
// Time passes only where the script says so; where the reader keeps silent, each read pass lasts a second.
#pragma once

#include "fake_clock.h"
#include "fake_sleep.h"
#include "pty_pair.h"

#include "qvreader/transport.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace qvtest {

// One command that the library must send, and what the reader does then.
struct StripeStep {
    std::string sCommand; // hexadecimal
    // Bytes in hexadecimal, a read pass each, and between them: "/" a pass without a byte, a second long; "," the same,
    // but shorter; "!" a pass that fails. Empty: silence.
    std::string sReply = {};
    int64_t nMillis = 0; // what the clock runs on when the last of the reply is taken
    bool bTaken = true;  // false: the port does not take the command
};
using StripeScript = std::vector<StripeStep>;
StripeScript operator+(StripeScript first, const StripeScript &second);

// What a read of the library waited with when it began.
struct StripeWait {
    std::string sCommand; // sent before
    int32_t nSeconds;
    EndConditionFn pfnEnd;
    bool operator==(const StripeWait &) const = default;
};
void PrintTo(const StripeWait &wait, std::ostream *pOut);

class StripeLine {
  public:
    StripeLine();
    ~StripeLine();
    StripeLine(const StripeLine &) = delete;
    StripeLine &operator=(const StripeLine &) = delete;

    const char *path() const { return m_line.path().c_str(); }
    void play(const StripeScript &script);
    // The script was used up, and nothing else was sent. Ends the script.
    void finish();

    // Reads, in turn, since the last take.
    std::vector<StripeWait> takeWaits();
    // What has passed on the fake clock since the last take.
    int64_t takeMillis();

    // For the calls that stand in for those of the system.
    long written(const uint8_t *pData, size_t nLen);
    long read(uint8_t *pBuf, size_t nLen);

  private:
    struct Pass {
        enum Kind { Data, Idle, Short, Failure } kind;
        std::vector<uint8_t> data;
        int64_t nMillis = 0;
    };

    void answer(const StripeStep &step);
    void passMillis(int64_t nMillis);
    long hand(Pass &pass, uint8_t *pBuf, size_t nLen);

    PtyPair m_line;
    FakeClock m_clock;
    FakeSleep m_sleep;
    int64_t m_nPassed = 0, m_nTaken = 0; // milliseconds
    StripeScript m_script;
    size_t m_nStep = 0;
    std::vector<Pass> m_passes; // to come
    std::string m_sLastCommand;
    bool m_bReading = false;
    std::vector<StripeWait> m_waits;
    std::string m_sWrong;
};

// When the fake clock starts, in seconds.
constexpr time_t nStripeStart = 1'800'000'000;

} // namespace qvtest
