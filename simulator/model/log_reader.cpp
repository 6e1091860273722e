// Lines into dumps, dumps into commands and replies.
#include "model/log_reader.h"

#include "model/frame.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qvsim {

namespace {

constexpr std::string_view kLength = "LEN=";
constexpr std::string_view kHex = "HEX:";
constexpr std::string_view kBlanks = " \t\r";
constexpr unsigned kMostBytes = LogReader::kMostLine / 2;
constexpr std::size_t kLengthBytes = 2;
constexpr std::size_t kStatusBytes = 2;
constexpr std::size_t kLrcBytes = 1;
constexpr unsigned kSlotsOfAKind = 16;

std::string_view trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == text.npos ? std::string_view{} : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// What stands behind the title: "LEN=2   HEX: 9000". Nothing when it is not whole.
std::optional<Bytes> dumpedBytes(std::string_view text)
{
    text.remove_prefix(kLength.size());
    const std::size_t hexAt = text.find(kHex);
    if (hexAt == text.npos)
        return std::nullopt;
    const std::optional<unsigned> length = parseNumber(trimmed(text.substr(0, hexAt)), kMostBytes);
    std::optional<Bytes> bytes = fromHex(text.substr(hexAt + kHex.size()));
    return length && bytes && bytes->size() == *length ? bytes : std::nullopt;
}

// How APDU titles name slots: a word, and a number behind it where there are several of the kind.
struct SlotWord {
    std::string_view word;
    SlotCode first;
    bool numbered;
};
constexpr std::array<SlotWord, 3> kSlotWords{{
    {"接触卡", 0, true},
    {"PSAM卡", kFirstPsamSlot, true},
    {"非接卡", kContactless, false},
}};

std::optional<SlotCode> slotOfTitle(std::string_view title)
{
    for (const SlotWord &row : kSlotWords) {
        const std::size_t at = title.rfind(row.word);
        if (at == title.npos)
            continue;
        if (!row.numbered)
            return row.first;
        std::string_view number = title.substr(at + row.word.size());
        number = number.substr(0, number.find_first_of(kBlanks));
        if (const std::optional<unsigned> n = parseNumber(number, kSlotsOfAKind - 1))
            return static_cast<SlotCode>(row.first + *n);
    }
    return std::nullopt;
}

} // namespace

const LogReader::TitleRow LogReader::kTitles[] = {
    {"szSend", Title::send},
    {"ucBody", Title::reply},
    {"C_APDU", Title::commandApdu},
    {"R_APDU", Title::responseApdu},
};

void LogReader::read(std::string_view piece)
{
    while (!piece.empty()) {
        const std::size_t end = piece.find('\n');
        addToLine(piece.substr(0, end));
        if (end == piece.npos)
            return;
        endLine();
        piece.remove_prefix(end + 1);
    }
}

void LogReader::endOfFile()
{
    endLine();
}

void LogReader::addToLine(std::string_view piece)
{
    if (!skipping_ && piece.size() > kMostLine - line_.size()) {
        skipping_ = true;
        ++tooLongLines_;
    }
    if (!skipping_)
        line_ += piece;
}

void LogReader::endLine()
{
    if (!skipping_)
        takeLine(trimmed(line_));
    line_.clear();
    skipping_ = false;
}

void LogReader::takeLine(std::string_view line)
{
    const std::size_t lengthAt = line.rfind(kLength);
    const std::string_view title = trimmed(line.substr(0, lengthAt));
    if (title.empty()) {
        if (lengthAt != line.npos && sendExpected_)
            takeDump(Title::send, {}, dumpedBytes(line.substr(lengthAt)));
        return;
    }
    for (const TitleRow &row : kTitles) {
        if (!title.ends_with(row.end))
            continue;
        if (sendExpected_) // its dump is missing
            takeDump(Title::send, {}, std::nullopt);
        if (lengthAt != line.npos)
            takeDump(row.title, title, dumpedBytes(line.substr(lengthAt)));
        else if (row.title == Title::send)
            sendExpected_ = true;
        else
            takeDump(row.title, title, std::nullopt);
        return;
    }
}

// Nothing: the dump is not whole.
void LogReader::takeDump(Title title, std::string_view titleText, const std::optional<Bytes> &bytes)
{
    ++dumps_;
    if (!bytes)
        ++cutOffDumps_;
    switch (title) {
    case Title::send: takeSend(bytes); return;
    case Title::reply:
        if (bytes)
            takeReply(*bytes);
        return;
    case Title::commandApdu: takeCommandApdu(titleText, bytes); return;
    case Title::responseApdu:
        if (bytes && !bytes->empty()) {
            Bytes reply(kStatusBytes, 0x00);
            reply.insert(reply.end(), bytes->begin(), bytes->end());
            recorder_.reply(reply); // nothing new when the frame has been dumped as well
        }
        return;
    }
}

void LogReader::takeSend(const std::optional<Bytes> &command)
{
    sendExpected_ = false;
    const Bytes announced = std::exchange(announced_, {});
    if (command && (announced.empty() || announced != *command))
        recorder_.command(*command);
    else if (!command && announced.empty())
        recorder_.noCommand();
}

// A frame that the library has refused is none here either.
void LogReader::takeReply(BytesView reply)
{
    if (reply.size() < kLengthBytes + kStatusBytes + kLrcBytes)
        return;
    const std::size_t declared = (std::size_t{reply[0]} << 8) | reply[1];
    const BytesView covered = reply.subspan(kLengthBytes, reply.size() - kLengthBytes - kLrcBytes);
    if (lrcOf(covered) != reply.back() || declared < kStatusBytes || declared > covered.size())
        return;
    recorder_.reply(covered.first(declared));
}

void LogReader::takeCommandApdu(std::string_view titleText, const std::optional<Bytes> &apdu)
{
    const std::optional<SlotCode> slot = slotOfTitle(titleText);
    announced_.clear();
    if (!slot || !apdu || apdu->empty()) {
        recorder_.noCommand(); // it may still be dumped as it goes into the frame
        return;
    }
    announced_ = {0x32, 0x26, *slot};
    announced_.insert(announced_.end(), apdu->begin(), apdu->end());
    recorder_.command(announced_);
}

} // namespace qvsim
