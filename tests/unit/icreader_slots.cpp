// Which card is where: the reader's own detection, the status of one slot, the slot scan.

#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <optional>

using namespace qvtest;

namespace {

class Slots : public OpenReader {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
    }
    int32_t scan(char cMode)
    {
        m_nSlot = -77;
        return DealCardSlot(static_cast<uint8_t>(cMode), &m_nSlot);
    }

    int32_t m_nSlot = 0;
};

TEST(SlotsAtLoad, NothingWasAsked)
{
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

// ---- which card ---------------------------------------------------------------------------------------------------

TEST_F(Slots, EachCardKindHasItsResultAndItsText)
{
    struct Row {
        const char *pszBody;
        int32_t nResult;
        const char *pszText;
    };
    const Row rows[] = {{"01", 0, "接触IC卡\n"},    {"02", 1, "非接IC卡\n"},
                        {"03", 2, "磁条卡\n"},      {"03 31 32 33 7C 34 35", 2, "磁条卡\n"},
                        {"04", 0, "身份证\n"},      {"00", -1, "未知异常\n"},
                        {"05", -1, "未知异常\n"},   {"31", -1, "未知异常\n"},
                        {"FF 01", -1, "未知异常\n"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszBody);
        answer("32 30 00 0A", 0x9000, row.pszBody);
        logOn();
        EXPECT_EQ(ICC_RDZ73xxCHECKCARD(10), row.nResult);
        EXPECT_TRUE(logged({"[ICC_RDZ73xxCHECKCARD] Start!\n", "[ COMM_Rdz_SendAndReciveData ] Start ", row.pszText,
                            "[ICC_RDZ73xxCHECKCARD] End!\n"}));
        EXPECT_NE(rawLog().find("INFO:    Comm:    [ICC_RDZ73xxCHECKCARD] Start!\n"), std::string::npos);
        EXPECT_NE(rawLog().find(std::string("INFO:    Comm:    ") + row.pszText), std::string::npos);
        logOff();
    }
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(Slots, ADetectionSendsPlainSecondsAndSetsNoTimeOut)
{
    FakeClock clock(1000);
    const std::pair<uint32_t, const char *> rows[] = {
        {0, "32 30 00 00"}, {0x0102, "32 30 01 02"}, {65535, "32 30 FF FF"}, {0x00010003, "32 30 00 03"}};
    for (auto [nTimeOut, pszCommand] : rows) {
        answer(pszCommand, 0x9000, "01");
        EXPECT_EQ(ICC_RDZ73xxCHECKCARD(nTimeOut), 0);
        EXPECT_EQ(stBackUpParam.nTimeOut, 60);
    }
}

TEST_F(Slots, ADetectionWithoutBodyIsUnknown)
{
    answer("32 30 00 01", 0x1005);
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), -1);
    answer("32 30 00 01", 0);
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), -1);
}

TEST_F(Slots, AFailedDetectionIsPassedOn)
{
    m_peer->expect(commandFrame("32 30 00 01")).reply("02 03");
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), -4);
    m_peer->finish();
    m_peer->expect(commandFrame("32 30 00 01"));
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), -56);
    }
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), -54);
    g_AuxFd = nFd;
}

TEST_F(Slots, ADetectionAsksInAnotherReaderModeToo)
{
    for (int32_t nMode : {1, 2, -1}) {
        SCOPED_TRACE(nMode);
        stCardReader.nReaderMode = nMode;
        answer("32 30 00 0A", 0x9000, "02");
        EXPECT_EQ(ICC_RDZ73xxCHECKCARD(10), 1);
        m_peer->finish();
    }
    EXPECT_EQ(m_peer->wire(),
              commandFrame("32 30 00 0A") + " " + commandFrame("32 30 00 0A") + " " + commandFrame("32 30 00 0A"));
}

TEST_F(Slots, TheLongestTrackTextIsRead)
{
    Bytes body(507, 0x31);
    body[0] = 3;
    answer("32 30 00 01", 0x9000, hex(body));
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(1), 2);
}

// ---- status of one slot -------------------------------------------------------------------------------------------

