// Opening the reader: port names, USB identities, the switch box and the raise of the line speed, byte for byte.

#include "pty_peer.h"

#include "qvreader/icreader.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <optional>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

const IcOpenRecord s_recordAtLoad = g_sParam;
const IcCardReader s_readerAtLoad = stCardReader;
const int32_t s_flagsAtLoad[] = {g_nHidNum, g_bIcSetHidFlag, g_bUseSetHid, g_bIcBaundFlag, g_useBpBox};

// ---- what the library does to its port ------------------------------------------------------------------------

// One write: the bytes, and the speed of the line at that moment.
struct Sent {
    std::string sBytes;
    speed_t nSpeed;
    bool operator==(const Sent &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Sent &sent)
{
    return out << sent.sBytes << " at speed code " << sent.nSpeed;
}

PtyPeer *s_pPeer = nullptr;
size_t s_nOnTheLine = 0;
std::vector<Sent> s_sent;
std::vector<int> s_errors;                // errno of the i-th write, 0: it works
std::function<void(size_t)> s_afterWrite; // called with the number of the write

// The identities that the open record went through, each once in a row.
using Identity = std::pair<uint32_t, uint32_t>;
std::vector<Identity> s_identities;

} // namespace

// A speed change flushes the line, and what the reader has not taken by then is lost: each write waits for it.
extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != g_AuxFd || s_pPeer == nullptr)
        return syscall(SYS_write, nFd, pData, nLen);
    size_t nAt = s_sent.size();
    termios now{};
    tcgetattr(nFd, &now);
    s_sent.push_back({hex(pData, nLen), cfgetospeed(&now)});
    if (nAt < s_errors.size() && s_errors[nAt] != 0) {
        errno = s_errors[nAt];
        return -1;
    }
    ssize_t n = syscall(SYS_write, nFd, pData, nLen);
    if (n > 0)
        s_nOnTheLine += static_cast<size_t>(n);
    s_pPeer->waitForBytes(s_nOnTheLine);
    if (s_afterWrite)
        s_afterWrite(nAt);
    return n;
}

// Every log line asks for the time, so that a log shows which identity the open record held meanwhile.
extern "C" [[gnu::visibility("default")]] int gettimeofday(timeval *pNow, void *) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *pNow = {now.tv_sec, now.tv_nsec / 1000};
    Identity identity{g_sParam.stParam.nPID, g_sParam.stParam.nVID};
    if (s_identities.empty() || s_identities.back() != identity)
        s_identities.push_back(identity);
    return 0;
}

