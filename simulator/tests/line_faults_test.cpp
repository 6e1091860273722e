// What a fault makes of a reply, byte for byte.
#include "model/frame.h"
#include "model/line_faults.h"

#include <gtest/gtest.h>

namespace qvsim {
namespace {

constexpr char kReply[] = "02 30 30 30 33 30 30 30 30 3A 3B 3A 3B 03"; // 00 00 AB

// "02 30 | 5: 30 30": pieces, each with its pause when there is one.
std::string strike(LineFaults &faults)
{
    const Delivery delivery = faults.apply(*fromHex(kReply));
    std::string text = delivery.hangsUp ? "hangs up" : "";
    for (const TimedBytes &piece : delivery.pieces) {
        text += text.empty() ? "" : " | ";
        if (piece.after.count() != 0)
            text += std::to_string(piece.after.count()) + ": ";
        text += toHex(piece.bytes);
    }
    return text;
}

TEST(LineFaults, EachFaultDoesWhatItsRowSays)
{
    const struct {
        std::vector<const char *> faults;
        std::string delivery;
    } rows[] = {
        {{}, kReply},
        {{"badlrc"}, "02 30 30 30 33 30 30 30 30 3A 3B 3A 3A 03"},
        {{"length 4"}, "02 30 30 30 34 30 30 30 30 3A 3B 3A 3B 03"},
        {{"length 65535"}, "02 3F 3F 3F 3F 30 30 30 30 3A 3B 3A 3B 03"},
        {{"noend"}, "02 30 30 30 33 30 30 30 30 3A 3B 3A 3B"},
        {{"garbage 41 03"}, std::string("41 03 ") + kReply},
        {{"repeat"}, std::string(kReply) + " | " + kReply},
        {{"split 6"}, "02 30 30 30 33 30 | 30 30 30 3A 3B 3A | 3B 03"},
        {{"split 6", "delay 5"}, "02 30 30 30 33 30 | 5: 30 30 30 3A 3B 3A | 5: 3B 03"},
        {{"delay 1"},
         "02 | 1: 30 | 1: 30 | 1: 30 | 1: 33 | 1: 30 | 1: 30 | 1: 30 | 1: 30 | 1: 3A | 1: 3B | 1: 3A | "
         "1: 3B | 1: 03"},
        {{"leadingzero 20"}, std::string("00 | 20: ") + kReply},
        {{"late 3000"}, std::string("3000: ") + kReply},
        {{"late 3000", "leadingzero 20"}, std::string("3000: 00 | 20: ") + kReply},
        {{"silence"}, ""},
        {{"silence", "badlrc", "late 5"}, ""},
        {{"hangup"}, "hangs up"},
        {{"noend", "badlrc"}, "02 30 30 30 33 30 30 30 30 3A 3B 3A 3A"},
    };
    for (const auto &row : rows) {
        LineFaults faults;
        for (const char *fault : row.faults)
            EXPECT_EQ(faults.set(fault), std::nullopt) << fault;
        const std::string names = faults.names();
        EXPECT_EQ(strike(faults), row.delivery) << names;
        EXPECT_FALSE(faults.any()) << names;
        EXPECT_EQ(strike(faults), kReply) << "over with its reply: " << names;
    }
}

TEST(LineFaults, AFaultOfEveryReplyStaysUntilItIsSwitchedOff)
{
    LineFaults faults;
    EXPECT_EQ(faults.set("garbage 41 every"), std::nullopt);
    EXPECT_EQ(faults.set("silence"), std::nullopt);
    EXPECT_EQ(faults.names(), "garbage 41 every, silence");
    EXPECT_EQ(strike(faults), "");
    EXPECT_EQ(strike(faults), std::string("41 ") + kReply);
    EXPECT_EQ(strike(faults), std::string("41 ") + kReply);
    EXPECT_EQ(faults.describe().at(3), "garbage HEX     these bytes come before the head [on: garbage 41 every]");
    EXPECT_EQ(faults.set("off"), std::nullopt);
    EXPECT_EQ(strike(faults), kReply);
}

TEST(LineFaults, MistakesChangeNothing)
{
    LineFaults faults;
    for (const char *wrong : {"", "dance", "badlrc 1", "badlrcevery 1", "length", "length x", "length 65536", "split 0",
                              "split", "garbage", "garbage 4", "late 0", "delay 600001", "every"})
        EXPECT_NE(faults.set(wrong), std::nullopt) << wrong;
    EXPECT_EQ(faults.set("split 0"), "usage: fault split N [every], 1 to 1026");
    EXPECT_FALSE(faults.any());
}

TEST(LineFaults, TheShortestReplyStandsEveryFault)
{
    LineFaults faults;
    for (const char *fault :
         {"badlrc", "length 9", "noend", "garbage 00", "repeat", "split 1", "delay 1", "leadingzero 1", "late 1"})
        EXPECT_EQ(faults.set(fault), std::nullopt);
    const Delivery delivery = faults.apply(encodeFrame(FrameKind::card, *fromHex("00 00")));
    EXPECT_EQ(delivery.pieces.size(), 1U + 2 * (1 + 12 - 1));
}

TEST(LineFaults, FaultsOfAFrameLeaveABareReplyAloneAndWaitForTheNextFrame)
{
    LineFaults faults;
    for (const char *fault : {"badlrc", "length 4", "split 1"})
        EXPECT_EQ(faults.set(fault), std::nullopt);
    Delivery bare = faults.apply(*fromHex("1B 70"));
    ASSERT_EQ(bare.pieces.size(), 2U);
    EXPECT_EQ(toHex(bare.pieces[0].bytes), "1B");
    EXPECT_EQ(toHex(bare.pieces[1].bytes), "70");
    EXPECT_EQ(bare.faults, "split 1");
    EXPECT_EQ(faults.names(), "badlrc, length 4");
    EXPECT_EQ(faults.apply(*fromHex("1B 70")).faults, "");
    EXPECT_EQ(faults.apply(*fromHex(kReply)).faults, "badlrc, length 4");
    EXPECT_FALSE(faults.any());
    for (const char *fault : {"noend", "garbage 00", "repeat", "late 5", "leadingzero 1"})
        EXPECT_EQ(faults.set(fault), std::nullopt);
    bare = faults.apply(*fromHex("1B 70"));
    EXPECT_EQ(bare.faults, "noend, garbage 00, repeat, leadingzero 1, late 5");
    EXPECT_FALSE(faults.any());
}

} // namespace
} // namespace qvsim
