// One code of the engine stands for several things: -4 also for a reader that says nothing over USB, -6 also for a card
// that did not come, 0 also for a frame with an error status and nothing in it. What went over the line tells them apart.
#include "stripe_results.h"

#include "channel.h"
#include "charset.h"
#include "hex.h"

#include <qvreader/msr.h>

#include <array>
#include <cstring>

namespace qvtool {

namespace {

using namespace std::chrono_literals;

constexpr auto nClockMargin = 250ms; // by which the reader's clock may be ahead of the host's

class Reading {
  public:
    Reading(const StripeRun &run, int32_t nResult, uint32_t nStatus)
        : m_run(run), m_nResult(nResult), m_nStatus(nStatus)
    {
    }

    std::optional<Failure> failure() const;

  private:
    Failure fail(Exit nCode, const std::string &sText) const
    {
        return {nCode, std::string(m_run.bWrite ? "write: " : "read: ") + sText, m_nResult};
    }
    Failure notOpened() const;
    Failure silence() const;
    Failure noCard() const;
    Failure badReply() const;
    Failure writeFault() const;
    Failure reported() const;
    Failure sendFault() const { return fail(Exit::noAnswer, "the command could not be sent" + goneText()); }
    std::string goneText() const;

    const StripeRun &m_run;
    int32_t m_nResult;
    uint32_t m_nStatus;
};

std::string Reading::goneText() const
{
    if (!m_run.port.isGone())
        return {};
    return m_run.options.channel() == Channel::usb ? "; the reader is gone: was it unplugged?"
                                                   : "; the line has hung up: was the reader unplugged?";
}

Failure Reading::notOpened() const
{
    const std::string sReason = openTrouble(m_run.options);
    return fail(Exit::port,
                m_run.options.sPort + ": " + (sReason.empty() ? "the reader could not be opened" : sReason));
}

Failure Reading::silence() const
{
    if (!goneText().empty())
        return fail(Exit::noAnswer, "the reader stopped answering" + goneText());
    if (!m_run.talk.settingsAnswered())
        return fail(Exit::noAnswer, "nothing came from the reader, not even an answer to its settings" +
                                        silenceHint(m_run.options) +
                                        (m_run.options.channel() == Channel::serial
                                             ? " Behind a switch box the head may be at another --channel."
                                             : ""));
    return noCard();
}

Failure Reading::noCard() const
{
    return fail(Exit::noCard, "no card came in " + std::to_string(m_run.options.nTimeOut) + " s");
}

Failure Reading::badReply() const
{
    const StripeConversation &talk = m_run.talk;
    if (!m_run.bWrite && !talk.cardAnswered())
        return silence();
    if (m_run.bWrite && !talk.statusAnswered() && !talk.cardAnswered()) {
        if (!talk.settingsAnswered() || !goneText().empty())
            return silence();
        return fail(Exit::noAnswer,
                    "the reader does not say whether it has written the card; read it before it is used");
    }
    if (talk.statusAnswered())
        return fail(Exit::noAnswer,
                    std::string("the reader was asked how it went, and its answer is neither yes nor no") +
                        (m_run.bWrite ? "; read the card before it is used" : ""));
    if (!m_run.bWrite && talk.askedHowItWent())
        return fail(Exit::noAnswer, "a track came, but the reader does not answer how it went" + goneText());
    return fail(Exit::noAnswer,
                "the reply is cut short or is none of a stripe head (line noise, wrong speed, another device)" +
                    goneText());
}

// The reader gives up a write at the end of its time, too.
Failure Reading::writeFault() const
{
    if (m_run.talk.cardTime() + nClockMargin >= std::chrono::seconds(m_run.options.nTimeOut))
        return noCard();
    return fail(Exit::readerError,
                "the reader could not write the card; swipe it again, evenly. If that does not help: is it "
                "damaged, or of a kind that this head cannot write?");
}

Failure Reading::reported() const
{
    return fail(Exit::readerError, "the reader reports " + hexWord(m_nStatus));
}

std::optional<Failure> Reading::failure() const
{
    if (m_run.watch.signal() != 0 && m_nResult != 0)
        return Failure{static_cast<Exit>(signalExit(m_run.watch.signal())), "cancelled", std::nullopt};
    if (!m_run.talk.wasOpened() && m_nResult != 0)
        return notOpened();
    switch (m_nResult) {
    case 0:
        if (m_nStatus != 0)
            return reported();
        return std::nullopt;
    case -4: return badReply();
    case -5:
        return fail(Exit::readerError,
                    "the card was swiped, but nothing could be read from it; swipe it again, evenly and the "
                    "right way round. If that does not help: is it empty, or recorded in another "
                    "--format?");
    case -6: return writeFault();
    case -9: return fail(Exit::cardError, "nothing is recorded on the card");
    case -50: return notOpened();
    case -1:
    case -54: return sendFault();
    case -55:
        if (m_nStatus != 0)
            return fail(Exit::readerError, "the reader does not accept a separator, it reports " + hexWord(m_nStatus) +
                                               "; read one or two tracks");
        if (!m_run.talk.askedForCard() && m_run.nTracks == 123 && !m_run.port.isGone())
            return m_run.talk.settingsAnswered()
                       ? fail(Exit::noAnswer,
                              "the reader does not answer the setting of a separator; read one or two tracks")
                       : silence();
        return fail(Exit::noAnswer, "reading from the port failed" + goneText());
    case -56:
    case -57: // by the watch, since the wait had become too long
        if (m_run.bWrite && m_run.talk.statusAnswered())
            return noCard();
        return m_run.talk.cardAnswered() ? badReply() : silence();
    case -100: return reported();
    default: break;
    }
    if (m_nResult > 0)
        return reported();
    return fail(Exit::noAnswer, "result " + std::to_string(m_nResult) + goneText());
}

} // namespace

std::optional<Failure> stripeFailure(const StripeRun &run, int32_t nResult, uint32_t nStatus)
{
    return Reading(run, nResult, nStatus).failure();
}

std::string tyMessage(int32_t nCode)
{
    std::array<char, 128> szGbk{};
    if (TY_MsgGetErrMessage(nCode, szGbk.data()) != 0)
        return {};
    return utf8OfGbk(szGbk.data()).value_or("");
}

} // namespace qvtool
