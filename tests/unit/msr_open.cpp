// Opening the reader for stripe work: the open record, and the port names.

#include "msr_reader.h"

#include "device_log.h"

#include <gmock/gmock.h>

#include <cstring>

using namespace qvtest;
using testing::ElementsAre;

namespace {

const TransPortParam s_paramAtLoad = g_MsgParam;
const int32_t s_flagsAtLoad[] = {g_nMsgHidNum, g_bMsgSetHidFlag, g_bOnlyUseSetHid, g_bMsgBaundFlag};
const bool s_bIdentitiesAtLoad = std::any_of(std::begin(g_MsgHid), std::end(g_MsgHid),
                                             [](const IcHidId &id) { return id.nPID != 0 || id.nVID != 0; });

TEST(StripeOpenAtLoad, EverythingIsZero)
{
    const TransPortParam zero{};
    EXPECT_EQ(std::memcmp(&s_paramAtLoad, &zero, sizeof zero), 0);
    for (int32_t nFlag : s_flagsAtLoad)
        EXPECT_EQ(nFlag, 0);
    EXPECT_FALSE(s_bIdentitiesAtLoad);
}

// ---- the open record ------------------------------------------------------------------------------------------------

void expectDefaults(const TransPortParam &param, int32_t nTimeOut)
{
    EXPECT_EQ(param.nWord1, 170U);
    EXPECT_EQ(param.nType, 1U);
    EXPECT_EQ(param.nTermType, 0U);
    EXPECT_EQ(param.nWord4, 0U);
    EXPECT_EQ(param.nPID, 0U);
    EXPECT_EQ(param.nVID, 0U);
    EXPECT_EQ(param.nPort, 1);
    EXPECT_EQ(param.nBaud, 9600U);
    EXPECT_EQ(param.nAuxPort, 0);
    EXPECT_EQ(param.bAuxPrefix, 0U);
    EXPECT_EQ(std::string(param.szTermPath, sizeof param.szTermPath), std::string(sizeof param.szTermPath, '\0'));
    EXPECT_EQ(param.nTimeOut, nTimeOut);
    EXPECT_EQ(param.pfnEndCondition, nullptr);
}

TEST_F(StripePort, TheDefaultsAreSerial9600TwoSecondsAndNoEndCondition)
{
    TransPortParam param;
    std::memset(static_cast<void *>(&param), 0xC5, sizeof param);
    EXPECT_EQ(COMM_Msg_InitCardReaderParam(&param), 0);
    expectDefaults(param, 2);
    EXPECT_EQ(COMM_Msg_InitCardReaderParam(nullptr), -2);
}

TEST_F(StripePort, AReplyEndsWithFour)
{
    const uint8_t buf[] = {0x04, 0x03, 0x04};
    EXPECT_EQ(MsgEndCondition(buf, 1), 0);
    EXPECT_EQ(MsgEndCondition(buf, 2), -1);
    EXPECT_EQ(MsgEndCondition(buf, 3), 0);
    EXPECT_EQ(MsgEndCondition(buf + 1, 0), -1);
    EXPECT_EQ(MsgEndCondition(buf + 1, -1), -1);
    EXPECT_EQ(MsgEndCondition(nullptr, 0), -1);
    ChangeEndChar(0x03);
    EXPECT_EQ(MsgEndCondition(buf, 2), -1);
}

TransPortParam recordOf(const char *pszPath)
{
    TransPortParam param;
    COMM_Msg_InitCardReaderParam(&param);
    std::strncpy(param.szTermPath, pszPath, sizeof param.szTermPath - 1);
    return param;
}

int32_t own(const uint8_t *, int32_t)
{
    return 1;
}

TEST_F(StripePort, ARecordIsOpenedWithTheStripesEndConditionUnlessItHasOne)
{
    TransPortParam param = recordOf(path());
    param.nTimeOut = 17;
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), 0);
    EXPECT_EQ(param.pfnEndCondition, MsgEndCondition);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgEndCondition);
    EXPECT_EQ(stBackUpParam.nTimeOut, 17);
    EXPECT_EQ(stRDZ73xx.nType, 1U);
    EXPECT_STREQ(ttyname(g_AuxFd), path());
    EXPECT_EQ(COMM_Msg_CloseCardReader(), 0);
    EXPECT_EQ(g_AuxFd, -2);

    param.pfnEndCondition = own;
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, own);
    EXPECT_EQ(COMM_Msg_CloseCardReader(), 0);
}

