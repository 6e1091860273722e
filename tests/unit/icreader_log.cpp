// What conversations leave in the log: every line with the label of its layer, in order, from the host's call down to
// the frames.

#include "icreader_log.h"

using namespace qvtest;

namespace {

// ---- packets and exchange -----------------------------------------------------------------------------------------

TEST_F(ReaderLog, AnExchangeFromTheCallToTheBody)
{
    m_peer->expect(commandFrame("31 32")).reply(replyFrame(0x9000, "01 02 03"));
    logOn();
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, bytes("31 32").data(), 2, m_buf, 2), 2);
    EXPECT_TRUE(
        wrote({"Comm: [ COMM_Rdz_SendAndReciveData ] Start ", "Comm: nSendLen 2 ",
               "Comm: nMaxReciveBufLen 2,cHead =\x02,cHead = \x02", "Comm: [COMM_Rdz_ReSetStatus]Start ",
               "CommDev: nDataLen = 2", "【发送命令】 szSend\n  LEN=2   HEX: 3132",
               "Comm: [ COMM_Rdz_ReadDataFromReader ] Start ", "Comm: [COMM_Rdz_ReSetStatus]Start ",
               "CommDev: ==> nReadLen = 18 ", "== ucPacket  LEN=18   HEX: 023030303539303030303130323033393003",
               "Comm: [Str_RDZ_ParsePacket] Start nPacketLen = 18 ", "Comm:  cHead = 02 cEnd = 03  ",
               "Comm: nBodyLen = 16 ", "ucBody  LEN=8   HEX: 0005900001020390", "Comm: [COMM_Rdz_SetRecStatus] Start ",
               "Comm: status = 9000 ", "CommDev: Str_RDZ_ParsePacket Data Len = 3 "}));
    EXPECT_EQ(countBegun("Comm: [COMM_Rdz_ReSetStatus]Start "), 2);
    EXPECT_EQ(countBegun("Comm: nretval"), 0);
}

TEST_F(ReaderLog, ACommandThatCannotBeSentIsDumpedAndTheStatusResetAgain)
{
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    logOn();
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, bytes("31 32").data(), 2, m_buf, 8), -54);
    g_AuxFd = nFd;
    EXPECT_TRUE(wrote({"Comm: nSendLen 2 ", "Comm: [COMM_Rdz_ReSetStatus]Start ", "CommDev: nDataLen = 2",
                       "【发送命令】 szSend\n  LEN=2   HEX: 3132", "Comm: [COMM_Rdz_ReSetStatus]Start "}));
    EXPECT_EQ(countBegun("Comm: [COMM_Rdz_ReSetStatus]Start "), 2);
    EXPECT_EQ(countBegun("Comm: [ COMM_Rdz_ReadDataFromReader ]"), 0);

    logOn();
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, nullptr, 4, m_buf, 8), -54);
    EXPECT_TRUE(wrote({"Comm: nSendLen 4 ", "Comm: [COMM_Rdz_ReSetStatus]Start ", "CommDev: nDataLen = 4",
                       "Comm: [COMM_Rdz_ReSetStatus]Start "}));
}

TEST_F(ReaderLog, ACommandWithoutReplyDoesNotGetAsFarAsTheRead)
{
    m_peer->expect(commandFrame("31"));
    m_peer->expect(commandFrame("32"));
    logOn();
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, bytes("31").data(), 1, nullptr, 8), 0);
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, bytes("32").data(), 1, m_buf, 0), 0);
    EXPECT_EQ(countBegun("Comm: [ COMM_Rdz_SendAndReciveData ] Start "), 2);
    EXPECT_EQ(countBegun("Comm: [ COMM_Rdz_ReadDataFromReader ]"), 0);
}

