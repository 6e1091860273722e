// USB names: the built-in identities and the host's own, in the order in which an open tries them.

#include "icreader_open.h"

#include <algorithm>

using namespace qvtest;

namespace {

TEST_F(ReaderOpen, AUsbNameTriesTheSixBuiltInIdentitiesInOrder)
{
    for (const char *psz : {"HID", "USB", "1001", "1001xyz", "HID3", "USBx"}) {
        SCOPED_TRACE(psz);
        size_t nOpens = 0;
        EXPECT_EQ(tried(psz, &nOpens), s_builtIn);
        EXPECT_EQ(nOpens, 6U);
        EXPECT_EQ(g_sParam.stParam.nType, 7U);
        EXPECT_EQ(g_sParam.stParam.nPID, 0xBE01U);
        EXPECT_EQ(g_sParam.stParam.nVID, 0x2B46U);
    }
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AnOnlyIdentityIsTriedAlone)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_AddHid] Start nIndex = -1", "[Dev_Rdz_Ic_AddHid] End g_nHidNum = 0  "}));
    logOff();
    EXPECT_EQ(g_Hid[0].nPID, 0x1234U);
    EXPECT_EQ(g_Hid[0].nVID, 0x5678U);
    EXPECT_EQ(g_nHidNum, 0);
    EXPECT_EQ(g_bIcSetHidFlag, 0);
    EXPECT_EQ(g_bUseSetHid, 1);

    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(nOpens, 1U);
    EXPECT_EQ(g_nHidNum, 1);
    EXPECT_EQ(g_bUseSetHid, 1);
    EXPECT_EQ(tried("USB", &nOpens), (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(nOpens, 1U);
}

TEST_F(ReaderOpen, TheCountOfAnOnlyIdentityIsSetBeforeTheNameIsLookedAt)
{
    Dev_Rdz_Ic_AddHid(-1, 1, 2);
    EXPECT_EQ(open(nullptr), -2);
    EXPECT_EQ(g_nHidNum, 1);
    Dev_Rdz_Ic_AddHid(-1, 1, 2);
    EXPECT_EQ(g_nHidNum, 0);
    EXPECT_EQ(open(path()), 0);
    EXPECT_EQ(g_nHidNum, 1);
}

TEST_F(ReaderOpen, TheHostsIdentitiesFollowTheBuiltInOnes)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_AddHid] Start nIndex = 0", "[Dev_Rdz_Ic_AddHid] End g_nHidNum = 1  "}));
    EXPECT_EQ(g_bIcSetHidFlag, 1);
    EXPECT_EQ(g_bUseSetHid, 0);
    EXPECT_EQ(g_nHidNum, 1);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nHidNum, 2);
    auto all = s_builtIn;
    all.push_back({0xA0, 0xB0});
    all.push_back({0xA1, 0xB1});
    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
    EXPECT_EQ(g_nHidNum, 2);
    // Adding persists across opens.
    EXPECT_EQ(tried("USB", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
}

TEST_F(ReaderOpen, PlacesUpToTheLastIndexCountAlsoEmptyOnes)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(9, 0xA9, 0xB9), 0);
    EXPECT_EQ(g_nHidNum, 10);
    EXPECT_EQ(g_Hid[9].nPID, 0xA9U);
    EXPECT_EQ(g_Hid[8].nPID, 0U);
    auto all = s_builtIn;
    all.push_back({0, 0});
    all.push_back({0xA9, 0xB9});
    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 16U);

    EXPECT_EQ(Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nHidNum, 2);
    all = s_builtIn;
    all.push_back({0, 0});
    all.push_back({0xA1, 0xB1});
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
}

TEST_F(ReaderOpen, AnOnlyIdentityReplacesTheHostsListAndTheOtherWayRound)
{
    Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1);
    Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
    EXPECT_EQ(g_Hid[1].nPID, 0xA1U);
    EXPECT_EQ(tried("HID"), (std::vector<Identity>{{0x1234, 0x5678}}));
    Dev_Rdz_Ic_AddHid(1, 0xC1, 0xD1);
    EXPECT_EQ(g_bUseSetHid, 0);
    auto all = s_builtIn;
    all.push_back({0x1234, 0x5678});
    all.push_back({0xC1, 0xD1});
    EXPECT_EQ(tried("HID"), all);
}

TEST_F(ReaderOpen, ABadIndexIsRefusedButEndsTheOnlyIdentityMode)
{
    for (int32_t nIndex : {10, 11, -2, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(nIndex);
        Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
        EXPECT_EQ(Dev_Rdz_Ic_AddHid(nIndex, 7, 8), -2);
        EXPECT_EQ(g_bUseSetHid, 0);
        EXPECT_EQ(g_bIcSetHidFlag, 0);
        EXPECT_EQ(g_nHidNum, 0);
        EXPECT_EQ(g_Hid[0].nPID, 0x1234U);
        EXPECT_EQ(g_Hid[9].nPID, 0U);
    }
    EXPECT_EQ(tried("HID"), s_builtIn);
    Dev_Rdz_Ic_AddHid(2, 1, 1);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(10, 7, 8), -2);
    EXPECT_EQ(g_nHidNum, 3);
    EXPECT_EQ(g_bIcSetHidFlag, 1);
}

TEST_F(ReaderOpen, WithBothFlagsOnlyTheHostsIdentitiesAreTaken)
{
    Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1);
    g_bUseSetHid = 1;
    size_t nOpens = 0;
    auto all = tried("HID", &nOpens);
    EXPECT_EQ(nOpens, 8U);
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[0], (Identity{0xA0, 0xB0}));
    EXPECT_EQ(all[1], (Identity{0xA1, 0xB1}));
    for (const Identity &identity : s_builtIn)
        EXPECT_EQ(std::count(all.begin(), all.end(), identity), 0);
    EXPECT_EQ(g_nHidNum, 2);
}

TEST_F(ReaderOpen, AnIdentityKeeps64BitsAndIsTriedWith32)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x1122334455667788ULL, 0x99AABBCCDDEEFF00ULL), 0);
    EXPECT_EQ(g_Hid[0].nPID, 0x1122334455667788ULL);
    EXPECT_EQ(g_Hid[0].nVID, 0x99AABBCCDDEEFF00ULL);
    EXPECT_EQ(tried("HID"), (std::vector<Identity>{{0x55667788U, 0xDDEEFF00U}}));
}

TEST_F(ReaderOpen, ASerialPortThatIsStillOpenIsClosedByTheFirstUsbTryThatFails)
{
    ASSERT_EQ(open(path()), 0);
    logOn();
    EXPECT_EQ(open("HID"), -51);
    EXPECT_EQ(countLogged("[COMM_Com_CloseLinux] Start "), 5U);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(stBackUpParam.nType, 1U);
}

TEST_F(ReaderOpen, TheLastUsbTryThatFailsClosesNothing)
{
    Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
    ASSERT_EQ(open(path()), 0);
    logOn();
    EXPECT_EQ(open("HID"), -51);
    EXPECT_EQ(countLogged("[COMM_Com_CloseLinux] Start "), 0U);
    EXPECT_GE(g_AuxFd, 0);
}

} // namespace
