// Writes of each mode from the open to the close: every byte that goes out, the texts before and after, the results.

#include "stripe_reader.h"

#include <gmock/gmock.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

using MsrTracksWrite = StripeReader;

struct Conversation {
    int32_t nMode;
    StripeScript script;
};

// Of the texts "B1", "22" and "333", with channel K, ISO, 30 seconds.
const std::vector<Conversation> s_conversations = {
    {1,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 77 42 31 1D 1B 5C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"}}},
    {2,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 74 32 32 1D 1B 5C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"}}},
    {3,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 74 41 33 33 33 1D 1B 5C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"}}},
    {12,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 77 32 32 41 42 31 1D 1B 5C"}, // track 2 first
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"}}},
    {23,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 74 32 32 41 33 33 33 1D 1B 5C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"}}},
    {123,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      // 20 03 B1|22|333
      {"01 30 30 30 3B 32 30 30 33 34 32 33 31 37 3C 33 32 33 32 37 3C 33 33 33 33 33 33 36 33 04",
       "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 30"},
      {"1B 25 41"}}},
    {7,
     {{"1B 25 4B"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 30"},
      {"1B 25 41"}}},
};

// The whole write command of these texts in one frame.
std::string writeAll(std::string_view sTexts)
{
    return stripeCommand("20 03 " + hexOf(sTexts));
}

// What is sent for one text: the bytes in front of it, the text, GS ESC "\".
std::string writeCommand(std::string_view sFront, std::string_view sText)
{
    return std::string(sFront) + " " + hexOf(sText) + " 1D 1B 5C";
}

TEST_F(MsrTracksWrite, EachModeSendsItsCommandsAndLeavesGoodTexts)
{
    for (const Conversation &conversation : s_conversations) {
        SCOPED_TRACE("mode " + std::to_string(conversation.nMode));
        play(conversation.script);
        char sz1[] = "B1", sz2[] = "22", sz3[] = "333";
        EXPECT_EQ(MSG_QV_WriteData(m_line->path(), 9600, "K", 0, 0, conversation.nMode, 30, sz1, sz2, sz3), 0);
        finish();
        EXPECT_STREQ(sz1, "B1");
        EXPECT_STREQ(sz2, "22");
        EXPECT_STREQ(sz3, "333");
        EXPECT_EQ(m_line->takeMillis(), 0);
    }
}

TEST_F(MsrTracksWrite, TheRecordingFormatIsSetBehindAReset)
{
    for (const auto &[nFormat, pszCommand] : std::initializer_list<std::pair<int32_t, const char *>>{
             {0, "1B 3D"}, {1, "1B 27"}, {2, "1B 4F"}, {3, "1B 41"}, {4, "1B 3D"}, {-1, "1B 3D"}}) {
        SCOPED_TRACE(nFormat);
        play({{szReset},
              {pszCommand},
              {szReadTime30, szDone},
              {"1B 74 36 1D 1B 5C"},
              {szStatus, szSucceeded},
              {szReset},
              {szChannelA}});
        char sz2[] = "6";
        EXPECT_EQ(MSG_QV_WriteData(m_line->path(), 9600, nullptr, nFormat, 0, 2, 30, nullptr, sz2, nullptr), 0);
        finish();
    }
}

TEST_F(MsrTracksWrite, ATextIsCutInPlaceAndWrittenAsFarAsItGoes)
{
    m_texts = {std::nullopt, "12345=ABC", std::nullopt};
    EXPECT_EQ(write(2, writing({{writeCommand("1B 74", "12345=")}, {szStatus, szSucceeded}})), 0);
    EXPECT_EQ(text(2), "12345=");
    m_texts = {"AB^1a2", "12 3", "45\2646"};
    EXPECT_EQ(write(123, writing({{writeAll("AB^1|12|45"), szDone}})), 0);
    EXPECT_EQ(text(1), "AB^1");
    EXPECT_EQ(text(2), "12");
    EXPECT_EQ(text(3), "45");
}

TEST_F(MsrTracksWrite, EveryTextIsJudgedAlsoOneThatTheModeDoesNotWrite)
{
    const StripeScript good = writing({{writeCommand("1B 74", "22")}, {szStatus, szSucceeded}});
    m_texts = {"AB\001C", "22", "3A"};
    EXPECT_EQ(write(2, good), 0);
    EXPECT_EQ(text(1), "AB");
    EXPECT_EQ(text(3), "3");
    m_texts = {"AB\001C", "22", "3A"};
    EXPECT_EQ(write(99, writing({})), 0);
    EXPECT_EQ(text(1), "AB");
    EXPECT_EQ(text(3), "3");
}

TEST_F(MsrTracksWrite, ATextWithABadFirstCharacterOpensNothing)
{
    for (int32_t nMode : {1, 2, 3, 12, 23, 123, 0}) {
        SCOPED_TRACE(nMode);
        m_texts = {"a1", "22", "33"};
        EXPECT_EQ(write(nMode, {}), -2);
        m_texts = {"11", "A123", "33"};
        EXPECT_EQ(write(nMode, {}), -2);
        EXPECT_EQ(text(2), "A123");
        m_texts = {"11", "22", " 3"};
        EXPECT_EQ(write(nMode, {}), -2);
        EXPECT_EQ(g_MsgParam.nType, 0U);
    }
}

TEST_F(MsrTracksWrite, ATextThatTheModeWritesMustBeThere)
{
    for (int32_t nMode : {1, 2, 3, 12, 23, 123})
        for (size_t nMissing = 1; nMissing <= 3; ++nMissing) {
            SCOPED_TRACE(std::to_string(nMode) + " without " + std::to_string(nMissing));
            if (std::to_string(nMode).find(std::to_string(nMissing)) == std::string::npos)
                continue;
            m_texts = {"1", "2", "3"};
            m_texts[nMissing - 1].reset();
            EXPECT_EQ(write(nMode, {}), -2);
            EXPECT_EQ(g_MsgParam.nType, 0U); // nothing was opened
        }
}

TEST_F(MsrTracksWrite, TextsThatTheModeDoesNotWriteMayBeMissing)
{
    struct Row {
        int32_t nMode;
        const char *pszTexts; // those that are there
        const char *pszCommand;
    };
    const Row rows[] = {{1, "1", "1B 77 31 1D 1B 5C"},
                        {2, "2", "1B 74 32 1D 1B 5C"},
                        {3, "3", "1B 74 41 33 1D 1B 5C"},
                        {12, "12", "1B 77 32 41 31 1D 1B 5C"},
                        {23, "23", "1B 74 32 41 33 1D 1B 5C"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nMode);
        m_texts = {};
        for (const char *psz = row.pszTexts; *psz != '\0'; ++psz)
            m_texts[static_cast<size_t>(*psz - '1')] = std::string(1, *psz);
        EXPECT_EQ(write(row.nMode, writing({{row.pszCommand}, {szStatus, szSucceeded}})), 0);
    }
    m_texts = {};
    EXPECT_EQ(write(0, writing({})), 0);
}

TEST_F(MsrTracksWrite, AnEmptyTextIsWritten)
{
    const std::pair<int32_t, const char *> rows[] = {{1, "1B 77 1D 1B 5C"},
                                                     {2, "1B 74 1D 1B 5C"},
                                                     {3, "1B 74 41 1D 1B 5C"},
                                                     {12, "1B 77 41 1D 1B 5C"},
                                                     {23, "1B 74 41 1D 1B 5C"}};
    for (const auto &[nMode, pszCommand] : rows) {
        SCOPED_TRACE(nMode);
        m_texts = {"", "", ""};
        EXPECT_EQ(write(nMode, writing({{pszCommand}, {szStatus, szSucceeded}})), 0);
    }
    m_texts = {"", "", ""};
    EXPECT_EQ(write(123, writing({{writeAll("||"), szDone}})), 0);
    m_texts = {"", "55", ""};
    EXPECT_EQ(write(123, writing({{writeAll("|55|"), szDone}})), 0);
}

TEST_F(MsrTracksWrite, TheTextsOfAFrameMayHave504BytesTogether)
{
    m_texts = {std::string(200, 'A'), std::string(104, '2'), std::string(200, '3')};
    EXPECT_EQ(write(123, writing({{writeAll(*m_texts[0] + "|" + *m_texts[1] + "|" + *m_texts[2]), szDone}})), 0);
}

TEST_F(MsrTracksWrite, TextsThatFitInNoFrameAreNotSent)
{
    m_texts = {std::string(200, 'A'), std::string(105, '2'), std::string(200, '3')};
    EXPECT_EQ(write(123, writing({})), -54);
    m_texts = {std::string(1020, 'A'), "", ""};
    EXPECT_EQ(write(123, writing({})), -54);
}

TEST_F(MsrTracksWrite, ABareCommandMayHave1024Bytes)
{
    m_texts = {std::string(1019, 'A'), std::nullopt, std::nullopt};
    EXPECT_EQ(write(1, writing({{writeCommand("1B 77", *m_texts[0])}, {szStatus, szSucceeded}})), 0);
    m_texts = {std::string(500, 'A'), std::string(518, '2'), std::nullopt};
    EXPECT_EQ(write(12, writing({{writeCommand("1B 77", *m_texts[1] + "A" + *m_texts[0])}, {szStatus, szSucceeded}})),
              0);
}

TEST_F(MsrTracksWrite, TextsThatFitInNoCommandAreRefusedAndNothingOfThemIsSent)
{
    const auto tooLong = [this](int32_t nMode, std::string s1, std::string s2, std::string s3) {
        SCOPED_TRACE(nMode);
        m_texts = {s1, s2, s3};
        EXPECT_EQ(write(nMode, writing({})), -2);
    };
    tooLong(1, std::string(1020, 'A'), "", "");
    tooLong(2, "", std::string(1020, '2'), "");
    tooLong(3, "", "", std::string(1019, '3'));
    tooLong(12, std::string(500, 'A'), std::string(519, '2'), "");
    tooLong(23, "", std::string(500, '2'), std::string(519, '3'));
    tooLong(123, std::string(300, 'A'), std::string(300, '2'), std::string(500, '3'));
    tooLong(1, std::string(5000, 'A'), "", "");
}

TEST_F(MsrTracksWrite, TheReadTimeIsTheTimeOfTheStatusAndOfTheFrame)
{
    m_texts = {"1", "2", "3"};
    EXPECT_EQ(write(2, writing({{"1B 74 32 1D 1B 5C"}, {szStatus, szSucceeded}}, 7), 7), 0);
    EXPECT_THAT(m_line->takeWaits(), ElementsAre(StripeWait{readTime(7), 2, ChangeEndCondition},
                                                 StripeWait{szStatus, 7, MsgStatusEndCondition}));
    EXPECT_EQ(write(123, writing({{writeAll("1|2|3"), szDone}}, 7), 7), 0);
    EXPECT_THAT(m_line->takeWaits(), ElementsAre(StripeWait{readTime(7), 2, ChangeEndCondition},
                                                 StripeWait{writeAll("1|2|3"), 7, ChangeEndCondition}));
}

TEST_F(MsrTracksWrite, TheEndConditionAndTheTimeOutOfTheLastStepStay)
{
    struct Row {
        int32_t nMode;
        StripeScript middle;
        EndConditionFn pfnEnd;
        int32_t nSeconds;
    };
    const Row rows[] = {
        {2, {{"1B 74 32 1D 1B 5C"}, {szStatus, szSucceeded}}, MsgStatusEndCondition, 30},
        {2, {{"1B 74 32 1D 1B 5C"}, {szStatus, "///70"}}, MsgStatusEndCondition, 27},
        {2, {{"1B 74 32 1D 1B 5C"}, {szStatus}}, MsgStatusEndCondition, -1},
        {2, {{"1B 74 32 1D 1B 5C", "", 0, false}}, ChangeEndCondition, 30},
        {123, {{writeAll("1|2|3"), "///" + std::string(szDone)}}, ChangeEndCondition, 27},
        {0, {}, ChangeEndCondition, 30},
    };
    for (const Row &row : rows) {
        m_texts = {"1", "2", "3"};
        write(row.nMode, writing(row.middle));
        EXPECT_EQ(stBackUpParam.pfnEndCondition, row.pfnEnd);
        EXPECT_EQ(stBackUpParam.nTimeOut, row.nSeconds);
        EXPECT_EQ(gEndChar, 0x04);
    }
}

} // namespace