TEST_F(ReaderLog, AReplyThatIsNoFrameSaysNoDataLength)
{
    m_peer->send("02 03");
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf, 8), -4);
    EXPECT_TRUE(wrote({"CommDev: ==> nReadLen = 2 ", "== ucPacket  LEN=2   HEX: 0203",
                       "Comm: [Str_RDZ_ParsePacket] Start nPacketLen = 2 ", "Comm:  cHead = 02 cEnd = 03  ",
                       "Comm: nBodyLen = -1 "}));
    EXPECT_EQ(countBegun("CommDev: Str_RDZ_ParsePacket Data Len"), 0);
    EXPECT_EQ(countBegun("ucBody"), 0);
    // A wrong LRC is found behind the dump.
    m_peer->send("02 30 30 30 33 39 30 30 30 30 31 39 30 03");
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf, 8), -4);
    EXPECT_TRUE(wrote({"Comm: nBodyLen = 12 ", "ucBody  LEN=6   HEX: 000390000190"}));
    EXPECT_EQ(countBegun("Comm: [COMM_Rdz_SetRecStatus]"), 0);
    EXPECT_EQ(countBegun("CommDev: Str_RDZ_ParsePacket Data Len"), 0);
}

TEST_F(ReaderLog, ALongPacketIsDumpedWhole)
{
    Bytes data(3000, 0x41);
    data.back() = 0x03;
    m_peer->send(hex(data));
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf, 8), -4);
    EXPECT_TRUE(wrote({"CommDev: ==> nReadLen = 3000 "}));
    EXPECT_EQ(countBegun("== ucPacket  LEN=3000   HEX: 4141"), 1);
}

TEST_F(ReaderLog, WhatIsReadRawOrNotAtAll)
{
    m_peer->send("41 42 43 03");
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf, 2), 2);
    EXPECT_TRUE(wrote({"Comm: [ COMM_Rdz_ReadDataFromReader ] Start ", "Comm: [COMM_Rdz_ReSetStatus]Start ",
                       "CommDev: ==> nReadLen = 4 ", "== ucPacket  LEN=4   HEX: 41424303", "Comm: nretval = 2 "}));
    EXPECT_EQ(countBegun("Comm: [Str_RDZ_ParsePacket]"), 0);

    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf, 0), 0);
    EXPECT_EQ(labelled(), (Lines{"Comm: [ COMM_Rdz_ReadDataFromReader ] Start ", "Comm: Not Read Data "}));

    // A failed read brings no packet.
    int nFd = g_AuxFd;
    g_AuxFd = -2;
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf, 8), -2);
    g_AuxFd = nFd;
    EXPECT_TRUE(wrote({"Comm: [COMM_Rdz_ReSetStatus]Start ", "CommDev: ==> nReadLen = -2 "}));
    EXPECT_EQ(countBegun("== ucPacket"), 0);
}

TEST_F(ReaderLog, AnEmptyPacketIsOneLine)
{
    uint8_t uc = 0;
    logOn();
    EXPECT_EQ(Str_RDZ_ParsePacket(2, 3, &uc, 0, m_buf, &m_nLen), -4);
    EXPECT_EQ(labelled(), (Lines{"Comm: [Str_RDZ_ParsePacket] Start nPacketLen = 0 "}));
}

TEST_F(ReaderLog, TheSettersOfTheReader)
{
    logOn();
    COMM_Rdz_SetEndCondition(IcEndCondition);
    COMM_Rdz_ChageReadTimeOut(60);
    COMM_Rdz_SetHidClearZero(0x1F);
    COMM_Rdz_SetRecStatus(0x1003);
    COMM_Rdz_GetRecStatus();
    COMM_Rdz_ReSetStatus();
    Set_RdzBp("D");
    EXPECT_EQ(
        labelled(),
        (Lines{"Comm: [COMM_Rdz_SetEndCondition ] Start", "CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 60 ",
               "Comm: [ COMM_Rdz_SetHidClearZero ] Start nFlag = 1f", "Comm: [COMM_Rdz_SetRecStatus] Start ",
               "Comm: status = 1003 ", "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003",
               "Comm: [COMM_Rdz_ReSetStatus]Start ", "Comm: [Set_RdzBp] Start "}));
    logOn();
    COMM_Rdz_Cancel();
    EXPECT_TRUE(wrote({"Comm: [COMM_Rdz_Cancel] Start "}));
}

// ---- open and close -----------------------------------------------------------------------------------------------

