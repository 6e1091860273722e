// The host's own commands, and the settings that are passed through: to the reader, with or without a device table.

#include "app_session.h"

#include <cstring>

using namespace qvtest;

namespace {

class SessionCommands : public Session {
  protected:
    void SetUp() override
    {
        Session::SetUp();
        fillTable();
        m_out.assign(1100, 0xC5);
        m_nOut = 0xC5C5;
    }
    void TearDown() override
    {
        EXPECT_EQ(order(), Order{});
        Session::TearDown();
    }
    std::string out() const { return hex(std::span(m_out).first(m_nOut)); }
    int32_t send(const char *pszType, const char *pszBox = nullptr, const char *pszPort = nullptr)
    {
        return QV_APP_SendCommand(pszPort == nullptr ? path() : pszPort, pszBox, 38400, pszType, 5, m_apdu.data(),
                                  &m_nOut, m_out.data());
    }

    const Bytes m_apdu = bytes("00 84 00 00 02");
    Bytes m_out;
    uint32_t m_nOut = 0;
};

TEST_F(SessionCommands, ACommandWithOpeningAndClosing)
{
    m_peer->expect("1B 25 4B 1B 24 49 34");
    answer("32 26 FF 00 84 00 00 02", 0, "11 22 90 00");
    logOn();
    EXPECT_EQ(send("2", "K"), 0);
    EXPECT_EQ(out(), "11 22 90 00");
    EXPECT_TRUE(wroteLines(
        {appLine("[QV_APP_SendCommand] Start "), line("==>port:" + std::string(path()) + " term:1,baud:38400\r\n")}));
    EXPECT_FALSE(portOpen());

    answer("32 26 00 00 84 00 00 02", 0x1003);
    EXPECT_EQ(send("1"), -0x1003);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(send("1", "", "/dev/nowhere"), -51);
}

TEST_F(SessionCommands, ACommandOnAnOpenPort)
{
    open();
    answer("32 26 00 00 84 00 00 02", 0, "11 22 90 00");
    logOn();
    EXPECT_EQ(QV_APP_SendCommandOnly("1", 5, m_apdu.data(), &m_nOut, m_out.data()), 0);
    EXPECT_EQ(out(), "11 22 90 00");
    EXPECT_TRUE(
        wroteLines({appLine("[QV_APP_SendCommandOnly] Start "), line("[Dev_Rdz_Ic_SendCommandOnly] End nRet = 0  ")}));
    EXPECT_TRUE(portOpen());

    answer("32 26 FF 00 84 00 00 02", 0x1003);
    EXPECT_EQ(QV_APP_SendCommandOnly("2", 5, m_apdu.data(), &m_nOut, m_out.data()), 0x1003);
}

TEST_F(SessionCommands, ACommandAsItIsWithOpeningAndClosing)
{
    m_peer->expect("1B 25 41 1B 24 49 34").expect("31 32 33").reply("41 42 03");
    m_nOut = 1;
    logOn();
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), "A", 38400, 3, bytes("31 32 33").data(), &m_nOut, m_out.data()), 3);
    EXPECT_EQ(out(), "41 42 03");
    EXPECT_TRUE(wroteLines({appLine("[QV_APP_SendCommandDirect] Start "), line("[Dev_Rdz_Ic_OpenPort] Start ")}));
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_FALSE(portOpen());

    m_nOut = 0;
    m_peer->expect("31");
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), nullptr, 9600, 1, bytes("31").data(), &m_nOut, m_out.data()), 0);
    EXPECT_EQ(QV_APP_SendCommandDirect("/dev/nowhere", "", 9600, 1, bytes("31").data(), &m_nOut, m_out.data()), -51);
}

TEST_F(SessionCommands, ACommandAsItIsOnAnOpenPort)
{
    open();
    m_peer->expect("31 32").reply("41 03");
    m_nOut = 1;
    logOn();
    EXPECT_EQ(QV_APP_SendCommandOnlyDirect(2, bytes("31 32").data(), &m_nOut, m_out.data()), 2);
    EXPECT_EQ(out(), "41 03");
    EXPECT_TRUE(wroteLines({appLine("[QV_APP_SendCommandOnlyDirect] Start ")}));
    EXPECT_TRUE(portOpen());
}

