// Opening the reader: the open record, port names, and the modes that are refused.

#include "icreader_open.h"

#include <cstring>

using namespace qvtest;

namespace {

const IcOpenRecord s_recordAtLoad = g_sParam;
const IcCardReader s_readerAtLoad = stCardReader;
const int32_t s_flagsAtLoad[] = {g_nHidNum, g_bIcSetHidFlag, g_bUseSetHid, g_bIcBaundFlag, g_useBpBox};

TEST(ReaderOpenAtLoad, EverythingIsZeroOrEmpty)
{
    const IcOpenRecord zero{};
    EXPECT_EQ(std::memcmp(&s_recordAtLoad, &zero, sizeof zero), 0);
    EXPECT_EQ(s_readerAtLoad.nReaderMode, 0);
    EXPECT_EQ(s_readerAtLoad.nTimeOut, 0);
    EXPECT_EQ(s_readerAtLoad.nCardSlot, 0);
    for (int32_t nFlag : s_flagsAtLoad)
        EXPECT_EQ(nFlag, 0);
    for (const IcHidId &id : g_Hid) {
        EXPECT_EQ(id.nPID, 0U);
        EXPECT_EQ(id.nVID, 0U);
    }
    EXPECT_STREQ(g_szPcscReader, "");
}

// ---- the open record ----------------------------------------------------------------------------------------------

void expectDefaults(const TransPortParam &param)
{
    EXPECT_EQ(param.nWord1, 170U);
    EXPECT_EQ(param.nType, 1U);
    EXPECT_EQ(param.nTermType, 1U);
    EXPECT_EQ(param.nWord4, 0U);
    EXPECT_EQ(param.nPID, 0U);
    EXPECT_EQ(param.nVID, 0U);
    EXPECT_EQ(param.nPort, 1);
    EXPECT_EQ(param.nBaud, 9600U);
    EXPECT_EQ(param.nAuxPort, 0);
    EXPECT_EQ(param.bAuxPrefix, 0U);
    EXPECT_EQ(std::string(param.szTermPath, sizeof param.szTermPath), std::string(sizeof param.szTermPath, '\0'));
    EXPECT_EQ(param.nTimeOut, 3);
    EXPECT_EQ(param.pfnEndCondition, IcEndCondition);
}

TEST_F(ReaderOpen, TheDefaultsAreSerial9600AndThreeSeconds)
{
    TransPortParam param;
    std::memset(static_cast<void *>(&param), 0xC5, sizeof param);
    EXPECT_EQ(COMM_Icc_InitCardReaderParam(&param), 0);
    expectDefaults(param);
    EXPECT_EQ(COMM_Icc_InitCardReaderParam(nullptr), -2);
}

TEST_F(ReaderOpen, AReplyEndsWithThree)
{
    const uint8_t buf[] = {0x03, 0x04, 0x03};
    EXPECT_EQ(IcEndCondition(buf, 1), 0);
    EXPECT_EQ(IcEndCondition(buf, 2), -1);
    EXPECT_EQ(IcEndCondition(buf, 3), 0);
    EXPECT_EQ(IcEndCondition(buf + 1, 0), -1);
    EXPECT_EQ(IcEndCondition(buf + 1, -1), -1);
    EXPECT_EQ(IcEndCondition(nullptr, 0), -1);
}

TEST_F(ReaderOpen, TheReadersOwnEndConditionKnowsNoOtherEndByte)
{
    const uint8_t buf[] = {0x03, 0x04};
    ChangeEndChar(0x04);
    EXPECT_EQ(IcEndCondition(buf, 1), 0);
    EXPECT_EQ(IcEndCondition(buf, 2), -1);
    ChangeEndChar(0x03);
}

TEST_F(ReaderOpen, AnOpenRecordIsOpenedAndItsModeAndTimeOutKept)
{
    TransPortParam param;
    COMM_Icc_InitCardReaderParam(&param);
    std::strcpy(param.szTermPath, path());
    param.nTimeOut = 17;
    param.pfnEndCondition = nullptr;
    stCardReader = {0, 1, 255};
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), 0);
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(stCardReader.nTimeOut, 17);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_EQ(param.pfnEndCondition, IcEndCondition);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, IcEndCondition);
    EXPECT_EQ(stBackUpParam.nTimeOut, 17);
    EXPECT_EQ(stRDZ73xx.nType, 1U);
    EXPECT_EQ(COMM_Icc_CloseCardReader(), 0);
    EXPECT_EQ(g_AuxFd, -2);
}

