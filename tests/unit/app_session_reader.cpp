// Session calls of a host without a device table: they use the reader directly.

#include "app_session.h"

using namespace qvtest;

namespace {

class SessionOnReader : public Session {
  protected:
    static std::string ended(const std::string &sCall, int nResult)
    {
        return appLine("[" + sCall + "] End nRet = " + std::to_string(nResult) + "  ");
    }
    int32_t powerDown(const char *pszType) { return QV_APP_PowerOff(path(), nullptr, 9600, pszType); }
    // The next command is answered with a frame that holds nothing.
    void damage(std::string_view sCommand) { m_peer->expect(commandFrame(sCommand)).reply("02 03"); }
};

TEST_F(SessionOnReader, APortIsOpenedAndClosedWhateverTheFlags)
{
    g_stCallBackFunc = {};
    EXPECT_EQ(QV_APP_OpenPort(path(), nullptr, 38400), 0);
    EXPECT_TRUE(portOpen());
    EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(g_useBpBox, 0);
    EXPECT_EQ(QV_APP_ClosePort(nullptr, nullptr, 0), 0);
    EXPECT_FALSE(portOpen());

    m_peer->expect("1B 25 41 1B 24 49 34");
    EXPECT_EQ(QV_APP_OpenPort(path(), "A", 9600), 0);
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(SessionOnReader, AFailedOpeningIsTheReaders)
{
    EXPECT_EQ(QV_APP_OpenPort("/dev/nowhere", "", 9600), -51);
    EXPECT_EQ(QV_APP_OpenPort("", "", 9600), -2);
    EXPECT_EQ(QV_APP_OpenPort("com1", "", 9600), -2);
    EXPECT_EQ(QV_APP_OpenPort("PCSC", "", 9600), -50);
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(QV_APP_ClosePort("", "", 9600), -50);
}

// ---- power --------------------------------------------------------------------------------------------------------

TEST_F(SessionOnReader, ACardIsPoweredUp)
{
    g_nPowerOnTimeout = 10;
    char szAtr[1100] = {};
    uint32_t nAtr = 0;
    m_peer->expect("1B 25 42 1B 24 49 34");
    answer("32 22 27 10 00", 0, "3B 9F 95 81");
    EXPECT_EQ(QV_APP_PowerOn(path(), "B", 9600, "1", &nAtr, szAtr), 0);
    EXPECT_STREQ(szAtr, "3B9F9581");
    EXPECT_EQ(nAtr, 8U);
    EXPECT_FALSE(portOpen());
    EXPECT_EQ(g_sParam.stParam.nTermType, 1U);

    answer("32 24 27 10", 0x3001);
    EXPECT_EQ(QV_APP_PowerOn(path(), "", 9600, "2", &nAtr, szAtr), -0x3001);
    EXPECT_STREQ(szAtr, "");
    EXPECT_EQ(nAtr, 0U);
    EXPECT_FALSE(portOpen());

    EXPECT_EQ(QV_APP_PowerOn("/dev/nowhere", "", 9600, "2", &nAtr, szAtr), -51);
    EXPECT_EQ(QV_APP_PowerOn("", "", 9600, "2", &nAtr, szAtr), -2);
}

TEST_F(SessionOnReader, PoweringUpGoesByTheFlag)
{
    g_stCallBackFunc = {1, 1, 0, 1, 1};
    char szAtr[1100] = "before";
    uint32_t nAtr = 9;
    EXPECT_EQ(QV_APP_PowerOn(path(), "", 9600, "1", &nAtr, szAtr), 0);
    EXPECT_STREQ(szAtr, "");
    EXPECT_EQ(nAtr, 0U);
    EXPECT_EQ(m_peer->wire(), "");
    EXPECT_FALSE(portOpen());
}

TEST_F(SessionOnReader, ACardIsPoweredDownWhateverTheFlags)
{
    g_stCallBackFunc = {};
    answer("32 23 00", 0);
    logOn();
    EXPECT_EQ(powerDown("1"), 0);
    EXPECT_TRUE(wroteLines({ended("QV_APP_PowerOff", 0)}));
    EXPECT_FALSE(portOpen());

    answer("32 23 00", 0x1003);
    EXPECT_EQ(powerDown("1"), -0x1003);

    answer("32 25 00 00", 0);
    EXPECT_EQ(powerDown("2"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 255);

    damage("32 25 00 00");
    logOn();
    EXPECT_EQ(powerDown("2"), -4);
    EXPECT_TRUE(wroteLines({ended("QV_APP_PowerOff", -4)}));
    EXPECT_FALSE(portOpen());

    stCardReader.nCardSlot = 17;
    answer("32 23 11", 0x9000);
    EXPECT_EQ(powerDown("x"), -0x9000);
    EXPECT_EQ(stCardReader.nCardSlot, 17);
}

TEST_F(SessionOnReader, BothCardsArePoweredDown)
{
    answer("32 23 00", 0);
    EXPECT_EQ(powerDown("3"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    EXPECT_FALSE(portOpen());
    m_peer->finish();

    answer("32 23 00", 0x1005);
    answer("32 25 00 00", 0);
    EXPECT_EQ(powerDown("3"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_FALSE(portOpen());
    m_peer->finish();

    answer("32 23 00", 0x1005);
    answer("32 25 00 00", 0x3001);
    EXPECT_EQ(powerDown("3"), -0x3001);
    m_peer->finish();

    damage("32 23 00");
    answer("32 23 00", 0x1003);
    EXPECT_EQ(powerDown("3"), -0x1003);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    EXPECT_FALSE(portOpen());
}

TEST_F(SessionOnReader, AFailedOpeningPowersNothingDown)
{
    EXPECT_EQ(QV_APP_PowerOff("/dev/nowhere", nullptr, 9600, "3"), -51);
    EXPECT_EQ(QV_APP_PowerOff("x", nullptr, 9600, "3"), -2);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(SessionOnReader, TheModulesAreReset)
{
    open();
    m_peer->expect("1B 30");
    EXPECT_EQ(QV_APP_MulModuleReset(), 0);
    EXPECT_TRUE(portOpen());
    m_peer->finish();
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_LT(QV_APP_MulModuleReset(), 0);
    EXPECT_EQ(QV_APP_MulModuleReset(), COMM_IC_MulModuleReset());
}

} // namespace
