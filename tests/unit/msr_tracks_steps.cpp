// The steps of the engine, called one by one on an open reader.

#include "stripe_reader.h"

#include <functional>
#include <initializer_list>

using namespace qvtest;

namespace {

class MsrTracksSteps : public StripeReader {
  protected:
    // Runs the step on an open reader whose next read may last nSeconds.
    int32_t step(const StripeScript &script, const std::function<int32_t()> &call, uint32_t nSeconds = 30)
    {
        play({});
        open();
        COMM_Dev_ChangeReadTimeOut(nSeconds);
        play(script);
        const int32_t nResult = call();
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        finish();
        return nResult;
    }
};

// A step that reads into one room.
using ReadOne = int32_t (*)(char *, uint32_t) noexcept;
struct OneTrack {
    ReadOne read;
    const char *pszCommand;
    std::string sReply; // of the track "1234"
};
const std::vector<OneTrack> s_ones = {
    {ReadTrack1, szRead1, bareReply("1234")},
    {ReadTrack2, szRead2, bareReply("1234")},
    {ReadTrack3, szRead3, bareReply("X1234")},
};

// A step that reads into two rooms.
struct TwoTracks {
    int32_t (*read)(char *, uint32_t, char *, uint32_t) noexcept;
    const char *pszCommand;
    bool bTrack2First; // in the argument list
};
const std::vector<TwoTracks> s_twos = {{ReadTrack12, szRead12, false}, {ReadTrack23, szRead23, true}};

TEST_F(MsrTracksSteps, ASingleTrackFillsItsRoom)
{
    for (const OneTrack &one : s_ones)
        for (uint32_t nSize : {513U, 5U, 4U, 1U, 0U}) {
            SCOPED_TRACE(std::string(one.pszCommand) + " into " + std::to_string(nSize));
            TrackRoom room;
            EXPECT_EQ(step({{one.pszCommand, one.sReply}, {szStatus, szSucceeded}},
                           [&] { return one.read(room.data(), nSize); }),
                      0);
            EXPECT_TRUE(room.holds(std::string("1234").substr(0, nSize == 0 ? 0 : std::min(nSize - 1, 4U)), nSize));
        }
}

TEST_F(MsrTracksSteps, ASingleTrackThatIsNotReadLeavesItsRoom)
{
    for (const OneTrack &one : s_ones) {
        TrackRoom room;
        auto read = [&] { return one.read(room.data(), 513); };
        EXPECT_EQ(step({{one.pszCommand, one.sReply}, {szStatus, szFailed}}, read), -5);
        EXPECT_EQ(step({{one.pszCommand, one.sReply}, {szStatus}}, read), -4);
        EXPECT_EQ(step({{one.pszCommand, "31 3F 1C"}}, read), -4);
        EXPECT_EQ(step({{one.pszCommand}}, read), -56);
        EXPECT_EQ(step({{one.pszCommand, "!"}}, read), -55);
        EXPECT_EQ(step({{one.pszCommand, "", 0, false}}, read), -54);
        EXPECT_TRUE(room.isUntouched());
    }
}

TEST_F(MsrTracksSteps, TwoTracksFillTheirRooms)
{
    for (const TwoTracks &two : s_twos)
        for (uint32_t nSize : {513U, 4U, 3U, 1U, 0U}) {
            SCOPED_TRACE(std::string(two.pszCommand) + " into " + std::to_string(nSize));
            TrackRoom track2, other;
            EXPECT_EQ(step({{two.pszCommand, bareReply("222A777")}, {szStatus, szSucceeded}},
                           [&] {
                               return two.bTrack2First ? two.read(track2.data(), nSize, other.data(), nSize)
                                                       : two.read(other.data(), nSize, track2.data(), nSize);
                           }),
                      0);
            const size_t nKept = nSize == 0 ? 0 : std::min(nSize - 1, 3U);
            EXPECT_TRUE(track2.holds(std::string(nKept, '2'), nSize));
            EXPECT_TRUE(other.holds(std::string(nKept, '7'), nSize));
        }
}

TEST_F(MsrTracksSteps, EachOfTwoTracksHasASizeOfItsOwn)
{
    for (const TwoTracks &two : s_twos) {
        TrackRoom track2, other;
        EXPECT_EQ(step({{two.pszCommand, bareReply("222A777")}, {szStatus, szSucceeded}},
                       [&] {
                           return two.bTrack2First ? two.read(track2.data(), 3, other.data(), 20)
                                                   : two.read(other.data(), 20, track2.data(), 3);
                       }),
                  0);
        EXPECT_TRUE(track2.holds("22", 3));
        EXPECT_TRUE(other.holds("777", 20));
    }
}

TEST_F(MsrTracksSteps, TwoTracksThatAreNotReadLeaveTheirRooms)
{
    for (const TwoTracks &two : s_twos) {
        TrackRoom first, second;
        auto read = [&] { return two.read(first.data(), 513, second.data(), 513); };
        EXPECT_EQ(step({{two.pszCommand, bareReply("1A2")}, {szStatus, szFailed}}, read), -5);
        EXPECT_EQ(step({{two.pszCommand, "31 3F 1C"}}, read), -4);
        EXPECT_EQ(step({{two.pszCommand}}, read), -56);
        EXPECT_TRUE(first.isUntouched());
        EXPECT_TRUE(second.isUntouched());
    }
}

TEST_F(MsrTracksSteps, AllTracksGiveTheWholeBody)
{
    for (uint32_t nSize : {513U, 10U, 9U, 5U, 1U}) {
        SCOPED_TRACE(nSize);
        TrackRoom room;
        EXPECT_EQ(step({{szReadAll, stripeReply(0, "B1|22|3|4")}}, [&] { return ReadTrack123(room.data(), nSize); }),
                  0);
        EXPECT_TRUE(room.holds(std::string("B1|22|3|4").substr(0, nSize - 1), nSize));
    }
}

TEST_F(MsrTracksSteps, ABodyIsHandedOutBehindANulToo)
{
    using namespace std::string_literals;
    TrackRoom room;
    EXPECT_EQ(step({{szReadAll, stripeReply(0, "B1\0|2|"s)}}, [&] { return ReadTrack123(room.data(), 513); }), 0);
    EXPECT_TRUE(room.holds("B1\0|2|"s));
}

TEST_F(MsrTracksSteps, AReadInstallsItsEndConditionAlsoWhereItsFrameIsNotSent)
{
    const Bytes framed = bytes("20 02");
    std::array<uint8_t, 64> reply;
    EXPECT_EQ(
        step({{szReadAll, "", 0, false}}, [&] { return ReadTrack(1, framed.data(), 2, reply.data(), reply.size()); }),
        -54);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgDataEndCondition);
}

