// command                                           | reply
//   1B 72 (track 1), 1B 5D (2), 1B 42 5D (2 and 3)  | 1B 73 track 3F 1C; two tracks: track 2, "A", the other one;
//   1B 44 5D (1 and 2)                              |   an empty one of two is 7F
//   1B 54 5D (track 3)                              | 1B 73, one byte more, track 3F 1C
//   1B 77 or 1B 74, text, 1D 1B 5C (writes)         | none
//   1B 6A (status)                                  | ends in "p" or "q"
//   1B 30, 1B 3D, 1B 27, 1B 4F, 1B 41, 1B 25 letter | none
//   01 ... 04 around 20 01 .. 20 04                 | 01 ... 04 around a status word and, of 20 02, the three tracks
#include "stripe_words.h"

#include "frames.h"
#include "stripe_mask.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qvtool {

namespace {

using namespace std::string_view_literals;

constexpr uint8_t ucEscape = 0x1B;
constexpr uint8_t ucFrameHead = 0x01;
constexpr auto sReplyHead = "\x1Bs"sv;
constexpr auto sReplyEnd = "?\x1C"sv;
constexpr auto sTextEnd = "\x1D\x1B\\"sv;
constexpr char cEmptyTrack = 0x7F;
constexpr uint8_t ucGroup = 0x20;
constexpr uint8_t ucSeparator = 0x01;
constexpr uint8_t ucReadAll = 0x02;
constexpr uint8_t ucWriteAll = 0x03;
constexpr uint8_t ucReadTime = 0x04;
constexpr size_t nBeforeData = 5; // head and length of a frame, in characters on the wire

std::string_view textOf(BytesView data)
{
    return {reinterpret_cast<const char *>(data.data()), data.size()};
}

// ---- tracks in a piece of data

struct Field {
    int nTrack;
    size_t nAt;
    size_t nLength;
};

using Fields = std::vector<Field>;

std::string fieldWords(std::string_view sData, const Fields &fields, bool bShow)
{
    std::string sText;
    for (const Field &field : fields) {
        const std::string_view sTrack = sData.substr(field.nAt, field.nLength);
        std::string sShown = bShow ? std::string(sTrack) : maskedTrack(sTrack);
        for (char &c : sShown)
            if (c < 0x20 || c >= 0x7F)
                c = '.';
        sText += (sText.empty() ? "" : ", ") + std::string("track ") + std::to_string(field.nTrack) +
                 (sShown.empty() ? " empty" : " \"" + sShown + "\"");
    }
    return sText;
}

// A flag for each character.
std::vector<bool> hiddenFields(std::string_view sData, const Fields &fields, bool bShow)
{
    std::vector<bool> hidden(sData.size());
    for (const Field &field : fields) {
        if (bShow)
            break;
        const std::string_view sTrack = sData.substr(field.nAt, field.nLength);
        const std::string sMasked = maskedTrack(sTrack);
        for (size_t n = 0; n < sTrack.size(); ++n)
            hidden[field.nAt + n] = sMasked[n] != sTrack[n];
    }
    return hidden;
}

// Flags of the data as flags of the frame around them. The LRC would give a single hidden byte away.
std::vector<bool> hiddenOnWire(const std::vector<bool> &hidden, size_t nWire)
{
    std::vector<bool> wire(nWire);
    bool bAny = false;
    for (size_t n = 0; n < hidden.size() && nBeforeData + 2 * n + 1 < nWire; ++n) {
        wire[nBeforeData + 2 * n] = wire[nBeforeData + 2 * n + 1] = hidden[n];
        bAny |= hidden[n];
    }
    for (size_t n = nBeforeData + 2 * hidden.size(); bAny && n + 1 < nWire; ++n)
        wire[n] = true;
    return wire;
}

// Text for two tracks: track 2, "A", the other one. An empty one may be one byte 7F.
Fields twoTracks(std::string_view sData, size_t nAt, size_t nEnd, int nOther)
{
    const auto field = [&](int nTrack, size_t nFrom, size_t nTo) {
        const bool bEmpty = nFrom < nTo && sData[nFrom] == cEmptyTrack;
        return Field{nTrack, nFrom, bEmpty ? 0 : nTo - nFrom};
    };
    const size_t nLetter = sData.substr(0, nEnd).find('A', nAt);
    if (nLetter == sData.npos)
        return {field(2, nAt, nEnd)};
    return {field(2, nAt, nLetter), field(nOther, nLetter + 1, nEnd)};
}

// The three tracks from nAt on, "|" between them.
Fields threeTracks(std::string_view sData, size_t nAt)
{
    Fields fields;
    for (int nTrack = 1; nTrack <= 3; ++nTrack) {
        const size_t nBar = std::min(sData.find('|', nAt), sData.size());
        fields.push_back({nTrack, nAt, nBar - nAt});
        nAt = std::min(nBar + 1, sData.size());
    }
    return fields;
}

// ---- commands

struct EscapeRow {
    std::string_view sTail; // behind 1B
    StripeStep step;
    int nTracks;
    const char *pszMeaning;
};

constexpr std::array<EscapeRow, 15> escapeTable{{
    {"r", StripeStep::card, 1, "read track 1"},
    {"]", StripeStep::card, 2, "read track 2"},
    {"T]", StripeStep::card, 3, "read track 3"},
    {"D]", StripeStep::card, 12, "read tracks 1 and 2"},
    {"B]", StripeStep::card, 23, "read tracks 2 and 3"},
    {"j", StripeStep::status, 0, "how did it go?"},
    {"0", StripeStep::setting, 0, "head reset"},
    {"=", StripeStep::setting, 0, "format ISO"},
    {"'", StripeStep::setting, 0, "format IBM"},
    {"O", StripeStep::setting, 0, "format ISO-DK"},
    {"A", StripeStep::setting, 0, "format IBM-DK"},
    {"%A", StripeStep::setting, 0, "channel A"},
    {"%B", StripeStep::setting, 0, "channel B"},
    {"%C", StripeStep::setting, 0, "channel C"},
    {"%K", StripeStep::setting, 0, "channel K"},
}};

// A write of track 1 whose text is made of characters of track 2 up to an "A" has the bytes of a write of tracks 1 and 2.
int tracksWritten(char cCommand, std::string_view sText)
{
    const size_t nLetter = sText.find('A');
    if (cCommand == 't')
        return nLetter == 0 ? 3 : nLetter == sText.npos ? 2 : 23;
    const auto isTrack2 = [](char c) { return c >= '0' && c <= '?'; };
    const bool bTwo = nLetter != sText.npos && nLetter > 0 &&
                      std::all_of(sText.begin(), sText.begin() + static_cast<long>(nLetter), isTrack2);
    return bTwo ? 12 : 1;
}

StripeCommand textCommand(std::string_view sSent, bool bShow)
{
    constexpr size_t nAt = 2;
    StripeCommand command;
    command.step = StripeStep::card;
    command.bWrite = true;
    const bool bEnds = sSent.size() >= nAt + sTextEnd.size() && sSent.ends_with(sTextEnd);
    const size_t nEnd = bEnds ? sSent.size() - sTextEnd.size() : sSent.size();
    command.nTracks = tracksWritten(sSent[1], sSent.substr(nAt, nEnd - nAt));
    Fields fields;
    switch (command.nTracks) {
    case 12: fields = twoTracks(sSent, nAt, nEnd, 1); break;
    case 23: fields = twoTracks(sSent, nAt, nEnd, 3); break;
    case 3: fields = {{3, nAt + 1, nEnd - nAt - 1}}; break;
    default: fields = {{command.nTracks, nAt, nEnd - nAt}}; break;
    }
    command.sMeaning = "write " + fieldWords(sSent, fields, bShow) + (bEnds ? "" : ", without its end");
    command.hidden = hiddenFields(sSent, fields, bShow);
    return command;
}

StripeCommand escapeCommand(std::string_view sSent, bool bShow)
{
    StripeCommand command;
    command.hidden.resize(sSent.size());
    command.sMeaning = "unknown escape sequence";
    for (const EscapeRow &row : escapeTable)
        if (row.sTail == sSent.substr(1)) {
            command.step = row.step;
            command.nTracks = row.nTracks;
            command.sMeaning = row.pszMeaning;
            return command;
        }
    if (sSent.size() > 1 && (sSent[1] == 'w' || sSent[1] == 't'))
        return textCommand(sSent, bShow);
    return command;
}

StripeCommand framedCommand(BytesView sent, bool bShow)
{
    StripeCommand command;
    command.bFramed = true;
    command.hidden.resize(sent.size());
    const Frame frame = openFrame(sent);
    if (!frame.sFault.empty()) {
        command.sMeaning = "stripe frame, " + frame.sFault;
        return command;
    }
    const std::string_view sData = textOf(frame.data);
    const uint8_t ucCode = frame.data.size() >= 2 && frame.data[0] == ucGroup ? frame.data[1] : uint8_t{0};
    command.sMeaning = "stripe frame, ";
    if (ucCode == ucSeparator) {
        command.sMeaning += "separator \"" + std::string(sData.substr(2)) + "\"";
    } else if (ucCode == ucReadAll) {
        command.step = StripeStep::card;
        command.nTracks = 123;
        command.sMeaning += "read all three tracks";
    } else if (ucCode == ucWriteAll) {
        command.step = StripeStep::card;
        command.nTracks = 123;
        command.bWrite = true;
        const Fields fields = threeTracks(sData, 2);
        command.sMeaning += "write " + fieldWords(sData, fields, bShow);
        command.hidden = hiddenOnWire(hiddenFields(sData, fields, bShow), sent.size());
    } else if (ucCode == ucReadTime && frame.data.size() == 3) {
        command.sMeaning += "wait " + std::to_string(frame.data[2]) + " s for a card";
    } else {
        command.sMeaning += frame.data.empty() ? "no data" : "data " + spacedHex(frame.data);
    }
    return command;
}

// ---- replies

const char *statusWords(uint32_t nStatus, bool bWrite)
{
    switch (nStatus) {
    case 0x0000: return " (done)";
    case 0x4001: return bWrite ? " (write failed)" : " (no data on the card)";
    case 0x4002: return bWrite ? "" : " (read fault)";
    default: return "";
    }
}

ToldBytes framedReply(BytesView whole, const StripeCommand &asked, bool bShow)
{
    ToldBytes told{{whole.begin(), whole.end()}, "stripe frame, ", std::vector<bool>(whole.size())};
    const Frame frame = openFrame(whole);
    if (!frame.sFault.empty() || frame.data.size() < 2) {
        told.sMeaning += frame.sFault.empty() ? "too short for a status word" : frame.sFault;
        if (asked.step == StripeStep::card && !bShow)
            std::fill(told.hidden.begin() + 1, told.hidden.end() - 1, true);
        return told;
    }
    const uint32_t nStatus = static_cast<uint32_t>(frame.data[0]) << 8 | frame.data[1];
    told.sMeaning += "status " + hexWord(nStatus) + statusWords(nStatus, asked.bWrite);
    const std::string_view sData = textOf(frame.data);
    if (sData.size() == 2)
        return told;
    if (asked.step == StripeStep::card) {
        const Fields fields = threeTracks(sData, 2);
        told.sMeaning += ", " + fieldWords(sData, fields, bShow);
        told.hidden = hiddenOnWire(hiddenFields(sData, fields, bShow), whole.size());
    } else {
        told.sMeaning +=
            ", body " + countText(sData.size() - 2, "byte") + ": " + spacedHex(BytesView(frame.data).subspan(2));
    }
    return told;
}

ToldBytes trackReply(BytesView whole, const StripeCommand &asked, bool bShow)
{
    const std::string_view sData = textOf(whole);
    const size_t nEnd = sData.size() - sReplyEnd.size();
    size_t nAt = sReplyHead.size();
    Fields fields;
    switch (asked.nTracks) {
    case 12: fields = twoTracks(sData, nAt, nEnd, 1); break;
    case 23: fields = twoTracks(sData, nAt, nEnd, 3); break;
    default:
        if (asked.nTracks == 3 && nAt < nEnd)
            ++nAt;
        fields = {{asked.nTracks, nAt, nEnd - nAt}};
        break;
    }
    return {{whole.begin(), whole.end()}, fieldWords(sData, fields, bShow), hiddenFields(sData, fields, bShow)};
}

bool isTrackReply(BytesView data)
{
    return textOf(data).starts_with(sReplyHead);
}

} // namespace