int32_t own(const uint8_t *, int32_t)
{
    return 1;
}

TEST_F(ReaderOpen, AnEndConditionOfTheHostStays)
{
    TransPortParam param;
    COMM_Icc_InitCardReaderParam(&param);
    std::strcpy(param.szTermPath, path());
    param.pfnEndCondition = own;
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, own);
}

TEST_F(ReaderOpen, AnOpenRecordThatFailsLeavesTheReaderRecord)
{
    stCardReader = {0, 5, 6};
    TransPortParam param;
    COMM_Icc_InitCardReaderParam(&param);
    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), -3);
    std::strcpy(param.szTermPath, "/dev/null");
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), -1);
    param.nType = 8;
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), -1);
    std::strcpy(param.szTermPath, path());
    param.nType = 1;
    param.nWord4 = 1;
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), -50);
    EXPECT_EQ(COMM_Icc_OpenCardReader(nullptr), -2);
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(stCardReader.nTimeOut, 5);
    EXPECT_EQ(stCardReader.nCardSlot, 6);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(ReaderOpen, ASuccessfulOpenTakesTheReaderModeFromItsRecord)
{
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(open(path()), 0);
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

TEST_F(ReaderOpen, TheEndConditionIsFilledInBeforeAnythingElse)
{
    TransPortParam param;
    COMM_Icc_InitCardReaderParam(&param);
    param.nWord4 = 1;
    param.pfnEndCondition = nullptr;
    EXPECT_EQ(COMM_Icc_OpenCardReader(&param), -50);
    EXPECT_EQ(param.pfnEndCondition, IcEndCondition);
}

TEST_F(ReaderOpen, AnotherReaderModeAnswersMinus50WithoutTraffic)
{
    ASSERT_EQ(open(path()), 0);
    uint8_t buf[4] = {0x31, 0x32, 0x33, 0x34};
    for (int32_t nMode : {1, 2, -1}) {
        SCOPED_TRACE(nMode);
        stCardReader.nReaderMode = nMode;
        EXPECT_EQ(COMM_Icc_WriteDataToCardReader(buf, 4), -50);
        EXPECT_EQ(COMM_Icc_ReadDataFromCardReader(buf, 4), -50);
        EXPECT_EQ(COMM_Icc_CardReaderCmd(buf, 4), -50);
        EXPECT_EQ(COMM_Icc_CloseCardReader(), -50);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), -50);
        EXPECT_EQ(COMM_Icc_CardReaderSynBps(&g_sParam.stParam, 0), -50);
        EXPECT_EQ(COMM_Icc_CardReaderByBaund(&g_sParam.stParam, 0), -50);
        EXPECT_EQ(COMM_Icc_CardReaderResetSynBps(0), 0);
        EXPECT_GE(g_AuxFd, 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, CardReaderDataTravelInCardFramesAndCommandsRaw)
{
    ASSERT_EQ(open(path()), 0);
    logOn();
    EXPECT_EQ(COMM_Icc_WriteDataToCardReader(bytes("31 11").data(), 2), 0);
    bool bHex = false;
    for (const std::string &sText : logTexts())
        bHex = bHex || sText.find("LEN=2   HEX: 3111") != std::string::npos;
    EXPECT_TRUE(bHex) << rawLog();
    logOff();
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 32 33 31 31 31 32 30 03");
    EXPECT_EQ(COMM_Icc_CardReaderCmd(bytes("1B 24 42").data(), 3), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 32 33 31 31 31 32 30 03 1B 24 42");
    EXPECT_EQ(COMM_Icc_WriteDataToCardReader(nullptr, 2), -1);
    EXPECT_EQ(COMM_Icc_CardReaderCmd(nullptr, 2), -1);
    m_peer->send(replyFrame(0x9000, "AA BB CC"));
    uint8_t in[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    EXPECT_EQ(COMM_Icc_ReadDataFromCardReader(in, 2), 2);
    EXPECT_EQ(hex(in), "AA BB C5 C5");
}

TEST_F(ReaderOpen, ACloseBeforeAnyOpenGivesMinusOne)
{
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), -1);
    EXPECT_EQ(COMM_Icc_CloseCardReader(), -1);
}

// ---- port names ---------------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, ADevicePathOpensThatTty)
{
    stCardReader.nCardSlot = 255;
    ASSERT_EQ(Dev_Rdz_Ic_OpenPort(path(), nullptr, 4, 0xFFFFFFFFU, 38400), 0);
    EXPECT_STREQ(ttyname(g_AuxFd), path());
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
    EXPECT_EQ(g_sParam.stParam.nWord1, 170U);
    EXPECT_EQ(g_sParam.stParam.nType, 1U);
    EXPECT_EQ(g_sParam.stParam.nTermType, 4U);
    EXPECT_EQ(g_sParam.stParam.nWord4, 0U);
    EXPECT_EQ(g_sParam.stParam.nPort, 1);
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(g_sParam.stParam.nAuxPort, 0);
    EXPECT_STREQ(g_sParam.stParam.szTermPath, path());
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(stCardReader.nTimeOut, 3);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_EQ(stBackUpParam.nTimeOut, 3);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, IcEndCondition);
    EXPECT_EQ(stRDZ73xx.nType, 1U);
    EXPECT_EQ(g_useBpBox, 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AComOrAuxNameIsAPathWithANumber)
{
    const std::pair<const char *, int32_t> rows[] = {{"COM1", 1},  {"COM12", 12},   {"AUX3", 3}, {"COM", 0},
                                                     {"AUX", 0},   {"COM7x", 7},    {"COMx", 0}, {"AUX-2", -2},
                                                     {"COM 5", 5}, {"AUXILIARY", 0}};
    for (auto [pszName, nPort] : rows) {
        SCOPED_TRACE(pszName);
        link(pszName);
        ASSERT_EQ(open(pszName, 19200), 0);
        EXPECT_STREQ(ttyname(g_AuxFd), path());
        EXPECT_EQ(speed(), static_cast<speed_t>(B19200));
        EXPECT_EQ(g_sParam.stParam.nType, 1U);
        EXPECT_EQ(g_sParam.stParam.nPort, nPort);
        EXPECT_EQ(g_sParam.stParam.nAuxPort, 0);
        EXPECT_STREQ(g_sParam.stParam.szTermPath, pszName);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, NullEmptyAndUnknownNamesGiveMinusTwo)
{
    g_useBpBox = 9;
    for (const char *psz : {"com1", "aux1", "usb", "hid", "pcsc", "/Dev/x", "dev/x", "/de", "CO", "AU", "US", "HI",
                            "100", "PCS", " COM1", "tty", "x", "Com1", "1002"}) {
        SCOPED_TRACE(psz);
        g_sParam.stParam.nBaud = 77;
        EXPECT_EQ(open(psz, 19200, "A", 6), -2);
        EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
        EXPECT_EQ(g_sParam.stParam.nTermType, 6U);
    }
    g_sParam.stParam.nBaud = 77;
    EXPECT_EQ(open(nullptr), -2);
    EXPECT_EQ(open(""), -2);
    EXPECT_EQ(g_sParam.stParam.nBaud, 77U);
    EXPECT_EQ(g_useBpBox, 9);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
}

TEST_F(ReaderOpen, APortThatWillNotOpenGivesMinus51AfterOneTry)
{
    stCardReader = {0, 5, 6};
    for (const char *psz : {"/dev/nowhere", "COM9", "AUX", "/dev/null", "/dev"}) {
        SCOPED_TRACE(psz);
        logOn();
        EXPECT_EQ(open(psz), -51);
        EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 1U);
        logOff();
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    }
    EXPECT_EQ(stCardReader.nTimeOut, 5);
}

TEST_F(ReaderOpen, A256CharacterNameIsTakenWholeAndALongerOneIsCut)
{
    std::filesystem::create_directory("COMd");
    std::string sName = "COMd/" + std::string(251, 'x');
    ASSERT_EQ(sName.size(), 256U);
    link(sName);
    ASSERT_EQ(open(sName.c_str()), 0);
    EXPECT_EQ(g_sParam.stParam.szTermPath, sName);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);

    std::string sLonger = sName + std::string(1000, 'y');
    ASSERT_EQ(open(sLonger.c_str()), 0);
    EXPECT_EQ(g_sParam.stParam.szTermPath, sName);
    EXPECT_EQ(g_sParam.stParam.nTimeOut, 3);
    EXPECT_EQ(g_sParam.stParam.pfnEndCondition, IcEndCondition);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    std::string sNextToIt = sName.substr(0, 255) + "z";
    EXPECT_EQ(open(sNextToIt.c_str()), -51);
}