namespace {

const std::vector<Identity> s_builtIn = {{0xBCD5, 0x0403}, {0xBCD7, 0x0403}, {0xBC95, 0x0403},
                                         {0xBE11, 0x2B46}, {0xBE21, 0x2B46}, {0xBE01, 0x2B46}};

class ReaderOpen : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        s_pPeer = &*m_peer;
        s_nOnTheLine = 0;
        s_sent.clear();
        s_errors.clear();
        s_afterWrite = nullptr;
        s_identities.clear();
        stBackUpParam = {};
        stRDZ73xx = {};
        g_sParam = {};
        stCardReader = {};
        for (IcHidId &id : g_Hid)
            id = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = g_bIcBaundFlag = g_useBpBox = 0;
        Dev_Rdz_Ic_SetPcscReader(nullptr);
        g_bIsLinuxHidClearZero = 0;
        // "COM1", "AUX3" and so on are paths as well: relative ones, in this folder.
        m_home = std::filesystem::current_path();
        m_folder = libraryDirectory() + "/ttys";
        std::filesystem::create_directory(m_folder);
        std::filesystem::current_path(m_folder);
    }
    void TearDown() override
    {
        logOff();
        s_pPeer = nullptr;
        COMM_Com_CloseLinux();
        m_peer.reset();
        std::filesystem::current_path(m_home);
        std::filesystem::remove_all(m_folder);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    void link(const std::string &sName) { std::filesystem::create_symlink(m_peer->path(), sName); }
    static int32_t open(const char *pszName, int32_t nBaud = 9600, const char *pszBox = nullptr, uint32_t nTermType = 1)
    {
        return Dev_Rdz_Ic_OpenPort(pszName, reinterpret_cast<const uint8_t *>(pszBox), nTermType, 0, nBaud);
    }
    static speed_t speed()
    {
        termios now{};
        EXPECT_EQ(tcgetattr(g_AuxFd, &now), 0);
        return cfgetospeed(&now);
    }
    static size_t countLogged(const std::string &sText)
    {
        auto texts = logTexts();
        return static_cast<size_t>(std::count(texts.begin(), texts.end(), sText));
    }
    // Opens by a USB name and returns the identities that were tried, in order; none is plugged in.
    static std::vector<Identity> tried(const char *pszName, size_t *pnOpens = nullptr)
    {
        g_sParam = {};
        s_identities.clear();
        logOn();
        EXPECT_EQ(open(pszName), -51);
        size_t nOpens = countLogged("ICC_OpenLinuxTransPort");
        EXPECT_EQ(countLogged("===>[Dev_Rdz_Ic_ClosePort] Start "), nOpens - 1);
        logOff();
        if (pnOpens != nullptr)
            *pnOpens = nOpens;
        if (!s_identities.empty() && s_identities.front() == Identity{0, 0})
            s_identities.erase(s_identities.begin());
        return s_identities;
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    std::filesystem::path m_home;
    std::string m_folder;
};

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

// ---- USB identities -----------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, AUsbNameTriesTheSixBuiltInIdentitiesInOrder)
{
    for (const char *psz : {"HID", "USB", "1001", "1001xyz", "HID3", "USBx"}) {
        SCOPED_TRACE(psz);
        size_t nOpens = 0;
        EXPECT_EQ(tried(psz, &nOpens), s_builtIn);
        EXPECT_EQ(nOpens, 6U);
        EXPECT_EQ(g_sParam.stParam.nType, 7U);
        EXPECT_EQ(g_sParam.stParam.nPID, 0xBE01U);
        EXPECT_EQ(g_sParam.stParam.nVID, 0x2B46U);
    }
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AnOnlyIdentityIsTriedAlone)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_AddHid] Start nIndex = -1", "[Dev_Rdz_Ic_AddHid] End g_nHidNum = 0  "}));
    logOff();
    EXPECT_EQ(g_Hid[0].nPID, 0x1234U);
    EXPECT_EQ(g_Hid[0].nVID, 0x5678U);
    EXPECT_EQ(g_nHidNum, 0);
    EXPECT_EQ(g_bIcSetHidFlag, 0);
    EXPECT_EQ(g_bUseSetHid, 1);

    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(nOpens, 1U);
    EXPECT_EQ(g_nHidNum, 1);
    EXPECT_EQ(g_bUseSetHid, 1);
    EXPECT_EQ(tried("USB", &nOpens), (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(nOpens, 1U);
}

TEST_F(ReaderOpen, TheCountOfAnOnlyIdentityIsSetBeforeTheNameIsLookedAt)
{
    Dev_Rdz_Ic_AddHid(-1, 1, 2);
    EXPECT_EQ(open(nullptr), -2);
    EXPECT_EQ(g_nHidNum, 1);
    Dev_Rdz_Ic_AddHid(-1, 1, 2);
    EXPECT_EQ(g_nHidNum, 0);
    EXPECT_EQ(open(path()), 0);
    EXPECT_EQ(g_nHidNum, 1);
}

TEST_F(ReaderOpen, TheHostsIdentitiesFollowTheBuiltInOnes)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_AddHid] Start nIndex = 0", "[Dev_Rdz_Ic_AddHid] End g_nHidNum = 1  "}));
    EXPECT_EQ(g_bIcSetHidFlag, 1);
    EXPECT_EQ(g_bUseSetHid, 0);
    EXPECT_EQ(g_nHidNum, 1);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nHidNum, 2);
    auto all = s_builtIn;
    all.push_back({0xA0, 0xB0});
    all.push_back({0xA1, 0xB1});
    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
    EXPECT_EQ(g_nHidNum, 2);
    // Adding persists across opens.
    EXPECT_EQ(tried("USB", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
}

TEST_F(ReaderOpen, PlacesUpToTheLastIndexCountAlsoEmptyOnes)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(9, 0xA9, 0xB9), 0);
    EXPECT_EQ(g_nHidNum, 10);
    EXPECT_EQ(g_Hid[9].nPID, 0xA9U);
    EXPECT_EQ(g_Hid[8].nPID, 0U);
    auto all = s_builtIn;
    all.push_back({0, 0});
    all.push_back({0xA9, 0xB9});
    size_t nOpens = 0;
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 16U);

    EXPECT_EQ(Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nHidNum, 2);
    all = s_builtIn;
    all.push_back({0, 0});
    all.push_back({0xA1, 0xB1});
    EXPECT_EQ(tried("HID", &nOpens), all);
    EXPECT_EQ(nOpens, 8U);
}