TEST_F(Slots, TheStatusOfASlotIsTheStatusWordOfTheReply)
{
    const std::pair<int32_t, const char *> rows[] = {{0, "32 21 00"},  {1, "32 21 01"},  {15, "32 21 0F"},
                                                     {16, "32 21 10"}, {31, "32 21 1F"}, {255, "32 24 00 00"}};
    for (auto [nSlot, pszCommand] : rows) {
        SCOPED_TRACE(nSlot);
        for (uint32_t nStatus : {0U, 0x1003U, 0x1004U, 0x1005U, 0x9000U, 0xFFFFU}) {
            answer(pszCommand, nStatus);
            EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(nSlot), static_cast<int32_t>(nStatus));
        }
        // A body changes nothing.
        answer(pszCommand, 0x1003, "AA BB");
        EXPECT_EQ(COMM_Icc_CardReaderCheckSloct(nSlot), 0x1003);
    }
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(Slots, AnInvalidSlotIsNotAskedFor)
{
    for (int32_t nSlot : {32, 254, 256, -1, INT32_MIN}) {
        EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(nSlot), -2);
        EXPECT_EQ(COMM_Icc_CardReaderCheckSloct(nSlot), -2);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Slots, AFailedStatusIsPassedOn)
{
    m_peer->expect(commandFrame("32 21 00")).reply("02 03");
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), -4);
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Icc_CardReaderCheckSloct(0), -54);
    g_AuxFd = nFd;
}

TEST_F(Slots, AStatusIsLogged)
{
    answer("32 21 00", 0x1003);
    logOn();
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), 0x1003);
    EXPECT_TRUE(logged({"[ COMM_Rdz_SendAndReciveData ] Start ", "RdzCheckCardIsInSlot SendAndReciveData nRecvLen=0\n ",
                        "status=1003\n "}));
}

TEST_F(Slots, InAnotherReaderModeASlotHasStatusZero)
{
    stCardReader.nReaderMode = 1;
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(COMM_Icc_CardReaderCheckSloct(0), 0);
    EXPECT_EQ(COMM_Icc_CardReaderCheckSloct(99), 0);
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), -50);
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(99), -50);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- slot scan ----------------------------------------------------------------------------------------------------

TEST_F(Slots, AContactCardEndsTheScan)
{
    struct Row {
        char cMode;
        uint32_t nStatus;
        const char *pszCommand;
        int32_t nSlot;
        int32_t nResult;
    };
    const Row rows[] = {
        {'1', 0, "32 21 00", 0, 2},       {'1', 0x1003, "32 21 00", 0, 2}, {'1', 0x1004, "32 21 00", 0, 3},
        {'!', 0, "32 21 01", 1, 2},       {'!', 0x1003, "32 21 01", 1, 2}, {'!', 0x1004, "32 21 01", 1, 3},
        {' ', 0, "32 21 00", 0, 2},       {' ', 0x1004, "32 21 00", 0, 3}, {'x', 0x1003, "32 21 00", 0, 2},
        {'\0', 0x1003, "32 21 00", 0, 2}, {'\x01', 0, "32 21 00", 0, 2}};
    for (const Row &row : rows) {
        SCOPED_TRACE(static_cast<int>(row.cMode));
        SCOPED_TRACE(row.nStatus);
        stCardReader.nCardSlot = 7;
        answer(row.pszCommand, row.nStatus);
        EXPECT_EQ(scan(row.cMode), row.nResult);
        EXPECT_EQ(m_nSlot, row.nSlot);
        EXPECT_EQ(stCardReader.nCardSlot, row.nSlot);
        m_peer->finish();
    }
}

TEST_F(Slots, ModeOneStopsAtTheContactSlot)
{
    for (uint32_t nStatus : {0x1005U, 0x1002U, 0x9000U, 0xFFFFU}) {
        SCOPED_TRACE(nStatus);
        stCardReader.nCardSlot = 7;
        answer("32 21 00", nStatus);
        EXPECT_EQ(scan('1'), 4);
        EXPECT_EQ(m_nSlot, 0);
        EXPECT_EQ(stCardReader.nCardSlot, 0);
        m_peer->finish();
    }
    // A reply that is damaged means no card as well.
    m_peer->expect(commandFrame("32 21 00")).reply("02 03");
    EXPECT_EQ(scan('1'), 4);
    EXPECT_EQ(m_nSlot, 0);
}

