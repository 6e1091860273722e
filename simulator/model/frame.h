// The reader's packet frame.
//
//   position   length  content
//   0          1       head byte: 0x02 card frame, 0x01 peripheral frame
//   1          4       n, the number of data bytes, big-endian, as half-byte characters
//   5          2n      the data, as half-byte characters
//   5 + 2n     2       LRC: exclusive-or of the data alone, as half-byte characters
//   7 + 2n     1       end byte: 0x03 card frame, 0x04 peripheral frame
//
// A half-byte character is 0x30 + value: "0" to "9" and then 0x3A to 0x3F, never the letters A to F.
// In a reply the data are the status word, big-endian, and the body.
#pragma once

#include "model/bytes.h"

namespace qvsim {

enum class FrameKind { card, peripheral };

struct FrameMarks {
    std::uint8_t head;
    std::uint8_t end;
};

enum class FrameFault {
    none,
    badCharacter, // between the marks stands something else than 0x30..0x3F
    tooShort,     // no room for length and LRC
    wrongLength,  // declared and real number of data bytes differ
    wrongLrc,
    tooLong, // more characters than a command may have
    cutOff,  // another frame or an escape began, or the line speed changed, before the end byte
};

// Most data bytes of a command: hosts build a frame in 1024 bytes, 2n + 8.
constexpr std::size_t kMostCommandData = 508;
// Most body bytes of a reply: hosts take 1024 characters between the marks, which are 512 bytes less length (2),
// status word (2) and LRC (1).
constexpr std::size_t kMostReplyBody = 507;

struct DecodedFrame {
    FrameFault fault = FrameFault::none;
    Bytes data;
};

FrameMarks marksOf(FrameKind kind);
const char *faultText(FrameFault fault);
std::uint8_t lrcOf(BytesView data);

Bytes encodeFrame(FrameKind kind, BytesView data);

// `characters` is what stood between head and end byte; `mostData`: more data bytes are too long.
DecodedFrame decodeFrame(BytesView characters, std::size_t mostData = kMostCommandData);

} // namespace qvsim