TEST_F(StripePort, ABusyRecordGivesMinus50AndOpensNothing)
{
    TransPortParam param = recordOf("/dev/stripe");
    for (uint32_t nBusy : {1U, 2U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nBusy);
        param.nWord4 = nBusy;
        param.pfnEndCondition = nullptr;
        EXPECT_EQ(COMM_Msg_OpenCardReader(&param), -50);
        EXPECT_EQ(param.pfnEndCondition, MsgEndCondition);
    }
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_EQ(stBackUpParam.nType, 0U);

    // The next one is not bothered by it, nor is an open reader by a busy record.
    param.nWord4 = 0;
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), 0);
    param.nWord4 = 1;
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), -50);
    EXPECT_EQ(COMM_Msg_WriteDataToCardReader(1, bytes("1B 30").data(), 2), 0);
    EXPECT_EQ(COMM_Msg_CloseCardReader(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 30");
}

TEST_F(StripePort, ARecordThatWillNotOpenGivesTheDispatchersCode)
{
    TransPortParam param = recordOf("/nowhere/tty");
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), -3);
    param = recordOf("/dev/null");
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), -1);
    param = recordOf(path());
    param.nType = 4;
    EXPECT_EQ(COMM_Msg_OpenCardReader(&param), -1);
    EXPECT_EQ(COMM_Msg_OpenCardReader(nullptr), -2);
    EXPECT_EQ(g_AuxFd, -2);
}

// ---- "COM" ----------------------------------------------------------------------------------------------------------

