// The tool's words for the magnetic stripe: bytes on the wire, what of them is card data, and the mask.
#include "pty_peer.h"

#include "stripe_mask.h"
#include "stripe_words.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using qvtest::bytes;
using qvtest::commandFrame;
using qvtool::BytesView;

std::string stripeFrame(std::string_view sData)
{
    return commandFrame(sData, 0x01, 0x04);
}

// The bytes as a trace shows them.
std::string shown(const qvtool::ToldBytes &told)
{
    std::string sText = qvtest::hex(told.data);
    for (size_t n = 0; n < told.data.size(); ++n)
        if (told.hidden.at(n))
            sText[3 * n] = sText[3 * n + 1] = '*';
    return sText;
}

TEST(StripeWords, CommandsSayWhatTheyDo)
{
    struct Row {
        std::string sSent;
        const char *pszMeaning;
    };
    const Row rows[] = {
        {"1B 72", "read track 1"},
        {"1B 5D", "read track 2"},
        {"1B 54 5D", "read track 3"},
        {"1B 44 5D", "read tracks 1 and 2"},
        {"1B 42 5D", "read tracks 2 and 3"},
        {"1B 6A", "how did it go?"},
        {"1B 30", "head reset"},
        {"1B 3D", "format ISO"},
        {"1B 27", "format IBM"},
        {"1B 4F", "format ISO-DK"},
        {"1B 41", "format IBM-DK"},
        {"1B 25 41", "channel A"},
        {"1B 25 4B", "channel K"},
        {"1B 25 44", "unknown escape sequence"},
        {"1B", "unknown escape sequence"},
        {"1B 77 42 31 1D 1B 5C", "write track 1 \"B1\""},
        {"1B 77 1D 1B 5C", "write track 1 empty"},
        {"1B 77 31 41 42 1D 1B 5C", "write track 2 \"1\", track 1 \"B\""},
        {"1B 77 41 42 1D 1B 5C", "write track 1 \"AB\""},
        {"1B 77 42 41 42 1D 1B 5C", "write track 1 \"BAB\""},
        {"1B 74 31 3D 32 1D 1B 5C", "write track 2 \"1=2\""},
        {"1B 74 41 31 1D 1B 5C", "write track 3 \"1\""},
        {"1B 74 32 41 33 1D 1B 5C", "write track 2 \"2\", track 3 \"3\""},
        {"1B 74 32 41 33", "write track 2 \"2\", track 3 \"3\", without its end"},
        {"1B 74", "write track 2 empty, without its end"},
        {stripeFrame("20 01 7C"), "stripe frame, separator \"|\""},
        {stripeFrame("20 02"), "stripe frame, read all three tracks"},
        {stripeFrame("20 03 41 7C 32 7C 33"), "stripe frame, write track 1 \"A\", track 2 \"2\", track 3 \"3\""},
        {stripeFrame("20 03 7C 35 35 7C"), "stripe frame, write track 1 empty, track 2 \"55\", track 3 empty"},
        {stripeFrame("20 04 1E"), "stripe frame, wait 30 s for a card"},
        {stripeFrame("20 04"), "stripe frame, data 20 04"},
        {stripeFrame("11 01"), "stripe frame, data 11 01"},
        {stripeFrame(""), "stripe frame, no data"},
        {"01 30 30 30 31 33 32 33 31 04", "stripe frame, LRC wrong"},
        {"01 04", "no frame"},
        {"41 42", "no frame"},
    };
    for (const Row &row : rows) {
        const qvtool::StripeCommand command = qvtool::stripeCommand(bytes(row.sSent), true);
        EXPECT_EQ(command.sMeaning, row.pszMeaning) << row.sSent;
        EXPECT_EQ(command.hidden, std::vector<bool>(bytes(row.sSent).size())) << row.sSent;
    }
}

