// Card power: the reader's power commands, the power-up by card type and its two strategies, the time-outs they set.
//
// The clock stands still, so that the time-out a call sets can be read from the state record after its last read.

#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <cstring>
#include <optional>

using namespace qvtest;

namespace {

const uint32_t s_nTimeOutAtLoad = g_nPowerOnTimeout;
const uint32_t s_nModuleAtLoad = g_nPowerOnModule;

class CardPower : public OpenReader {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
        g_nPowerOnModule = 9;
        m_clock.emplace(1000000);
        m_atr.assign(600, 0xC5);
        m_nAtr = 0xC5C5;
    }
    void TearDown() override
    {
        m_clock.reset();
        OpenReader::TearDown();
    }
    std::string atr() const { return hex(std::span(m_atr).first(m_nAtr)); }
    int32_t byType(char c) { return Dev_Rdz_IccPowerOn(static_cast<uint8_t>(c), m_atr.data(), &m_nAtr); }

    std::optional<FakeClock> m_clock;
    Bytes m_atr;
    uint32_t m_nAtr = 0;
};

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
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_atr.data(), &m_nAtr, 0), -50);
    EXPECT_EQ(COMM_Icc_RDZPowerOn(0, m_atr.data(), &m_nAtr, 0), -50);
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(0), -50);
    EXPECT_EQ(COMM_Icc_RDZPowerOff(0), -50);
    EXPECT_EQ(byType('1'), -50);
    EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(0, m_atr.data(), &m_nAtr), -50);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), -50);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOffSlot(0), -50);
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

TEST_F(CardPower, APowerDownIsLogged)
{
    answer("32 23 02", 0x9000);
    logOn();
    EXPECT_EQ(COMM_Icc_RDZPowerOff(2), 0);
    EXPECT_TRUE(logged({"[COMM_Icc_RDZPowerOff] Start ", "INSTR_Ic_RDZPowerOffCmd ucSendData   LEN=3   HEX: 322302",
                        "[ COMM_Rdz_SendAndReciveData ] Start ", "[COMM_Icc_RDZPowerOff] End nRet = 0  "}));
}

// ---- power-up by card type ----------------------------------------------------------------------------------------

TEST_F(CardPower, EachCardTypePowersItsSlot)
{
    struct Row {
        int nType;
        int32_t nSlot;
        const char *pszCommand;
    };
    const Row rows[] = {{'1', 0, "32 22 0B B8 00"}, {0, 0, "32 22 0B B8 00"},   {'2', 255, "32 24 0B B8"},
                        {255, 255, "32 24 0B B8"},  {1, 1, "32 22 0B B8 01"},   {2, 2, "32 22 0B B8 02"},
                        {3, 3, "32 22 0B B8 03"},   {16, 16, "32 22 0B B8 10"}, {17, 17, "32 22 0B B8 11"},
                        {30, 30, "32 22 0B B8 1E"}, {31, 31, "32 22 0B B8 1F"}};
    Dev_Rdz_SetPowerOnTime(3);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nType);
        stCardReader.nCardSlot = 7;
        stBackUpParam.nTimeOut = 99;
        answer(row.pszCommand, 0x9000, "3B 01");
        EXPECT_EQ(byType(static_cast<char>(row.nType)), 0);
        EXPECT_EQ(atr(), "3B 01");
        EXPECT_EQ(stCardReader.nCardSlot, row.nSlot);
        EXPECT_EQ(stBackUpParam.nTimeOut, 3);
        EXPECT_EQ(g_nPowerOnModule, 9U);
    }
}

TEST_F(CardPower, AFailedPowerUpByTypeLeavesItsSlotCurrent)
{
    answer("32 24 00 00", 0x3001);
    EXPECT_EQ(byType('2'), -0x3001);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_EQ(m_nAtr, 0U);
    answer("32 22 00 00 00", 0x1005);
    EXPECT_EQ(byType('1'), -0x1005);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(CardPower, ThePowerUpTimeIsMilliseconds16Bits)
{
    const std::pair<uint32_t, const char *> rows[] = {{0, "32 22 00 00 00"},
                                                      {1, "32 22 03 E8 00"},
                                                      {65, "32 22 FD E8 00"},
                                                      {66, "32 22 FF FF 00"},
                                                      {120, "32 22 FF FF 00"}};
    for (auto [nSeconds, pszCommand] : rows) {
        SCOPED_TRACE(nSeconds);
        Dev_Rdz_SetPowerOnTime(nSeconds);
        answer(pszCommand, 0x9000, "3B");
        EXPECT_EQ(byType('1'), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, static_cast<int32_t>(nSeconds));
        answer(pszCommand, 0x9000, "3B");
        EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(0, m_atr.data(), &m_nAtr), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, static_cast<int32_t>(nSeconds));
    }
}