TEST_F(ReaderLog, AnOpenAndAClose)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort(path(), nullptr, 1, 0, 9600), 0);
    EXPECT_TRUE(wrote({"CommDev: ===>[Dev_Rdz_Ic_ClosePort] Start ", "CommDev: [Dev_Rdz_Ic_OpenPort] Start ",
                       "Comm: [COMM_Rdz_OpenReader]Start ", "Comm: [COMM_Rdz_OpenReader]End nRet = 0  ",
                       "Comm: [ COMM_Rdz_SetHidClearZero ] Start nFlag = 01",
                       "CommDev: [Dev_Rdz_Ic_OpenPort] End nRet = 0  "}));
    EXPECT_EQ(countBegun("CommDev: open 9600"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("/dev/nowhere", nullptr, 1, 0, 9600), -51);
    EXPECT_TRUE(wrote({"Comm: [COMM_Rdz_OpenReader]Start ", "Comm: [COMM_Rdz_OpenReader]End nRet = -3  "}));
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("PCSC", nullptr, 1, 0, 9600), -50);
    EXPECT_TRUE(wrote({"CommDev: [Dev_Rdz_Ic_OpenPort] Start ", "CommDev: Open Pcsc"}));
    EXPECT_EQ(countBegun("Comm: [COMM_Rdz_OpenReader]"), 0);
}

TEST_F(ReaderLog, TheRaiseFlagIsToldAlsoWhenNothingIsRaised)
{
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort(path(), nullptr, 1, 0, 9600), 0);
    EXPECT_TRUE(wrote({"Comm: [COMM_Rdz_OpenReader]End nRet = 0  ", "CommDev: open 9600",
                       "Comm: [ COMM_Rdz_SetHidClearZero ] Start nFlag = 01"}));
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    // A switch box skips the step as a whole.
    m_peer->expect("1B 25 41 1B 24 49 34");
    m_peer->expect("1B 24 42");
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort(path(), reinterpret_cast<const uint8_t *>("A"), 1, 0, 38400), 0);
    EXPECT_EQ(countBegun("CommDev: open 9600"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

TEST_F(ReaderLog, AnIdentityAlsoARefusedOne)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(3, 1, 2), 0);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(10, 1, 2), -2);
    EXPECT_EQ(
        labelled(),
        (Lines{"CommDev: [Dev_Rdz_Ic_AddHid] Start nIndex = 3", "CommDev: [Dev_Rdz_Ic_AddHid] End g_nHidNum = 4  ",
               "CommDev: [Dev_Rdz_Ic_AddHid] Start nIndex = 10", "CommDev: [Dev_Rdz_Ic_AddHid] End g_nHidNum = 4  "}));
    g_nHidNum = g_bIcSetHidFlag = 0;
}

TEST_F(ReaderLog, DataForTheReaderAreDumpedBeforeTheyGo)
{
    m_peer->expect(commandFrame("31 11"));
    logOn();
    EXPECT_EQ(COMM_Icc_WriteDataToCardReader(bytes("31 11").data(), 2), 0);
    EXPECT_TRUE(wrote({"*LEN=2   HEX: 3111", "CommDev: nDataLen = 2"}));
}

// ---- power --------------------------------------------------------------------------------------------------------

