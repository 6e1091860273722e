// A result that is no failure is the kernel's affair too: it is converted like any other.

#include "app_kernel.h"
#include "fake_clock.h"
#include "open_reader.h"

using namespace qvtest;

namespace {

// On the reader itself; the clock stands still, so that no read ends by time.
class ConvertedSuccess : public ClosedReader {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        m_clock.emplace(1000000);
        beginSession();
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        g_stCallBackFunc = {1, 1, 1, 1, 1};
    }
    void TearDown() override
    {
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        pszEmvData = nullptr;
        m_clock.reset();
        ClosedReader::TearDown();
    }

    std::optional<FakeClock> m_clock;
    const Bytes m_apdu = bytes("00 84 00 00 02");
    Bytes m_out = Bytes(1100);
    uint32_t m_nOut = 0;
};

TEST_F(ConvertedSuccess, OfACommand)
{
    answer("32 26 00 00 84 00 00 02", 0, "11 22 90 00");
    EXPECT_EQ(QV_APP_SendCommand(path(), nullptr, 9600, "1", 5, m_apdu.data(), &m_nOut, m_out.data()), 0);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(0)"});
    EXPECT_EQ(m_nOut, 4U);
}

TEST_F(ConvertedSuccess, OfACommandAsItIsWhoseResultIsACount)
{
    m_peer->expect("31 32 33").reply("41 42 03");
    m_nOut = 1;
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), nullptr, 9600, 3, bytes("31 32 33").data(), &m_nOut, m_out.data()),
              3 - 9000);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(3)"});
    m_peer->finish();
    open();
    m_peer->expect("31 32").reply("41 03");
    m_nOut = 1;
    EXPECT_EQ(QV_APP_SendCommandOnlyDirect(2, bytes("31 32").data(), &m_nOut, m_out.data()), 2 - 9000);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(2)"});
}

TEST_F(ConvertedSuccess, OfADetectionWhoseResultIsTheCardsState)
{
    uint8_t mode[] = {'1', 0};
    answer("32 21 00", 0x1003);
    logOn();
    EXPECT_EQ(QV_APP_DetectCard(path(), nullptr, 9600, mode), 2 - 9000);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(2)"});
    EXPECT_TRUE(logWithoutTime().ends_with(appLine("[QV_APP_DetectCard] End nRet = 2  "))) << logWithoutTime();
    logOn();
    EXPECT_EQ(QV_APP_DetectCard(nullptr, nullptr, 9600, mode), -9002);
    EXPECT_TRUE(logWithoutTime().ends_with(appLine("[QV_APP_DetectCard] End nRet = -2  "))) << logWithoutTime();
}

TEST_F(ConvertedSuccess, OfAReaderThatIsThere)
{
    answer("31 11", 0, "41");
    EXPECT_EQ(QV_APP_ChkDevPresent(path(), nullptr, 9600), 0);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(0)"});
}

TEST_F(ConvertedSuccess, OfAPowerUp)
{
    char szAtr[1100] = {};
    answer("32 22 00 00 00", 0, "3B 00");
    EXPECT_EQ(QV_APP_PowerOn(path(), nullptr, 9600, "1", &m_nOut, szAtr), 0);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(0)"});
    EXPECT_STREQ(szAtr, "3B00");
}

TEST_F(ConvertedSuccess, OfAResetOfTheModules)
{
    open();
    m_peer->expect("1B 30");
    EXPECT_EQ(QV_APP_MulModuleReset(), 0);
    EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(0)"});
}

} // namespace
