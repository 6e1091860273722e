// APP_Msg_WriteMsgCard and Linux_QV_WriteMsgCard: which tracks are written, what is refused, what is handed on.

#include "msr_app.h"

#include <gmock/gmock.h>

#include <optional>

using namespace qvtest;
using testing::ElementsAre;

namespace {

// The texts of a call; they may be shortened in place.
struct Texts {
    std::string s1 = pszText1, s2 = pszText2, s3 = pszText3;
    unsigned nTracks = 7;
    char *p(unsigned nTrack, std::string &s) const { return (nTracks & nTrack) != 0 ? s.data() : nullptr; }
    int32_t write(const char *pszPort, const char *pszChannel = "", uint32_t nBaud = 9600, int32_t nFormat = 0,
                  uint32_t nTimeOut = 5)
    {
        return APP_Msg_WriteMsgCard(pszPort, pszChannel, nBaud, nFormat, nTimeOut, p(1, s1), p(2, s2), p(4, s3));
    }
    int32_t writeTy(const char *pszPort, uint32_t nBaud = 9600, int32_t nFormat = 0, uint32_t nTimeOut = 5)
    {
        return Linux_QV_WriteMsgCard(pszPort, nBaud, nFormat, nTimeOut, p(1, s1), p(2, s2), p(4, s3));
    }
};

Texts tracks(unsigned nTracks)
{
    Texts texts;
    texts.nTracks = nTracks;
    return texts;
}

TEST_F(StripeApp, TheTextsThatAreThereAreWritten)
{
    for (const Combination &combination : s_combinations) {
        SCOPED_TRACE(combination.nTracks);
        if (combination.nMode == 0)
            continue;
        isWritten(combination.nMode);
        EXPECT_EQ(tracks(combination.nTracks).write(path()), 0);
        isWritten(combination.nMode);
        EXPECT_EQ(tracks(combination.nTracks).writeTy(path()), 0);
        expectClosed();
    }
}

TEST_F(StripeApp, NoTextOrTexts1And3WithoutText2GiveMinus6)
{
    for (const Combination &combination : s_combinations) {
        if (combination.nMode != 0)
            continue;
        SCOPED_TRACE(combination.nTracks);
        for (const char *pszPort : {"/dev/stripe", "", static_cast<const char *>(nullptr)}) {
            EXPECT_EQ(tracks(combination.nTracks).write(pszPort), -6);
            EXPECT_EQ(tracks(combination.nTracks).writeTy(pszPort), -6);
        }
    }
    EXPECT_THAT(s_opened, ElementsAre());
}

TEST_F(StripeApp, ANullPortNameIsAReaderThatCannotBeOpened)
{
    for (unsigned nTracks : {1U, 2U, 3U, 4U, 6U, 7U}) {
        EXPECT_EQ(tracks(nTracks).write(nullptr), -50);
        EXPECT_EQ(tracks(nTracks).writeTy(nullptr), -1);
    }
    s_bUnplugged = true;
    EXPECT_EQ(tracks(2).write("COM1"), -50);
    EXPECT_EQ(tracks(2).writeTy("COM1"), -1);
    EXPECT_EQ(tracks(2).write("nothing"), -50);
}

TEST_F(StripeApp, APortAChannelARateAFormatAndATimeOutForTheWrite)
{
    takes("1B 25 4B");
    isWritten(23, 120, "1B 41");
    EXPECT_EQ(tracks(6).write("COM3", "K", 115200, 3, 120), 0);
    EXPECT_THAT(s_opened, ElementsAre("/dev/ttyS2"));
    expectRecord("/dev/ttyS2", 115200, 120);

    isWritten(2, 1, "1B 27");
    EXPECT_EQ(tracks(2).write("/dev/stripe", nullptr, 38400, 1, 1), 0);
    expectRecord("/dev/stripe", 38400, 1);

    isWritten(12, 77, "1B 4F");
    EXPECT_EQ(tracks(3).writeTy("com12", 115200, 2, 77), 0);
    expectRecord("/dev/ttyS11", 115200, 77);
}

TEST_F(StripeApp, ABadTextOrTimeOutGivesMinus2AndOpensNothing)
{
    Texts texts = tracks(2);
    texts.s2 = "A123";
    EXPECT_EQ(texts.write("/dev/stripe"), -2);
    EXPECT_EQ(texts.writeTy("/dev/stripe"), -9);
    for (uint32_t nTimeOut : {0U, 121U}) {
        EXPECT_EQ(tracks(2).write("/dev/stripe", "", 9600, 0, nTimeOut), -2);
        EXPECT_EQ(tracks(2).writeTy("/dev/stripe", 9600, 0, nTimeOut), -9);
    }
    EXPECT_THAT(s_opened, ElementsAre());
}

TEST_F(StripeApp, ATextIsShortenedInPlace)
{
    Texts texts = tracks(2);
    texts.s2 = "22=2ABC";
    isWritten(2);
    EXPECT_EQ(texts.write(path()), 0);
    EXPECT_STREQ(texts.s2.c_str(), "22=2");
}

TEST_F(StripeApp, AWriteIsLoggedFromItsStartToItsEndWhateverItsResult)
{
    isWritten(2);
    logOn();
    EXPECT_EQ(tracks(2).write(path()), 0);
    EXPECT_TRUE(loggedWhole(appLine, "APP_Msg_WriteMsgCard", 0));
    struct Row {
        unsigned nTracks;
        const char *pszPort;
        uint32_t nTimeOut;
        int32_t nRet;
    };
    for (const Row &row : {Row{0, "COM1", 5, -6}, Row{5, "COM1", 5, -6}, Row{2, nullptr, 5, -50}, Row{2, "COM1", 0, -2},
                           Row{2, "nothing", 5, -50}}) {
        logOn();
        EXPECT_EQ(tracks(row.nTracks).write(row.pszPort, "", 9600, 0, row.nTimeOut), row.nRet);
        EXPECT_TRUE(loggedWhole(appLine, "APP_Msg_WriteMsgCard", row.nRet));
    }
}

TEST_F(StripeApp, TheEnginesCodesOfAWrite)
{
    struct Row {
        uint32_t nStatus;
        int32_t nEngine, nTy;
    };
    for (const Row &row : {Row{0x4001, -6, -6}, Row{0x4002, -100, -100}, Row{7, -100, -100}})
        for (bool bTy : {false, true}) {
            SCOPED_TRACE(row.nStatus);
            isPrepared(5);
            answers("20 03" + textHex(pszText1) + "7C" + textHex(pszText2) + "7C" + textHex(pszText3), row.nStatus);
            isReset();
            EXPECT_EQ(bTy ? tracks(7).writeTy(path()) : tracks(7).write(path()), bTy ? row.nTy : row.nEngine);
        }
    for (bool bTy : {false, true}) {
        isPrepared(5);
        says("1B 74" + textHex(pszText2) + "1D 1B 5C 1B 6A", "71");
        isReset();
        EXPECT_EQ(bTy ? tracks(2).writeTy(path()) : tracks(2).write(path()), -6);
    }
}

} // namespace
