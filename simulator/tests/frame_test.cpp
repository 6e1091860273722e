// The frame codec against bytes written out by hand.
#include "model/frame.h"

#include <gtest/gtest.h>

namespace qvsim {
namespace {

struct Vector {
    const char *what;
    FrameKind kind;
    const char *data;
    const char *frame;
};

const Vector kVectors[] = {
    {"detection", FrameKind::card, "32 30 00 10", "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03"},
    {"status 9000 with body 01", FrameKind::card, "90 00 01", "02 30 30 30 33 39 30 30 30 30 31 39 31 03"},
    {"no data at all", FrameKind::card, "", "02 30 30 30 30 30 30 03"},
    {"power on slot 0, 3000 ms", FrameKind::card, "32 22 0B B8 00",
     "02 30 30 30 35 33 32 32 32 30 3B 3B 38 30 30 3A 33 03"},
    {"halves above nine are no letters", FrameKind::peripheral, "AB", "01 30 30 30 31 3A 3B 3A 3B 04"},
    {"device information", FrameKind::peripheral, "11 01", "01 30 30 30 32 31 31 30 31 31 30 04"},
};

Bytes charactersOf(const char *frame)
{
    const Bytes whole = *fromHex(frame);
    return Bytes(whole.begin() + 1, whole.end() - 1);
}

TEST(Frame, EncodesToTheBytesOfTheWire)
{
    for (const Vector &vector : kVectors)
        EXPECT_EQ(toHex(encodeFrame(vector.kind, *fromHex(vector.data))), vector.frame) << vector.what;
}

TEST(Frame, DecodesTheBytesOfTheWire)
{
    for (const Vector &vector : kVectors) {
        const DecodedFrame decoded = decodeFrame(charactersOf(vector.frame));
        EXPECT_EQ(decoded.fault, FrameFault::none) << vector.what;
        EXPECT_EQ(toHex(decoded.data), vector.data) << vector.what;
    }
}

TEST(Frame, FaultsAreToldApart)
{
    const struct {
        const char *characters;
        FrameFault fault;
    } rows[] = {
        {"", FrameFault::tooShort},
        {"30 30 30 30", FrameFault::tooShort},
        {"30 30 30 34 33 32 33 30 30 30 31 30 31 33", FrameFault::wrongLrc},
        {"30 30 30 34 33 32 33 30 30 30 31 30 30 32", FrameFault::wrongLrc},
        {"30 30 30 33 33 32 33 30 30 30 31 30 31 32", FrameFault::wrongLength},
        {"30 30 30 35 33 32 33 30 30 30 31 30 31 32", FrameFault::wrongLength},
        {"3F 3F 3F 3F 33 32 33 30 30 30 31 30 31 32", FrameFault::wrongLength},
        {"30 30 30 34 33 32 33 30 30 30 31 30 31", FrameFault::wrongLength},
        {"30 30 30 31 41 42 3A 3B", FrameFault::badCharacter}, // letters A and B
        {"30 30 30 31 3A 40 3A 3B", FrameFault::badCharacter},
        {"30 30 30 31 2F 3B 3A 3B", FrameFault::badCharacter},
    };
    for (const auto &row : rows)
        EXPECT_EQ(decodeFrame(*fromHex(row.characters)).fault, row.fault) << row.characters;
}

TEST(Frame, ACommandHasAtMost508Bytes)
{
    for (const auto &[size, fault] :
         {std::pair{kMostCommandData, FrameFault::none}, {kMostCommandData + 1, FrameFault::tooLong}}) {
        const Bytes frame = encodeFrame(FrameKind::card, Bytes(size, 0x5A));
        EXPECT_EQ(frame.size(), 2 * size + 8);
        const DecodedFrame decoded = decodeFrame(BytesView(frame).subspan(1, frame.size() - 2));
        EXPECT_EQ(decoded.fault, fault) << size;
    }
    EXPECT_EQ(kMostCommandData, 508U);
}

TEST(Frame, TheLongestReplyFills1024Characters)
{
    const Bytes data(2 + kMostReplyBody, 0x11);
    EXPECT_EQ(encodeFrame(FrameKind::card, data).size() - 2, 1024U);
}

} // namespace
} // namespace qvsim
