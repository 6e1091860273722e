// Reads of each mode from the open to the close: every byte that goes out, what the host gets, what it leaves behind.

#include "stripe_reader.h"

#include <gmock/gmock.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

using MsrTracksRead = StripeReader;

struct Conversation {
    int32_t nMode;
    StripeScript script;
    std::array<const char *, 3> tracks; // null: left alone
};

// With channel A, ISO, 30 seconds.
const std::vector<Conversation> s_conversations = {
    {1,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 72", "1B 73 42 36 32 5E 58 3F 1C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {"B62^X", nullptr, nullptr}},
    {2,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 5D", "1B 73 36 32 3D 31 3F 1C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {nullptr, "62=1", nullptr}},
    {3,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 54 5D", "1B 73 41 39 39 36 32 3F 1C"}, // one byte ahead of the data
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {nullptr, nullptr, "9962"}},
    {12,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 44 5D", "1B 73 36 32 3D 31 41 42 36 32 5E 58 3F 1C"}, // track 2 first
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {"B62^X", "62=1", nullptr}},
    {23,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"1B 42 5D", "1B 73 36 32 3D 31 41 39 39 36 32 3F 1C"},
      {"1B 6A", "70"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {nullptr, "62=1", "9962"}},
    {123,
     {{"1B 25 41"},
      {"1B 30"},
      {"1B 3D"},
      {"01 30 30 30 33 32 30 30 34 31 3E 33 3A 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      {"01 30 30 30 33 32 30 30 31 37 3C 35 3D 04", "01 30 30 30 32 30 30 30 30 30 30 04"},
      // B1|2|3|
      {"01 30 30 30 32 32 30 30 32 32 32 04",
       "01 30 30 30 39 30 30 30 30 34 32 33 31 37 3C 33 32 37 3C 33 33 37 3C 30 3E 04"},
      {"1B 30"},
      {"1B 25 41"},
      {"1B 30"}},
     {"B1", "2", "3"}},
};

TEST_F(MsrTracksRead, EachModeSendsItsCommandsAndFillsTheRoomsOfItsTracks)
{
    for (const Conversation &conversation : s_conversations) {
        SCOPED_TRACE("mode " + std::to_string(conversation.nMode));
        play(conversation.script);
        m_rooms = {};
        EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, "A", 0, 0, conversation.nMode, 30, m_rooms[0].data(), 513,
                                  m_rooms[1].data(), 513, m_rooms[2].data(), 513),
                  0);
        finish();
        for (size_t i = 0; i < 3; ++i) {
            SCOPED_TRACE("track " + std::to_string(i + 1));
            const char *psz = conversation.tracks[i];
            EXPECT_TRUE(psz == nullptr ? m_rooms[i].isUntouched() : m_rooms[i].holds(psz));
        }
        EXPECT_EQ(m_line->takeMillis(), 0); // nothing waited
    }
}

TEST_F(MsrTracksRead, AnUnknownModeOpensAndResetsTheReaderAndReadsNothing)
{
    for (int32_t nMode : {0, 4, -1, 13, 21, 32, 122, 124, 132, 321}) {
        SCOPED_TRACE(nMode);
        EXPECT_EQ(read(nMode, reading({})), 0);
        EXPECT_TRUE(allUntouched());
    }
}

TEST_F(MsrTracksRead, TheRecordingFormatIsSetBehindAReset)
{
    for (const auto &[nFormat, pszCommand] : std::initializer_list<std::pair<int32_t, const char *>>{
             {0, "1B 3D"}, {1, "1B 27"}, {2, "1B 4F"}, {3, "1B 41"}, {4, "1B 3D"}, {99, "1B 3D"}}) {
        SCOPED_TRACE(nFormat);
        play({{szReset},
              {pszCommand},
              {szReadTime30, szDone},
              {szRead2, bareReply("62")},
              {szStatus, szSucceeded},
              {szReset},
              {szChannelA},
              {szReset}});
        EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, nullptr, nFormat, 0, 2, 30, nullptr, 0, nullptr, 0, nullptr, 0),
                  0);
        finish();
    }
}

