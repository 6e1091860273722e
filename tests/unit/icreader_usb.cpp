// Opening the reader by a USB name: which identities are tried, in which order, and what is closed between the tries.

#include "usb_bus.h"

#include "qvreader/icreader.h"

using namespace qvtest;
using testing::ElementsAre;

namespace {

// Product and vendor id.
using Identity = std::pair<uint32_t, uint32_t>;

const std::vector<Identity> s_builtIn = {{0xBCD5, 0x0403}, {0xBCD7, 0x0403}, {0xBC95, 0x0403},
                                         {0xBE11, 0x2B46}, {0xBE21, 0x2B46}, {0xBE01, 0x2B46}};

class UsbIdentities : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        stRDZ73xx = {};
        g_sParam = {};
        stCardReader = {};
        gEndChar = 0x03;
        for (IcHidId &id : g_Hid)
            id = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = g_bIcBaundFlag = g_useBpBox = 0;
        g_bIsLinuxHidClearZero = 0;
        m_usb.onInit([this] { m_tried.push_back({g_sParam.stParam.nPID, g_sParam.stParam.nVID}); });
    }
    int32_t open(const char *pszName = "HID", const char *pszBox = nullptr, int32_t nBaud = 9600)
    {
        m_tried.clear();
        return Dev_Rdz_Ic_OpenPort(pszName, reinterpret_cast<const uint8_t *>(pszBox), 1, 0, nBaud);
    }
    // One reader of this identity is plugged in.
    void plug(Identity is)
    {
        m_usb.plug({usbReader(static_cast<uint16_t>(is.second), static_cast<uint16_t>(is.first))});
    }
    static std::ptrdiff_t closesLogged()
    {
        auto texts = logTexts();
        return std::count(texts.begin(), texts.end(), "===>[Dev_Rdz_Ic_ClosePort] Start ");
    }

    std::vector<Identity> m_tried;
};

TEST_F(UsbIdentities, WithoutAReaderAllSixAreTriedAndTheLastFailureIsMinus51)
{
    for (const char *psz : {"HID", "USB", "1001", "1001xyz", "HIDE"}) {
        SCOPED_TRACE(psz);
        logOn();
        EXPECT_EQ(open(psz), -51);
        EXPECT_EQ(m_tried, s_builtIn);
        EXPECT_EQ(closesLogged(), 5); // between the tries, not after the last one
        expectClosed();
        EXPECT_EQ(g_sParam.stParam.nType, 7U);
        EXPECT_EQ(stBackUpParam.nType, 0U);
        EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    }
}

TEST_F(UsbIdentities, AReaderIsFoundWhereverItsIdentityStands)
{
    for (size_t i = 0; i < s_builtIn.size(); ++i) {
        SCOPED_TRACE(i);
        plug(s_builtIn[i]);
        g_bIsLinuxHidClearZero = 0;
        stBackUpParam = {};
        logOn();
        EXPECT_EQ(open(), 0);
        EXPECT_EQ(closesLogged(), static_cast<std::ptrdiff_t>(i));
        EXPECT_EQ(m_tried,
                  std::vector<Identity>(s_builtIn.begin(), s_builtIn.begin() + static_cast<std::ptrdiff_t>(i) + 1));
        EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
        EXPECT_EQ(stBackUpParam.nType, 7U);
        EXPECT_EQ(stBackUpParam.nTimeOut, 3);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, &IcEndCondition);
        EXPECT_EQ(g_sParam.stParam.nPID, s_builtIn[i].first);
        EXPECT_EQ(g_sParam.stParam.nVID, s_builtIn[i].second);
        EXPECT_EQ(m_usb.takeCalls().back(), i == 3 ? "claim 0" : "claim 1");
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        m_usb.takeCalls();
        expectClosed();
    }
}

TEST_F(UsbIdentities, AnOpenByUsbLeavesTheRecordsSerialFieldsAtTheirDefaults)
{
    plug({0xBCD7, 0x0403});
    EXPECT_EQ(open("HID5", nullptr, 115200), 0);
    EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
    EXPECT_EQ(g_sParam.stParam.nPort, 1);
    EXPECT_EQ(g_sParam.stParam.nAuxPort, 0);
    EXPECT_STREQ(g_sParam.stParam.szTermPath, "");
    EXPECT_EQ(g_sParam.stParam.nTimeOut, 3);
    EXPECT_EQ(stCardReader.nReaderMode, 0);
    EXPECT_EQ(stCardReader.nTimeOut, 3);
}

