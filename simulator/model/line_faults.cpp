// Faults of the line: a row each. `fault off` is the word that switches them all off.
#include "model/line_faults.h"

#include "model/frame.h"

#include <algorithm>
#include <iterator>

namespace qvsim {

namespace {

using std::chrono::milliseconds;

constexpr std::string_view kEvery = "every";
constexpr unsigned kMostMilliseconds = 600'000;
constexpr unsigned kMostPieceBytes = 1026; // the longest reply
constexpr unsigned kMostLength = 0xFFFF;
constexpr std::size_t kMostGarbageBytes = 256;
constexpr std::size_t kLengthAt = 1; // behind the head byte

struct Argument {
    BytesView bytes;
    unsigned number;
};

// The frame is still whole: the first piece.
void spoilLrc(Delivery &reply, const Argument &)
{
    Bytes &frame = reply.pieces.front().bytes;
    std::uint8_t &character = frame.at(frame.size() - 2);
    character = static_cast<std::uint8_t>(character ^ 0x01);
}

void declareLength(Delivery &reply, const Argument &argument)
{
    for (std::size_t i = 0; i < 4; ++i)
        reply.pieces.front().bytes.at(kLengthAt + i) =
            static_cast<std::uint8_t>(0x30 | ((argument.number >> (12 - 4 * i)) & 0x0F));
}

void loseEnd(Delivery &reply, const Argument &)
{
    reply.pieces.front().bytes.pop_back();
}

void putGarbage(Delivery &reply, const Argument &argument)
{
    Bytes &frame = reply.pieces.front().bytes;
    frame.insert(frame.begin(), argument.bytes.begin(), argument.bytes.end());
}

void repeatReply(Delivery &reply, const Argument &)
{
    reply.pieces.push_back({reply.pieces.front().bytes, milliseconds(0)});
}

void splitReply(Delivery &reply, const Argument &argument)
{
    std::vector<TimedBytes> cut;
    for (const TimedBytes &piece : reply.pieces) {
        const BytesView bytes = piece.bytes;
        for (std::size_t at = 0; at < bytes.size(); at += argument.number) {
            const BytesView part = bytes.subspan(at, std::min<std::size_t>(argument.number, bytes.size() - at));
            cut.push_back({Bytes(part.begin(), part.end()), milliseconds(0)});
        }
    }
    reply.pieces = std::move(cut);
    reply.isCut = true;
}

void delayPieces(Delivery &reply, const Argument &argument)
{
    if (!reply.isCut)
        splitReply(reply, {{}, 1});
    for (auto piece = std::next(reply.pieces.begin()); piece != reply.pieces.end(); ++piece)
        piece->after = milliseconds(argument.number);
}

void leadWithZero(Delivery &reply, const Argument &argument)
{
    reply.pieces.front().after = milliseconds(argument.number);
    reply.pieces.insert(reply.pieces.begin(), {Bytes{0x00}, milliseconds(0)});
}

void holdBack(Delivery &reply, const Argument &argument)
{
    reply.pieces.front().after += milliseconds(argument.number);
}

void keepSilent(Delivery &reply, const Argument &)
{
    reply.pieces.clear();
}

void hangUp(Delivery &reply, const Argument &)
{
    reply.pieces.clear();
    reply.hangsUp = true;
}

} // namespace

struct LineFaults::Row {
    enum class Takes { nothing, number, bytes };
    std::string_view name;
    std::string_view argument; // as the help shows it
    Takes takes;
    unsigned least;
    unsigned most;
    std::string_view help;
    void (*strike)(Delivery &reply, const Argument &argument);
    bool onlyFrames = false;
};

const LineFaults::Row LineFaults::kRows[] = {
    {"badlrc", "", Row::Takes::nothing, 0, 0, "the LRC is wrong", spoilLrc, true},
    {"length", "N", Row::Takes::number, 0, kMostLength, "the declared length is N, the data stay", declareLength, true},
    {"noend", "", Row::Takes::nothing, 0, 0, "the end byte is lost", loseEnd},
    {"garbage", "HEX", Row::Takes::bytes, 1, kMostGarbageBytes, "these bytes come before the head", putGarbage},
    {"repeat", "", Row::Takes::nothing, 0, 0, "the reply comes twice", repeatReply},
    {"split", "N", Row::Takes::number, 1, kMostPieceBytes, "pieces of N bytes", splitReply},
    {"delay", "MS", Row::Takes::number, 1, kMostMilliseconds, "a pause between pieces, or bytes without split",
     delayPieces},
    {"leadingzero", "MS", Row::Takes::number, 0, kMostMilliseconds, "a zero byte and a gap before the reply",
     leadWithZero},
    {"late", "MS", Row::Takes::number, 1, kMostMilliseconds, "the reply is held back", holdBack},
    {"silence", "", Row::Takes::nothing, 0, 0, "no reply", keepSilent},
    {"hangup", "", Row::Takes::nothing, 0, 0, "the line is hung up instead of a reply", hangUp},
};

std::optional<std::string> LineFaults::set(std::string_view words)
{
    if (words == "off") {
        set_.clear();
        return std::nullopt;
    }
    const std::size_t blank = std::min(words.find(' '), words.size());
    const std::string_view name = words.substr(0, blank);
    const auto row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row &r) { return r.name == name; });
    if (row == std::end(kRows))
        return "unknown fault " + std::string(name) + "; try faults";

    Setting setting;
    std::string_view rest = words.substr(blank);
    if (rest.ends_with(kEvery)) {
        setting.every = true;
        rest.remove_suffix(kEvery.size());
    }
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
    setting.text = rest;
    bool fits = false;
    switch (row->takes) {
    case Row::Takes::nothing: fits = rest.empty(); break;
    case Row::Takes::number: {
        const std::optional<unsigned> number = parseNumber(rest, row->most);
        fits = number && *number >= row->least;
        setting.number = number.value_or(0);
        break;
    }
    case Row::Takes::bytes: {
        std::optional<Bytes> bytes = fromHex(rest);
        fits = bytes && bytes->size() >= row->least && bytes->size() <= row->most;
        setting.bytes = std::move(bytes).value_or(Bytes{});
        break;
    }
    }
    if (!fits) {
        std::string wrong = "usage: fault " + std::string(name);
        if (row->takes != Row::Takes::nothing)
            wrong += " " + std::string(row->argument);
        wrong += " [every]";
        if (row->takes == Row::Takes::number)
            wrong += ", " + std::to_string(row->least) + " to " + std::to_string(row->most);
        return wrong;
    }
    set_[static_cast<std::size_t>(row - kRows)] = std::move(setting);
    return std::nullopt;
}

