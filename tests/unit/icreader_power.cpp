// Card power at the reader: current slot, time-out, strategy, power-up and power-down of a slot.

#include "icreader_power.h"

using namespace qvtest;

namespace {

const uint32_t s_nTimeOutAtLoad = g_nPowerOnTimeout;
const uint32_t s_nModuleAtLoad = g_nPowerOnModule;

TEST(CardPowerAtLoad, TimeOutAndStrategyAreZero)
{
    EXPECT_EQ(s_nTimeOutAtLoad, 0U);
    EXPECT_EQ(s_nModuleAtLoad, 0U);
}

// ---- current slot, time-out, strategy -----------------------------------------------------------------------------

TEST_F(CardPower, TheCurrentSlotIsSetReadAndReset)
{
    for (int32_t nSlot : {0, 15, 16, 31, 255, 32, -1, INT32_MAX}) {
        EXPECT_EQ(COMM_Icc_CardReaderSetCardSlot(nSlot), 0);
        EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), nSlot);
        EXPECT_EQ(stCardReader.nCardSlot, nSlot);
        EXPECT_EQ(COMM_Icc_CardReaderReSetCardSlot(), 0);
        EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), 0);
        EXPECT_EQ(Dev_Rdz_Ic_SetSlot(nSlot), 0);
        EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), nSlot);
    }
    logOn();
    COMM_Icc_CardReaderSetCardSlot(255);
    EXPECT_TRUE(logged({"stCardReader.nCardSlot = ff"}));
    // Setters and getters work in every reader mode.
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(COMM_Icc_CardReaderSetCardSlot(3), 0);
    EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), 3);
    stCardReader.nReaderMode = 0;
}

TEST_F(CardPower, TimeOutAndStrategyAreSet)
{
    EXPECT_EQ(Dev_Rdz_SetPowerOnTime(120), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 120U);
    EXPECT_EQ(Dev_Rdz_SetPowerOnTime(0xFFFFFFFFU), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 0xFFFFFFFFU);
    for (uint32_t nModule : {0U, 1U, 77U}) {
        EXPECT_EQ(Dev_Rdz_Ic_SetPowerOnModule(nModule), 0);
        EXPECT_EQ(Dev_Rdz_Ic_GetPowerOnModule(), nModule);
        EXPECT_EQ(g_nPowerOnModule, nModule);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- power-up of a slot at the reader -----------------------------------------------------------------------------

TEST_F(CardPower, ACardAnswersWithItsAtr)
{
    m_peer->expect("02 30 30 30 35 33 32 32 32 30 3B 3B 38 30 30 3A 33 03").reply(replyFrame(0x9000, "3B 65 00 00"));
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 3000), 0);
    EXPECT_EQ(atr(), "3B 65 00 00");
    EXPECT_EQ(m_atr[4], 0xC5);

    answer("32 22 00 00 10", 0, "3B");
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(16, m_atr.data(), &m_nAtr, 0), 0);
    EXPECT_EQ(atr(), "3B");
    answer("32 24 13 88", 0, "50 AA");
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(255, m_atr.data(), &m_nAtr, 5000), 0);
    EXPECT_EQ(atr(), "50 AA");
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(CardPower, AnAnswerWithoutAtrIsMinusTheStatusWord)
{
    answer("32 22 00 00 00", 0x1003);
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), -4099);
    EXPECT_EQ(m_nAtr, 0U);
    answer("32 22 00 00 00", 0xFFFF);
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 0), -0xFFFF);
    answer("32 22 00 00 00", 0);
    m_nAtr = 5;
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), 0);
    EXPECT_EQ(m_nAtr, 0U);
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
}

TEST_F(CardPower, AFailedExchangeIsPassedOn)
{
    m_peer->expect(commandFrame("32 22 00 00 00")).reply("02 30 30 30 33 39 30 30 30 30 31 39 30 03");
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), -4);
    EXPECT_EQ(m_nAtr, 0U);
    m_peer->finish();
    m_peer->expect(commandFrame("32 22 00 00 00"));
    m_clock->script({1000, 1000, 1500});
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 0), -56);
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), -54);
    g_AuxFd = nFd;
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
}

TEST_F(CardPower, TheAtrMayBeUnwanted)
{
    answer("32 22 00 00 00", 0x9000, "3B 00");
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, nullptr, nullptr, 0), 0);
    answer("32 22 00 00 00", 0x9000, "3B 00");
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), nullptr, 0), 0);
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
    answer("32 22 00 00 00", 0x9000, "3B 00");
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, nullptr, &m_nAtr, 0), 0);
    EXPECT_EQ(m_nAtr, 0U);
    answer("32 22 00 00 00", 0x1004);
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, nullptr, nullptr, 0), -0x1004);
}

TEST_F(CardPower, TheLongestAtrIsHandedOut)
{
    Bytes body(507, 0x3B);
    answer("32 22 00 00 00", 0x9000, hex(body));
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), 0);
    EXPECT_EQ(m_nAtr, 507U);
    EXPECT_EQ(atr(), hex(body));
    EXPECT_EQ(m_atr[507], 0xC5);
}

TEST_F(CardPower, AnInvalidSlotGoesOutAsAFrameWithoutData)
{
    for (int32_t nSlot : {32, 254, 256, -1}) {
        SCOPED_TRACE(nSlot);
        m_peer->expect("02 30 30 30 30 30 30 03").reply(replyFrame(0x1005));
        EXPECT_EQ(COMM_Icc_RDZPowerOn(nSlot, m_atr.data(), &m_nAtr, 3000), -0x1005);
    }
}

