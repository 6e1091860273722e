// The application functions beside reading and writing: cancel, the raise flag, USB identities.

#include "msr_app.h"

#include "fake_sleep.h"

#include <gmock/gmock.h>

#include <filesystem>

using namespace qvtest;
using testing::ElementsAre;

namespace {

// ---- cancel ---------------------------------------------------------------------------------------------------------

TEST_F(StripeApp, ACancelComesBackUnconverted)
{
    // Nothing was ever opened.
    EXPECT_EQ(APP_Msg_CancelReadMsgCard(), -1);
    EXPECT_EQ(g_bMsgBaundFlag, 0);
    EXPECT_EQ(Linux_QV_CancelReadMsgCard(), -1);
    // No USB device is open.
    stBackUpParam.nType = 7;
    EXPECT_EQ(APP_Msg_CancelReadMsgCard(), -57);
    EXPECT_EQ(Linux_QV_CancelReadMsgCard(), -57);
    // Nothing waits.
    ASSERT_EQ(open(path()), 0);
    EXPECT_EQ(APP_Msg_CancelReadMsgCard(), 0);
    EXPECT_EQ(Linux_QV_CancelReadMsgCard(), 0);
}

TEST_F(StripeApp, OnlyTheCancelOfTheTyFamilyRaisesTheFlag)
{
    for (int32_t nBefore : {0, 1, 7}) {
        g_bMsgBaundFlag = nBefore;
        APP_Msg_CancelReadMsgCard();
        EXPECT_EQ(g_bMsgBaundFlag, nBefore);
        Linux_QV_CancelReadMsgCard();
        EXPECT_EQ(g_bMsgBaundFlag, 1);
    }
}

// ---- the raise flag -------------------------------------------------------------------------------------------------

TEST_F(StripeApp, TheRaiseFlagIsStoredAsItIs)
{
    for (uint32_t nFlag : {1U, 0U, 2U, 0xFFFFFFFFU}) {
        EXPECT_EQ(APP_Msg_RaiseBaundFlag(nFlag), 0);
        EXPECT_EQ(g_bMsgBaundFlag, static_cast<int32_t>(nFlag));
        EXPECT_EQ(Dev_Rdz_Msg_RaiseBaundFlag(nFlag + 1), 0);
        EXPECT_EQ(g_bMsgBaundFlag, static_cast<int32_t>(nFlag + 1));
    }
}

TEST_F(StripeApp, TheRaiseFlagPausesTheCloseOfEveryReadAtAnotherRate)
{
    FakeSleep sleep;
    TrackBuffer t2;
    for (uint32_t nFlag : {1U, 0U})
        for (uint32_t nBaud : {115200U, 9600U}) {
            SCOPED_TRACE(testing::Message() << nFlag << " " << nBaud);
            APP_Msg_RaiseBaundFlag(nFlag);
            isRead(2);
            FakeSleep::take();
            EXPECT_EQ(APP_Msg_ReadMsgCard("COM1", "", nBaud, 0, 5, nullptr, 0, t2.data(), t2.length(), nullptr, 0), 0);
            const std::vector<long> pauses = FakeSleep::take();
            EXPECT_EQ(std::ranges::count(pauses, 100), nFlag == 1 && nBaud != 9600 ? 1 : 0);
        }
}

// ---- aux ports --------------------------------------------------------------------------------------------------------

TEST_F(StripeApp, AnAuxPortIsOneOfTheTerminalFamily0AndIsNotOpened)
{
    TrackBuffer t2;
    std::string sText = pszText2;
    auto expectAux = [](int32_t nPort) {
        EXPECT_EQ(g_MsgParam.nType, 4U);
        EXPECT_EQ(g_MsgParam.nTermType, 0U);
        EXPECT_EQ(g_MsgParam.nAuxPort, nPort);
        g_MsgParam = {};
    };
    EXPECT_EQ(APP_Msg_ReadMsgCard("AUX1", "A", 9600, 0, 5, nullptr, 0, t2.data(), t2.length(), nullptr, 0), -50);
    expectAux(1);
    EXPECT_EQ(APP_Msg_WriteMsgCard("AUX2", "A", 9600, 0, 5, nullptr, sText.data(), nullptr), -50);
    expectAux(2);
    EXPECT_EQ(Linux_QV_ReadMsgCard("aux3", 9600, 0, 5, nullptr, 0, t2.data(), t2.length(), nullptr, 0), -1);
    expectAux(3);
    EXPECT_EQ(Linux_QV_WriteMsgCard("aux4", 9600, 0, 5, nullptr, sText.data(), nullptr), -1);
    expectAux(4);
    EXPECT_EQ(MS_WriteCard("AUX5", "A", 9600, 5, 2, 0, sText.data(), nullptr), -99);
    expectAux(5);
    std::filesystem::remove_all(libraryDirectory() + "/log");
    EXPECT_THAT(s_sent, ElementsAre());
}

// ---- USB identities -------------------------------------------------------------------------------------------------

TEST_F(StripeApp, EveryTryOfAnIdentityThatFailsIsFollowedByAClose)
{
    for (bool bOnlyOne : {false, true}) {
        if (bOnlyOne)
            APP_MSG_AddHID(-1, 1, 2);
        // What is open is what the close closes.
        ASSERT_EQ(open(path()), 0);
        size_t nCloses = 0;
        s_beforeClose = [&nCloses] { ++nCloses; };
        EXPECT_EQ(open("HID"), -50);
        EXPECT_EQ(nCloses, 1U);
        expectClosed();
        s_beforeClose = nullptr;
    }
}

TEST_F(StripeApp, IdentitiesAreHandedOn)
{
    EXPECT_EQ(APP_MSG_AddHID(1, 0x1122334455667788ULL, 0x99AABBCCDDEEFF00ULL), 0);
    EXPECT_EQ(g_MsgHid[1].nPID, 0x1122334455667788ULL);
    EXPECT_EQ(g_MsgHid[1].nVID, 0x99AABBCCDDEEFF00ULL);
    EXPECT_EQ(g_nMsgHidNum, 2);
    EXPECT_EQ(g_bMsgSetHidFlag, 1);
    EXPECT_EQ(APP_MSG_AddHID(-1, 1, 2), 0);
    EXPECT_EQ(g_MsgHid[0].nPID, 1U);
    EXPECT_EQ(g_MsgHid[0].nVID, 2U);
    EXPECT_EQ(g_bOnlyUseSetHid, 1);
    EXPECT_EQ(APP_MSG_AddHID(10, 3, 4), -2);
    EXPECT_EQ(g_bOnlyUseSetHid, 0);
}

TEST_F(StripeApp, AnIdentityMayBeWrittenInHexadecimal)
{
    struct Row {
        int32_t nIndex;
        const char *pszPid, *pszVid;
        uint64_t nPid, nVid;
    };
    const Row rows[] = {{0, "BCD5", "0403", 0xBCD5, 0x0403},
                        {9, "0001", "FFFF", 0x0001, 0xFFFF},
                        {5, "bcd5", "aBcF", 0xBCD5, 0xABCF},
                        {1, "1234", "5678", 0x1234, 0x5678},
                        {2, "9A0f", "0000", 0x9A0F, 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszPid);
        g_bOnlyUseSetHid = 1;
        g_bMsgSetHidFlag = 0;
        EXPECT_EQ(Linux_QV_MSG_AddHID(row.nIndex, row.pszPid, row.pszVid), 0);
        EXPECT_EQ(g_MsgHid[row.nIndex].nPID, row.nPid);
        EXPECT_EQ(g_MsgHid[row.nIndex].nVID, row.nVid);
        EXPECT_EQ(g_nMsgHidNum, row.nIndex + 1);
        EXPECT_EQ(g_bMsgSetHidFlag, 1);
        EXPECT_EQ(g_bOnlyUseSetHid, 0);
    }
}

TEST_F(StripeApp, AnotherTextOrIndexIsRefusedAndChangesNothing)
{
    auto expectRefused = [](int32_t nIndex, const char *pszPid, const char *pszVid) {
        g_bOnlyUseSetHid = 1;
        g_nMsgHidNum = 3;
        EXPECT_EQ(Linux_QV_MSG_AddHID(nIndex, pszPid, pszVid), -2);
        EXPECT_EQ(g_bOnlyUseSetHid, 1);
        EXPECT_EQ(g_bMsgSetHidFlag, 0);
        EXPECT_EQ(g_nMsgHidNum, 3);
        for (const IcHidId &id : g_MsgHid) {
            EXPECT_EQ(id.nPID, 0U);
            EXPECT_EQ(id.nVID, 0U);
        }
    };
    for (const char *psz : {"", "BCD", "BCD55", "0BCD5", "BCDG", "gCD5", "BC 5", " BCD", "0x12", "B@D5", "B`D5", "B:D5",
                            "B/D5", "\xBC\xD5", "B\xC3\xA9", static_cast<const char *>(nullptr)}) {
        SCOPED_TRACE(psz == nullptr ? "null" : psz);
        expectRefused(0, psz, "0403");
        expectRefused(0, "BCD5", psz);
        expectRefused(0, psz, psz);
    }
    for (int32_t nIndex : {-1, 10, -2, 100, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(nIndex);
        expectRefused(nIndex, "BCD5", "0403");
    }
}

} // namespace