TEST_F(CardPower, APowerUpTimeThatOverflowsAsMillisecondsIsStillTheLongest)
{
    Dev_Rdz_SetPowerOnTime(4294968); // times 1000 it is 704 in 32 bits
    answer("32 22 FF FF 00", 0x9000, "3B");
    EXPECT_EQ(byType('1'), 0);
}

TEST_F(CardPower, ThePowerUpByTypeIsLogged)
{
    Dev_Rdz_SetPowerOnTime(2);
    answer("32 22 07 D0 00", 0x9000, "3B");
    logOn();
    EXPECT_EQ(byType('1'), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_IccPowerOn] Start icFlag = 1", "g_nPowerOnTimeout = 2",
                        "COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 2 ", "stCardReader.nCardSlot = 00",
                        "[COMM_Icc_CardReaderPowerOn] Start nCardSlot = 00 nTimeOut = 2000 "}));
}

// ---- an explicit slot ---------------------------------------------------------------------------------------------

TEST_F(CardPower, AnExplicitSlotLeavesTheCurrentOne)
{
    Dev_Rdz_SetPowerOnTime(4);
    stBackUpParam.nTimeOut = 99;
    answer("32 22 0F A0 11", 0x9000, "3B 02");
    EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(17, m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(atr(), "3B 02");
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(stBackUpParam.nTimeOut, 4);
    answer("32 24 0F A0", 0x3006);
    EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(255, m_atr.data(), &m_nAtr), -0x3006);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    m_peer->expect("02 30 30 30 30 30 30 03").reply(replyFrame(0x1111));
    EXPECT_EQ(Dev_Rdz_IccPowerOnSlot(77, m_atr.data(), &m_nAtr), -0x1111);
}

// ---- contact, then contactless ------------------------------------------------------------------------------------

TEST_F(CardPower, TheLoopPowersTheContactCardFirst)
{
    stBackUpParam.nTimeOut = 99;
    answer("32 22 00 00 00", 0x9000, "3B 03");
    EXPECT_EQ(byType(' '), 0);
    EXPECT_EQ(atr(), "3B 03");
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    EXPECT_EQ(g_nPowerOnModule, 1U);
    EXPECT_EQ(stBackUpParam.nTimeOut, 0);

    g_nPowerOnModule = 9;
    answer("32 22 00 00 01", 0x9000, "3B 04");
    EXPECT_EQ(byType('!'), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 1);
    EXPECT_EQ(g_nPowerOnModule, 1U);
}

TEST_F(CardPower, TheLoopGoesOnToTheContactlessCard)
{
    answer("32 22 00 00 00", 0x1005);
    answer("32 24 00 00", 0, "50 01");
    EXPECT_EQ(byType(' '), 0);
    EXPECT_EQ(atr(), "50 01");
    EXPECT_EQ(stCardReader.nCardSlot, 255);

    answer("32 22 00 00 01", 0x1005);
    answer("32 24 00 00", 0x3001);
    EXPECT_EQ(byType('!'), -0x3001);
    EXPECT_EQ(stCardReader.nCardSlot, 255);

    // Any failure of the first one, a damaged reply included.
    m_peer->expect(commandFrame("32 22 00 00 00")).reply("02 03");
    answer("32 24 00 00", 0, "50 01");
    EXPECT_EQ(byType(' '), 0);
}

