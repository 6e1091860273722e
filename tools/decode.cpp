// head | length (4 characters) | data | LRC of the data (2 characters) | end
//
// Each byte between head and end travels as two characters 0x30 + half. Replies begin their data with a status word of
// two bytes. Card frames stand between 02 and 03, peripheral frames between 01 and 04.
#include "decode.h"

#include "texts.h"

#include <algorithm>
#include <array>
#include <optional>

namespace qvtool {

namespace {

struct FrameKind {
    uint8_t ucHead;
    uint8_t ucEnd;
    const char *pszName;
};

constexpr std::array<FrameKind, 2> frameKinds{{{0x02, 0x03, "card frame"}, {0x01, 0x04, "peripheral frame"}}};
constexpr uint8_t ucEscape = 0x1B;

const FrameKind *kindOfHead(uint8_t ucHead)
{
    for (const FrameKind &kind : frameKinds)
        if (kind.ucHead == ucHead)
            return &kind;
    return nullptr;
}

// ---- frames

struct Frame {
    const FrameKind *pKind = nullptr;
    Bytes data;
    std::string sFault; // empty: none
};

// The characters between the markers, two to a byte.
bool mergeHalves(BytesView characters, Bytes &out)
{
    if (characters.size() % 2 != 0)
        return false;
    for (size_t n = 0; n < characters.size(); n += 2) {
        if (characters[n] < 0x30 || characters[n] > 0x3F || characters[n + 1] < 0x30 || characters[n + 1] > 0x3F)
            return false;
        out.push_back(static_cast<uint8_t>((characters[n] & 15) << 4 | (characters[n + 1] & 15)));
    }
    return true;
}

// whole: from the head to the end byte.
Frame openFrame(BytesView whole)
{
    constexpr size_t nOverhead = 3; // length and LRC
    Frame frame;
    frame.pKind = kindOfHead(whole[0]);
    Bytes bytes;
    if (!mergeHalves(whole.subspan(1, whole.size() - 2), bytes)) {
        frame.sFault = "characters that are no half-bytes";
        return frame;
    }
    if (bytes.size() < nOverhead) {
        frame.sFault = "too short";
        return frame;
    }
    frame.data.assign(bytes.begin() + 2, bytes.end() - 1);
    size_t nDeclared = static_cast<size_t>(bytes[0]) << 8 | bytes[1];
    uint8_t ucCheck = 0;
    for (uint8_t uc : frame.data)
        ucCheck = static_cast<uint8_t>(ucCheck ^ uc);
    if (ucCheck != bytes.back())
        frame.sFault = "LRC wrong";
    else if (nDeclared != frame.data.size())
        frame.sFault = "declares " + std::to_string(nDeclared) + " bytes, holds " + std::to_string(frame.data.size());
    return frame;
}

// ---- commands

uint32_t bigEndian(uint8_t ucHigh, uint8_t ucLow)
{
    return static_cast<uint32_t>(ucHigh) << 8 | ucLow;
}

std::string waitText(uint8_t ucHigh, uint8_t ucLow)
{
    uint32_t nWait = bigEndian(ucHigh, ucLow);
    return nWait == 0 ? ", does not wait" : ", waits " + std::to_string(nWait) + " ms";
}

std::string statusCommand(BytesView data)
{
    return "card status of " + slotText(data[2]);
}

std::string powerOn(BytesView data)
{
    return "power on " + slotText(data[4]) + waitText(data[2], data[3]);
}

std::string powerOff(BytesView data)
{
    return "power off " + slotText(data[2]);
}

std::string powerOnContactless(BytesView data)
{
    return "power on " + slotText(255) + waitText(data[2], data[3]);
}

std::string powerOffContactless(BytesView)
{
    return "power off " + slotText(255);
}

std::string apdu(BytesView data)
{
    return "APDU to " + slotText(data[2]) + ": " + spacedHex(data.subspan(3));
}

std::string detect(BytesView data)
{
    return "which card is present" + waitText(data[2], data[3]);
}

struct CommandRow {
    uint8_t ucGroup;
    uint8_t ucCode;
    size_t nLeast; // bytes, group and code included
    std::string (*pfnMeaning)(BytesView data);
};

constexpr std::array<CommandRow, 8> commandTable{{
    {0x32, 0x21, 3, statusCommand},
    {0x32, 0x22, 5, powerOn},
    {0x32, 0x23, 3, powerOff},
    {0x32, 0x24, 4, powerOnContactless},
    {0x32, 0x25, 4, powerOffContactless},
    {0x32, 0x26, 3, apdu},
    {0x32, 0x30, 4, detect},
    {0x32, 0x32, 4, detect},
}};

std::string commandData(BytesView data)
{
    for (const CommandRow &row : commandTable)
        if (data.size() >= row.nLeast && data[0] == row.ucGroup && data[1] == row.ucCode)
            return row.pfnMeaning(data);
    return data.empty() ? "no data" : "data " + spacedHex(data);
}

// ---- escape sequences

struct EscapeRow {
    const char *pszTail; // behind 1B
    const char *pszMeaning;
};

constexpr std::array<EscapeRow, 11> escapeTable{{
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
}};

// ---- one piece of what is sent

struct Piece {
    size_t nLength;
    std::string sMeaning;
};

Piece zeros(BytesView sent)
{
    auto it = std::find_if(sent.begin(), sent.end(), [](uint8_t uc) { return uc != 0; });
    size_t nCount = static_cast<size_t>(it - sent.begin());
    return {nCount, "wake-up, " + std::to_string(nCount) + " zero bytes"};
}

Piece escape(BytesView sent)
{
    std::string sTail(sent.begin() + 1, sent.end());
    for (const EscapeRow &row : escapeTable)
        if (sTail.starts_with(row.pszTail))
            return {1 + std::string_view(row.pszTail).size(), row.pszMeaning};
    return {sent.size(), "unknown escape sequence"};
}

Piece frameCommand(BytesView sent, const FrameKind &kind)
{
    auto end = std::find(sent.begin(), sent.end(), kind.ucEnd);
    if (end == sent.end())
        return {sent.size(), std::string(kind.pszName) + " without its end byte"};
    size_t nLength = static_cast<size_t>(end - sent.begin()) + 1;
    Frame frame = openFrame(sent.first(nLength));
    if (!frame.sFault.empty())
        return {nLength, std::string(kind.pszName) + ", " + frame.sFault};
    return {nLength, std::string(kind.pszName) + ", " + commandData(frame.data)};
}

Piece firstPiece(BytesView sent)
{
    if (sent[0] == 0)
        return zeros(sent);
    if (sent[0] == ucEscape)
        return escape(sent);
    if (const FrameKind *pKind = kindOfHead(sent[0]); pKind != nullptr)
        return frameCommand(sent, *pKind);
    return {sent.size(), "no frame"};
}

// ---- replies

std::string replyMeaning(BytesView whole)
{
    Frame frame = openFrame(whole);
    std::string sName = frame.pKind->pszName;
    if (!frame.sFault.empty())
        return sName + ", " + frame.sFault;
    if (frame.data.size() < 2)
        return sName + ", too short for a status word";
    uint32_t nStatus = bigEndian(frame.data[0], frame.data[1]);
    BytesView body = BytesView(frame.data).subspan(2);
    std::string sKnown = readerStatusText(nStatus);
    std::string sText = sName + ", status " + hexWord(nStatus) + (sKnown.empty() ? "" : " (" + sKnown + ")");
    if (body.empty())
        return sText + ", no body";
    return sText + ", body " + std::to_string(body.size()) + " bytes: " + spacedHex(body);
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
        std::string sMeaning = replyMeaning(BytesView(head, end + 1));
        if (nBefore > 0)
            sMeaning = std::to_string(nBefore) + " bytes before the frame; " + sMeaning;
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