StripeCommand stripeCommand(BytesView sent, bool bShow)
{
    if (!sent.empty() && sent[0] == ucEscape)
        return escapeCommand(textOf(sent), bShow);
    if (sent.size() > 2 && sent[0] == ucFrameHead && sent.back() == kindOfHead(ucFrameHead)->ucEnd)
        return framedCommand(sent, bShow);
    StripeCommand command;
    command.sMeaning = "no frame";
    command.hidden.resize(sent.size());
    return command;
}

ToldBytes StripeWire::sent(BytesView data)
{
    m_asked = stripeCommand(data, m_bShow);
    return {{data.begin(), data.end()}, m_asked.sMeaning, m_asked.hidden};
}

size_t StripeWire::replyLength() const
{
    const std::string_view sPending = textOf(m_pending);
    const auto through = [&](size_t nAt, size_t nLength) { return nAt == sPending.npos ? 0 : nAt + nLength; };
    if (m_asked.bFramed)
        return !m_pending.empty() && m_pending[0] == ucFrameHead
                   ? through(sPending.find(static_cast<char>(kindOfHead(ucFrameHead)->ucEnd), 1), 1)
                   : 0;
    if (m_asked.step == StripeStep::card)
        return isTrackReply(m_pending) ? through(sPending.find(sReplyEnd), sReplyEnd.size()) : 0;
    return m_asked.step == StripeStep::status ? through(sPending.find_first_of("pq"), 1) : 0;
}