TEST(StripeWords, CommandsStandInTheirPartOfTheConversation)
{
    using qvtool::StripeStep;
    struct Row {
        std::string sSent;
        StripeStep step;
        int nTracks;
        bool bWrite, bFramed;
    };
    const Row rows[] = {
        {"1B 72", StripeStep::card, 1, false, false},
        {"1B 42 5D", StripeStep::card, 23, false, false},
        {"1B 77 31 41 42 1D 1B 5C", StripeStep::card, 12, true, false},
        {"1B 74 41 31 1D 1B 5C", StripeStep::card, 3, true, false},
        {"1B 6A", StripeStep::status, 0, false, false},
        {"1B 30", StripeStep::setting, 0, false, false},
        {stripeFrame("20 01 7C"), StripeStep::setting, 0, false, true},
        {stripeFrame("20 02"), StripeStep::card, 123, false, true},
        {stripeFrame("20 03 7C 7C"), StripeStep::card, 123, true, true},
        {stripeFrame("20 04 1E"), StripeStep::setting, 0, false, true},
    };
    for (const Row &row : rows) {
        const qvtool::StripeCommand command = qvtool::stripeCommand(bytes(row.sSent), false);
        EXPECT_EQ(command.step, row.step) << row.sSent;
        EXPECT_EQ(command.nTracks, row.nTracks) << row.sSent;
        EXPECT_EQ(command.bWrite, row.bWrite) << row.sSent;
        EXPECT_EQ(command.bFramed, row.bFramed) << row.sSent;
    }
}

struct ReplyRow {
    std::string sSent;
    std::string sReply;
    const char *pszMeaning;
};

const ReplyRow replyRows[] = {
    {"1B 72", "1B 73 42 31 3F 1C", "track 1 \"B1\""},
    {"1B 5D", "1B 73 3F 1C", "track 2 empty"},
    {"1B 54 5D", "1B 73 41 31 32 3F 1C", "track 3 \"12\""},
    {"1B 54 5D", "1B 73 3F 1C", "track 3 empty"},
    {"1B 44 5D", "1B 73 32 41 42 31 3F 1C", "track 2 \"2\", track 1 \"B1\""},
    {"1B 44 5D", "1B 73 7F 41 31 32 3F 1C", "track 2 empty, track 1 \"12\""},
    {"1B 42 5D", "1B 73 32 41 7F 3F 1C", "track 2 \"2\", track 3 empty"},
    {"1B 42 5D", "1B 73 32 3F 1C", "track 2 \"2\""},
    {"1B 6A", "1B 70", "it succeeded"},
    {"1B 6A", "71", "it failed"},
    {stripeFrame("20 04 1E"), stripeFrame("00 00"), "stripe frame, status 0000 (done)"},
    {stripeFrame("20 04 1E"), stripeFrame("00 00 41"), "stripe frame, status 0000 (done), body 1 byte: 41"},
    {stripeFrame("20 02"), stripeFrame("40 01"), "stripe frame, status 4001 (no data on the card)"},
    {stripeFrame("20 02"), stripeFrame("40 02"), "stripe frame, status 4002 (read fault)"},
    {stripeFrame("20 03 7C 7C"), stripeFrame("40 01"), "stripe frame, status 4001 (write failed)"},
    {stripeFrame("20 03 7C 7C"), stripeFrame("40 02"), "stripe frame, status 4002"},
    {stripeFrame("20 02"), stripeFrame("F0"), "stripe frame, too short for a status word"},
    {stripeFrame("20 02"), stripeFrame("00 00 42 7C 31 7C 32"),
     "stripe frame, status 0000 (done), track 1 \"B\", track 2 \"1\", track 3 \"2\""},
};

TEST(StripeWords, RepliesAreToldByTheCommandThatTheyAnswerHoweverTheyArrive)
{
    for (const ReplyRow &row : replyRows) {
        const qvtest::Bytes whole = bytes(row.sReply);
        for (size_t nPiece = 1; nPiece <= whole.size(); ++nPiece) {
            SCOPED_TRACE(row.sReply);
            qvtool::StripeWire wire(true);
            wire.sent(bytes(row.sSent));
            std::vector<qvtool::ToldBytes> replies;
            for (size_t nAt = 0; nAt < whole.size(); nAt += nPiece)
                for (auto &told : wire.received(BytesView(whole).subspan(nAt, std::min(nPiece, whole.size() - nAt))))
                    replies.push_back(std::move(told));
            ASSERT_EQ(replies.size(), 1U);
            EXPECT_EQ(shown(replies[0]), row.sReply);
            EXPECT_EQ(replies[0].sMeaning, row.pszMeaning);
            EXPECT_TRUE(wire.flush().data.empty());
        }
    }
}

