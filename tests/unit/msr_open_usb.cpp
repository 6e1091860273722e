// Opening the reader for stripe work by a USB name: which identities are tried, in which order, and what is closed between
// the tries.

#include "usb_bus.h"

#include "device_log.h"

#include "qvreader/icreader.h"
#include "qvreader/msr.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <strings.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

// Product and vendor id.
using Identity = std::pair<uint32_t, uint32_t>;
using Identities = std::vector<Identity>;

const Identities s_builtIn = {{0xBCD5, 0x0403}, {0xBE01, 0x2B46}, {0xBCD7, 0x0403},
                              {0xBC01, 0x2B46}, {0xBC95, 0x0403}, {0xBE11, 0x2B46}};

int s_nByLocale = 0;

int compareByLocale(const char *pszOne, const char *pszOther, size_t nMax) noexcept
{
    ++s_nByLocale;
    for (; nMax > 0; ++pszOne, ++pszOther, --nMax) {
        const int n =
            std::tolower(static_cast<unsigned char>(*pszOne)) - std::tolower(static_cast<unsigned char>(*pszOther));
        if (n != 0 || *pszOne == '\0')
            return n;
    }
    return 0;
}

class StripeIdentities : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        stRDZ73xx = {};
        g_MsgParam = {};
        gEndChar = 0x03;
        std::fill(std::begin(g_MsgHid), std::end(g_MsgHid), IcHidId{});
        g_nMsgHidNum = g_bMsgSetHidFlag = g_bOnlyUseSetHid = g_bMsgBaundFlag = 0;
        g_bIsLinuxHidClearZero = 0;
        m_usb.onInit([this] { m_tried.push_back({g_MsgParam.nPID, g_MsgParam.nVID}); });
    }
    int32_t open(const char *pszName = "HID", const char *pszChannel = "", uint32_t nBaud = 9600)
    {
        m_tried.clear();
        return Dev_Rdz_MsgOpenPort(pszName, pszChannel, nBaud, 5, 9);
    }
    void plug(Identity is)
    {
        m_usb.plug({usbReader(static_cast<uint16_t>(is.second), static_cast<uint16_t>(is.first))});
    }
    static std::string attempt(Identity is, int32_t nRet)
    {
        char sz[80];
        std::snprintf(sz, sizeof sz, "ICC_OpenTransPort: PID=%x,VID=%x, nRet=%d", is.first, is.second, nRet);
        return sz;
    }
    static std::ptrdiff_t countLogged(const std::string &sText)
    {
        auto texts = logTexts();
        return std::count(texts.begin(), texts.end(), sText);
    }

    Identities m_tried;
};

} // namespace

// In the place of the C library's.
extern "C" [[gnu::visibility("default")]] int strcasecmp(const char *pszOne, const char *pszOther) noexcept
{
    return compareByLocale(pszOne, pszOther, SIZE_MAX);
}
extern "C" [[gnu::visibility("default")]] int strncasecmp(const char *pszOne, const char *pszOther,
                                                          size_t nMax) noexcept
{
    return compareByLocale(pszOne, pszOther, nMax);
}