TEST_F(ReaderOpen, PcscIsRefusedWithItsNameKept)
{
    EXPECT_EQ(Dev_Rdz_Ic_SetPcscReader("Some Reader 00"), 0);
    EXPECT_STREQ(g_szPcscReader, "Some Reader 00");
    for (const char *psz : {"PCSC", "PCSC 1"}) {
        logOn();
        EXPECT_EQ(open(psz, 9600, "A"), -50);
        EXPECT_TRUE(logged({"Open Pcsc"}));
        EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 0U);
        logOff();
        EXPECT_EQ(g_sParam.stParam.nType, 2U);
        EXPECT_EQ(g_sParam.stParam.nWord4, 1U);
        EXPECT_STREQ(g_sParam.szPcscReader, "Some Reader 00");
    }
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    // The next open is not bothered by it.
    EXPECT_EQ(open(path()), 0);
    EXPECT_EQ(g_sParam.stParam.nWord4, 0U);
}

TEST_F(ReaderOpen, APcscNameIsClearedAndCutAt255)
{
    EXPECT_EQ(Dev_Rdz_Ic_SetPcscReader(std::string(300, 'r').c_str()), 0);
    EXPECT_EQ(g_szPcscReader, std::string(255, 'r'));
    EXPECT_EQ(open("PCSC"), -50);
    EXPECT_EQ(g_sParam.szPcscReader, std::string(255, 'r'));
    EXPECT_EQ(Dev_Rdz_Ic_SetPcscReader("ab"), 0);
    EXPECT_EQ(std::string(g_szPcscReader, 256), "ab" + std::string(254, '\0'));
    EXPECT_EQ(Dev_Rdz_Ic_SetPcscReader(nullptr), 0);
    EXPECT_STREQ(g_szPcscReader, "");
}