TEST_F(ReaderOpen, AnOnlyIdentityReplacesTheHostsListAndTheOtherWayRound)
{
    Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1);
    Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
    EXPECT_EQ(g_Hid[1].nPID, 0xA1U);
    EXPECT_EQ(tried("HID"), (std::vector<Identity>{{0x1234, 0x5678}}));
    Dev_Rdz_Ic_AddHid(1, 0xC1, 0xD1);
    EXPECT_EQ(g_bUseSetHid, 0);
    auto all = s_builtIn;
    all.push_back({0x1234, 0x5678});
    all.push_back({0xC1, 0xD1});
    EXPECT_EQ(tried("HID"), all);
}

TEST_F(ReaderOpen, ABadIndexIsRefusedButEndsTheOnlyIdentityMode)
{
    for (int32_t nIndex : {10, 11, -2, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(nIndex);
        Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
        EXPECT_EQ(Dev_Rdz_Ic_AddHid(nIndex, 7, 8), -2);
        EXPECT_EQ(g_bUseSetHid, 0);
        EXPECT_EQ(g_bIcSetHidFlag, 0);
        EXPECT_EQ(g_nHidNum, 0);
        EXPECT_EQ(g_Hid[0].nPID, 0x1234U);
        EXPECT_EQ(g_Hid[9].nPID, 0U);
    }
    EXPECT_EQ(tried("HID"), s_builtIn);
    Dev_Rdz_Ic_AddHid(2, 1, 1);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(10, 7, 8), -2);
    EXPECT_EQ(g_nHidNum, 3);
    EXPECT_EQ(g_bIcSetHidFlag, 1);
}

TEST_F(ReaderOpen, WithBothFlagsOnlyTheHostsIdentitiesAreTaken)
{
    Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1);
    g_bUseSetHid = 1;
    size_t nOpens = 0;
    auto all = tried("HID", &nOpens);
    EXPECT_EQ(nOpens, 8U);
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[0], (Identity{0xA0, 0xB0}));
    EXPECT_EQ(all[1], (Identity{0xA1, 0xB1}));
    for (const Identity &identity : s_builtIn)
        EXPECT_EQ(std::count(all.begin(), all.end(), identity), 0);
    EXPECT_EQ(g_nHidNum, 2);
}

TEST_F(ReaderOpen, AnIdentityKeeps64BitsAndIsTriedWith32)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x1122334455667788ULL, 0x99AABBCCDDEEFF00ULL), 0);
    EXPECT_EQ(g_Hid[0].nPID, 0x1122334455667788ULL);
    EXPECT_EQ(g_Hid[0].nVID, 0x99AABBCCDDEEFF00ULL);
    EXPECT_EQ(tried("HID"), (std::vector<Identity>{{0x55667788U, 0xDDEEFF00U}}));
}

// ---- switch box ---------------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, ASwitchBoxPortIsSelectedAtOpen)
{
    const char *ports[] = {"A", "B", "C", "K", "Axyz"};
    for (const char *psz : ports) {
        SCOPED_TRACE(psz);
        s_sent.clear();
        ASSERT_EQ(open(path(), 9600, psz), 0);
        EXPECT_EQ(g_useBpBox, 1);
        std::string sAll;
        for (const Sent &sent : s_sent)
            sAll += (sAll.empty() ? "" : " ") + sent.sBytes;
        EXPECT_EQ(sAll, "1B 25 " + hex(psz, 1) + " 1B 24 49 34");
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire().size(), 5U * 7 * 3 - 1);
}