namespace {

TEST_F(StripeIdentities, AUsbNameIsAWholeNameInAnyLetterCase)
{
    for (const char *psz : {"HID", "hid", "Hid", "hID", "1001", "0", "USB", "usb", "Usb"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(dev_msg_judgeParamHid(psz), 1);
        EXPECT_EQ(open(psz), -50);
        EXPECT_EQ(m_tried, s_builtIn);
        EXPECT_EQ(g_MsgParam.nType, 7U);
    }
    for (const char *psz : {"HID1", "HI", "HIDE", " HID", "1001x", "100", "00", "0 ", "1", "USB0", "US", "", "COM1",
                            "AUX", static_cast<const char *>(nullptr)})
        EXPECT_EQ(dev_msg_judgeParamHid(psz), 0) << (psz == nullptr ? "null" : psz);
}

TEST_F(StripeIdentities, WithoutAReaderAllSixAreTriedAndTheResultIsMinus50)
{
    logOn();
    EXPECT_EQ(open("HID", "A", 115200), -50);
    EXPECT_EQ(m_tried, s_builtIn);
    EXPECT_TRUE(logged({"USE HID", attempt(s_builtIn[0], -50), attempt(s_builtIn[1], -50), attempt(s_builtIn[2], -50),
                        attempt(s_builtIn[3], -50), attempt(s_builtIn[4], -50), attempt(s_builtIn[5], -50)}));
    EXPECT_EQ(countLogged("USE default Hid"), 6);
    for (const std::string &sText :
         {std::string("USE HID"), std::string("USE default Hid"), attempt(s_builtIn[5], -50)})
        EXPECT_NE(logWithoutTime().find(line(sText)), std::string::npos) << sText;
    expectClosed();
    EXPECT_EQ(g_MsgParam.nType, 7U);
    EXPECT_EQ(g_MsgParam.nBaud, 9600U); // a name of a USB reader sets nothing else
    EXPECT_EQ(g_MsgParam.nPort, 1);
    EXPECT_STREQ(g_MsgParam.szTermPath, "");
    EXPECT_EQ(stBackUpParam.nType, 0U);
    EXPECT_EQ(g_nMsgHidNum, 0);
}

TEST_F(StripeIdentities, AFailedTryClosesWhatWasOpenBeforeTheNextOne)
{
    plug(s_builtIn[1]);
    stBackUpParam = {};
    stBackUpParam.nType = 1;
    SetAuxFd(::open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(stBackUpParam.nType, 7U);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    m_usb.takeCalls();
    expectClosed();
}

// Names are ASCII: the C library's comparison follows the host's locale, which may know another small letter of "I".
TEST_F(StripeIdentities, NoNameIsComparedByTheLocale)
{
    const int nBefore = s_nByLocale;
    EXPECT_EQ(open("hid"), -50);
    EXPECT_EQ(open("aux1"), -50);
    EXPECT_EQ(open("com1", "", 1), -2);
    EXPECT_EQ(open("/DEV"), -50);
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_EQ(s_nByLocale, nBefore);
}

TEST_F(StripeIdentities, AReaderIsFoundWhereverItsIdentityStands)
{
    for (size_t i = 0; i < s_builtIn.size(); ++i) {
        SCOPED_TRACE(i);
        plug(s_builtIn[i]);
        stBackUpParam = {};
        logOn();
        EXPECT_EQ(open("1001", "A"), 0);
        EXPECT_EQ(m_tried, Identities(s_builtIn.begin(), s_builtIn.begin() + static_cast<std::ptrdiff_t>(i) + 1));
        EXPECT_TRUE(logged({attempt(s_builtIn[i], 0)}));
        EXPECT_EQ(countLogged("USE default Hid"), static_cast<std::ptrdiff_t>(i) + 1);
        logOff();
        EXPECT_EQ(stBackUpParam.nType, 7U);
        EXPECT_EQ(stBackUpParam.nTimeOut, 9);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, &MsgEndCondition);
        EXPECT_EQ(stRDZ73xx.nType, 7U);
        EXPECT_EQ(g_MsgParam.nPID, s_builtIn[i].first);
        EXPECT_EQ(g_MsgParam.nVID, s_builtIn[i].second);
        EXPECT_EQ(g_MsgParam.nTermType, 0U);
        EXPECT_EQ(g_MsgParam.bAuxPrefix, 0U);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
        EXPECT_EQ(m_usb.takeSent().size(), 0U); // no channel
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        m_usb.takeCalls();
        expectClosed();
    }
}

TEST_F(StripeIdentities, AReaderThatWouldNotOpenIsPassedOver)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x2B46, 0xBC01)});
    for (const char *pszCall : {"open", "active_config", "claim"}) {
        SCOPED_TRACE(pszCall);
        m_usb.results(pszCall, {-3});
        EXPECT_EQ(open(), 0);
        EXPECT_EQ(m_tried.size(), 4U);
        EXPECT_EQ(m_targetDev, m_devs[1]);
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        expectClosed();
    }
}

