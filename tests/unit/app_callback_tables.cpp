// Handing the callbacks to a kernel that is not there: the flags are set all the same.

#include "app_log.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

using namespace qvtest;

namespace {

using Flags = std::vector<int32_t>;

class CallbackTables : public testing::Test {
  protected:
    void SetUp() override { g_stCallBackFunc = {5, 6, 7, 8, 9}; }
    void TearDown() override
    {
        logOff();
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        for (const void *p : stICOp)
            EXPECT_EQ(p, nullptr);
    }
    static Flags flags()
    {
        const StCallBackFunc &f = g_stCallBackFunc;
        return {f.nOpen, f.nClose, f.nPowerUp, f.nPowerDown, f.nCommRW};
    }
};

TEST_F(CallbackTables, TheLibrarysOwnAreAllOnForTheCharacter0)
{
    logOn();
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), -1);
    EXPECT_EQ(flags(), Flags({1, 1, 1, 1, 1}));
    EXPECT_TRUE(wroteLines({appLine("[QV_APP_SetEmvFunc]Start nType = 30 ")}));
}

TEST_F(CallbackTables, TheLibrarysOwnOnlyExchangeForAnyOther)
{
    for (int n : {0x31, 0, 1, 0x2F, 0x32, 0xFF}) {
        SCOPED_TRACE(n);
        g_stCallBackFunc = {5, 6, 7, 8, 9};
        EXPECT_EQ(QV_APP_SetEmvFunc(static_cast<uint8_t>(n)), -1);
        EXPECT_EQ(flags(), Flags({0, 0, 0, 0, 1}));
    }
    logOn();
    EXPECT_EQ(QV_APP_SetEmvFunc(0x0F), -1);
    EXPECT_TRUE(wroteLines({appLine("[QV_APP_SetEmvFunc]Start nType = 0f ")}));
}

TEST_F(CallbackTables, TheHostsAreOnWhereItHasAFunction)
{
    int nAnything = 0;
    struct Row {
        const char *pszWhat;
        std::vector<size_t> nulls; // places from 0
        Flags flags;
        std::vector<std::string> lines;
    };
    const std::string sOpen = " OpenDevice  NULL", sClose = " CloseDevice  NULL", sUp = " PowerUp  NULL",
                      sDown = " PowerDown  NULL", sRw = " CommRW  NULL";
    const Row rows[] = {
        {"all there", {}, {1, 1, 1, 1, 1}, {}},
        {"reserved", {0, 9}, {1, 1, 1, 1, 1}, {}},
        {"no open", {1}, {0, 1, 1, 1, 1}, {sOpen}},
        {"no close", {2}, {1, 0, 1, 1, 1}, {sClose}},
        {"no power up by type", {3}, {1, 1, 1, 1, 1}, {}},
        {"no power up of a slot", {4}, {1, 1, 1, 1, 1}, {}},
        {"no power up", {3, 4}, {1, 1, 0, 1, 1}, {sUp}},
        {"no power down", {5}, {1, 1, 1, 1, 1}, {}},
        {"no power down of a slot", {6}, {1, 1, 1, 1, 1}, {}},
        {"no power down at all", {5, 6}, {1, 1, 1, 0, 1}, {sDown}},
        {"no exchange", {7}, {1, 1, 1, 1, 1}, {}},
        {"no exchange on a slot", {8}, {1, 1, 1, 1, 1}, {}},
        {"no exchange at all", {7, 8}, {1, 1, 1, 1, 0}, {sRw}},
        {"across", {4, 5}, {1, 1, 1, 1, 1}, {}},
        {"across", {6, 7}, {1, 1, 1, 1, 1}, {}},
        {"open and exchange", {1, 7, 8}, {0, 1, 1, 1, 0}, {sOpen, sRw}},
        {"nothing", {1, 2, 3, 4, 5, 6, 7, 8}, {0, 0, 0, 0, 0}, {sOpen, sClose, sUp, sDown, sRw}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszWhat);
        g_stCallBackFunc = {5, 6, 7, 8, 9};
        void *table[10];
        std::fill(std::begin(table), std::end(table), &nAnything);
        for (size_t n : row.nulls)
            table[n] = nullptr;
        logOn();
        EXPECT_EQ(QV_APP_SetFuncP(table), -1);
        EXPECT_EQ(flags(), row.flags);
        size_t nAt = 0;
        const std::string sLog = logWithoutTime();
        for (const std::string &sLine : row.lines) {
            nAt = sLog.find(appLine(sLine), nAt);
            ASSERT_NE(nAt, std::string::npos) << sLine << " in\n" << sLog;
        }
        size_t nNull = 0;
        for (size_t n = sLog.find("NULL"); n != std::string::npos; n = sLog.find("NULL", n + 1))
            ++nNull;
        EXPECT_EQ(nNull, row.lines.size()) << sLog;
    }
}

TEST_F(CallbackTables, NoTableIsRefused)
{
    EXPECT_EQ(QV_APP_SetFuncP(nullptr), -2);
    EXPECT_EQ(flags(), Flags({5, 6, 7, 8, 9}));
}

TEST_F(CallbackTables, DataForAKernelThatIsNotThereAreRefused)
{
    int n = 0;
    EXPECT_EQ(QV_APP_SetTranseData(&n), -1);
    EXPECT_EQ(QV_APP_SetTranseData(nullptr), -1);
}

} // namespace
