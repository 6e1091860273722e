// Opening and closing a reader through libusb: which device, which interface, what is logged and what is given back.

#include "usb_bus.h"

using namespace qvtest;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

libusb_device *const s_pDeviceAtLoad = m_targetDev;
libusb_device **const s_ppListAtLoad = m_devs;
libusb_device_handle *const s_pHandleAtLoad = m_handle;
const EndpointInfo s_inAtLoad = g_inep;
const EndpointInfo s_outAtLoad = g_outep;
const uint32_t s_bClearZeroAtLoad = g_bIsLinuxHidClearZero;

std::string endpointBytes(const EndpointInfo &is)
{
    return hex(&is, sizeof is);
}

using UsbOpen = UsbBus;

TEST(UsbAtLoad, NoDeviceIsOpenAndZeroStrippingIsOn)
{
    EXPECT_EQ(s_pDeviceAtLoad, nullptr);
    EXPECT_EQ(s_ppListAtLoad, nullptr);
    EXPECT_EQ(s_pHandleAtLoad, nullptr);
    EXPECT_EQ(endpointBytes(s_inAtLoad), "00 00 00 00 00");
    EXPECT_EQ(endpointBytes(s_outAtLoad), "00 00 00 00 00");
    EXPECT_EQ(s_bClearZeroAtLoad, 1U);
}

TEST_F(UsbOpen, TheFirstDeviceOfTheIdsIsOpenedAndItsInterfaceClaimed)
{
    m_usb.plug(
        {usbReader(0x1D6B, 0x0002), usbReader(0x0403, 0xBCD7), usbReader(0x0403, 0xBCD5), usbReader(0x0403, 0xBCD5)});
    m_usb.results("driver_active", {1});
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "descriptor 1", "descriptor 2", "open 2",
                                               "reset", "active_config", "driver_active 1", "detach 1", "claim 1"));
    EXPECT_THAT(
        logTexts(),
        ElementsAre("libusb_get_device_list  nret = 4 ", "vid=1D6B pid=0002\n", "vid=0403 pid=BCD7\n",
                    "vid=0403 pid=BCD5\n", "find target device\n", "the num of interface is=2\n",
                    "GetCommInfo Begin,num_altsetting=1", "GetInterfaceInfo Begin,bNumEndpoints=2",
                    "endpoint1,bEndpointAddress=82,bmAttributes=03,bInterval=1,wMaxPacketSize=0040",
                    "endpoint2,bEndpointAddress=02,bmAttributes=03,bInterval=1,wMaxPacketSize=0040",
                    "g_inep,cEpaddress=82,cTransferType=03,cTimeInterval=1,cMaxPackeSize[0]=00,cMaxPackeSize[1]=40",
                    "g_outep,cEpaddress=02,cTransferType=03,cTimeInterval=1,cMaxPackeSize[0]=00,cMaxPackeSize[1]=40",
                    "nInterfaceNum=01\n", "nInep=82,nOutep=02\n", "open hiddev success!\n"));
    EXPECT_NE(m_targetDev, nullptr);
    EXPECT_EQ(m_targetDev, m_devs[2]);
    EXPECT_NE(m_handle, nullptr);
    // The list is kept until the close; the configuration is not.
    EXPECT_EQ(FakeUsb::leftOver(), "1 context, 1 list, 1 handle");
}

TEST_F(UsbOpen, EveryLineOfAnOpenAndACloseIsTyped)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5, 1)});
    const std::string sHead = std::string("  ") + GetLogTime() + "  INFO:    CommDev:  ";
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
    EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
    std::string sAll;
    for (const std::string &sText : logTexts())
        sAll += sHead + sText + "\r\n";
    EXPECT_EQ(rawLog(), sAll);
    EXPECT_TRUE(logged({"find target device\n", "open hiddev success!\n", "Close hid!\n", "exit libusb!\n"}));
}