TEST(StripeWords, CardDataIsHiddenInBytesAndWords)
{
    qvtool::StripeWire wire(false);
    EXPECT_EQ(shown(wire.sent(bytes("1B 74 31 3D 32 1D 1B 5C"))), "1B 74 ** 3D ** 1D 1B 5C");
    wire.sent(bytes("1B 42 5D"));
    const auto bare = wire.received(bytes("1B 73 31 3D 32 41 33 3F 1C"));
    ASSERT_EQ(bare.size(), 1U);
    EXPECT_EQ(shown(bare[0]), "1B 73 ** 3D ** 41 ** 3F 1C");
    EXPECT_EQ(bare[0].sMeaning, "track 2 \"*=*\", track 3 \"*\"");
    wire.sent(bytes(stripeFrame("20 02")));
    const auto framed = wire.received(bytes(stripeFrame("00 00 7C 31 7C")));
    ASSERT_EQ(framed.size(), 1U);
    EXPECT_EQ(shown(framed[0]), "01 30 30 30 35 30 30 30 30 37 3C ** ** 37 3C ** ** 04");
    EXPECT_EQ(framed[0].sMeaning, "stripe frame, status 0000 (done), track 1 empty, track 2 \"*\", track 3 empty");
    const auto empty = wire.received(bytes(stripeFrame("00 00 7C 7C")));
    ASSERT_EQ(empty.size(), 1U);
    EXPECT_EQ(shown(empty[0]), stripeFrame("00 00 7C 7C")) << "nothing is hidden, not even the check byte";
}

TEST(StripeWords, WhatDoesNotBecomeAReplyIsHiddenWhereItMayBeCardData)
{
    qvtool::StripeWire wire(false);
    wire.sent(bytes("1B 5D"));
    EXPECT_TRUE(wire.received(bytes("1B 73 31 32 33")).empty());
    qvtool::ToldBytes told = wire.flush();
    EXPECT_EQ(shown(told), "1B 73 ** ** **");
    EXPECT_EQ(told.sMeaning, "no whole reply");
    EXPECT_TRUE(wire.flush().data.empty());
    wire.sent(bytes("1B 6A"));
    EXPECT_TRUE(wire.received(bytes("78")).empty());
    EXPECT_EQ(shown(wire.flush()), "78");
    wire.sent(bytes(stripeFrame("20 02")));
    const auto broken = wire.received(bytes("01 30 30 30 31 33 32 33 31 04"));
    ASSERT_EQ(broken.size(), 1U);
    EXPECT_EQ(shown(broken[0]), "01 ** ** ** ** ** ** ** ** 04");
    qvtool::StripeWire open(true);
    open.sent(bytes("1B 5D"));
    open.received(bytes("1B 73 31"));
    EXPECT_EQ(shown(open.flush()), "1B 73 31");
}

TEST(StripeWords, ATrackBehindTheLastSeparatorIsFound)
{
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes(stripeFrame("00 00 42 7C 31 7C 32 33"))), "23");
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes(stripeFrame("00 00 42 7C 31 7C 32 7C"))), "");
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes(stripeFrame("00 00 42 7C 31 7C"))), "");
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes(stripeFrame("00 00 42 7C 31"))), "");
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes(stripeFrame("40"))), "");
    EXPECT_EQ(qvtool::trackWithoutEnd(bytes("01 30 30 30 31 33 32 33 31 04")), "");
    EXPECT_EQ(qvtool::trackWithoutEnd({}), "");
}

TEST(StripeMask, FirstSixAndLastFourDigitsOfANumberStay)
{
    EXPECT_EQ(qvtool::maskedTrack("6225000011112222=29120000"), "622500******2222=********");
    EXPECT_EQ(qvtool::maskedTrack("B6225000011112222^DEMO/CARD X^2912"), "B622500******2222^****/**** *^****");
    EXPECT_EQ(qvtool::maskedTrack("B6225 0000 1111 2222^A"), "B6225 00** **** 2222^*");
    EXPECT_EQ(qvtool::maskedTrack("1234567890123"), "123456***0123");
    EXPECT_EQ(qvtool::maskedTrack("1234567890123456789"), "123456*********6789");
}

TEST(StripeMask, EverythingElseThatMayBeANumberOrANameIsHidden)
{
    EXPECT_EQ(qvtool::maskedTrack(""), "");
    EXPECT_EQ(qvtool::maskedTrack("123456789012"), "************");
    EXPECT_EQ(qvtool::maskedTrack("12:34;5?"), "**:**;*?");
    EXPECT_EQ(qvtool::maskedTrack("NAME 1"), "N*** *");
    EXPECT_EQ(qvtool::maskedTrack("=1234567890123456"), "=****************");
    EXPECT_EQ(qvtool::maskedTrack("^Z"), "^*");
    EXPECT_EQ(qvtool::maskedTrack("\x01\x7F\xE9"), "***");
}

} // namespace
