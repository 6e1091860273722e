// Each reading and each writing is one call of the library, as a host makes it: it opens the reader, sets it up, waits
// for the card and closes the reader. The tool adds nothing to the line.
#include "stripe.h"

#include "channel.h"
#include "stripe_conversation.h"
#include "stripe_mask.h"
#include "stripe_options.h"
#include "stripe_results.h"
#include "stripe_texts.h"

#include <qvreader/msr.h>

#include <algorithm>
#include <array>

namespace qvtool {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t nTrackRoom = 513;
constexpr const char *pszDoubtfulReading =
    "the reader did not answer the setting of the read time within 2 s; a late answer counts as that to the reading: "
    "read one or two tracks";
constexpr seconds nAround = 12s; // what settings, status and closing take at most, beyond the wait for the card

// "track 2", "tracks 1 and 2", "tracks 1, 2 and 3".
std::string tracksText(int nTracks)
{
    const std::string sDigits = std::to_string(nTracks);
    std::string sText = sDigits.size() == 1 ? "track " : "tracks ";
    for (size_t n = 0; n < sDigits.size(); ++n)
        sText += (n == 0 ? "" : n + 1 == sDigits.size() ? " and " : ", ") + sDigits.substr(n, 1);
    return sText;
}

bool isMeant(int nTracks, size_t n)
{
    return std::to_string(nTracks).find(std::to_string(n + 1)) != std::string::npos;
}

class Stripe {
  public:
    Stripe(const Options &options, Console &console, Port &port, Watch &watch, Outcome &outcome)
        : m_options(options), m_console(console), m_port(port), m_watch(watch), m_outcome(outcome)
    {
    }

    void run();

  private:
    void read();
    void write();
    void verify();
    // One call. call: gets the port's and the channel's name.
    template <typename Call>
    std::optional<Failure> operate(bool bWrite, int nTracks, const std::string &sPrompt, Call call);
    std::optional<Failure> readTracks(int nTracks, const std::string &sPrompt, TrackTexts &tracks);
    std::string shown(std::string_view sTrack) const;
    void tellTracks(const TrackTexts &tracks, bool bLines);
    bool isCancelled();
    void reportMillis();
    void warn(const std::string &sText);

    std::string portName() const;
    cJSON *json() const { return m_outcome.json.get(); }

