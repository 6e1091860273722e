// APP_Msg_ReadMsgCard and Linux_QV_ReadMsgCard: which tracks are read, what is cleared, what is handed on.

#include "msr_app.h"

#include <gmock/gmock.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

int32_t readCard(const char *pszPort, TrackBuffers out, const char *pszChannel = "", uint32_t nBaud = 9600,
                 int32_t nFormat = 0, uint32_t nTimeOut = 5)
{
    return APP_Msg_ReadMsgCard(pszPort, pszChannel, nBaud, nFormat, nTimeOut, dataOf(out.p1), lengthOf(out.p1),
                               dataOf(out.p2), lengthOf(out.p2), dataOf(out.p3), lengthOf(out.p3));
}

int32_t readCardTy(const char *pszPort, TrackBuffers out, uint32_t nBaud = 9600, int32_t nFormat = 0,
                   uint32_t nTimeOut = 5)
{
    return Linux_QV_ReadMsgCard(pszPort, nBaud, nFormat, nTimeOut, dataOf(out.p1), lengthOf(out.p1), dataOf(out.p2),
                                lengthOf(out.p2), dataOf(out.p3), lengthOf(out.p3));
}

struct Tracks {
    TrackBuffer t1{20}, t2{30}, t3{40};
    TrackBuffers asked(unsigned nTracks)
    {
        return {(nTracks & 1) != 0 ? &t1 : nullptr, (nTracks & 2) != 0 ? &t2 : nullptr,
                (nTracks & 4) != 0 ? &t3 : nullptr};
    }
};

TEST_F(StripeApp, TheTracksWithABufferAreRead)
{
    for (const Combination &combination : s_combinations) {
        SCOPED_TRACE(combination.nTracks);
        if (combination.nMode == 0)
            continue;
        for (bool bTy : {false, true}) {
            isRead(combination.nMode);
            Tracks tracks;
            const TrackBuffers out = tracks.asked(combination.nTracks);
            EXPECT_EQ(bTy ? readCardTy(path(), out) : readCard(path(), out), 0);
            if (out.p1 != nullptr) {
                EXPECT_EQ(tracks.t1.text(), pszText1);
            }
            if (out.p2 != nullptr) {
                EXPECT_EQ(tracks.t2.text(), pszText2);
            }
            if (out.p3 != nullptr) {
                EXPECT_EQ(tracks.t3.text(), pszText3);
            }
            expectClosed();
        }
    }
}

TEST_F(StripeApp, NoBufferOrTracks1And3WithoutTrack2GiveMinus2)
{
    for (const Combination &combination : s_combinations) {
        if (combination.nMode != 0)
            continue;
        SCOPED_TRACE(combination.nTracks);
        Tracks tracks;
        EXPECT_EQ(readCard("/dev/stripe", tracks.asked(combination.nTracks)), -2);
        EXPECT_EQ(readCardTy("/dev/stripe", tracks.asked(combination.nTracks)), -9);
        EXPECT_TRUE(tracks.t1.untouched());
        EXPECT_TRUE(tracks.t3.untouched());
    }
    EXPECT_THAT(s_opened, ElementsAre());
}

TEST_F(StripeApp, ANullPortNameGivesMinus2BeforeAnythingIsCleared)
{
    for (unsigned nTracks : {1U, 2U, 3U, 4U, 6U, 7U}) {
        Tracks tracks;
        EXPECT_EQ(readCard(nullptr, tracks.asked(nTracks)), -2);
        EXPECT_EQ(readCardTy(nullptr, tracks.asked(nTracks)), -9);
        EXPECT_TRUE(tracks.t1.untouched());
        EXPECT_TRUE(tracks.t2.untouched());
        EXPECT_TRUE(tracks.t3.untouched());
    }
}

TEST_F(StripeApp, TheBuffersAreClearedOverTheirOwnLengthsWhateverFollows)
{
    s_bUnplugged = true;
    for (unsigned nTracks : {1U, 2U, 3U, 4U, 6U, 7U}) {
        SCOPED_TRACE(nTracks);
        for (const char *pszPort : {"/dev/stripe", "", "nothing"}) {
            Tracks tracks;
            EXPECT_EQ(readCard(pszPort, tracks.asked(nTracks)), pszPort[0] == 'n' ? -2 : -50);
            EXPECT_EQ((nTracks & 1) != 0, tracks.t1.cleared());
            EXPECT_EQ((nTracks & 2) != 0, tracks.t2.cleared());
            EXPECT_EQ((nTracks & 4) != 0, tracks.t3.cleared());
            EXPECT_EQ((nTracks & 1) == 0, tracks.t1.untouched());
            EXPECT_EQ((nTracks & 2) == 0, tracks.t2.untouched());
            EXPECT_EQ((nTracks & 4) == 0, tracks.t3.untouched());
        }
    }
}

TEST_F(StripeApp, ATimeOutOutsideOneTo120ClearsTheBuffersAndOpensNothing)
{
    for (uint32_t nTimeOut : {0U, 121U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nTimeOut);
        Tracks tracks;
        EXPECT_EQ(readCard("/dev/stripe", tracks.asked(7), "", 9600, 0, nTimeOut), -2);
        EXPECT_TRUE(tracks.t1.cleared());
        EXPECT_TRUE(tracks.t2.cleared());
        EXPECT_TRUE(tracks.t3.cleared());
        EXPECT_EQ(readCardTy("/dev/stripe", tracks.asked(2), 9600, 0, nTimeOut), -9);
    }
    EXPECT_THAT(s_opened, ElementsAre());
}