TEST_F(ReaderOpen, TerminalTypeTwoHasItsOwnSwitchBoxSequence)
{
    ASSERT_EQ(open(path(), 9600, "B", 2), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 42 1B 25 49 34");
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(ReaderOpen, AnyOtherBoxPortIsNone)
{
    for (const char *psz : {"", "D", "a", "k", " A", "@", "L", "0"}) {
        SCOPED_TRACE(psz);
        g_useBpBox = 1;
        ASSERT_EQ(open(path(), 9600, psz), 0);
        EXPECT_EQ(g_useBpBox, 0);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AFailedOpenLeavesTheBoxFlag)
{
    g_useBpBox = 1;
    EXPECT_EQ(open("/dev/nowhere", 9600, "A"), -51);
    EXPECT_EQ(g_useBpBox, 1);
    EXPECT_EQ(open("HID", 9600, "A"), -51);
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(ReaderOpen, ASwitchBoxIsReleasedOnlyWithTheRaiseFlag)
{
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34");

    // The flag may come between open and close, and go.
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(1), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 25 41 1B 24 49 34 1B 24 42");

    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(0), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 25 41 1B 24 49 34 1B 24 42 1B 25 41 1B 24 49 34");
}

TEST_F(ReaderOpen, WithoutASwitchBoxNothingIsReleased)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, ASwitchBoxSkipsTheRaise)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 38400, "C"), 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
    EXPECT_EQ(m_peer->wire(), "1B 25 43 1B 24 49 34");
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 43 1B 24 49 34 1B 24 42");
}

TEST_F(ReaderOpen, ASwitchBoxBelongsToEverySerialName)
{
    for (const char *psz : {"COM4", "AUX2"}) {
        SCOPED_TRACE(psz);
        link(psz);
        s_sent.clear();
        ASSERT_EQ(open(psz, 9600, "K"), 0);
        EXPECT_EQ(g_useBpBox, 1);
        EXPECT_THAT(s_sent, ElementsAre(Sent{"1B 25 4B 1B 24 49 34", B9600}));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(ReaderOpen, TheBoxFlagOutlivesACloseUpToTheNextOpen)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(g_useBpBox, 1);
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(g_useBpBox, 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34 1B 24 42");
}

TEST_F(ReaderOpen, OnlyASerialRecordReleasesTheBox)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    ASSERT_EQ(open(path(), 9600, "A"), 0);
    g_sParam.stParam.nType = 7;
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 24 49 34");
}

// ---- raising the speed --------------------------------------------------------------------------------------------

TEST_F(ReaderOpen, TheRaiseSwitchesTheReaderReopensAndSwitchesAgain)
{
    struct Row {
        int32_t nBaud;
        speed_t nSpeed;
        const char *pszEscape;
    };
    const Row rows[] = {{38400, B38400, "1B 25 49 32"},   {19200, B19200, "1B 25 49 33"},
                        {115200, B115200, "1B 25 49 31"}, {57600, B57600, "1B 25 49 31"},
                        {4800, B4800, "1B 25 49 31"},     {460800, B9600, "1B 25 49 31"}};
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    std::string sWire;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nBaud);
        s_sent.clear();
        ASSERT_EQ(open(path(), row.nBaud), 0);
        EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{row.pszEscape, B9600},
                                        Sent{row.pszEscape, row.nSpeed}));
        sWire += (sWire.empty() ? "" : " ") + std::string("00 00 00 00 ") + row.pszEscape + " " + row.pszEscape;
        EXPECT_EQ(m_peer->wire(), sWire);
        EXPECT_EQ(speed(), row.nSpeed);
        EXPECT_EQ(g_sParam.stParam.nBaud, static_cast<uint32_t>(row.nBaud));
        EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
        EXPECT_EQ(openDescriptors(), m_nDescriptors + 5); // the peer's four and the port
        // Nothing goes out at close.
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_EQ(m_peer->wire(), sWire);
    }
}