TEST_F(StripeIdentities, ASecondOpenNeedsNothingFromTheFirst)
{
    plug(s_builtIn[5]);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(open("usb"), 0);
        EXPECT_EQ(m_tried, s_builtIn);
        EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
        expectClosed();
    }
}

// ---- identities of the host -----------------------------------------------------------------------------------------

TEST_F(StripeIdentities, TheHostsIdentitiesFollowTheBuiltInOnes)
{
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(0, 0xA0, 0xB0), 0);
    EXPECT_EQ(g_bMsgSetHidFlag, 1);
    EXPECT_EQ(g_bOnlyUseSetHid, 0);
    EXPECT_EQ(g_nMsgHidNum, 1);
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nMsgHidNum, 2);
    auto all = s_builtIn;
    all.push_back({0xA0, 0xB0});
    all.push_back({0xA1, 0xB1});
    logOn();
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, all);
    EXPECT_EQ(countLogged("USE default Hid"), 6);
    EXPECT_TRUE(logged({attempt(s_builtIn[5], -50), attempt({0xA0, 0xB0}, -50), attempt({0xA1, 0xB1}, -50)}));
    logOff();
    EXPECT_EQ(g_nMsgHidNum, 2);

    plug({0xA1, 0xB1});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, all);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    m_usb.plug({usbReader(0xB0, 0xA0), usbReader(0x2B46, 0xBE11)});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, s_builtIn);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
}

TEST_F(StripeIdentities, PlacesUpToTheLastIndexCountAlsoEmptyOnes)
{
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(9, 0xA9, 0xB9), 0);
    EXPECT_EQ(g_nMsgHidNum, 10);
    EXPECT_EQ(g_MsgHid[9].nPID, 0xA9U);
    EXPECT_EQ(g_MsgHid[9].nVID, 0xB9U);
    EXPECT_EQ(g_MsgHid[8].nPID, 0U);
    auto all = s_builtIn;
    all.insert(all.end(), 9, Identity{0, 0});
    all.push_back({0xA9, 0xB9});
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, all);

    EXPECT_EQ(Dev_Rdz_Msg_AddHid(1, 0xA1, 0xB1), 0);
    EXPECT_EQ(g_nMsgHidNum, 2);
    EXPECT_EQ(g_MsgHid[9].nPID, 0xA9U);
    all = s_builtIn;
    all.push_back({0, 0});
    all.push_back({0xA1, 0xB1});
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, all);
}

TEST_F(StripeIdentities, EveryIndexFrom0To9HasItsPlace)
{
    for (int32_t i = 0; i < 10; ++i) {
        EXPECT_EQ(Dev_Rdz_Msg_AddHid(i, 0xA0U + static_cast<uint32_t>(i), 0xB0U + static_cast<uint32_t>(i)), 0);
        EXPECT_EQ(g_nMsgHidNum, i + 1);
    }
    auto all = s_builtIn;
    for (uint32_t i = 0; i < 10; ++i)
        all.push_back({0xA0 + i, 0xB0 + i});
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, all);
}

TEST_F(StripeIdentities, AnOnlyIdentityIsTriedAlone)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x5678, 0x1234)});
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(-1, 0x1234, 0x5678), 0);
    EXPECT_EQ(g_MsgHid[0].nPID, 0x1234U);
    EXPECT_EQ(g_MsgHid[0].nVID, 0x5678U);
    EXPECT_EQ(g_nMsgHidNum, 0);
    EXPECT_EQ(g_bMsgSetHidFlag, 0);
    EXPECT_EQ(g_bOnlyUseSetHid, 1);
    logOn();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, (Identities{{0x1234, 0x5678}}));
    EXPECT_EQ(countLogged("USE default Hid"), 0);
    EXPECT_TRUE(logged({"USE HID", attempt({0x1234, 0x5678}, 0)}));
    EXPECT_EQ(m_targetDev, m_devs[1]);
    EXPECT_EQ(g_nMsgHidNum, 1);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);

    plug({0xBCD5, 0x0403});
    EXPECT_EQ(open("0"), -50);
    EXPECT_EQ(m_tried, (Identities{{0x1234, 0x5678}}));
    expectClosed();
}

