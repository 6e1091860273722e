// Handing device operations to a kernel: which table it gets, and which of the library's own callbacks work afterwards.

#include "app_kernel.h"

using namespace qvtest;

namespace {

using Flags = std::array<int32_t, 5>;

Flags flags()
{
    return {g_stCallBackFunc.nOpen, g_stCallBackFunc.nClose, g_stCallBackFunc.nPowerUp, g_stCallBackFunc.nPowerDown,
            g_stCallBackFunc.nCommRW};
}

// As the kernel finds them when it gets a table: it may use its operations at once.
Flags flagsAtTable()
{
    Flags found;
    std::copy(std::begin(testKernel()->flagsAtTable), std::end(testKernel()->flagsAtTable), found.begin());
    return found;
}

using Table = std::array<void *, 10>;

Table storedTable()
{
    Table table;
    std::copy(std::begin(stICOp), std::end(stICOp), table.begin());
    return table;
}

Table ownCallbacks(bool bWithSlotExchange)
{
    return {nullptr,
            slot(DevOpenPort),
            slot(DevClosePort),
            slot(DevPowerOn),
            slot(DevPowerOnSlot),
            slot(DevPowerOff),
            slot(DevPowerOffSlot),
            slot(DevSendCmd),
            bWithSlotExchange ? slot(DevSendCmdSlot) : nullptr,
            nullptr};
}

class KernelSetup : public testing::Test {
  protected:
    void SetUp() override
    {
        testKernelReset();
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        g_stCallBackFunc = {7, 7, 7, 7, 7};
    }
    void TearDown() override { logOff(); }
};

TEST_F(KernelSetup, TypeZeroGivesAllCallbacksAndLetsThemWork)
{
    logWithCalls();
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), 0);
    EXPECT_EQ(takeCalls(), Calls{"Emv_SetFunP(0)"});
    EXPECT_EQ(flags(), (Flags{1, 1, 1, 1, 1}));
    EXPECT_EQ(flagsAtTable(), flags());
    EXPECT_EQ(storedTable(), ownCallbacks(true));
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_SetEmvFunc]Start nType = 30 ") + callLine("Emv_SetFunP(0)"));
}

TEST_F(KernelSetup, AnyOtherTypeLetsOnlyTheExchangeWork)
{
    for (int nType : {0x00, 0x01, 0x31, 0x32, 0x2F, 0xFF}) {
        g_stCallBackFunc = {1, 1, 1, 1, 0};
        EXPECT_EQ(QV_APP_SetEmvFunc(static_cast<uint8_t>(nType)), 0);
        EXPECT_EQ(takeCalls(), Calls{"Emv_SetFunP(0)"});
        EXPECT_EQ(flags(), (Flags{0, 0, 0, 0, 1})) << nType;
        EXPECT_EQ(flagsAtTable(), flags()) << nType;
        EXPECT_EQ(storedTable(), ownCallbacks(false)) << nType;
    }
    logOn();
    EXPECT_EQ(QV_APP_SetEmvFunc(0x0A), 0);
    EXPECT_EQ(logWithoutTime(), appLine("[QV_APP_SetEmvFunc]Start nType = 0a "));
}

TEST_F(KernelSetup, TypeZeroAfterAnotherBringsTheSlotExchangeBack)
{
    QV_APP_SetEmvFunc('1');
    QV_APP_SetEmvFunc('0');
    EXPECT_EQ(storedTable(), ownCallbacks(true));
    EXPECT_EQ(flags(), (Flags{1, 1, 1, 1, 1}));
}

TEST_F(KernelSetup, TheKernelsResultIsHandedOnUnconverted)
{
    Table table = {};
    for (int32_t nResult : {-17, 5, 0}) {
        testKernel()->nSetFunP = nResult;
        EXPECT_EQ(QV_APP_SetEmvFunc('0'), nResult);
        EXPECT_EQ(QV_APP_SetEmvFunc('1'), nResult);
        EXPECT_EQ(QV_APP_SetFuncP(table.data()), nResult);
    }
    EXPECT_EQ(takeCalls(), Calls(9, "Emv_SetFunP(0)"));
}

TEST_F(KernelSetup, OnlyTheKernelStoresTheTable)
{
    int nMark = 0;
    std::fill(std::begin(stICOp), std::end(stICOp), &nMark);
    Table before = storedTable();
    testKernel()->bLeavesTable = 1;
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), 0);
    EXPECT_EQ(storedTable(), before);
    Table table = {};
    EXPECT_EQ(QV_APP_SetFuncP(table.data()), 0);
    EXPECT_EQ(storedTable(), before);
}

TEST_F(KernelSetup, AKernelMayKeepTheTablesAddress)
{
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), 0);
    void *const *pTable = testKernel()->pTable;
    Table expected = ownCallbacks(true);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), pTable));
    {
        Table own = {};
        own[1] = slot(openOperation);
        own[8] = own[9] = slot(powerDownOperation);
        EXPECT_EQ(QV_APP_SetFuncP(own.data()), 0);
        expected = own;
        EXPECT_NE(testKernel()->pTable, own.data());
        own.fill(nullptr);
    }
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), testKernel()->pTable));
}