TEST_F(ReaderLog, APowerUp)
{
    answer("32 22 00 64 10", 0x9000, "3B 41 42");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(16, m_buf, &m_nLen, 100), 0);
    EXPECT_TRUE(wrote({"CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = 10 nTimeOut = 100 ",
                       "CommDev: [INSTR_Ic_RDZPowerOnCmd] Start ", "Comm: [ COMM_Rdz_SendAndReciveData ] Start ",
                       "CommDev: PowerOn SendAndReciveData nRecvLen=3 ,ucRecvData =;AB\n ", "CommDev: status=36864\n ",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = 0 "}));
    EXPECT_EQ(countBegun("Comm: [COMM_Rdz_GetRecStatus]"), 0);

    answer("32 24 00 00", 0x1003);
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(255, m_buf, &m_nLen, 0), -0x1003);
    EXPECT_TRUE(wrote({"CommDev: PowerOn SendAndReciveData nRecvLen=0 ,ucRecvData =\n ", "CommDev: status=4099\n ",
                       "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = -4099 "}));

    damage("32 22 00 00 00");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_buf, &m_nLen, 0), -4);
    EXPECT_TRUE(wrote({"CommDev: PowerOn SendAndReciveData nRecvLen=-4 ,ucRecvData =\n ", "CommDev: status=0\n ",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = -4 "}));
}

TEST_F(ReaderLog, APowerUpInAnotherReaderMode)
{
    stCardReader.nReaderMode = 1;
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOn(0, m_buf, &m_nLen, 7), -50);
    EXPECT_EQ(labelled(), (Lines{"CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = 00 nTimeOut = 7 ",
                                 "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = -50 "}));
}

TEST_F(ReaderLog, APowerDown)
{
    answer("32 23 02", 0x9000);
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(2), 0);
    EXPECT_TRUE(
        wrote({"CommDev: [COMM_Icc_RDZPowerOff] Start ", "INSTR_Ic_RDZPowerOffCmd ucSendData   LEN=3   HEX: 322302",
               "Comm: [ COMM_Rdz_SendAndReciveData ] Start ", "CommDev: [COMM_Icc_RDZPowerOff] End nRet = 0  "}));
    damage("32 23 02");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(2), -4);
    EXPECT_TRUE(wrote({"CommDev: [COMM_Icc_RDZPowerOff] End nRet = -4  "}));
}