    const Options &m_options;
    Console &m_console;
    Port &m_port;
    Watch &m_watch;
    Outcome &m_outcome;
    Clock::time_point m_begin = Clock::now();
    std::string m_sLostTrack3; // that the reader sent and the library left out
    bool m_bDoubtful = false;  // the answer may have been that to a setting
};

// The name that the library gets.
std::string Stripe::portName() const
{
    if (m_options.channel() == Channel::usb)
        return "HID";
    return stripeComNumber(m_options.sPort) ? m_options.sPort : m_port.devicePath();
}

// Printable, and masked unless the user wants to see it.
std::string Stripe::shown(std::string_view sTrack) const
{
    std::string sText = m_options.stripe.bShow ? std::string(sTrack) : maskedTrack(sTrack);
    for (char &c : sText)
        if (c < 0x20 || c >= 0x7F)
            c = '.';
    return sText;
}

void Stripe::tellTracks(const TrackTexts &tracks, bool bLines)
{
    cJSON *pList = cJSON_AddArrayToObject(json(), "tracks");
    for (size_t n = 0; n < nStripeTracks; ++n) {
        if (!tracks[n])
            continue;
        cJSON *pItem = appendObject(pList);
        addNumber(pItem, "track", static_cast<double>(n) + 1);
        addNumber(pItem, "length", static_cast<double>(tracks[n]->size()));
        addText(pItem, "text", shown(*tracks[n]));
        if (bLines)
            m_outcome.sLines += "track " + std::to_string(n + 1) + "         " +
                                (!tracks[n]->empty()                ? shown(*tracks[n])
                                 : n == 2 && !m_sLostTrack3.empty() ? "(left out, see the note)"
                                                                    : "(empty)") +
                                "\n";
    }
    addFlag(json(), "masked", !m_options.stripe.bShow);
}

bool Stripe::isCancelled()
{
    if (m_watch.signal() == 0)
        return false;
    m_outcome.failure = Failure{static_cast<Exit>(signalExit(m_watch.signal())), "cancelled", std::nullopt};
    return true;
}

template <typename Call>
std::optional<Failure> Stripe::operate(bool bWrite, int nTracks, const std::string &sPrompt, Call call)
{
    const auto opened = [this] {
        if (m_options.channel() == Channel::usb)
            m_port.settleUsb();
    };
    const seconds nTimeOut(m_options.nTimeOut);
    StripeConversation talk(m_watch, opened, sPrompt, nTimeOut);
    const Clock::time_point limit = Clock::now() + nTimeOut + nAround;
    int32_t nResult = 0;
    {
        Watch::Wait wait(m_watch, "", limit, limit);
        nResult = call(portName(), m_options.stripe.sChannel, static_cast<uint32_t>(m_options.nBaud),
                       *stripeFormatCode(m_options.stripe.sFormat), static_cast<uint32_t>(m_options.nTimeOut));
    }
    // Bare replies cannot be taken for the answer to a setting; the frames of three tracks can.
    m_bDoubtful = nTracks == 123 && nResult >= 0 && talk.settingGivenUp();
    m_sLostTrack3 = nTracks == 123 && !bWrite ? trackWithoutEnd(talk.cardReply()) : std::string();
    return stripeFailure({m_options, m_port, m_watch, talk, bWrite, nTracks}, nResult, COMM_Rdz_GetRecStatus());
}

std::optional<Failure> Stripe::readTracks(int nTracks, const std::string &sPrompt, TrackTexts &tracks)
{
    std::array<std::array<char, nTrackRoom>, nStripeTracks> rooms{};
    const auto room = [&](size_t n) { return isMeant(nTracks, n) ? rooms[n].data() : nullptr; };
    const auto call = [&](const std::string &sPort, const std::string &sChannel, uint32_t nBaud, int32_t nFormat,
                          uint32_t nTimeOut) {
        return APP_Msg_ReadMsgCard(sPort.c_str(), sChannel.c_str(), nBaud, nFormat, nTimeOut, room(0), nTrackRoom,
                                   room(1), nTrackRoom, room(2), nTrackRoom);
    };
    if (std::optional<Failure> failure = operate(false, nTracks, sPrompt, call))
        return failure;
    for (size_t n = 0; n < nStripeTracks; ++n)
        if (isMeant(nTracks, n))
            tracks[n] = rooms[n].data();
    return std::nullopt;
}

void Stripe::warn(const std::string &sText)
{
    m_outcome.warnings.push_back(sText);
    m_console.line("qvreader: note: " + sText);
}

void Stripe::read()
{
    const int nTracks = m_options.stripe.nTracks;
    TrackTexts tracks;
    m_outcome.failure = readTracks(nTracks, "swipe the card (" + tracksText(nTracks) + ")", tracks);
    reportMillis();
    if (m_bDoubtful)
        warn(pszDoubtfulReading);
    if (m_outcome.failure)
        return;
    tellTracks(tracks, true);
    const auto isEmpty = [](const auto &track) { return !track || track->empty(); };
    if (!m_sLostTrack3.empty())
        warn("the reader sent a track 3, but nothing behind it that ends it, and the library left it "
             "out; read it with --tracks 3 or 23");
    if (std::all_of(tracks.begin(), tracks.end(), isEmpty) && m_sLostTrack3.empty())
        m_outcome.failure = Failure{Exit::cardError,
                                    "read: nothing is recorded on " + tracksText(nTracks) +
                                        "; another --tracks or --format may find something",
                                    0};
}

void Stripe::write()
{
    const TrackTexts &texts = m_options.stripe.texts;
    const int nTracks = tracksOf(texts);
    tellTracks(texts, false);
    TrackTexts copies = texts; // which the library may change
    const auto text = [&](size_t n) { return copies[n] ? copies[n]->data() : nullptr; };
    const auto call = [&](const std::string &sPort, const std::string &sChannel, uint32_t nBaud, int32_t nFormat,
                          uint32_t nTimeOut) {
        return APP_Msg_WriteMsgCard(sPort.c_str(), sChannel.c_str(), nBaud, nFormat, nTimeOut, text(0), text(1),
                                    text(2));
    };
    m_outcome.failure =
        operate(true, nTracks, "swipe the card that is to be written (" + tracksText(nTracks) + ")", call);
    addFlag(json(), "written", !m_outcome.failure);
    if (m_bDoubtful)
        warn("the reader did not answer the setting of the read time within 2 s; a late answer counts as that to the "
             "writing: read the card before it is used");
    if (!m_outcome.failure) {
        m_outcome.sLines += tracksText(nTracks) + " written\n";
        if (m_options.stripe.bVerify)
            verify();
    }
    reportMillis();
}

// Where the texts part, counted from 1.
size_t placeOfDifference(const std::string &sOne, const std::string &sOther)
{
    const auto at = std::mismatch(sOne.begin(), sOne.end(), sOther.begin(), sOther.end());
    return static_cast<size_t>(at.first - sOne.begin()) + 1;
}

void Stripe::verify()
{
    if (isCancelled()) {
        m_outcome.failure->sText = "written, but not checked: cancelled";
        return;
    }
    const TrackTexts &texts = m_options.stripe.texts;
    TrackTexts tracks;
    m_outcome.failure = readTracks(tracksOf(texts), "written; swipe the card once more, to check it", tracks);
    if (m_bDoubtful)
        warn(pszDoubtfulReading);
    if (m_outcome.failure) {
        m_outcome.failure->sText = "written, but not checked: " + m_outcome.failure->sText;
        return;
    }
    if (texts[2] && tracks[2]->empty())
        tracks[2] = m_sLostTrack3;
    std::string sDifferences;
    cJSON *pList = cJSON_AddArrayToObject(json(), "differences");
    for (size_t n = 0; n < nStripeTracks; ++n) {
        if (!texts[n] || *texts[n] == *tracks[n])
            continue;
        const size_t nPlace = placeOfDifference(*texts[n], *tracks[n]);
        cJSON *pItem = appendObject(pList);
        addNumber(pItem, "track", static_cast<double>(n) + 1);
        addNumber(pItem, "place", static_cast<double>(nPlace));
        addText(pItem, "text", shown(*tracks[n]));
        sDifferences += (sDifferences.empty() ? "" : "; ") + ("track " + std::to_string(n + 1)) + " from character " +
                        std::to_string(nPlace) +
                        " on: " + (tracks[n]->empty() ? "it is empty" : "it holds \"" + shown(*tracks[n]) + "\"");
    }
    addFlag(json(), "verified", sDifferences.empty());
    if (sDifferences.empty())
        m_outcome.sLines += "read back: the same\n";
    else
        m_outcome.failure =
            Failure{Exit::checkFailed, "what was read back is not what was written: " + sDifferences, std::nullopt};
}

void Stripe::reportMillis()
{
    addNumber(json(), "milliseconds",
              static_cast<double>(std::chrono::duration_cast<milliseconds>(Clock::now() - m_begin).count()));
}

void Stripe::run()
{
    const StripeOptions &stripe = m_options.stripe;
    addText(json(), "action", stripe.bWrite ? "write" : "read");
    addText(json(), "port", m_options.sPort);
    if (m_options.channel() != Channel::usb)
        addNumber(json(), "baud", m_options.nBaud);
    if (!stripe.sChannel.empty())
        addText(json(), "channel", stripe.sChannel);
    addText(json(), "format", stripe.sFormat);
    if (std::optional<std::string> sReason = claimChannel(m_options, m_port)) {
        m_outcome.failure = Failure{Exit::port, *sReason, std::nullopt};
        return;
    }
    if (isCancelled())
        return;
    if (const std::optional<UsbId> only = m_options.usbId ? m_options.usbId : m_port.onlyUsbId())
        APP_MSG_AddHID(-1, only->nProduct, only->nVendor);
    m_watch.cancelBy(APP_Msg_CancelReadMsgCard);
    if (stripe.bWrite)
        write();
    else
        read();
    if (!m_port.devicePath().empty())
        addText(json(), "device", m_port.devicePath());
}

} // namespace

void driveStripe(const Options &options, Console &console, Port &port, Watch &watch, Outcome &outcome)
{
    Stripe(options, console, port, watch, outcome).run();
}

} // namespace qvtool