TEST_F(CardPower, ThePowerCommandsSetNoTimeOut)
{
    COMM_Rdz_ChageReadTimeOut(41);
    answer("32 22 0B B8 00", 0x9000, "3B");
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 3000), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 41);
    answer("32 23 00", 0x9000);
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(0), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 41);
}

TEST_F(CardPower, ATimeBeyond16BitsIsCutTo65535)
{
    answer("32 22 FF FF 00", 0x9000, "3B");
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 65535), 0);
    answer("32 22 FF FF 00", 0x9000, "3B");
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 65536), 0);
    answer("32 24 FF FF", 0x9000, "3B");
    EXPECT_EQ(COMM_Icc_RDZPowerOn(255, m_atr.data(), &m_nAtr, 0xFFFFFFFFU), 0);
}

TEST_F(CardPower, AnotherReaderModeAnswersMinus50WithoutTraffic)
{
    stCardReader.nReaderMode = 1;
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 0), -50);
    EXPECT_EQ(m_nAtr, 0U);
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), -50);
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(0), -50);
    EXPECT_EQ(COMM_Icc_RDZPowerOff(0), -50);
    EXPECT_EQ(byType('1'), -50);
    EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(0, m_atr.data(), &m_nAtr), -50);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), -50);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOffSlot(0), -50);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U); // no reply, no status word
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
    EXPECT_EQ(m_peer->wire(), "");
    stCardReader.nReaderMode = 0;
}

TEST_F(CardPower, APowerUpIsLogged)
{
    answer("32 22 00 64 10", 0x9000, "3B 41 42");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(16, m_atr.data(), &m_nAtr, 100), 0);
    auto texts = logTexts();
    EXPECT_TRUE(logged({"[COMM_Icc_CardReaderPowerOn] Start nCardSlot = 10 nTimeOut = 100 ",
                        "[INSTR_Ic_RDZPowerOnCmd] Start ", "[ COMM_Rdz_SendAndReciveData ] Start ", "status=36864\n ",
                        "[COMM_Icc_CardReaderPowerOn] End nRet = 0 "}));
    bool bSeen = false;
    for (const std::string &sText : texts)
        bSeen = bSeen || sText.starts_with("PowerOn SendAndReciveData nRecvLen=3 ,ucRecvData =");
    EXPECT_TRUE(bSeen) << rawLog();
}

// ---- power-down ---------------------------------------------------------------------------------------------------

TEST_F(CardPower, APowerDownIsZeroWhateverTheStatusWord)
{
    const std::pair<int32_t, const char *> rows[] = {
        {0, "32 23 00"}, {15, "32 23 0F"}, {16, "32 23 10"}, {31, "32 23 1F"}, {255, "32 25 00 00"}};
    for (auto [nSlot, pszCommand] : rows) {
        SCOPED_TRACE(nSlot);
        answer(pszCommand, 0x9000);
        EXPECT_EQ(COMM_Icc_RDZPowerOff(nSlot), 0);
        answer(pszCommand, 0x1005);
        EXPECT_EQ(COMM_Icc_CardReaderPowerOff(nSlot), 0);
        answer(pszCommand, 0, "AA BB");
        EXPECT_EQ(Dev_Rdz_Ic_PowerOffSlot(nSlot), 0);
    }
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(CardPower, APowerDownWithoutASlotTakesTheCurrentOne)
{
    answer("32 23 07", 0x9000);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
    Dev_Rdz_Ic_SetSlot(255);
    answer("32 25 00 00", 0x9000);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
}

TEST_F(CardPower, AFailedPowerDownIsPassedOn)
{
    m_peer->expect(commandFrame("32 23 00")).reply("02 03");
    EXPECT_EQ(COMM_Icc_RDZPowerOff(0), -4);
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(0), -54);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), -54);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOffSlot(0), -54);
    g_AuxFd = nFd;
}

TEST_F(CardPower, APowerDownOfAnInvalidSlotGoesOutAsAFrameWithoutData)
{
    const char *const pszFrame = "02 30 30 30 30 30 30 03";
    for (int32_t nSlot : {32, 254, 256, -1}) {
        SCOPED_TRACE(nSlot);
        m_peer->expect(pszFrame).reply(replyFrame(0x1005));
        EXPECT_EQ(COMM_Icc_RDZPowerOff(nSlot), 0);
        EXPECT_EQ(stRDZ73xx.gStatus, 0x1005U);
        m_peer->expect(pszFrame).reply("02 03");
        EXPECT_EQ(COMM_Icc_CardReaderPowerOff(nSlot), -4);
        m_peer->expect(pszFrame).reply(replyFrame(0x9000));
        EXPECT_EQ(Dev_Rdz_Ic_PowerOffSlot(nSlot), 0);
        stCardReader.nCardSlot = nSlot;
        m_peer->expect(pszFrame).reply(replyFrame(0x9000));
        EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
        m_peer->finish();
    }
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Icc_RDZPowerOff(32), -54);
    g_AuxFd = nFd;
}

TEST_F(CardPower, APowerDownIsLogged)
{
    answer("32 23 02", 0x9000);
    logOn();
    EXPECT_EQ(COMM_Icc_RDZPowerOff(2), 0);
    EXPECT_TRUE(logged({"[COMM_Icc_RDZPowerOff] Start ", "INSTR_Ic_RDZPowerOffCmd ucSendData   LEN=3   HEX: 322302",
                        "[ COMM_Rdz_SendAndReciveData ] Start ", "[COMM_Icc_RDZPowerOff] End nRet = 0  "}));
}

} // namespace