TEST_F(UsbOpen, AnOpenWhileOneIsOpenKeepsTheFirstWhateverIdsAreAsked)
{
    openReader();
    auto *pDevice = m_targetDev;
    auto *pHandle = m_handle;
    m_usb.plug({usbReader(0x2B46, 0xBE11)});
    for (uint32_t nProduct : {0xBCD5U, 0xBE11U, 0U}) {
        logOn();
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(nProduct == 0xBE11 ? 0x2B46 : 0x0403, nProduct), 0);
        EXPECT_THAT(logTexts(), ElementsAre("COMM_Hid_OpenLinuxUsbLibHid  11"));
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
        EXPECT_EQ(m_targetDev, pDevice);
        EXPECT_EQ(m_handle, pHandle);
    }
}

TEST_F(UsbOpen, AnEmptyBusHasNoDevice)
{
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -50);
    EXPECT_THAT(logTexts(), ElementsAre("libusb_get_device_list  nret = 0 ", " Have No device"));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, AFailedDeviceListIsLikeAnEmptyOne)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (int nResult : {-11, -99, -1}) {
        SCOPED_TRACE(nResult);
        m_usb.results("list", {nResult});
        logOn();
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -50);
        EXPECT_THAT(logTexts(),
                    ElementsAre("libusb_get_device_list  nret = " + std::to_string(nResult) + " ", " Have No device"));
        EXPECT_EQ(m_usb.takeCalls().back(), "exit");
        expectClosed();
    }
}

TEST_F(UsbOpen, NoDeviceOfTheIdsGivesTheListBack)
{
    m_usb.plug({usbReader(0x0403, 0xBE11), usbReader(0x2B46, 0xBCD5)});
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -50);
    EXPECT_THAT(logTexts(), ElementsAre("libusb_get_device_list  nret = 2 ", "vid=0403 pid=BE11\n",
                                        "vid=2B46 pid=BCD5\n", "get hiddev err!\n"));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "descriptor 1", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, IdsAreComparedWithAllTheirBits)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x10403, 0xBCD5), -50);
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0x1BCD5), -50);
    expectClosed();
}

TEST_F(UsbOpen, WithoutLibusbNoDeviceIsFoundAndNothingIsEnded)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("init", {-99});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -50);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init"));
    expectClosed();
}

TEST_F(UsbOpen, ADeviceThatDoesNotTellItsIdsIsPassedOver)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x0403, 0xBCD5)});
    m_usb.results("descriptor", {-1});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
    EXPECT_EQ(m_targetDev, m_devs[1]);
    COMM_Hid_CloseLinuxUsbLibHid();
    m_usb.results("descriptor", {-1, -4});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -50);
    expectClosed();
}

TEST_F(UsbOpen, ADeviceThatWouldNotOpenIsForgotten)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("open", {-3});
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
    EXPECT_TRUE(logged(
        {"libusb_get_device_list  nret = 1 ", "vid=0403 pid=BCD5\n", "find target device\n", "libusb open failed\n"}));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "open 0", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, AFailedResetIsIgnored)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (int nResult : {-5, -4, -1}) {
        m_usb.results("reset", {nResult});
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        COMM_Hid_CloseLinuxUsbLibHid();
    }
}

TEST_F(UsbOpen, ADeviceWithoutConfigurationIsClosedAndForgotten)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("active_config", {-5});
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
    EXPECT_TRUE(logged({"find target device\n", "get config failed\n"}));
    EXPECT_EQ(logTexts().back(), "get config failed\n");
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "open 0", "reset", "active_config",
                                               "close", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, AnInterfaceThatIsHeldByAnotherIsGivenBack)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("driver_active", {1});
    m_usb.results("claim", {-6});
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
    EXPECT_EQ(logTexts().back(), "Cannot Claim Interface:-6\n");
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "open 0", "reset", "active_config",
                                               "driver_active 1", "detach 1", "claim 1", "close", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, AFailedOpenLeavesTheNextOneAFreshStart)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (const char *pszCall : {"init", "list", "descriptor", "open", "active_config", "claim"}) {
        SCOPED_TRACE(pszCall);
        m_usb.results(pszCall, {-1});
        EXPECT_LT(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        expectClosed();
        m_usb.takeCalls();
        EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre("init", "list", "descriptor 0", "open 0", "reset", "active_config",
                                                   "driver_active 1", "claim 1"));
        COMM_Hid_CloseLinuxUsbLibHid();
    }
}

