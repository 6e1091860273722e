// What goes out is cut into frames, escape sequences and wake-up bytes, what comes in into frames.
#include "decode.h"

#include "command_words.h"
#include "frames.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <optional>

namespace qvtool {

namespace {

constexpr uint8_t ucEscape = 0x1B;

// ---- escape sequences

struct EscapeRow {
    const char *pszTail; // behind 1B; # stands for a number, @ for a letter
    const char *pszMeaning;
};

constexpr std::array<EscapeRow, 28> escapeTable{{
    {"%I1", "line speed 115200"},
    {"%I2", "line speed 38400"},
    {"%I3", "line speed 19200"},
    {"%I4", "line speed 9600"},
    {"%A", "switch box: select port A"},
    {"%B", "switch box: select port B"},
    {"%C", "switch box: select port C"},
    {"%K", "switch box: select port K"},
    {"$I4", "switch box: line at 9600"},
    {"$B", "switch box: release the port"},
    {"0", "module reset"},
    {"[2h", "terminal: keep the screen out of it"},
    {"[2l", "terminal: release the screen"},
    {"!#;0;0;0@", "terminal: aux port and speed"},
    {"[/54l", "terminal: aux port set-up"},
    {"[/53h", "terminal: aux port set-up"},
    {"[/50h", "terminal: aux port on"},
    {"[/50l", "terminal: aux port off"},
    {"[/51h", "terminal: what follows is for the reader"},
    {"[/51l", "terminal: end of what is for the reader"},
    {"[#>", "terminal: aux port on"},
    {"[<", "terminal: aux port off"},
    {"[/#;1;#;3;1;0M", "terminal: aux port on"},
    {"[/|", "terminal: what follows is for the reader"},
    {"[/M", "terminal: aux port off"},
    {"!#;1m", "terminal: aux port"},
    {"!b", "terminal: aux port on"},
    {"!P", "terminal: aux port off"},
}};
constexpr std::string_view sEndMark =
    "|"; // that ends what is for the reader, at the terminals that begin it with ESC [/|

// How many characters of sTail the pattern takes, 0: it does not fit.
size_t fitting(std::string_view sPattern, std::string_view sTail)
{
    size_t nAt = 0;
    for (char c : sPattern) {
        const size_t nBefore = nAt;
        if (c == '#')
            while (nAt < sTail.size() && sTail[nAt] >= '0' && sTail[nAt] <= '9')
                ++nAt;
        else if (nAt < sTail.size() && (c == '@' ? sTail[nAt] >= 'A' && sTail[nAt] <= 'Z' : sTail[nAt] == c))
            ++nAt;
        if (nAt == nBefore)
            return 0;
    }
    return nAt;
}

// ---- one piece of what is sent

struct Piece {
    size_t nLength;
    std::string sMeaning;
    Frame frame; // without a kind: the piece is none
};

Piece zeros(BytesView sent)
{
    auto it = std::find_if(sent.begin(), sent.end(), [](uint8_t uc) { return uc != 0; });
    size_t nCount = static_cast<size_t>(it - sent.begin());
    return {nCount, "wake-up, " + countText(nCount, "zero byte"), {}};
}

Piece escape(BytesView sent)
{
    std::string sTail(sent.begin() + 1, sent.end());
    for (const EscapeRow &row : escapeTable)
        if (const size_t nLength = fitting(row.pszTail, sTail); nLength > 0)
            return {1 + nLength, row.pszMeaning, {}};
    return {sent.size(), "unknown escape sequence", {}};
}

Piece frameCommand(BytesView sent, const FrameKind &kind)
{
    auto end = std::find(sent.begin(), sent.end(), kind.ucEnd);
    if (end == sent.end())
        return {sent.size(), std::string(kind.pszName) + " without its end byte", {}};
    size_t nLength = static_cast<size_t>(end - sent.begin()) + 1;
    Frame frame = openFrame(sent.first(nLength));
    if (!frame.sFault.empty())
        return {nLength, std::string(kind.pszName) + ", " + frame.sFault, {}};
    std::string sMeaning = std::string(kind.pszName) + ", " + commandWords(kind.ucHead, frame.data);
    return {nLength, std::move(sMeaning), std::move(frame)};
}

Piece firstPiece(BytesView sent)
{
    if (sent[0] == 0)
        return zeros(sent);
    if (sent[0] == ucEscape)
        return escape(sent);
    if (const FrameKind *pKind = kindOfHead(sent[0]); pKind != nullptr)
        return frameCommand(sent, *pKind);
    if (std::equal(sent.begin(), sent.end(), sEndMark.begin(), sEndMark.end()))
        return {sent.size(), "terminal: end of what is for the reader", {}};
    return {sent.size(), "no frame", {}};
}

// ---- replies

// asked: the frame that went out last.
std::string replyMeaning(BytesView whole, uint8_t ucAskedHead, BytesView asked)
{
    Frame frame = openFrame(whole);
    std::string sName = frame.pKind->pszName;
    if (!frame.sFault.empty())
        return sName + ", " + frame.sFault;
    if (frame.data.size() < 2)
        return sName + ", too short for a status word";
    uint32_t nStatus = static_cast<uint32_t>(frame.data[0]) << 8 | frame.data[1];
    BytesView body = BytesView(frame.data).subspan(2);
    std::string sKnown = readerStatusText(nStatus);
    std::string sText = sName + ", status " + hexWord(nStatus) + (sKnown.empty() ? "" : " (" + sKnown + ")");
    if (body.empty())
        return sText + ", no body";
    sText += ", body " + countText(body.size(), "byte") + ": " + spacedHex(body);
    const std::string sWords = frame.pKind->ucHead == ucAskedHead ? bodyWords(ucAskedHead, asked, body) : std::string();
    return sWords.empty() ? sText : sText + " (" + sWords + ")";
}

} // namespace

std::string commandMeaning(BytesView sent)
{
    std::string sText;
    while (!sent.empty()) {
        Piece piece = firstPiece(sent);
        sText += (sText.empty() ? "" : "; ") + piece.sMeaning;
        sent = sent.subspan(piece.nLength);
    }
    return sText;
}

void ReplyCutter::expect(BytesView sent)
{
    while (!sent.empty()) {
        Piece piece = firstPiece(sent);
        if (piece.frame.pKind != nullptr) {
            m_ucAskedHead = piece.frame.pKind->ucHead;
            m_asked = std::move(piece.frame.data);
        }
        sent = sent.subspan(piece.nLength);
    }
}

std::vector<ReplyCutter::Reply> ReplyCutter::feed(BytesView received)
{
    m_pending.insert(m_pending.end(), received.begin(), received.end());
    std::vector<Reply> replies;
    for (;;) {
        auto head =
            std::find_if(m_pending.begin(), m_pending.end(), [](uint8_t uc) { return kindOfHead(uc) != nullptr; });
        if (head == m_pending.end())
            return replies;
        auto end = std::find(head + 1, m_pending.end(), kindOfHead(*head)->ucEnd);
        if (end == m_pending.end())
            return replies;
        size_t nBefore = static_cast<size_t>(head - m_pending.begin());
        std::string sMeaning = replyMeaning(BytesView(head, end + 1), m_ucAskedHead, m_asked);
        if (nBefore > 0)
            sMeaning = countText(nBefore, "byte") + " before the frame; " + sMeaning;
        replies.push_back({Bytes(m_pending.begin(), end + 1), std::move(sMeaning)});
        m_pending.erase(m_pending.begin(), end + 1);
    }
}

ReplyCutter::Reply ReplyCutter::flush()
{
    Reply reply{std::move(m_pending), {}};
    m_pending.clear();
    if (reply.data.empty())
        return reply;
    bool bHead =
        std::any_of(reply.data.begin(), reply.data.end(), [](uint8_t uc) { return kindOfHead(uc) != nullptr; });
    reply.sMeaning = bHead ? "frame without its end byte" : "no frame";
    return reply;
}

} // namespace qvtool