ToldBytes StripeWire::reply(BytesView whole) const
{
    if (m_asked.bFramed)
        return framedReply(whole, m_asked, m_bShow);
    if (m_asked.step == StripeStep::card)
        return trackReply(whole, m_asked, m_bShow);
    return {{whole.begin(), whole.end()},
            whole.back() == 'p' ? "it succeeded" : "it failed",
            std::vector<bool>(whole.size())};
}

std::vector<ToldBytes> StripeWire::received(BytesView data)
{
    m_pending.insert(m_pending.end(), data.begin(), data.end());
    std::vector<ToldBytes> replies;
    while (const size_t nLength = replyLength()) {
        replies.push_back(reply(BytesView(m_pending).first(nLength)));
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<long>(nLength));
    }
    return replies;
}

ToldBytes StripeWire::flush()
{
    ToldBytes told{std::move(m_pending), "no whole reply", {}};
    m_pending.clear();
    told.hidden.resize(told.data.size());
    const bool bCard = m_asked.step == StripeStep::card || isTrackReply(told.data);
    const size_t nSeen = isTrackReply(told.data) ? sReplyHead.size() : 0;
    if (bCard && !m_bShow)
        std::fill(told.hidden.begin() + static_cast<long>(nSeen), told.hidden.end(), true);
    return told;
}

std::string trackWithoutEnd(BytesView framedReply)
{
    if (framedReply.size() < 3 || framedReply[0] != ucFrameHead)
        return {};
    const Frame frame = openFrame(framedReply);
    if (!frame.sFault.empty() || frame.data.size() < 2)
        return {};
    const std::string_view sBody = textOf(frame.data).substr(2);
    const size_t nFirst = sBody.find('|');
    const size_t nSecond = nFirst == sBody.npos ? sBody.npos : sBody.find('|', nFirst + 1);
    if (nSecond == sBody.npos || sBody.find('|', nSecond + 1) != sBody.npos)
        return {};
    return std::string(sBody.substr(nSecond + 1));
}

} // namespace qvtool