TEST_F(MsrTracksSteps, AllTracksThatAreNotReadLeaveTheRoom)
{
    TrackRoom room;
    auto read = [&] { return ReadTrack123(room.data(), 513); };
    EXPECT_EQ(step({{szReadAll, stripeReply(0x4001)}}, read), -9);
    EXPECT_EQ(step({{szReadAll, stripeReply(0x4002)}}, read), -5);
    EXPECT_EQ(step({{szReadAll, stripeReply(0x4003, "B1|")}}, read), 3);
    EXPECT_EQ(step({{szReadAll}}, read), -56);
    EXPECT_TRUE(room.isUntouched());
}

TEST_F(MsrTracksSteps, WithoutARoomNothingIsAsked)
{
    TrackRoom room;
    for (const OneTrack &one : s_ones)
        EXPECT_EQ(step({}, [&] { return one.read(nullptr, 513); }), -2);
    for (const TwoTracks &two : s_twos) {
        EXPECT_EQ(step({}, [&] { return two.read(nullptr, 513, room.data(), 513); }), -2);
        EXPECT_EQ(step({}, [&] { return two.read(room.data(), 513, nullptr, 513); }), -2);
    }
    EXPECT_EQ(step({}, [&] { return ReadTrack123(nullptr, 513); }), -2);
    EXPECT_TRUE(room.isUntouched());
}