TEST_F(StripeIdentities, TheCountIsSetWhateverTheNameButAnEmptyOne)
{
    Dev_Rdz_Msg_AddHid(-1, 1, 2);
    EXPECT_EQ(open(""), -50);
    EXPECT_EQ(g_nMsgHidNum, 0);
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_EQ(g_nMsgHidNum, 1);
    g_bOnlyUseSetHid = 0;
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_EQ(g_nMsgHidNum, 0);
    Dev_Rdz_Msg_AddHid(4, 1, 2);
    EXPECT_EQ(open("nothing"), -2);
    EXPECT_EQ(g_nMsgHidNum, 5);
}

TEST_F(StripeIdentities, AnOnlyIdentityReplacesTheHostsListAndTheOtherWayRound)
{
    Dev_Rdz_Msg_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Msg_AddHid(1, 0xA1, 0xB1);
    Dev_Rdz_Msg_AddHid(-1, 0x1234, 0x5678);
    EXPECT_EQ(g_nMsgHidNum, 0);
    EXPECT_EQ(g_bMsgSetHidFlag, 0);
    EXPECT_EQ(g_MsgHid[1].nPID, 0xA1U);
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, (Identities{{0x1234, 0x5678}}));
    Dev_Rdz_Msg_AddHid(1, 0xC1, 0xD1);
    EXPECT_EQ(g_bOnlyUseSetHid, 0);
    auto all = s_builtIn;
    all.push_back({0x1234, 0x5678});
    all.push_back({0xC1, 0xD1});
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, all);
}

TEST_F(StripeIdentities, ABadIndexIsRefusedButEndsTheOnlyIdentityMode)
{
    for (int32_t nIndex : {10, 11, -2, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(nIndex);
        Dev_Rdz_Msg_AddHid(-1, 0x1234, 0x5678);
        EXPECT_EQ(Dev_Rdz_Msg_AddHid(nIndex, 7, 8), -2);
        EXPECT_EQ(g_bOnlyUseSetHid, 0);
        EXPECT_EQ(g_bMsgSetHidFlag, 0);
        EXPECT_EQ(g_nMsgHidNum, 0);
        EXPECT_EQ(g_MsgHid[0].nPID, 0x1234U);
        EXPECT_EQ(g_MsgHid[9].nPID, 0U);
        EXPECT_EQ(open(), -50);
        EXPECT_EQ(m_tried, s_builtIn);
    }
    Dev_Rdz_Msg_AddHid(2, 1, 1);
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(10, 7, 8), -2);
    EXPECT_EQ(g_nMsgHidNum, 3);
    EXPECT_EQ(g_bMsgSetHidFlag, 1);
}

TEST_F(StripeIdentities, AnIdentityKeeps64BitsAndIsTriedWith32)
{
    EXPECT_EQ(Dev_Rdz_Msg_AddHid(-1, 0x1122334455667788ULL, 0x99AABBCCDDEEFF00ULL), 0);
    EXPECT_EQ(g_MsgHid[0].nPID, 0x1122334455667788ULL);
    EXPECT_EQ(g_MsgHid[0].nVID, 0x99AABBCCDDEEFF00ULL);
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, (Identities{{0x55667788U, 0xDDEEFF00U}}));
}

TEST_F(StripeIdentities, OnlyTheFlagValueOneCounts)
{
    Dev_Rdz_Msg_AddHid(0, 0xA0, 0xB0);
    for (int32_t nFlag : {2, -1, 0}) {
        SCOPED_TRACE(nFlag);
        g_bMsgSetHidFlag = g_bOnlyUseSetHid = nFlag;
        g_nMsgHidNum = 1;
        EXPECT_EQ(open(), -50);
        EXPECT_EQ(m_tried, s_builtIn);
        EXPECT_EQ(g_nMsgHidNum, 0);
    }
}