TEST_F(ReaderLog, APowerUpByCardType)
{
    Dev_Rdz_SetPowerOnTime(2);
    answer("32 24 07 D0", 0x9000, "50");
    logOn();
    EXPECT_EQ(Dev_Rdz_IccPowerOn('2', m_buf, &m_nLen), 0);
    EXPECT_TRUE(
        wrote({"CommDev: [Dev_Rdz_IccPowerOn] Start icFlag = 2", "CommDev: g_nPowerOnTimeout = 2",
               "CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 2 ", "CommDev: stCardReader.nCardSlot = ff",
               "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 2000 "}));
    // The reset of the slot that went before is no setting.
    EXPECT_EQ(countBegun("CommDev: stCardReader.nCardSlot"), 1);

    // The time is the host's, whatever the command's field holds of it.
    Dev_Rdz_SetPowerOnTime(300);
    answer("32 24 FF FF", 0x9000, "50");
    logOn();
    EXPECT_EQ(Dev_Rdz_IccPowerOn('2', m_buf, &m_nLen), 0);
    EXPECT_TRUE(wrote({"CommDev: g_nPowerOnTimeout = 300", "CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 300 ",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 300000 "}));

    logOn();
    EXPECT_EQ(Dev_Rdz_PowerOnLoop(' ', m_buf, &m_nLen), -1);
    EXPECT_EQ(labelled(), (Lines{"CommDev:  get contact IC or contactless IC "}));
}

TEST_F(ReaderLog, APowerUpAfterADetection)
{
    answer("32 30 00 00", 0x9000, "01");
    answer("32 22 00 00 00", 0x9000, "3B");
    logOn();
    EXPECT_EQ(Dev_Rdz_IccPowerOn('x', m_buf, &m_nLen), 0);
    EXPECT_TRUE(
        wrote({"CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 0 ",
               "CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 2 ", "Comm: [ICC_RDZ73xxCHECKCARD] Start!\n",
               "Comm: 接触IC卡\n", "Comm: [ICC_RDZ73xxCHECKCARD] End!\n", "CommDev: check icc ",
               "CommDev: stCardReader.nCardSlot = 00",
               "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = 00 nTimeOut = 0 "}));
    answer("32 30 00 00", 0x9000, "02");
    answer("32 24 00 00", 0x9000, "50");
    logOn();
    EXPECT_EQ(Dev_Rdz_IccPowerOn('x', m_buf, &m_nLen), 0);
    EXPECT_TRUE(wrote({"Comm: 非接IC卡\n", "CommDev: check picc ", "CommDev: stCardReader.nCardSlot = ff",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 0 "}));
}

// ---- commands -----------------------------------------------------------------------------------------------------

TEST_F(ReaderLog, ACommandWithOpenAndClose)
{
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    answer("32 26 00 00 84 00 00 00", 0x9000, "90 00");
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 9600, "1", 4, bytes("00 84 00 00").data(), &m_nLen, m_buf), 0);
    EXPECT_TRUE(
        wrote({"CommDev: [Dev_Rdz_Ic_SendCommand] Start ", "CommDev: ==>port:" + m_peer->path() + " term:1,baud:9600",
               "CommDev: [Dev_Rdz_Ic_OpenPort] Start ", "CommDev: [Dev_Rdz_Ic_OpenPort] End nRet = 0  ",
               "CommDev: ==>nReturn:0", "CommDev: stCardReader.nCardSlot = 00", "CommDev:  nSlot = 0 ",
               "*LEN=4   HEX: 00840000", "CommDev: 【ICC_CardCmdVisitCOS】 Start ",
               "[ICC_CardCmdVisitCOS]  LEN=5   HEX: 0084000000", "接触卡0 C_APDU   LEN=5   HEX: 0084000000",
               "Instr: [INSTR_Ic_RDZAPDUCmd] Start ", "[COMM_Icc_RDZAPDU] End  LEN=2   HEX: 9000",
               "接触卡0 R_APDU   LEN=2   HEX: 9000", "CommDev: stCardCmdParam.nErrorCode 9000",
               "CommDev: ===>[Dev_Rdz_Ic_ClosePort] Start ", "CommDev: [Dev_Rdz_Ic_SendCommand] End nRet = 00  "}));
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand("xyz", 3, nullptr, 38400, "1", 4, bytes("00 84 00 00").data(), &m_nLen, m_buf),
              -51);
    EXPECT_TRUE(wrote({"CommDev: ==>port:xyz term:3,baud:38400", "CommDev: ==>nReturn:-2",
                       "CommDev: ===>[Dev_Rdz_Ic_ClosePort] Start "}));
}

TEST_F(ReaderLog, ACommandOnAnOpenPort)
{
    Dev_Rdz_Ic_SetSlot(17);
    answer("32 26 11 00 84 00 00 08", 0x1003);
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnly("x", 5, bytes("00 84 00 00 08").data(), &m_nLen, m_buf), 0x1003);
    EXPECT_TRUE(wrote({"CommDev:  nSlot = 17 ", "*LEN=5   HEX: 0084000008", "CommDev: 【ICC_CardCmdVisitCOS】 Start ",
                       "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003",
                       "CommDev: [Dev_Rdz_Ic_SendCommandOnly] End nRet = 4099  "}));
    EXPECT_EQ(countBegun("CommDev: stCardCmdParam"), 0);
}

TEST_F(ReaderLog, ACommandDirectWithItsClose)
{
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    m_nLen = 9;
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect("/dev/nowhere", nullptr, 9600, 1, bytes("31").data(), &m_nLen, m_buf), -51);
    EXPECT_TRUE(wrote({"CommDev: [Dev_Rdz_Ic_OpenPort] Start ", "CommDev: ===>[Dev_Rdz_Ic_ClosePort] Start "}));
    m_peer->expect("31 32").reply("41 03");
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 2, bytes("31 32").data(), &m_nLen, m_buf), 2);
    EXPECT_TRUE(wrote({"CommDev: [Dev_Rdz_Ic_OpenPort] End nRet = 0  ", "*LEN=2   HEX: 3132",
                       "Comm: [ COMM_Rdz_SendAndReciveData ] Start ", "Comm: nSendLen 2 ", "Comm: nretval = 2 ",
                       "CommDev: ===>[Dev_Rdz_Ic_ClosePort] Start "}));
}