TEST_F(CardPower, TheLoopOnItsOwnTakesSlotZeroForAnythingButTheMark)
{
    stBackUpParam.nTimeOut = 99;
    answer("32 22 00 00 00", 0x9000, "3B");
    EXPECT_EQ(Dev_Rdz_PowerOnLoop('2', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 0);
    EXPECT_EQ(g_nPowerOnModule, 9U);
    answer("32 22 00 00 01", 0x9000, "3B");
    EXPECT_EQ(Dev_Rdz_PowerOnLoop('!', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 1);
}

TEST_F(CardPower, TheLoopBelongsToTheTimeOutZero)
{
    Dev_Rdz_SetPowerOnTime(5);
    stCardReader.nCardSlot = 7;
    stBackUpParam.nTimeOut = 99;
    logOn();
    EXPECT_EQ(Dev_Rdz_PowerOnLoop(' ', m_atr.data(), &m_nAtr), -1);
    EXPECT_TRUE(logged({" get contact IC or contactless IC "}));
    logOff();
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(stBackUpParam.nTimeOut, 99);

    for (char c : {' ', '!'}) {
        stCardReader.nCardSlot = 7;
        g_nPowerOnModule = 9;
        EXPECT_EQ(byType(c), -1);
        EXPECT_EQ(stCardReader.nCardSlot, 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, 5);
        EXPECT_EQ(g_nPowerOnModule, 1U);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- detect first -------------------------------------------------------------------------------------------------

TEST_F(CardPower, ADetectedContactCardIsPoweredInSlotZero)
{
    Dev_Rdz_SetPowerOnTime(5);
    stBackUpParam.nTimeOut = 99;
    for (const char *pszKind : {"01", "04"}) {
        SCOPED_TRACE(pszKind);
        stCardReader.nCardSlot = 7;
        answer("32 30 00 05", 0x9000, pszKind);
        answer("32 22 00 00 00", 0x9000, "3B 05");
        logOn();
        EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), 0);
        EXPECT_TRUE(logged({"COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 7 ", "check icc "}));
        logOff();
        EXPECT_EQ(atr(), "3B 05");
        EXPECT_EQ(stCardReader.nCardSlot, 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, 7);
        EXPECT_EQ(g_nPowerOnModule, 9U);
    }
}

TEST_F(CardPower, ADetectedContactlessCardIsPoweredAtTheAntenna)
{
    Dev_Rdz_SetPowerOnTime(0x0102);
    answer("32 30 01 02", 0x9000, "02");
    answer("32 24 00 00", 0x9000, "50 05");
    logOn();
    EXPECT_EQ(Dev_Rdz_PowerOnInstr(' ', m_atr.data(), &m_nAtr), 0);
    EXPECT_TRUE(logged({"check picc "}));
    EXPECT_EQ(atr(), "50 05");
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_EQ(stBackUpParam.nTimeOut, 0x0104);
}

TEST_F(CardPower, AnyOtherDetectionIsHandedOnWithoutPowerUp)
{
    answer("32 30 00 00", 0x9000, "03 31 32");
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), 2);
    answer("32 30 00 00", 0x9000, "05");
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), -1);
    answer("32 30 00 00", 0x1005);
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), -1);
    m_peer->expect(commandFrame("32 30 00 00")).reply("02 03");
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), -4);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
}

TEST_F(CardPower, AFailedPowerUpAfterADetectionIsHandedOn)
{
    answer("32 30 00 00", 0x9000, "01");
    answer("32 22 00 00 00", 0x1003);
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), -0x1003);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(CardPower, EveryOtherCardTypeDetectsFirst)
{
    Dev_Rdz_SetPowerOnTime(6);
    for (int nType : std::initializer_list<int>{4, 15, 34, '0', '3', 'A', 0x80, 254}) {
        SCOPED_TRACE(nType);
        stCardReader.nCardSlot = 7;
        g_nPowerOnModule = 9;
        answer("32 30 00 06", 0x9000, "02");
        answer("32 24 00 00", 0x9000, "50");
        EXPECT_EQ(byType(static_cast<char>(nType)), 0);
        EXPECT_EQ(g_nPowerOnModule, 0U);
        EXPECT_EQ(stCardReader.nCardSlot, 255);
        EXPECT_EQ(stBackUpParam.nTimeOut, 8);
    }
    // With nothing detected the slot was reset all the same.
    stCardReader.nCardSlot = 7;
    answer("32 30 00 06", 0x9000, "03");
    EXPECT_EQ(byType('A'), 2);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(CardPower, ThePowerUpAfterASlowDetectionHasWhatIsLeft)
{
    Dev_Rdz_SetPowerOnTime(5);
    answer("32 30 00 05", 0x9000, "01");
    answer("32 22 00 00 00", 0x9000, "3B");
    // The detection's read lasts from 2000 to 2004; the clock stands again afterwards.
    m_clock->script({2000, 2000, 2004});
    EXPECT_EQ(Dev_Rdz_PowerOnInstr('x', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 3);
}

} // namespace
