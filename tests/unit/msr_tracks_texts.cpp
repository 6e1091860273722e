// Taking replies apart: the two tracks of a reply, the pieces of a text between separators.

#include "harness.h"

#include "qvreader/msr.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

using namespace qvtest;
using namespace std::string_literals;

namespace {

constexpr char cFill = '#';
using Room = std::array<char, 40>;

Room filled()
{
    Room room;
    room.fill(cFill);
    return room;
}

// What stands in a room up to the last byte that was written.
std::string written(const Room &room)
{
    size_t nEnd = room.size();
    while (nEnd > 0 && room[nEnd - 1] == cFill)
        --nEnd;
    return std::string(room.data(), nEnd);
}

struct Two {
    std::string sFirst, sSecond; // up to the NUL
    bool operator==(const Two &) const = default;
};
void PrintTo(const Two &two, std::ostream *pOut)
{
    *pOut << "{" << two.sFirst << ", " << two.sSecond << "}";
}

std::string text(const Room &room, size_t nSize)
{
    EXPECT_NE(std::string_view(room.data(), nSize).find('\0'), std::string_view::npos) << "no NUL within the room";
    EXPECT_LE(written(room).size(), nSize) << "written behind the room";
    return room.data();
}

Two separated(std::string_view sReply, size_t nFirst = 30, size_t nSecond = 30)
{
    Room first = filled(), second = filled();
    // Exactly as long as it is, so that a look behind it is seen.
    const std::string sExact(sReply);
    EXPECT_EQ(SeperateByTrays(sExact.c_str(), first.data(), static_cast<uint32_t>(nFirst), second.data(),
                              static_cast<uint32_t>(nSecond)),
              0);
    return {text(first, nFirst), text(second, nSecond)};
}

TEST(SeperateByTrays, TheFirstATakesTheTwoTracksApart)
{
    EXPECT_EQ(separated("\x1Bs12=34A99?\x1C"), (Two{"12=34", "99"}));
    EXPECT_EQ(separated("\x1Bs1A2?\x1C"), (Two{"1", "2"}));
    EXPECT_EQ(separated("\x1Bs1ABANK^A?\x1C"), (Two{"1", "BANK^A"})); // a further "A" belongs to the second
}

TEST(SeperateByTrays, ATrackThatBeginsWith7FIsEmpty)
{
    EXPECT_EQ(separated("\x1Bs\177A12?\x1C"), (Two{"", "12"}));
    EXPECT_EQ(separated("\x1Bs12A\x7F?\x1C"), (Two{"12", ""}));
    EXPECT_EQ(separated("\x1Bs\177A\x7F?\x1C"), (Two{"", ""}));
    // Whatever stands behind it.
    EXPECT_EQ(separated("\x1Bs\17712A\17734?\x1C"), (Two{"", ""}));
    // In another place it is a character.
    EXPECT_EQ(separated("\x1Bs1\177A2\x7F?\x1C"), (Two{"1\x7F", "2\x7F"}));
}

TEST(SeperateByTrays, ATrackWithoutACharacterIsEmpty)
{
    EXPECT_EQ(separated("\x1BsA12?\x1C"), (Two{"", "12"}));
    EXPECT_EQ(separated("\x1Bs12A?\x1C"), (Two{"12", ""}));
    EXPECT_EQ(separated("\x1BsA?\x1C"), (Two{"", ""}));
}

TEST(SeperateByTrays, WithoutAnABothAreEmpty)
{
    EXPECT_EQ(separated("\x1Bs1234?\x1C"), (Two{"", ""}));
    EXPECT_EQ(separated(""), (Two{"", ""}));
    EXPECT_EQ(separated("\x1B"), (Two{"", ""}));
    EXPECT_EQ(separated("\x1Bs"), (Two{"", ""}));
}

TEST(SeperateByTrays, AReplyThatIsCutOffIsTakenAsFarAsItGoes)
{
    EXPECT_EQ(separated("\x1BsA"), (Two{"", ""}));
    EXPECT_EQ(separated("\x1Bs12A"), (Two{"12", ""}));
    EXPECT_EQ(separated("\x1Bs12A3"), (Two{"12", ""}));
    EXPECT_EQ(separated("\x1Bs12A34"), (Two{"12", ""}));
    EXPECT_EQ(separated("\x1Bs12A345"), (Two{"12", "3"})); // the last two are dropped, whatever they are
}

TEST(SeperateByTrays, ARoomThatIsTooSmallHoldsTheBeginningWithANul)
{
    const auto sReply = "\x1Bs123456A789012?\x1C"s;
    EXPECT_EQ(separated(sReply, 7, 7), (Two{"123456", "789012"}));
    EXPECT_EQ(separated(sReply, 6, 6), (Two{"12345", "78901"}));
    EXPECT_EQ(separated(sReply, 1, 1), (Two{"", ""}));
}

TEST(SeperateByTrays, RoomsOfNoBytesAndNoRoomsAreLeftAlone)
{
    const auto sReply = "\x1Bs12A34?\x1C"s;
    Room first = filled(), second = filled();
    EXPECT_EQ(SeperateByTrays(sReply.c_str(), first.data(), 0, second.data(), 0), 0);
    EXPECT_EQ(written(first) + written(second), "");
    EXPECT_EQ(SeperateByTrays(sReply.c_str(), nullptr, 30, second.data(), 30), 0);
    EXPECT_STREQ(second.data(), "34");
    EXPECT_EQ(SeperateByTrays(sReply.c_str(), first.data(), 30, nullptr, 30), 0);
    EXPECT_STREQ(first.data(), "12");
    EXPECT_EQ(SeperateByTrays(sReply.c_str(), nullptr, 0, nullptr, 0), 0);
}

TEST(SeperateByTrays, BothRoomsAreFilledToTheirEndsWithNuls)
{
    for (const char *psz : {"\x1BsA\x7F?\x1C", "\x1Bs1234?\x1C", ""}) {
        Room first = filled(), second = filled();
        EXPECT_EQ(SeperateByTrays(psz, first.data(), 10, second.data(), 20), 0);
        EXPECT_EQ(written(first), std::string(10, '\0'));
        EXPECT_EQ(written(second), std::string(20, '\0'));
    }
    Room first = filled(), second = filled();
    EXPECT_EQ(SeperateByTrays("\x1Bs12A345?\x1C", first.data(), 10, second.data(), 20), 0);
    EXPECT_EQ(written(first), "12" + std::string(8, '\0'));
    EXPECT_EQ(written(second), "345" + std::string(17, '\0'));
}

TEST(SeperateByTrays, NoReplyIsRefused)
{
    Room first = filled(), second = filled();
    EXPECT_EQ(SeperateByTrays(nullptr, first.data(), 30, second.data(), 30), -2);
    EXPECT_EQ(written(first) + written(second), "");
}

// ---- pieces of a text ------------------------------------------------------------------------------------------------

TEST(SplitMsgData, TheTextBeforeTheSeparatorIsCopiedWithoutANul)
{
    Room room = filled();
    const char *pszText = "B123|456|789";
    const char *pszAt = SplitMsgData(pszText, room.data(), "|");
    EXPECT_EQ(pszAt, pszText + 4);
    EXPECT_EQ(written(room), "B123");
    // The next split starts one byte behind what was returned.
    room = filled();
    EXPECT_EQ(SplitMsgData(pszAt + 1, room.data(), "|"), pszText + 8);
    EXPECT_EQ(written(room), "456");
}

TEST(SplitMsgData, ASeparatorAtTheStartCopiesNothing)
{
    Room room = filled();
    const char *pszText = "|456|";
    EXPECT_EQ(SplitMsgData(pszText, room.data(), "|"), pszText);
    EXPECT_EQ(written(room), "");
}

TEST(SplitMsgData, WithoutTheSeparatorTheStartIsReturnedAndNothingCopied)
{
    Room room = filled();
    for (const char *pszText : {"789", ""}) {
        EXPECT_EQ(SplitMsgData(pszText, room.data(), "|"), pszText);
        EXPECT_EQ(written(room), "");
    }
}

TEST(SplitMsgData, ASeparatorMayBeLongerThanACharacter)
{
    Room room = filled();
    const char *pszText = "12-34--56";
    EXPECT_EQ(SplitMsgData(pszText, room.data(), "--"), pszText + 5);
    EXPECT_EQ(written(room), "12-34");
}

TEST(SplitMsgData, WithoutARoomItOnlyFinds)
{
    const char *pszText = "12|34";
    EXPECT_EQ(SplitMsgData(pszText, nullptr, "|"), pszText + 2);
}

TEST(SplitMsgData, WithoutATextOrASeparatorNothingIsFound)
{
    Room room = filled();
    EXPECT_EQ(SplitMsgData(nullptr, room.data(), "|"), nullptr);
    const char *pszText = "12|34";
    EXPECT_EQ(SplitMsgData(pszText, room.data(), nullptr), pszText);
    EXPECT_EQ(SplitMsgData(pszText, room.data(), ""), pszText);
    EXPECT_EQ(written(room), "");
}

} // namespace
