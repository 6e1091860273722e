// Frame codec. Owns no state; the search for the marks is line_parser's.
#include "model/frame.h"

#include <array>

namespace qvsim {

namespace {

constexpr std::uint8_t kFirstCharacter = 0x30;
constexpr std::uint8_t kLastCharacter = 0x3F;
constexpr std::size_t kLengthBytes = 2;
constexpr std::size_t kLrcBytes = 1;

constexpr std::array<FrameMarks, 2> kMarks{{
    {0x02, 0x03}, // FrameKind::card
    {0x01, 0x04}, // FrameKind::peripheral
}};

constexpr std::array<const char *, 7> kFaultTexts{
    "no fault",
    "a character between the marks is not a half-byte character",
    "too short for length and LRC",
    "the declared length is not the number of data bytes",
    "wrong LRC",
    "longer than a command may be",
    "cut off before its end byte",
};

void appendHalves(Bytes &out, std::uint8_t byte)
{
    out.push_back(static_cast<std::uint8_t>(kFirstCharacter + (byte >> 4)));
    out.push_back(static_cast<std::uint8_t>(kFirstCharacter + (byte & 0x0F)));
}

} // namespace

FrameMarks marksOf(FrameKind kind)
{
    return kMarks[static_cast<std::size_t>(kind)];
}

const char *faultText(FrameFault fault)
{
    return kFaultTexts[static_cast<std::size_t>(fault)];
}

std::uint8_t lrcOf(BytesView data)
{
    std::uint8_t lrc = 0;
    for (const std::uint8_t b : data)
        lrc = static_cast<std::uint8_t>(lrc ^ b);
    return lrc;
}

Bytes encodeFrame(FrameKind kind, BytesView data)
{
    const FrameMarks marks = marksOf(kind);
    Bytes frame;
    frame.reserve(2 * data.size() + 8);
    frame.push_back(marks.head);
    appendHalves(frame, static_cast<std::uint8_t>(data.size() >> 8));
    appendHalves(frame, static_cast<std::uint8_t>(data.size()));
    for (const std::uint8_t b : data)
        appendHalves(frame, b);
    appendHalves(frame, lrcOf(data));
    frame.push_back(marks.end);
    return frame;
}

DecodedFrame decodeFrame(BytesView characters, std::size_t mostData)
{
    for (const std::uint8_t c : characters)
        if (c < kFirstCharacter || c > kLastCharacter)
            return {FrameFault::badCharacter, {}};
    if (characters.size() < 2 * (kLengthBytes + kLrcBytes))
        return {FrameFault::tooShort, {}};
    if (characters.size() % 2 != 0)
        return {FrameFault::wrongLength, {}};

    Bytes bytes;
    bytes.reserve(characters.size() / 2);
    for (std::size_t i = 0; i < characters.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(((characters[i] & 0x0F) << 4) | (characters[i + 1] & 0x0F)));

    const std::size_t declared = (std::size_t{bytes[0]} << 8) | bytes[1];
    if (declared != bytes.size() - kLengthBytes - kLrcBytes)
        return {FrameFault::wrongLength, {}};
    if (declared > mostData)
        return {FrameFault::tooLong, {}};
    const BytesView data = BytesView(bytes).subspan(kLengthBytes, declared);
    if (lrcOf(data) != bytes.back())
        return {FrameFault::wrongLrc, {}};
    return {FrameFault::none, Bytes(data.begin(), data.end())};
}

} // namespace qvsim