// Which slots the host leaves out (counted from 1), the flags that are left, and the lines that say so.
struct LeftOut {
    std::vector<size_t> slots;
    Flags flags;
    Calls lines;
};
const std::vector<LeftOut> s_leftOut = {
    {{}, {1, 1, 1, 1, 1}, {}},
    {{1, 10}, {1, 1, 1, 1, 1}, {}},
    {{2}, {0, 1, 1, 1, 1}, {" OpenDevice  NULL"}},
    {{3}, {1, 0, 1, 1, 1}, {" CloseDevice  NULL"}},
    {{4}, {1, 1, 1, 1, 1}, {}},
    {{5}, {1, 1, 1, 1, 1}, {}},
    {{4, 5}, {1, 1, 0, 1, 1}, {" PowerUp  NULL"}},
    {{6}, {1, 1, 1, 1, 1}, {}},
    {{7}, {1, 1, 1, 1, 1}, {}},
    {{6, 7}, {1, 1, 1, 0, 1}, {" PowerDown  NULL"}},
    {{8}, {1, 1, 1, 1, 1}, {}},
    {{9}, {1, 1, 1, 1, 1}, {}},
    {{8, 9}, {1, 1, 1, 1, 0}, {" CommRW  NULL"}},
    {{5, 6}, {1, 1, 1, 1, 1}, {}},
    {{7, 8}, {1, 1, 1, 1, 1}, {}},
    {{2, 3, 4, 5, 6, 7, 8, 9},
     {0, 0, 0, 0, 0},
     {" OpenDevice  NULL", " CloseDevice  NULL", " PowerUp  NULL", " PowerDown  NULL", " CommRW  NULL"}},
};

TEST_F(KernelSetup, WhatTheHostLeavesOutIsSwitchedOff)
{
    int nMarks[10] = {};
    for (const LeftOut &row : s_leftOut) {
        Table table;
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = &nMarks[i];
        std::string sWhat;
        for (size_t n : row.slots) {
            table[n - 1] = nullptr;
            sWhat += std::to_string(n) + " ";
        }
        g_stCallBackFunc = {7, 7, 7, 7, 7};
        logWithCalls();
        EXPECT_EQ(QV_APP_SetFuncP(table.data()), 0);
        EXPECT_EQ(flags(), row.flags) << sWhat;
        std::string sLog;
        for (const std::string &sLine : row.lines)
            sLog += appLine(sLine);
        EXPECT_EQ(logWithoutTime(), sLog + callLine("Emv_SetFunP(0)")) << sWhat;
        EXPECT_EQ(storedTable(), table) << sWhat;
        EXPECT_EQ(flagsAtTable(), row.flags) << sWhat;
    }
    EXPECT_EQ(takeCalls(), Calls(s_leftOut.size(), "Emv_SetFunP(0)"));
}

TEST_F(KernelSetup, ATableWithoutPowerUpMakesItsCallbacksDoNothing)
{
    Table table = ownCallbacks(true);
    table[3] = table[4] = nullptr;
    EXPECT_EQ(QV_APP_SetFuncP(table.data()), 0);
    EXPECT_EQ(flags(), (Flags{1, 1, 0, 1, 1}));
    uint8_t atr[512] = {0xEE};
    uint32_t nAtr = 77;
    stRDZ73xx = {};
    EXPECT_EQ(DevPowerOn('1', atr, &nAtr), 0); // no port is open: the reader would fail
    EXPECT_EQ(DevPowerOnSlot(0, atr, &nAtr), 0);
    EXPECT_EQ(nAtr, 77U);
    EXPECT_EQ(atr[0], 0xEE);
}

TEST_F(KernelSetup, ANullTableIsRefusedBeforeTheKernelSeesIt)
{
    EXPECT_EQ(QV_APP_SetFuncP(nullptr), -2);
    EXPECT_EQ(takeCalls(), Calls{});
    EXPECT_EQ(flags(), (Flags{7, 7, 7, 7, 7}));
}

TEST_F(KernelSetup, TransactionDataAreHandedOnAsTheyAre)
{
    int nData = 0;
    for (void *pData : {static_cast<void *>(&nData), static_cast<void *>(nullptr)}) {
        for (int32_t nResult : {-17, 0, 5}) {
            testKernel()->pTranseData = testKernel();
            testKernel()->nSetTranseData = nResult;
            EXPECT_EQ(QV_APP_SetTranseData(pData), nResult);
            EXPECT_EQ(testKernel()->pTranseData, pData);
        }
    }
    EXPECT_EQ(takeCalls(), Calls(6, "Emv_Set_TranseData()"));
}

} // namespace