TEST_F(StripeIdentities, ACountBeyondTheTableIsATableFull)
{
    auto all = s_builtIn;
    for (uint32_t i = 0; i < 10; ++i) {
        g_MsgHid[i] = {0xA0 + i, 0xB0 + i};
        all.push_back({0xA0 + i, 0xB0 + i});
    }
    g_bMsgSetHidFlag = 1;
    for (int32_t nCount : {10, 11, 1000, INT32_MAX}) {
        SCOPED_TRACE(nCount);
        g_nMsgHidNum = nCount;
        EXPECT_EQ(open(), -50);
        EXPECT_EQ(m_tried, all);
    }
}

TEST_F(StripeIdentities, ACountBelowZeroTakesTheTriesAway)
{
    g_bMsgSetHidFlag = 1;
    g_nMsgHidNum = -5;
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, (Identities{s_builtIn[0]}));
    for (int32_t nCount : {-6, INT32_MIN}) {
        g_nMsgHidNum = nCount;
        EXPECT_EQ(open(), -50);
        EXPECT_EQ(m_tried, Identities{});
    }
}

TEST_F(StripeIdentities, WithBothFlagsTheFirstOfTheHostsIdentitiesIsTriedEachTime)
{
    Dev_Rdz_Msg_AddHid(0, 0xA0, 0xB0);
    Dev_Rdz_Msg_AddHid(1, 0xA1, 0xB1);
    g_bOnlyUseSetHid = 1;
    logOn();
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, Identities(8, Identity{0xA0, 0xB0}));
    EXPECT_EQ(countLogged("USE default Hid"), 0);
    EXPECT_EQ(g_nMsgHidNum, 2);
}

TEST_F(StripeIdentities, TheStripesIdentitiesAreNotThoseOfTheCardSide)
{
    Dev_Rdz_Ic_AddHid(-1, 0x1111, 0x2222);
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(m_tried, s_builtIn);
    EXPECT_EQ(g_MsgHid[0].nPID, 0U);
    g_nHidNum = g_bUseSetHid = 0;
}

// ---- closing, and a conversation ------------------------------------------------------------------------------------

TEST_F(StripeIdentities, ACloseOverUsbNeverPauses)
{
    plug(s_builtIn[0]);
    Dev_Rdz_Msg_RaiseBaundFlag(1);
    ASSERT_EQ(open("HID", "", 115200), 0);
    g_MsgParam.nBaud = 115200;
    FakeSleep::take();
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(std::ranges::count(FakeSleep::take(), 100), 0);
    expectClosed();
}

TEST_F(StripeIdentities, ABareCommandAndItsReplyTravelInReports)
{
    plug(s_builtIn[1]);
    ASSERT_EQ(open(), 0);
    g_bIsLinuxHidClearZero = 1;
    m_usb.in(hex(padded(bytes("31 32 33 04"), 64)));
    uint8_t reply[16] = {};
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(0, 1, bytes("1B 6A").data(), 2, reply, sizeof reply), 4);
    EXPECT_EQ(hex(reply, 4), "31 32 33 04");
    EXPECT_THAT(m_usb.takeSent(), ElementsAre(padded(bytes("1B 6A"), 64)));
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
}

TEST_F(StripeIdentities, ACancelNeedsAnOpenDevice)
{
    EXPECT_EQ(Dev_Rdz_MsgCancel(), -1);
    plug(s_builtIn[0]);
    ASSERT_EQ(open(), 0);
    EXPECT_EQ(Dev_Rdz_MsgCancel(), 0);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(Dev_Rdz_MsgCancel(), -57);
    EXPECT_EQ(COMM_Msg_Cancel(), -57);
}

} // namespace