TEST_F(Slots, TheOtherModesGoOnToTheAntenna)
{
    const std::pair<char, const char *> rows[] = {{'!', "32 21 01"}, {' ', "32 21 00"}, {'x', "32 21 00"}};
    for (auto [cMode, pszCommand] : rows) {
        SCOPED_TRACE(cMode);
        stCardReader.nCardSlot = 7;
        answer(pszCommand, 0x1005);
        answer("32 24 00 00", 0, "50 01");
        EXPECT_EQ(scan(cMode), 1);
        EXPECT_EQ(m_nSlot, 255);
        EXPECT_EQ(stCardReader.nCardSlot, 255);
    }
    // Nothing at the antenna: the contact slot stays current.
    answer("32 21 01", 0x1005);
    answer("32 24 00 00", 0x3001);
    EXPECT_EQ(scan('!'), 7);
    EXPECT_EQ(m_nSlot, 255);
    EXPECT_EQ(stCardReader.nCardSlot, 1);
}

TEST_F(Slots, ModeTwoLooksAtTheAntennaOnly)
{
    answer("32 24 00 00", 0, "50 01");
    EXPECT_EQ(scan('2'), 1);
    EXPECT_EQ(m_nSlot, 255);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_EQ(m_peer->wire(), commandFrame("32 24 00 00"));
}

TEST_F(Slots, EachContactlessFailureHasItsResult)
{
    const std::pair<uint32_t, int32_t> rows[] = {
        {0x3006, 6},   {0x3001, 7},   {0x3004, 7},   {0x3007, 7},   {0x3008, 7},   {0x3009, 7},   {0x3000, -99},
        {0x3002, -99}, {0x3003, -99}, {0x3005, -99}, {0x300A, -99}, {0x1003, -99}, {0x9000, -99}, {54, -54},
        {55, -55},     {56, -56},     {57, -99},     {4, -99},      {1, -99}};
    for (auto [nStatus, nResult] : rows) {
        SCOPED_TRACE(nStatus);
        stCardReader.nCardSlot = 7;
        answer("32 24 00 00", nStatus);
        EXPECT_EQ(scan('2'), nResult);
        EXPECT_EQ(m_nSlot, 255);
        EXPECT_EQ(stCardReader.nCardSlot, 7);
    }
}

TEST_F(Slots, TransportFailuresAtTheAntennaArePassedOn)
{
    m_peer->expect(commandFrame("32 24 00 00")).reply("02 03");
    EXPECT_EQ(scan('2'), -99); // a damaged reply is none of them
    m_peer->finish();
    m_peer->expect(commandFrame("32 24 00 00"));
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(scan('2'), -56);
    }
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(scan('2'), -54);
    EXPECT_EQ(m_nSlot, 255);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    // The contact check fails the same way and the scan goes on.
    EXPECT_EQ(scan(' '), -54);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    g_AuxFd = nFd;
    stCardReader.nCardSlot = 7;
}

TEST_F(Slots, TheAntennaIsPoweredWithoutWaitingAndOnTheTimeLeft)
{
    FakeClock clock(1000);
    Dev_Rdz_SetPowerOnTime(9);
    answer("32 24 00 00", 0x3006);
    EXPECT_EQ(scan('2'), 6);
    EXPECT_EQ(stBackUpParam.nTimeOut, 60);
    g_nPowerOnTimeout = 0;
}

TEST_F(Slots, AScanIsLogged)
{
    answer("32 21 01", 0x1005);
    answer("32 24 00 00", 0x3006);
    logOn();
    EXPECT_EQ(scan('!'), 6);
    EXPECT_TRUE(logged({" i = 1 ", "RdzCheckCardIsInSlot SendAndReciveData nRecvLen=0\n ", "status=1005\n ",
                        "check picc ", "[COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 0 ",
                        "check picc Power on nret = ffffcffa"}));
}

TEST_F(Slots, TheSlotMayBeUnwanted)
{
    answer("32 21 00", 0x1003);
    EXPECT_EQ(DealCardSlot('1', nullptr), 2);
    answer("32 21 00", 0x1005);
    answer("32 24 00 00", 0, "50");
    EXPECT_EQ(DealCardSlot(' ', nullptr), 1);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
}

TEST_F(Slots, InAnotherReaderModeTheContactSlotSeemsTaken)
{
    stCardReader.nReaderMode = 1;
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(scan('1'), 2);
    EXPECT_EQ(scan('2'), -99);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(m_peer->wire(), "");
}

} // namespace
