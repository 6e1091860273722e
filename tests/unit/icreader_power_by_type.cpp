// The power-up by card type, of an explicit slot, and by the two strategies; the time-outs they set.

#include "icreader_power.h"

#include <initializer_list>

using namespace qvtest;

namespace {

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
    EXPECT_EQ(m_nAtr, 0U);
    EXPECT_EQ(Dev_Rdz_PowerOnLoop(' ', m_atr.data(), nullptr), -1);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(stBackUpParam.nTimeOut, 99);

    for (char c : {' ', '!'}) {
        stCardReader.nCardSlot = 7;
        g_nPowerOnModule = 9;
        m_nAtr = 0xC5C5;
        EXPECT_EQ(byType(c), -1);
        EXPECT_EQ(m_nAtr, 0U);
        EXPECT_EQ(stCardReader.nCardSlot, 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, 5);
        EXPECT_EQ(g_nPowerOnModule, 1U);
    }
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
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