TEST_F(UsbIdentities, OfTwoReadersTheEarlierIdentityWinsNotTheEarlierPlace)
{
    m_usb.plug({usbReader(0x2B46, 0xBE01), usbReader(0x0403, 0xBC95)});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried.size(), 3U);
    EXPECT_EQ(m_targetDev, m_devs[1]);
}

TEST_F(UsbIdentities, AReaderThatWouldNotOpenIsPassedOver)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x2B46, 0xBE11)});
    for (const char *pszCall : {"open", "active_config", "claim"}) {
        SCOPED_TRACE(pszCall);
        m_usb.results(pszCall, {-3});
        EXPECT_EQ(open(), 0);
        EXPECT_EQ(m_tried.size(), 4U);
        EXPECT_EQ(m_targetDev, m_devs[1]);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
    m_usb.results("claim", {-6, -6});
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, s_builtIn);
    expectClosed();
}

// ---- identities of the host -----------------------------------------------------------------------------------------

TEST_F(UsbIdentities, AnOnlyIdentityIsTriedAlone)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x5678, 0x1234)});
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678), 0);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(m_targetDev, m_devs[1]);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);

    plug({0xBCD5, 0x0403});
    logOn();
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, (std::vector<Identity>{{0x1234, 0x5678}}));
    EXPECT_EQ(closesLogged(), 0);
    expectClosed();
}

TEST_F(UsbIdentities, TheHostsIdentitiesFollowTheBuiltInOnes)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0), 0);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(1, 0xA1, 0xB1), 0);
    auto all = s_builtIn;
    all.push_back({0xA0, 0xB0});
    all.push_back({0xA1, 0xB1});
    plug({0xA1, 0xB1});
    logOn();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, all);
    EXPECT_EQ(closesLogged(), 7);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);

    m_usb.plug({usbReader(0xB0, 0xA0), usbReader(0x2B46, 0xBE01)});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, s_builtIn);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);

    m_usb.plug({});
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, all);
    expectClosed();
}

TEST_F(UsbIdentities, EmptyPlacesAreTriedAsNoIds)
{
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(2, 0xA2, 0xB2), 0);
    auto all = s_builtIn;
    all.insert(all.end(), {{0, 0}, {0, 0}, {0xA2, 0xB2}});
    plug({0xA2, 0xB2});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(m_tried, all);
}

TEST_F(UsbIdentities, ABadIndexEndsTheOnlyIdentityMode)
{
    Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x5678);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(10, 7, 8), -2);
    plug({0x1234, 0x5678});
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, s_builtIn);
}

TEST_F(UsbIdentities, AnIdThatNeedsMoreThan16BitsFindsNoReader)
{
    plug({0x1234, 0x5678});
    Dev_Rdz_Ic_AddHid(-1, 0x11234, 0x5678);
    EXPECT_EQ(open(), -51);
    Dev_Rdz_Ic_AddHid(-1, 0x1234, 0x100005678ULL); // 32 bits are tried
    EXPECT_EQ(open(), 0);
}

TEST_F(UsbIdentities, OnlyTheFlagOneAddsTheHostsIdentities)
{
    Dev_Rdz_Ic_AddHid(0, 0xA0, 0xB0);
    for (int32_t nFlag : {2, -1, 0}) {
        SCOPED_TRACE(nFlag);
        g_bIcSetHidFlag = nFlag;
        EXPECT_EQ(open(), -51);
        EXPECT_EQ(m_tried, s_builtIn);
    }
    // Nor are they taken where the built-in ones are not.
    g_bIcSetHidFlag = g_bUseSetHid = 2;
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, std::vector<Identity>(6, Identity{0, 0}));
}

TEST_F(UsbIdentities, OnlyTheFlagOneMakesAnIdentityTheOnlyOne)
{
    Dev_Rdz_Ic_AddHid(-1, 0xA0, 0xB0);
    g_nHidNum = 7;
    for (int32_t nFlag : {2, -1}) {
        SCOPED_TRACE(nFlag);
        g_bUseSetHid = nFlag;
        EXPECT_EQ(open(), -51);
        EXPECT_EQ(m_tried, std::vector<Identity>(6, Identity{0, 0})); // and only 0 leaves the built-in ones
        EXPECT_EQ(g_nHidNum, 7);
    }
    g_bUseSetHid = 0;
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, s_builtIn);
    g_bUseSetHid = 1;
    g_bIcSetHidFlag = 2;
    EXPECT_EQ(open(), -51);
    EXPECT_EQ(m_tried, (std::vector<Identity>{{0xA0, 0xB0}}));
    EXPECT_EQ(g_nHidNum, 1);
}