TEST_F(MsrTracksRead, TheChannelOfTheHostIsSelectedFirstAndChannelAAtTheEnd)
{
    for (const char *psz : {"A", "B", "C", "K", "", "D", "a", "BC"}) {
        SCOPED_TRACE(psz);
        StripeScript script = reading({{szRead2, bareReply("62")}, {szStatus, szSucceeded}});
        if (*psz != '\0' && std::string("ABCK").find(*psz) != std::string::npos)
            script.insert(script.begin(), {"1B 25 " + hex(psz, 1)});
        play(script);
        EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, psz, 0, 0, 2, 30, nullptr, 0, nullptr, 0, nullptr, 0), 0);
        finish();
    }
}

TEST_F(MsrTracksRead, AnyRoomMayBeMissing)
{
    const StripeScript single = {{szRead1, bareReply("B1")}, {szStatus, szSucceeded}};
    const StripeScript pair = {{szRead12, bareReply("22AB1")}, {szStatus, szSucceeded}};
    const StripeScript all = {{szSeparator, szDone}, {szReadAll, stripeReply(0, "B1|22|33|")}};
    for (const auto &[nMode, middle] :
         std::initializer_list<std::pair<int32_t, StripeScript>>{{1, single}, {12, pair}, {123, all}}) {
        for (size_t nThere = 0; nThere <= 3; ++nThere) {
            SCOPED_TRACE(std::to_string(nMode) + " with room " + std::to_string(nThere));
            m_rooms = {};
            auto data = [&](size_t n) { return n == nThere ? m_rooms[n - 1].data() : nullptr; };
            play(reading(middle));
            EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, nullptr, 0, 0, nMode, 30, data(1), 513, data(2), 513,
                                      data(3), 513),
                      0);
            finish();
            static constexpr const char *tracks[] = {"B1", "22", "33"};
            if (nThere > 0 && (nMode == 123 || nThere == 1 || (nMode == 12 && nThere == 2))) {
                EXPECT_TRUE(room(nThere).holds(tracks[nThere - 1]));
            } else if (nThere > 0) {
                EXPECT_TRUE(room(nThere).isUntouched());
            }
        }
    }
}

TEST_F(MsrTracksRead, ATrackLongerThanItsRoomIsCutAndEndsInANul)
{
    const StripeScript modes[] = {
        reading({{szRead12, bareReply("123456AB98765")}, {szStatus, szSucceeded}}),
        reading({{szSeparator, szDone}, {szReadAll, stripeReply(0, "B98765|123456|33|")}}),
    };
    const int32_t nModes[] = {12, 123};
    for (size_t i = 0; i < 2; ++i)
        for (uint32_t nSize = 0; nSize <= 8; ++nSize) {
            SCOPED_TRACE(std::to_string(nModes[i]) + " into " + std::to_string(nSize));
            m_rooms = {};
            play(modes[i]);
            EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, nullptr, 0, 0, nModes[i], 30, m_rooms[0].data(), nSize,
                                      m_rooms[1].data(), nSize, nullptr, 0),
                      0);
            finish();
            const size_t nKept = nSize == 0 ? 0 : nSize - 1;
            EXPECT_TRUE(room(1).holds(std::string("B98765").substr(0, nKept), nSize));
            EXPECT_TRUE(room(2).holds(std::string("123456").substr(0, nKept), nSize));
        }
}

TEST_F(MsrTracksRead, EachRoomIsFilledToItsOwnLength)
{
    play(reading({{szSeparator, szDone}, {szReadAll, stripeReply(0, "B1|22|33|")}}));
    EXPECT_EQ(MSG_QV_ReadData(m_line->path(), 9600, nullptr, 0, 0, 123, 30, m_rooms[0].data(), 10, m_rooms[1].data(),
                              600, m_rooms[2].data(), 40),
              0);
    finish();
    EXPECT_TRUE(room(1).holds("B1", 10));
    EXPECT_TRUE(room(2).holds("22", 600));
    EXPECT_TRUE(room(3).holds("33", 40));
}