TEST_F(ReaderLog, AFollowUpAndItsFailure)
{
    answer("32 26 00 00 A4 04 00", 0, "61 02");
    answer("32 26 00 00 C0 00 00 02", 0, "AA BB 90 00");
    logOn();
    EXPECT_EQ(ICC_CardCmdVisitCOS(bytes("00 A4 04 00").data(), 4, m_buf, &m_nLen), 0);
    EXPECT_TRUE(wrote({"CommDev: 【ICC_CardCmdVisitCOS】 Start ", "[ICC_CardCmdVisitCOS]  LEN=4   HEX: 00A40400",
                       "接触卡0 C_APDU   LEN=4   HEX: 00A40400", "接触卡0 R_APDU   LEN=2   HEX: 6102",
                       "接触卡0 C_APDU   LEN=5   HEX: 00C0000002", "接触卡0 R_APDU   LEN=4   HEX: AABB9000",
                       "CommDev: stCardCmdParam.nErrorCode 9000"}));
    EXPECT_EQ(countBegun("CommDev: stCardCmdParam"), 1);

    answer("32 26 00 00 A4 04 00", 0, "00 07");
    logOn();
    EXPECT_EQ(ICC_CardCmdVisitCOS(bytes("00 A4 04 00").data(), 4, m_buf, &m_nLen), 0);
    EXPECT_TRUE(wrote({"CommDev: stCardCmdParam.nErrorCode 07"}));
    answer("32 26 00 00 A4 04 00", 0, "61");
    logOn();
    EXPECT_EQ(ICC_CardCmdVisitCOS(bytes("00 A4 04 00").data(), 4, m_buf, &m_nLen), 0);
    EXPECT_TRUE(wrote({"接触卡0 R_APDU   LEN=1   HEX: 61", "CommDev: stCardCmdParam.nErrorCode aaaa"}));

    damage("32 26 00 00 A4 04 00");
    logOn();
    EXPECT_EQ(ICC_CardCmdVisitCOS(bytes("00 A4 04 00").data(), 4, m_buf, &m_nLen), -4);
    Lines lines = labelled();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string &sLine) {
        return sLine.starts_with("CommDev: ") && sLine.find("-4") != std::string::npos &&
               sLine.find("fffffffc") != std::string::npos;
    })) << rawLog();
    EXPECT_EQ(countBegun("CommDev: stCardCmdParam"), 0);
}

TEST_F(ReaderLog, AnEmptyAnswerAsksForTheStatusWord)
{
    answer("32 26 00 00 84", 0x1003);
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderApdu(0, bytes("00 84").data(), 2, m_buf, &m_nLen), -0x1003);
    EXPECT_TRUE(wrote({"接触卡0 C_APDU   LEN=2   HEX: 0084", "接触卡0 R_APDU   LEN=0   HEX: ",
                       "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003"}));
}

// ---- detection ----------------------------------------------------------------------------------------------------

TEST_F(ReaderLog, ADetectionEndsInTheLogHoweverItEnds)
{
    damage("32 30 00 05");
    logOn();
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(5), -4);
    EXPECT_TRUE(wrote({"Comm: [ICC_RDZ73xxCHECKCARD] Start!\n", "Comm: [ICC_RDZ73xxCHECKCARD] End!\n"}));
}

TEST_F(ReaderLog, ASlotScan)
{
    answer("32 21 01", 0x1005);
    answer("32 24 00 00", 0x3006);
    logOn();
    int32_t nSlot = 0;
    EXPECT_EQ(DealCardSlot('!', &nSlot), 6);
    EXPECT_TRUE(wrote({"CommDev:  i = 1 ", "Comm: [ COMM_Rdz_SendAndReciveData ] Start ",
                       "CommDev: RdzCheckCardIsInSlot SendAndReciveData nRecvLen=0\n ", "CommDev: status=1005\n ",
                       "CommDev: stCardReader.nCardSlot = 01", "CommDev: check picc ",
                       "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 0 ",
                       "CommDev: check picc Power on nret = ffffcffa"}));
    EXPECT_EQ(countBegun("CommDev: stCardReader.nCardSlot"), 1);
    damage("32 21 00");
    logOn();
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), -4);
    EXPECT_TRUE(wrote({"CommDev: RdzCheckCardIsInSlot SendAndReciveData nRecvLen=-4\n ", "CommDev: status=00\n "}));
}

} // namespace