TEST_F(ReaderOpen, ARaiseTo9600SendsNothing)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    logOn();
    ASSERT_EQ(open(path(), 9600), 0);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 1U);
    logOff();
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, AComNameIsRaisedToo)
{
    link("COM4");
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    logOn();
    ASSERT_EQ(open("COM4", 38400), 0);
    EXPECT_TRUE(logged(
        {"ICC_OpenLinuxTransPort", "open 9600", "ICC_OpenLinuxTransPort", "[Dev_Rdz_Ic_OpenPort] End nRet = 0  "}));
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 2U);
    logOff();
    EXPECT_EQ(m_peer->wire(), "00 00 00 00 1B 25 49 32 1B 25 49 32");
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
}

TEST_F(ReaderOpen, OnlyTheFlagValueOneRaises)
{
    for (uint32_t nFlag : {0U, 2U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nFlag);
        EXPECT_EQ(Dev_Rdz_Ic_RaiseBaundFlag(nFlag), 0);
        EXPECT_EQ(g_bIcBaundFlag, static_cast<int32_t>(nFlag));
        ASSERT_EQ(open(path(), 38400), 0);
        EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(ReaderOpen, ARaiseThatCannotWriteLeavesThePortOpenAndGivesMinus51)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_errors = {EIO};
    logOn();
    EXPECT_EQ(open(path(), 38400), -51);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 2U);
    logOff();
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}));
    EXPECT_GE(g_AuxFd, 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_peer->wire(), "");
    // The port that was opened first is not left behind.
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(ReaderOpen, AnEscapeThatCannotBeSentDoesNotStopTheRaise)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_errors = {0, EIO, EIO};
    EXPECT_EQ(open(path(), 38400), 0);
    EXPECT_THAT(s_sent,
                ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 32", B9600}, Sent{"1B 25 49 32", B38400}));
    EXPECT_EQ(speed(), static_cast<speed_t>(B38400));
}

TEST_F(ReaderOpen, ARaiseThatCannotReopenGivesMinus51AndLeavesNothingOpen)
{
    link("COM4");
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_afterWrite = [](size_t nAt) {
        if (nAt == 1)
            unlink("COM4");
    };
    logOn();
    EXPECT_EQ(open("COM4", 38400), -51);
    EXPECT_EQ(countLogged("ICC_OpenLinuxTransPort"), 3U);
    logOff();
    EXPECT_THAT(s_sent, ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 32", B9600}));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(ReaderOpen, TheSpeedSwitchOnItsOwn)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    param.nBaud = 19200;
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 255), 0);
    EXPECT_THAT(s_sent,
                ElementsAre(Sent{"00 00 00 00", B9600}, Sent{"1B 25 49 33", B9600}, Sent{"1B 25 49 33", B19200}));
    EXPECT_EQ(speed(), static_cast<speed_t>(B19200));

    s_errors = {0, 0, 0, EIO};
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), 1);
    EXPECT_GE(g_AuxFd, 0);
    s_errors.clear();

    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), -1);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(nullptr, 0), -1);
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), 1);
}

TEST_F(ReaderOpen, ASpeedSwitchThatCannotReopenClosesOnceMore)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    std::strcpy(param.szTermPath, "/nowhere/tty");
    logOn();
    EXPECT_EQ(COMM_Icc_CardReaderSynBps(&param, 0), -1);
    EXPECT_TRUE(logged({"nDataLen = 4", "[COMM_Com_CloseLinux] Start ", "[COMM_Rdz_OpenReader]Start ",
                        "[COMM_Rdz_OpenReader]End nRet = -3  ", "[COMM_Com_CloseLinux] Start "}));
}

TEST_F(ReaderOpen, TheEscapeOnItsOwn)
{
    ASSERT_EQ(open(path()), 0);
    TransPortParam param = g_sParam.stParam;
    param.nBaud = 38400;
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 0), 0);
    param.nBaud = 9600;
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 255), 0);
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(nullptr, 0), -2);
    EXPECT_EQ(COMM_Icc_CardReaderResetSynBps(0), 0);
    EXPECT_EQ(COMM_Icc_CardReaderResetSynBps(255), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 32 1B 25 49 34");
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(COMM_Icc_CardReaderByBaund(&param, 0), 0);
}

} // namespace