TEST_F(MsrTracksSteps, ACommandOfTheHostsOwnIsReadBareOrInAFrame)
{
    const Bytes command = bytes("1B 72"), framed = bytes("20 02");
    std::array<uint8_t, 64> reply{};
    EXPECT_EQ(step({{"1B 72", bareReply("12")}, {szStatus, szSucceeded}},
                   [&] { return ReadTrack(0, command.data(), 2, reply.data(), 64); }),
              0);
    EXPECT_EQ(hex(reply.data(), 7), bareReply("12") + " 00");
    reply = {};
    EXPECT_EQ(
        step({{szReadAll, stripeReply(0, "1|2|3|")}}, [&] { return ReadTrack(1, framed.data(), 2, reply.data(), 64); }),
        0);
    EXPECT_STREQ(reinterpret_cast<const char *>(reply.data()), "1|2|3|");
    // Only 1 is framed.
    EXPECT_EQ(step({{"1B 72", bareReply("12")}, {szStatus, szSucceeded}},
                   [&] { return ReadTrack(2, command.data(), 2, reply.data(), 64); }),
              0);
}

TEST_F(MsrTracksSteps, AReplyIsCutToItsRoom)
{
    const Bytes command = bytes("1B 72"), framed = bytes("20 02");
    std::array<uint8_t, 8> reply;
    for (uint32_t nSize : {7U, 6U}) {
        reply.fill(0xC5);
        EXPECT_EQ(step({{"1B 72", bareReply("123")}},
                       [&] { return ReadTrack(0, command.data(), 2, reply.data(), nSize - 1); }),
                  -4); // "?" FS is not in it
        EXPECT_EQ(reply[nSize - 1], 0xC5);
        EXPECT_EQ(step({{szReadAll, stripeReply(0, "12345678")}},
                       [&] { return ReadTrack(1, framed.data(), 2, reply.data(), nSize); }),
                  0);
        EXPECT_EQ(hex(reply.data(), nSize), hexOf(std::string("12345678").substr(0, nSize)));
        EXPECT_EQ(reply[nSize], 0xC5);
    }
}

TEST_F(MsrTracksSteps, AReadWithoutACommandSendsNothing)
{
    std::array<uint8_t, 64> reply{};
    EXPECT_EQ(step({}, [&] { return ReadTrack(0, nullptr, 2, reply.data(), 64); }), -54);
    EXPECT_EQ(step({}, [&] { return ReadTrack(1, nullptr, 2, reply.data(), 64); }), -54);
    EXPECT_EQ(hex(reply.data(), 4), "00 00 00 00");
}

TEST_F(MsrTracksSteps, AReadWithoutARoomAwaitsNoReply)
{
    const Bytes command = bytes("1B 72"), framed = bytes("20 02");
    std::array<uint8_t, 64> reply{};
    EXPECT_EQ(step({{szRead1}}, [&] { return ReadTrack(0, command.data(), 2, nullptr, 64); }), -4);
    EXPECT_EQ(step({{szRead1}}, [&] { return ReadTrack(0, command.data(), 2, reply.data(), 0); }), -4);
    EXPECT_EQ(step({{szReadAll}}, [&] { return ReadTrack(1, framed.data(), 2, nullptr, 64); }), 0);
    EXPECT_EQ(step({{szReadAll}}, [&] { return ReadTrack(1, framed.data(), 2, reply.data(), 0); }), 0);
}

TEST_F(MsrTracksSteps, AReadLeavesItsEndConditionAndTwoSecondsForTheStatus)
{
    char sz[513];
    EXPECT_EQ(step({{szRead1, bareReply("1")}, {szStatus, szSucceeded}}, [&] { return ReadTrack1(sz, 513); }), 0);
    EXPECT_EQ(m_line->takeWaits(),
              (std::vector<StripeWait>{{szRead1, 30, MsgDataEndCondition}, {szStatus, 2, MsgStatusEndCondition}}));
    EXPECT_EQ(stBackUpParam.nTimeOut, 2);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgStatusEndCondition);
}