TEST_F(SessionCommands, AMissingArgumentSendsNothing)
{
    const uint8_t *p = m_apdu.data();
    EXPECT_EQ(QV_APP_SendCommand(nullptr, "", 9600, "1", 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommand(path(), "", 9600, nullptr, 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommand(path(), "", 9600, "1", 5, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommand(path(), "", 9600, "1", 5, p, nullptr, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommand(path(), "", 9600, "1", 5, p, &m_nOut, nullptr), -2);
    EXPECT_EQ(QV_APP_SendCommandDirect(nullptr, "", 9600, 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), "", 9600, 5, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), "", 9600, 5, p, nullptr, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommandDirect(path(), "", 9600, 5, p, &m_nOut, nullptr), -2);
    open();
    EXPECT_EQ(QV_APP_SendCommandOnly(nullptr, 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommandOnly("1", 5, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(QV_APP_SendCommandOnlyDirect(5, nullptr, &m_nOut, m_out.data()), -54);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(SessionCommands, WithoutATableACommandGoesTheSameWay)
{
    clearTable();
    g_stCallBackFunc = {};
    answer("32 26 00 00 84 00 00 02", 0, "61 02");
    answer("32 26 00 00 C0 00 00 02", 0, "AA BB 90 00");
    EXPECT_EQ(send("1"), 0);
    EXPECT_EQ(out(), "AA BB 90 00");
    EXPECT_FALSE(portOpen());
}

// ---- settings -----------------------------------------------------------------------------------------------------

TEST_F(SessionCommands, SettingsReachTheReader)
{
    char sz[16] = "before";
    EXPECT_EQ(QV_APP_GetPcscList(sz), -2);
    EXPECT_STREQ(sz, "before");
    EXPECT_EQ(QV_APP_SetPcscReader("a name"), 0);
    EXPECT_STREQ(g_szPcscReader, "a name");
    EXPECT_EQ(QV_APP_SetPcscReader(nullptr), 0);
    EXPECT_STREQ(g_szPcscReader, "");
    for (int32_t n : {16, 255, -1}) {
        EXPECT_EQ(QV_APP_SetSlot(n), 0);
        EXPECT_EQ(stCardReader.nCardSlot, n);
        EXPECT_EQ(QV_APP_GetCardSlot(), n);
    }
    EXPECT_EQ(QV_APP_Ic_RaiseBaundFlag(1), 0);
    EXPECT_EQ(g_bIcBaundFlag, 1);
    EXPECT_EQ(QV_APP_Ic_RaiseBaundFlag(0), 0);
    EXPECT_EQ(g_bIcBaundFlag, 0);
}

TEST_F(SessionCommands, AnIdentityReachesTheReader)
{
    logOn();
    EXPECT_EQ(QV_APP_AddHID(2, 0xBCD5, 7), 0);
    EXPECT_EQ(g_Hid[2].nPID, 0xBCD5U);
    EXPECT_EQ(g_Hid[2].nVID, 7U);
    EXPECT_EQ(g_nHidNum, 3);
    EXPECT_EQ(g_bIcSetHidFlag, 1);
    EXPECT_TRUE(wroteLines(
        {appLine("[QV_APP_AddHID] Start nPid = bcd5 nVid = 07 "), line("[Dev_Rdz_Ic_AddHid] Start nIndex = 2")}));
    EXPECT_EQ(QV_APP_AddHID(-1, 0x1234, 0x5678), 0);
    EXPECT_EQ(g_bUseSetHid, 1);
    EXPECT_EQ(g_Hid[0].nVID, 0x5678U);
    EXPECT_EQ(QV_APP_AddHID(10, 1, 2), -2);
    EXPECT_EQ(QV_APP_AddHID(1, 0x100000002, 0x8000000000000003), 0);
    EXPECT_EQ(g_Hid[1].nPID, 0x100000002U);
    EXPECT_EQ(g_Hid[1].nVID, 0x8000000000000003U);
}

} // namespace