TEST_F(ReaderOpen, WhatIsNotOfferedSaysSo)
{
    char sz[8] = "CCCCCCC";
    EXPECT_EQ(Dev_Rdz_IcGetPcScList(sz), -2);
    EXPECT_STREQ(sz, "CCCCCCC");
    EXPECT_EQ(Dev_Rdz_IcGetPcScList(nullptr), -2);
    EXPECT_EQ(Dev_Rdz_IcMulCancel(), 0);
    EXPECT_EQ(Dev_Rdz_M1PowerOn(1, 2, 3, 4, 5, 6, 7, 8), -1);
}

TEST_F(ReaderOpen, AnOpenAndACloseAreLogged)
{
    logOn();
    EXPECT_EQ(open(path()), 0);
    EXPECT_TRUE(
        logged({"[Dev_Rdz_Ic_OpenPort] Start ", "[COMM_Rdz_OpenReader]Start ", "[COMM_Rdz_OpenReader]End nRet = 0  ",
                "[ COMM_Rdz_SetHidClearZero ] Start nFlag = 01", "[Dev_Rdz_Ic_OpenPort] End nRet = 0  "}));
    EXPECT_FALSE(logged({"open 9600"}));
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_TRUE(logged({"===>[Dev_Rdz_Ic_ClosePort] Start "}));
}

TEST_F(ReaderOpen, AFailedOpenIsLoggedWithItsResult)
{
    const std::pair<const char *, int32_t> rows[] = {
        {nullptr, -2}, {"com1", -2}, {"/dev/nowhere", -51}, {"HID", -51}, {"PCSC", -50}};
    for (auto [pszName, nResult] : rows) {
        logOn();
        EXPECT_EQ(open(pszName), nResult);
        EXPECT_EQ(logTexts().front(), "[Dev_Rdz_Ic_OpenPort] Start ");
        EXPECT_EQ(logTexts().back(), "[Dev_Rdz_Ic_OpenPort] End nRet = " + std::to_string(nResult) + "  ");
    }
}

} // namespace