TEST_F(StripeApp, ABufferWithoutRoomIsLeftAlone)
{
    s_bUnplugged = true;
    TrackBuffer none(0);
    EXPECT_EQ(readCard("/dev/stripe", {&none, nullptr, nullptr}), -50);
    EXPECT_EQ(readCard("/dev/stripe", {nullptr, &none, nullptr}), -50);
    EXPECT_EQ(readCard("/dev/stripe", {nullptr, nullptr, &none}), -50);
    EXPECT_TRUE(none.untouched());
}

TEST_F(StripeApp, ATrackIsCutToItsOwnBuffer)
{
    isRead(123);
    TrackBuffer t1(3), t2(4), t3(2);
    EXPECT_EQ(readCard(path(), {&t1, &t2, &t3}), 0);
    EXPECT_EQ(t1.text(), "B1");
    EXPECT_EQ(t2.text(), "22=");
    EXPECT_EQ(t3.text(), "3");

    isRead(12);
    TrackBuffer a(2), b(3);
    EXPECT_EQ(readCard(path(), {&a, &b, nullptr}), 0);
    EXPECT_EQ(a.text(), "B");
    EXPECT_EQ(b.text(), "22");

    isRead(23);
    TrackBuffer c(2), d(3);
    EXPECT_EQ(readCard(path(), {nullptr, &c, &d}), 0);
    EXPECT_EQ(c.text(), "2");
    EXPECT_EQ(d.text(), "33");
}

TEST_F(StripeApp, PortChannelRateFormatAndTimeOutAreHandedOn)
{
    TrackBuffer t2;
    takes("1B 25 42");
    isRead(2, 120, "1B 4F");
    EXPECT_EQ(readCard("COM3", {nullptr, &t2, nullptr}, "B", 115200, 2, 120), 0);
    EXPECT_THAT(s_opened, ElementsAre("/dev/ttyS2"));
    expectRecord("/dev/ttyS2", 115200, 120);

    isRead(2, 1, "1B 27");
    EXPECT_EQ(readCard("/dev/stripe", {nullptr, &t2, nullptr}, nullptr, 38400, 1, 1), 0);
    expectRecord("/dev/stripe", 38400, 1);

    // Without a channel.
    isRead(2, 77, "1B 41");
    EXPECT_EQ(readCardTy("com12", {nullptr, &t2, nullptr}, 115200, 3, 77), 0);
    expectRecord("/dev/ttyS11", 115200, 77);
}

TEST_F(StripeApp, AReadIsLoggedFromItsStartToItsEndWhateverItsResult)
{
    Tracks tracks;
    isRead(2);
    logOn();
    EXPECT_EQ(readCard(path(), tracks.asked(2)), 0);
    EXPECT_TRUE(loggedWhole(appLine, "APP_Msg_ReadMsgCard", 0));
    struct Row {
        unsigned nTracks;
        const char *pszPort;
        int32_t nRet;
    };
    for (const Row &row : {Row{0, "COM1", -2}, Row{5, "COM1", -2}, Row{2, nullptr, -2}, Row{0, nullptr, -2},
                           Row{2, "nothing", -2}, Row{2, "", -50}}) {
        logOn();
        EXPECT_EQ(readCard(row.pszPort, tracks.asked(row.nTracks)), row.nRet);
        EXPECT_TRUE(loggedWhole(appLine, "APP_Msg_ReadMsgCard", row.nRet));
    }
}

TEST_F(StripeApp, TheEnginesCodesComeUnchangedOrAsTyCodes)
{
    struct Row {
        uint32_t nStatus;
        int32_t nEngine, nTy;
    };
    for (const Row &row : {Row{0x4001, -9, -10}, Row{0x4002, -5, -5}}) {
        for (bool bTy : {false, true}) {
            isPrepared(5);
            answers("20 01 7C", 0);
            answers("20 02", row.nStatus);
            isResetTwice();
            Tracks tracks;
            const TrackBuffers out = tracks.asked(7);
            EXPECT_EQ(bTy ? readCardTy(path(), out) : readCard(path(), out), bTy ? row.nTy : row.nEngine);
            EXPECT_TRUE(tracks.t1.cleared());
            EXPECT_TRUE(tracks.t2.cleared());
            EXPECT_TRUE(tracks.t3.cleared());
        }
    }
    for (bool bTy : {false, true}) {
        isPrepared(5);
        answers("20 01 7C", 1);
        isResetTwice();
        Tracks tracks;
        const TrackBuffers out = tracks.asked(7);
        EXPECT_EQ(bTy ? readCardTy(path(), out) : readCard(path(), out), bTy ? -3 : -55);

        isPrepared(5);
        says("1B 5D", "1B 74 31 3F 1C"); // not a track
        isResetTwice();
        EXPECT_EQ(bTy ? readCardTy(path(), tracks.asked(2)) : readCard(path(), tracks.asked(2)), -4);

        // A body with another status: its length.
        isPrepared(5);
        answers("20 01 7C", 0);
        answers("20 02", 0x1234, "41 42 43");
        isResetTwice();
        EXPECT_EQ(bTy ? readCardTy(path(), out) : readCard(path(), out), 3);
        s_bUnplugged = true;
        EXPECT_EQ(bTy ? readCardTy("COM1", out) : readCard("COM1", out), bTy ? -1 : -50);
        s_bUnplugged = false;
    }
    EXPECT_EQ(readCardTy("nothing", {nullptr, nullptr, nullptr}), -9);
}

} // namespace