TEST_F(StripePort, AComNameOpensTheSerialPortWithTheNumberBeforeIts)
{
    struct Row {
        const char *pszName;
        uint32_t nBaud;
        const char *pszTty;
        int32_t nPort;
    };
    const Row rows[] = {
        {"com2", 115200, "/dev/ttyS1", 2},    {"COM1", 9600, "/dev/ttyS0", 1},  {"Com3", 9600, "/dev/ttyS2", 3},
        {"cOM12", 115200, "/dev/ttyS11", 12}, {"COM7x", 9600, "/dev/ttyS6", 7}, {"COM 5", 9600, "/dev/ttyS4", 5},
        {"COM0", 9600, "/dev/ttyS-1", 0},     {"COMx", 9600, "/dev/ttyS-1", 0}, {"COM256", 9600, "/dev/ttyS255", 256},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszName);
        s_opened.clear();
        g_MsgParam.nPID = g_MsgParam.nVID = g_MsgParam.bAuxPrefix = 9;
        logOn();
        ASSERT_EQ(open(row.pszName, row.nBaud, "", 4, 33), 0);
        EXPECT_NE(logWithoutTime().find(line("USE COM")), std::string::npos) << rawLog();
        logOff();
        EXPECT_THAT(s_opened, ElementsAre(row.pszTty));
        EXPECT_EQ(speed(), static_cast<speed_t>(row.nBaud == 9600 ? B9600 : B115200));
        EXPECT_EQ(g_MsgParam.nWord1, 170U);
        EXPECT_EQ(g_MsgParam.nType, 1U);
        EXPECT_EQ(g_MsgParam.nTermType, 0U);
        EXPECT_EQ(g_MsgParam.nWord4, 0U);
        EXPECT_EQ(g_MsgParam.nPID, 0U);
        EXPECT_EQ(g_MsgParam.nVID, 0U);
        EXPECT_EQ(g_MsgParam.nPort, row.nPort);
        EXPECT_EQ(g_MsgParam.nBaud, row.nBaud);
        EXPECT_EQ(g_MsgParam.nAuxPort, 0);
        EXPECT_EQ(g_MsgParam.bAuxPrefix, 0U);
        EXPECT_STREQ(g_MsgParam.szTermPath, row.pszTty);
        EXPECT_EQ(g_MsgParam.nTimeOut, 33);
        EXPECT_EQ(g_MsgParam.pfnEndCondition, MsgEndCondition);
        EXPECT_EQ(stBackUpParam.nTimeOut, 33);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgEndCondition);
        EXPECT_EQ(stBackUpParam.nType, 1U);
        EXPECT_EQ(stRDZ73xx.nType, 1U);
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        EXPECT_EQ(g_AuxFd, -2);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(StripePort, AComNameTakes9600And115200Only)
{
    for (uint32_t nBaud : {38400U, 0U, 300U, 4800U, 9599U, 9601U, 19200U, 57600U, 115199U, 115201U, 230400U}) {
        SCOPED_TRACE(nBaud);
        EXPECT_EQ(open("COM2", nBaud, "A"), -2);
        logOn();
        EXPECT_EQ(open("com2", nBaud, "A"), -2);
        EXPECT_EQ(countLogged("USE COM"), 0);
        logOff();
        EXPECT_EQ(g_MsgParam.nType, 1U);
        EXPECT_EQ(g_MsgParam.nPort, 1);
        EXPECT_EQ(g_MsgParam.nBaud, 9600U);
        EXPECT_STREQ(g_MsgParam.szTermPath, "");
    }
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(StripePort, ANumberBeyondAllPortsIsNoMoreThanAPortThatWillNotOpen)
{
    s_bUnplugged = true;
    for (const char *psz : {"COM2147483647", "COM-2147483648", "COM2147483648", "COM99999999999999999999", "COM-1"}) {
        SCOPED_TRACE(psz);
        s_opened.clear();
        EXPECT_EQ(open(psz), -50);
        ASSERT_EQ(s_opened.size(), 1U);
        EXPECT_TRUE(s_opened[0].starts_with("/dev/ttyS")) << s_opened[0];
    }
}

// ---- "/dev" ---------------------------------------------------------------------------------------------------------

TEST_F(StripePort, ADevicePathIsOpenedAsItStandsAtAnyRate)
{
    struct Row {
        const char *pszName;
        uint32_t nBaud;
        speed_t nSpeed;
    };
    const Row rows[] = {{"/dev/stripe0", 38400, B38400}, {"/dev/ttyS5", 19200, B19200}, {"/dev/COM3", 9600, B9600},
                        {"/DEV/Stripe1", 300, B300},     {"/dEv/stripe", 12345, B9600}, {"/dev/stripe", 0, B9600}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszName);
        s_opened.clear();
        logOn();
        ASSERT_EQ(open(row.pszName, row.nBaud, "", 4, 1), 0);
        EXPECT_EQ(countLogged("USE HID") + countLogged("USE AUX") + countLogged("USE COM"), 0);
        logOff();
        EXPECT_THAT(s_opened, ElementsAre(row.pszName));
        EXPECT_EQ(speed(), row.nSpeed);
        EXPECT_EQ(g_MsgParam.nType, 1U);
        EXPECT_EQ(g_MsgParam.nTermType, 0U);
        EXPECT_EQ(g_MsgParam.nBaud, row.nBaud);
        EXPECT_EQ(g_MsgParam.nPort, 0); // read from the fourth character on
        EXPECT_EQ(g_MsgParam.nAuxPort, 0);
        EXPECT_EQ(g_MsgParam.bAuxPrefix, 0U);
        EXPECT_STREQ(g_MsgParam.szTermPath, row.pszName);
        EXPECT_EQ(stBackUpParam.nTimeOut, 1);
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(StripePort, APathOf256CharactersIsTakenWholeAndALongerOneHarmsNothing)
{
    const std::string sLongest = "/dev/stripe" + std::string(245, 'x');
    ASSERT_EQ(open(sLongest.c_str()), 0);
    EXPECT_THAT(s_opened, ElementsAre(sLongest));
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    s_opened.clear();
    ASSERT_EQ(open((sLongest + std::string(1000, 'y')).c_str()), 0);
    EXPECT_THAT(s_opened, ElementsAre(sLongest));
    EXPECT_EQ(g_MsgParam.nTimeOut, 7);
    EXPECT_EQ(g_MsgParam.pfnEndCondition, MsgEndCondition);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
}

// ---- "AUX" ----------------------------------------------------------------------------------------------------------

TEST_F(StripePort, AnAuxNameIsTakenApartAndGivesMinus50)
{
    const std::pair<const char *, int32_t> rows[] = {{"AUX1", 1},      {"aux12", 12}, {"Aux", 0},  {"AUX0", 0},
                                                     {"AUXiliary", 0}, {"AUX-3", -3}, {"aUX4x", 4}};
    for (auto [pszName, nPort] : rows) {
        SCOPED_TRACE(pszName);
        logOn();
        EXPECT_EQ(open(pszName, 19200, "A", 3, 12), -50);
        EXPECT_NE(logWithoutTime().find(line("USE AUX")), std::string::npos) << rawLog();
        EXPECT_EQ(countLogged("[COMM_Rdz_OpenReader]Start "), 1);
        EXPECT_EQ(rawLog().find("ICC_OpenTransPort"), std::string::npos);
        logOff();
        EXPECT_EQ(g_MsgParam.nType, 4U);
        EXPECT_EQ(g_MsgParam.nTermType, 3U);
        EXPECT_EQ(g_MsgParam.nAuxPort, nPort);
        EXPECT_EQ(g_MsgParam.bAuxPrefix, 1U);
        EXPECT_EQ(g_MsgParam.nBaud, 9600U);
        EXPECT_EQ(g_MsgParam.nPort, 1);
        EXPECT_STREQ(g_MsgParam.szTermPath, "");
        EXPECT_EQ(g_MsgParam.nTimeOut, 12);
        EXPECT_EQ(g_MsgParam.pfnEndCondition, MsgEndCondition);
    }
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_THAT(s_sent, ElementsAre());
    EXPECT_EQ(stBackUpParam.nType, 0U);
}

// ---- what is refused ------------------------------------------------------------------------------------------------

TEST_F(StripePort, AnUnknownNameGivesMinus2WithTheRecordSetToItsDefaults)
{
    for (const char *psz :
         {"COM",  "com",  "CO", "C",  "A",  "AU",    "tty", "x",      " COM1", "1002",   "10011", "HID1", "USB0", "00",
          "HID ", " HID", "0 ", "10", "hi", "dev/x", "/de", "/tmp/x", "PCSC",  "PCSC 1", "\xFF",  "/",    "COn1"}) {
        SCOPED_TRACE(psz);
        std::memset(static_cast<void *>(&g_MsgParam), 0xC5, sizeof g_MsgParam);
        g_nMsgHidNum = 5;
        EXPECT_EQ(open(psz, 9600, "A", 6, 21), -2);
        expectDefaults(g_MsgParam, 21);
        EXPECT_EQ(g_nMsgHidNum, 0);
    }
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_EQ(stBackUpParam.nType, 0U);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(StripePort, ANullOrEmptyNameGivesMinus50BeforeAnythingElse)
{
    g_MsgParam.nBaud = 77;
    g_nMsgHidNum = 5;
    EXPECT_EQ(open(nullptr), -50);
    EXPECT_EQ(open(""), -50);
    EXPECT_EQ(g_MsgParam.nBaud, 77U);
    EXPECT_EQ(g_nMsgHidNum, 5);
}

TEST_F(StripePort, APortThatWillNotOpenGivesMinus50)
{
    s_bUnplugged = true;
    for (const char *psz : {"COM1", "/dev/stripe", "/dev/null", "/dev"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(open(psz, 9600, "A"), -50);
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(g_MsgParam.nType, 1U);
    }
    EXPECT_THAT(s_opened, ElementsAre("/dev/ttyS0", "/dev/stripe"));
    EXPECT_THAT(s_sent, ElementsAre());
    EXPECT_EQ(stBackUpParam.nType, 0U);
}

} // namespace