TEST_F(MsrTracksRead, EachWaitHasItsOwnTimeOutAndEndCondition)
{
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("62")}, {szStatus, szSucceeded}})), 0);
    EXPECT_THAT(m_line->takeWaits(), ElementsAre(StripeWait{szReadTime30, 2, ChangeEndCondition},
                                                 StripeWait{szRead2, 30, MsgDataEndCondition},
                                                 StripeWait{szStatus, 2, MsgStatusEndCondition}));
    EXPECT_EQ(read(123, reading({{szSeparator, szDone}, {szReadAll, stripeReply(0, "|||")}})), 0);
    EXPECT_THAT(m_line->takeWaits(), ElementsAre(StripeWait{szReadTime30, 2, ChangeEndCondition},
                                                 StripeWait{szSeparator, 2, ChangeEndCondition},
                                                 StripeWait{szReadAll, 30, ChangeEndCondition}));
}

TEST_F(MsrTracksRead, TheWaitsAreTheSameAfterALateCard)
{
    // 29 of 30 seconds are gone when the card comes.
    std::string sLate;
    for (int i = 0; i < 29; ++i)
        sLate += "/";
    EXPECT_EQ(read(2, reading({{szRead2, sLate + bareReply("62")}, {szStatus, szSucceeded}})), 0);
    EXPECT_EQ(m_line->takeMillis(), 29'000);
    EXPECT_THAT(m_line->takeWaits(), ElementsAre(StripeWait{szReadTime30, 2, ChangeEndCondition},
                                                 StripeWait{szRead2, 30, MsgDataEndCondition},
                                                 StripeWait{szStatus, 2, MsgStatusEndCondition}));
    EXPECT_TRUE(room(2).holds("62"));
}

TEST_F(MsrTracksRead, TheEndConditionAndTheTimeOutOfTheLastStepStay)
{
    struct Row {
        int32_t nMode;
        StripeScript middle;
        EndConditionFn pfnEnd;
        int32_t nSeconds;
    };
    const Row rows[] = {
        {2, {{szRead2, bareReply("62")}, {szStatus, szSucceeded}}, MsgStatusEndCondition, 2},
        {2, {{szRead2, bareReply("62")}, {szStatus, "/70"}}, MsgStatusEndCondition, 1},
        {2, {{szRead2, "31 3F 1C"}}, MsgDataEndCondition, 30}, // not in the form: no status is asked
        {123, {{szSeparator, szDone}, {szReadAll, "///" + stripeReply(0, "|||")}}, ChangeEndCondition, 27},
        {123, {{szSeparator, stripeReply(0x4001)}}, ChangeEndCondition, 2},
        {0, {}, ChangeEndCondition, 30},
    };
    for (const Row &row : rows) {
        read(row.nMode, reading(row.middle));
        EXPECT_EQ(stBackUpParam.pfnEndCondition, row.pfnEnd);
        EXPECT_EQ(stBackUpParam.nTimeOut, row.nSeconds);
        EXPECT_EQ(gEndChar, 0x04);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0);
    }
}

TEST_F(MsrTracksRead, ReadsInARowKeepNothing)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(read(12, reading({{szRead12, bareReply("123456789AB987654321")}, {szStatus, szSucceeded}})), 0);
        EXPECT_TRUE(room(1).holds("B987654321"));
        EXPECT_TRUE(room(2).holds("123456789"));
        EXPECT_EQ(read(12, reading({{szRead12, bareReply("1AB")}, {szStatus, szSucceeded}})), 0);
        EXPECT_TRUE(room(1).holds("B"));
        EXPECT_TRUE(room(2).holds("1"));
        EXPECT_EQ(read(12, reading({{szRead12, bareReply("")}, {szStatus, szSucceeded}})), 0);
        EXPECT_TRUE(room(1).holds(""));
        EXPECT_TRUE(room(2).holds(""));
    }
}

} // namespace