// ---- writes ----------------------------------------------------------------------------------------------------------

struct WriteRow {
    const char *pszName;
    std::function<int32_t(uint32_t)> write; // with its time-out
    std::string sCommand;
};
const std::vector<WriteRow> s_writes = {
    {"1", [](uint32_t n) { return WriteTrack1("B1", n); }, "1B 77 42 31 1D 1B 5C"},
    {"2", [](uint32_t n) { return WriteTrack2("22", n); }, "1B 74 32 32 1D 1B 5C"},
    {"3", [](uint32_t n) { return WriteTrack3("33", n); }, "1B 74 41 33 33 1D 1B 5C"},
    {"12", [](uint32_t n) { return WriteTrack12("B1", "22", n); }, "1B 77 32 32 41 42 31 1D 1B 5C"},
    {"23", [](uint32_t n) { return WriteTrack23("22", "33", n); }, "1B 74 32 32 41 33 33 1D 1B 5C"},
};

TEST_F(MsrTracksSteps, AWriteSendsItsTextsAndJudgesTheStatus)
{
    for (const WriteRow &row : s_writes) {
        SCOPED_TRACE(row.pszName);
        auto write = [&] { return row.write(5); };
        EXPECT_EQ(step({{row.sCommand}, {szStatus, szSucceeded}}, write), 0);
        EXPECT_EQ(step({{row.sCommand}, {szStatus, szFailed, 6'000}}, write), -6);
        EXPECT_EQ(step({{row.sCommand}, {szStatus, szFailed, 6'001}}, write), -56);
        EXPECT_EQ(step({{row.sCommand}, {szStatus, "72"}}, write), -4);
        EXPECT_EQ(step({{row.sCommand, "", 0, false}}, write), -1);
    }
}

TEST_F(MsrTracksSteps, TheWaitOfAWriteIsTheReadTimeOutAndNotItsOwn)
{
    EXPECT_EQ(step(
                  {{"1B 74 32 1D 1B 5C"}, {szStatus}}, [] { return WriteTrack2("2", 100); }, 3),
              -4);
    EXPECT_EQ(m_line->takeMillis(), 4'000);
    EXPECT_EQ(m_line->takeWaits(), (std::vector<StripeWait>{{szStatus, 3, MsgStatusEndCondition}}));
}

TEST_F(MsrTracksSteps, AFramedWriteTakesAMissingTextAsNoData)
{
    auto expectSent = [this](const char *psz1, const char *psz2, const char *psz3, const char *pszTexts) {
        EXPECT_EQ(step({{stripeCommand("20 03 " + hexOf(pszTexts)), szDone}},
                       [&] { return WriteTrack123(psz1, psz2, psz3, 5); }),
                  0);
    };
    expectSent("B1", "22", "33", "B1|22|33");
    expectSent(nullptr, "55", nullptr, "|55|");
    expectSent("B1", nullptr, "33", "B1||33");
    expectSent(nullptr, nullptr, nullptr, "||");
}

TEST_F(MsrTracksSteps, AFramedWriteIsJudgedByTheStatusWord)
{
    const std::string sCommand = stripeCommand("20 03 31 7C 32 7C 33");
    auto write = [] { return WriteTrack123("1", "2", "3", 5); };
    EXPECT_EQ(step({{sCommand, stripeReply(0x4001)}}, write), -6);
    EXPECT_EQ(step({{sCommand, stripeReply(0x4002)}}, write), -100);
    EXPECT_EQ(step({{sCommand}}, write), -56);
    EXPECT_EQ(step({{sCommand, "", 0, false}}, write), -54);
}

TEST_F(MsrTracksSteps, AMissingTextOfABareWriteSendsNothing)
{
    for (const auto &write : std::initializer_list<std::function<int32_t()>>{
             [] { return WriteTrack1(nullptr, 5); }, [] { return WriteTrack2(nullptr, 5); },
             [] { return WriteTrack3(nullptr, 5); }, [] { return WriteTrack12(nullptr, "2", 5); },
             [] { return WriteTrack12("1", nullptr, 5); }, [] { return WriteTrack23(nullptr, "3", 5); },
             [] { return WriteTrack23("2", nullptr, 5); }})
        EXPECT_EQ(step({}, write), -2);
}

TEST_F(MsrTracksSteps, TextsAreNotCheckedByTheWrite)
{
    EXPECT_EQ(step({{"1B 74 78 79 1D 1B 5C"}, {szStatus, szSucceeded}}, [] { return WriteTrack2("xy", 5); }), 0);
}

TEST_F(MsrTracksSteps, ACommandOfTheHostsOwnIsWrittenBareOrInAFrame)
{
    const Bytes bare = bytes("1B 77 42 1D 1B 5C"), framed = bytes("20 03 7C 7C");
    EXPECT_EQ(step({{hex(bare)}, {szStatus, szSucceeded}}, [&] { return WriteTrack(0, bare.data(), 6, 5); }), 0);
    EXPECT_EQ(step({{hex(bare)}, {szStatus, szSucceeded}}, [&] { return WriteTrack(2, bare.data(), 6, 5); }), 0);
    EXPECT_EQ(step({{stripeCommand("20 03 7C 7C"), szDone}}, [&] { return WriteTrack(1, framed.data(), 4, 5); }), 0);
    EXPECT_LT(step({}, [&] { return WriteTrack(0, nullptr, 6, 5); }), 0);
    EXPECT_LT(step({}, [&] { return WriteTrack(1, nullptr, 4, 5); }), 0);
}

TEST_F(MsrTracksSteps, TheTickCounterStartsWithEachWrite)
{
    step({{"1B 74 32 1D 1B 5C"}, {szStatus, "/70"}}, [] { return WriteTrack2("2", 5); });
    EXPECT_EQ(g_stStartTime, int64_t{nStripeStart} * 1000);
    step({{"1B 74 32 1D 1B 5C"}, {szStatus, szSucceeded}}, [] { return WriteTrack2("2", 5); });
    EXPECT_EQ(g_stStartTime, int64_t{nStripeStart} * 1000 + 1000);
    step({{stripeCommand("20 03 7C 7C"), "/" + std::string(szDone)}}, [] { return WriteTrack123("", "", "", 5); });
    EXPECT_EQ(g_stStartTime, int64_t{nStripeStart} * 1000 + 1000);
}

TEST_F(MsrTracksSteps, WithoutAnOpenReaderNothingWorks)
{
    // The transport is known from an earlier open.
    play({});
    open();
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    char sz[513];
    EXPECT_EQ(ReadTrack1(sz, 513), -54);
    EXPECT_EQ(ReadTrack12(sz, 513, sz, 513), -54);
    EXPECT_EQ(ReadTrack123(sz, 513), -54);
    EXPECT_EQ(WriteTrack1("1", 5), -1);
    EXPECT_EQ(WriteTrack123("1", "2", "3", 5), -54);
}

TEST_F(MsrTracksSteps, ACancelWithoutAReadIsTakenAndForgotten)
{
    EXPECT_EQ(MSG_QV_CancelRead(), -1); // no transport was ever opened
    EXPECT_EQ(read(2, reading({{szRead2, bareReply("62")}, {szStatus, szSucceeded}})), 0);
    EXPECT_EQ(MSG_QV_CancelRead(), 0);
    EXPECT_EQ(read(2, reading({{szRead2, "," + bareReply("62")}, {szStatus, szSucceeded}})), 0);
    stBackUpParam.nType = 7;
    EXPECT_EQ(MSG_QV_CancelRead(), -57); // no USB device is open
    stBackUpParam.nType = 1;
    g_AuxFd = 0;
    EXPECT_EQ(MSG_QV_CancelRead(), -57);
    g_AuxFd = -2;
}

} // namespace