TEST_F(UsbOpen, AFailedClaimLeavesTheEndpointsThatWereLearnt)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("claim", {-6});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
    EXPECT_EQ(endpointBytes(g_inep), "82 03 01 00 40");
    EXPECT_EQ(endpointBytes(g_outep), "02 03 01 00 40");
}

TEST_F(UsbOpen, NeitherAnOpenNorACloseChangesTheStrippingFlag)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (uint32_t nFlag : {0U, 1U, 7U}) {
        SCOPED_TRACE(nFlag);
        COMM_Hid_SetLinuxHidClearZero(nFlag);
        m_usb.results("claim", {-6});
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
        EXPECT_EQ(g_bIsLinuxHidClearZero, nFlag);
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        EXPECT_EQ(g_bIsLinuxHidClearZero, nFlag);
        EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        EXPECT_EQ(g_bIsLinuxHidClearZero, nFlag);
    }
}

// ---- the kernel's driver --------------------------------------------------------------------------------------------

TEST_F(UsbOpen, TheKernelsDriverIsDetachedOnlyWhereItIsActive)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (int nActive : {0, -1, -4, -12, 2}) {
        SCOPED_TRACE(nActive);
        m_usb.results("driver_active", {nActive});
        EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
        auto calls = m_usb.takeCalls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "detach 1"), 0);
        EXPECT_EQ(calls.back(), "claim 1");
        COMM_Hid_CloseLinuxUsbLibHid();
        m_usb.takeCalls();
    }
}

TEST_F(UsbOpen, AFailedDetachIsLeftToTheClaim)
{
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    m_usb.results("driver_active", {1, 1});
    m_usb.results("detach", {-5, -3});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
    EXPECT_EQ(m_usb.takeCalls().back(), "claim 1");
    COMM_Hid_CloseLinuxUsbLibHid();
    m_usb.results("claim", {-6});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), -3);
    expectClosed();
}

// ---- closing --------------------------------------------------------------------------------------------------------

TEST_F(UsbOpen, ACloseReleasesInterfaceZeroWhateverWasClaimed)
{
    openReader();
    EndpointInfo in = g_inep;
    EndpointInfo out = g_outep;
    logOn();
    EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("release 0", "close", "free_list", "exit"));
    EXPECT_THAT(logTexts(), ElementsAre("Close hid!\n", "exit libusb!\n"));
    expectClosed();
    // The endpoints outlive it.
    EXPECT_EQ(endpointBytes(g_inep), endpointBytes(in));
    EXPECT_EQ(endpointBytes(g_outep), endpointBytes(out));
    EXPECT_EQ(endpointBytes(g_inep), "82 03 01 00 40");
    EXPECT_EQ(endpointBytes(g_outep), "02 03 01 00 40");
}

TEST_F(UsbOpen, AFailedReleaseStopsNothing)
{
    openReader();
    m_usb.results("release", {-5});
    EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("release 0", "close", "free_list", "exit"));
    expectClosed();
}

TEST_F(UsbOpen, ACloseWithoutADeviceDoesNothing)
{
    logOn();
    EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
    EXPECT_THAT(logTexts(), ElementsAre("Close hid!\n"));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbOpen, AfterACloseAnyDeviceCanBeOpened)
{
    openReader();
    EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
    m_usb.plug({usbReader(0x0403, 0xBCD5), usbReader(0x2B46, 0xBE11)});
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x2B46, 0xBE11), 0);
    EXPECT_EQ(m_targetDev, m_devs[1]);
    EXPECT_EQ(endpointBytes(g_inep), "81 03 01 00 40");
}

} // namespace