TEST_F(UsbIdentities, ACountBeyondTheTableIsATableFull)
{
    auto all = s_builtIn;
    for (uint32_t i = 0; i < 10; ++i) {
        g_Hid[i] = {0xA0 + i, 0xB0 + i};
        all.push_back({0xA0 + i, 0xB0 + i});
    }
    g_bIcSetHidFlag = 1;
    for (int32_t nCount : {10, 11, 1000, INT32_MAX}) {
        SCOPED_TRACE(nCount);
        g_nHidNum = nCount;
        EXPECT_EQ(open(), -51);
        EXPECT_EQ(m_tried, all);
        EXPECT_EQ(g_nHidNum, nCount);
    }
}

TEST_F(UsbIdentities, ACountBelowZeroTakesTriesAway)
{
    g_bIcSetHidFlag = 1;
    const std::pair<int32_t, std::ptrdiff_t> rows[] = {{-1, 5}, {-5, 1}, {-6, 0}, {-7, 0}, {INT32_MIN, 0}};
    for (auto [nCount, nTries] : rows) {
        SCOPED_TRACE(nCount);
        g_nHidNum = nCount;
        logOn();
        EXPECT_EQ(open(), -51);
        EXPECT_EQ(m_tried, std::vector<Identity>(s_builtIn.begin(), s_builtIn.begin() + nTries));
        EXPECT_EQ(closesLogged(), std::max<std::ptrdiff_t>(nTries - 1, 0));
        EXPECT_EQ(g_nHidNum, nCount);
    }
}

// ---- what belongs to serial lines only ------------------------------------------------------------------------------

TEST_F(UsbIdentities, NoSwitchBoxAndNoRaiseOfTheLineSpeed)
{
    plug({0xBCD5, 0x0403});
    g_useBpBox = 1;
    g_bIcBaundFlag = 1;
    EXPECT_EQ(open("HID", "A", 115200), 0);
    EXPECT_EQ(g_useBpBox, 0);
    EXPECT_EQ(m_usb.takeSent().size(), 0U);
    g_useBpBox = 1;
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    EXPECT_EQ(m_usb.takeSent().size(), 0U);
    expectClosed();
}

// ---- a conversation -------------------------------------------------------------------------------------------------

TEST_F(UsbIdentities, AReaderIsPresentWhenItAnswers)
{
    plug({0xBE21, 0x2B46});
    for (const char *pszBody : {"", "01", "30 31 32 33"}) {
        SCOPED_TRACE(pszBody);
        m_usb.in(hex(padded(bytes(replyFrame(0, pszBody)), 64)));
        EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600), 0);
        EXPECT_THAT(m_usb.takeSent(), ElementsAre(padded(bytes(commandFrame("31 11")), 64)));
        expectClosed();
    }
}

TEST_F(UsbIdentities, AReplyMayComeInSeveralReports)
{
    plug({0xBCD5, 0x0403});
    Bytes reply = bytes(replyFrame(0, hex(Bytes(60, 0x5A))));
    ASSERT_GT(reply.size(), 128U);
    auto from = [&reply](size_t nAt) {
        auto begin = reply.begin() + static_cast<std::ptrdiff_t>(nAt);
        Bytes report(begin, begin + static_cast<std::ptrdiff_t>(std::min<size_t>(64, reply.size() - nAt)));
        return hex(padded(report, 64));
    };
    for (size_t nAt = 0; nAt < reply.size(); nAt += 64)
        m_usb.in(from(nAt));
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("USB", nullptr, 9600), 0);
    expectClosed();
}

TEST_F(UsbIdentities, ASilentReaderIsNotPresent)
{
    plug({0xBCD5, 0x0403});
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600), -55);
    expectClosed();
    m_usb.in(hex(Bytes(64)));
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600), -55);
    expectClosed();
}

TEST_F(UsbIdentities, AReaderThatTakesNothingIsNotPresent)
{
    plug({0xBCD5, 0x0403});
    m_usb.out(-7, 0);
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600), -54);
    expectClosed();
    m_usb.plug({});
    EXPECT_EQ(Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600), -51);
    expectClosed();
}

} // namespace