std::string LineFaults::settingText(std::string_view name, const Setting &setting)
{
    std::string text(name);
    if (!setting.text.empty())
        text += " " + setting.text;
    if (setting.every)
        text += " every";
    return text;
}

std::string LineFaults::names(bool ofFrames) const
{
    std::string text;
    for (const auto &[row, setting] : set_)
        if (ofFrames || !kRows[row].onlyFrames)
            text += (text.empty() ? "" : ", ") + settingText(kRows[row].name, setting);
    return text;
}

std::vector<std::string> LineFaults::describe() const
{
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < std::size(kRows); ++i) {
        const Row &row = kRows[i];
        std::string text(row.name);
        if (row.takes != Row::Takes::nothing)
            text += " " + std::string(row.argument);
        text.resize(std::max<std::size_t>(text.size() + 2, 16), ' ');
        text += row.help;
        if (const auto found = set_.find(i); found != set_.end())
            text += " [on: " + settingText(row.name, found->second) + "]";
        lines.push_back(std::move(text));
    }
    return lines;
}

Delivery LineFaults::apply(Bytes reply)
{
    const bool isFrame = !reply.empty() && (reply.front() == marksOf(FrameKind::card).head ||
                                            reply.front() == marksOf(FrameKind::peripheral).head);
    Delivery delivery;
    delivery.faults = names(isFrame);
    delivery.pieces.push_back({std::move(reply), milliseconds(0)});
    for (const auto &[row, setting] : set_) {
        if (delivery.pieces.empty())
            break; // silence: nothing is left to be spoilt
        if (isFrame || !kRows[row].onlyFrames)
            kRows[row].strike(delivery, {setting.bytes, setting.number});
    }
    std::erase_if(set_, [isFrame](const auto &entry) {
        return !entry.second.every && (isFrame || !kRows[entry.first].onlyFrames);
    });
    return delivery;
}

} // namespace qvsim
