// Which of the readers that are plugged in a port name opens, on a real device list.

#include "usb_devices.h"

#include "qvreader/icreader.h"

using namespace qvtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// In the order in which they are tried.
constexpr UsbId kBuiltIn[] = {{0x0403, 0xBCD5}, {0x0403, 0xBCD7}, {0x0403, 0xBC95},
                              {0x2B46, 0xBE11}, {0x2B46, 0xBE21}, {0x2B46, 0xBE01}};
constexpr UsbId kHosts{0x1234, 0x5678};
constexpr UsbId kForeign{0x046D, 0xC31C};

class UsbIdentities : public UsbDevices {
  protected:
    void SetUp() override
    {
        UsbDevices::SetUp();
        forgetHostIds();
    }
    void TearDown() override
    {
        Dev_Rdz_Ic_ClosePort();
        UsbDevices::TearDown();
        forgetHostIds();
    }
    static void forgetHostIds()
    {
        for (IcHidId &id : g_Hid)
            id = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = g_bIcBaundFlag = g_useBpBox = 0;
    }
    static int32_t openPort(const char *pszName = "HID") { return Dev_Rdz_Ic_OpenPort(pszName, nullptr, 1, 0, 9600); }
    // Which device hosts have opened since the last time; -1: none, -2: several.
    int opened(size_t nDevices)
    {
        int nOpened = -1;
        for (size_t i = 0; i < nDevices; ++i)
            if (!usb().calls(i).empty())
                nOpened = nOpened == -1 ? static_cast<int>(i) : -2;
        usb().forgetCalls();
        return nOpened;
    }
};

TEST_F(UsbIdentities, EveryBuiltInReaderOpensUnderEveryUsbName)
{
    for (const UsbId id : kBuiltIn) {
        SCOPED_TRACE(qvsim::usbIdText(id));
        plug({reader(kForeign), reader(id)});
        for (const char *psz : {"HID", "USB", "1001"}) {
            SCOPED_TRACE(psz);
            EXPECT_EQ(openPort(psz), 0);
            EXPECT_EQ(opened(2), 1);
            EXPECT_EQ(g_sParam.stParam.nVID, id.vendor);
            EXPECT_EQ(g_sParam.stParam.nPID, id.product);
            EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
            expectClosed();
        }
        expectWorks(kLibusb, id);
    }
}

TEST_F(UsbIdentities, OfSeveralReadersTheOneThatIsTriedFirstOpens)
{
    // The order on the bus is another one.
    std::vector<UsbDeviceOptions> devices;
    for (const size_t i : {2u, 5u, 0u, 4u, 1u, 3u})
        devices.push_back(reader(kBuiltIn[i]));
    const std::vector<int> places = {2, 4, 0, 5, 3, 1}; // of the identities in `devices`
    plug(devices);
    for (const int nPlace : places) {
        SCOPED_TRACE(nPlace);
        ASSERT_EQ(openPort(), 0);
        EXPECT_EQ(opened(devices.size()), nPlace);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        expectClosed();
        opened(devices.size());
        usb().unplug(static_cast<size_t>(nPlace));
    }
    EXPECT_EQ(openPort(), -51);
    EXPECT_EQ(opened(devices.size()), -1);
}

TEST_F(UsbIdentities, AReaderThatCannotBeOpenedGivesWayToTheNextOne)
{
    plug({reader(kBuiltIn[1]), reader(kBuiltIn[4])});
    for (const char *psz : {"detach refused", "claim busy", "config none", "open fail"}) {
        SCOPED_TRACE(psz);
        behave(psz);
        ASSERT_EQ(openPort(), 0);
        if (psz == std::string_view("open fail"))
            preloadKeeps(kOpensOfAMissingNode);
        EXPECT_EQ(g_sParam.stParam.nPID, kBuiltIn[4].product);
        EXPECT_THAT(usb().calls(1), testing::Contains("CLAIM 0"));
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        usb().setBehaviour({});
        expectClosed();
        usb().forgetCalls();
    }
    ASSERT_EQ(openPort(), 0);
    EXPECT_EQ(opened(2), 0);
}

TEST_F(UsbIdentities, WithoutAReaderNothingIsOpened)
{
    plug({});
    EXPECT_EQ(openPort(), -51);
    expectClosed();
    plug({reader(kForeign), reader({0x2B46, 0xBE12}), reader({0x0404, 0xBCD5})});
    EXPECT_EQ(openPort(), -51);
    EXPECT_EQ(opened(3), -1);
    expectClosed();
}

TEST_F(UsbIdentities, AHostsReaderIsTriedBehindTheBuiltInOnesOrAlone)
{
    plug({reader(kHosts), reader(kBuiltIn[5])});
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(0, kHosts.product, kHosts.vendor), 0);
    ASSERT_EQ(openPort(), 0);
    EXPECT_EQ(opened(2), 1);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    expectClosed();
    usb().forgetCalls();

    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, kHosts.product, kHosts.vendor), 0);
    ASSERT_EQ(openPort(), 0);
    EXPECT_EQ(opened(2), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    expectClosed();
    usb().forgetCalls();

    usb().unplug(0);
    EXPECT_EQ(openPort(), -51);
    EXPECT_EQ(opened(2), -1);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(0, kHosts.product, kHosts.vendor), 0);
    usb().unplug(1);
    usb().plug(0);
    ASSERT_EQ(openPort(), 0);
    EXPECT_EQ(opened(2), 0);
}

TEST_F(UsbIdentities, AReaderThatIsOpenStaysOpenWhateverIsAskedFor)
{
    plug({reader(kBuiltIn[0]), reader(kBuiltIn[3])});
    ASSERT_EQ(open(kLibusb, kBuiltIn[3]), 0);
    usb().forgetCalls();
    EXPECT_EQ(open(kLibusb, kBuiltIn[0]), 0);
    EXPECT_THAT(usb().calls(0), IsEmpty());
    EXPECT_THAT(usb().calls(1), IsEmpty());
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    EXPECT_THAT(usb().calls(1), ElementsAre("RELEASE 0", "CLOSE"));
}

} // namespace
