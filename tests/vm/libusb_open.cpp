// libusb_open.cpp - finding the reader, taking its interface from the kernel, giving it back.
#include "other_program.h"
#include "usb_steps.h"

#include <libusb.h>

using namespace qvvm;

namespace {

// Opens by the ids; closed at the end.
class OpenUsb {
  public:
    explicit OpenUsb(uint16_t nVID = nVendor, uint16_t nPID = nProduct)
        : m_nResult(COMM_Hid_OpenLinuxUsbLibHid(nVID, nPID))
    {
    }
    ~OpenUsb() { COMM_Hid_CloseLinuxUsbLibHid(); }
    OpenUsb(const OpenUsb &) = delete;
    OpenUsb &operator=(const OpenUsb &) = delete;
    int32_t result() const { return m_nResult; }

  private:
    int32_t m_nResult;
};

TEST(UsbOpen, WithoutAReaderThereIsNoneAndNothingStaysOpen)
{
    const int nDescriptors = openDescriptors();
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(nVendor, nProduct), -50);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), -51);
    EXPECT_EQ(m_targetDev, nullptr);
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_EQ(openDescriptors(), nDescriptors);
}

TEST(UsbOpen, TheFirstInterfaceIsTakenFromTheKernelAndTheSecondIsNot)
{
    UsbReader reader(firstInterface());
    ASSERT_EQ(UsbReader::driverOf(0), "usbhid");
    OpenUsb usb;
    ASSERT_EQ(usb.result(), 0);
    EXPECT_EQ(UsbReader::driverOf(0), "usbfs");
    EXPECT_FALSE(UsbReader::hasHidraw(0));
    EXPECT_EQ(UsbReader::driverOf(1), "usbhid");
    EXPECT_TRUE(UsbReader::hasHidraw(1));
    EXPECT_EQ(hex(&g_inep, sizeof g_inep), "81 03 01 00 40");
    EXPECT_EQ(hex(&g_outep, sizeof g_outep), "01 03 01 00 40");
}

TEST(UsbOpen, OfAnyOtherProductTheSecondInterfaceIsTaken)
{
    UsbReader reader(secondInterface());
    OpenUsb usb(nVendor2, nProduct2);
    ASSERT_EQ(usb.result(), 0);
    EXPECT_EQ(UsbReader::driverOf(0), "usbhid");
    EXPECT_EQ(UsbReader::driverOf(1), "usbfs");
    EXPECT_EQ(hex(&g_inep, sizeof g_inep), "82 03 01 00 40");
    EXPECT_EQ(hex(&g_outep, sizeof g_outep), "02 03 01 00 40");
}

TEST(UsbOpen, TheOnlyInterfaceIsTakenWhateverTheIds)
{
    UsbReader reader({.vendor = nVendor2, .product = nProduct2, .interfaces = {{}}});
    OpenUsb usb(nVendor2, nProduct2);
    ASSERT_EQ(usb.result(), 0);
    EXPECT_EQ(UsbReader::driverOf(0), "usbfs");
    EXPECT_EQ(g_outep.cEpaddress, 0x01);
}

TEST(UsbOpen, EachKnownIdentityIsFoundByTheNameHid)
{
    const std::array<std::pair<uint16_t, uint16_t>, 6> identities{
        {{0x0403, 0xBCD5}, {0x0403, 0xBCD7}, {0x0403, 0xBC95}, {0x2B46, 0xBE11}, {0x2B46, 0xBE21}, {0x2B46, 0xBE01}}};
    for (const auto &[nVID, nPID] : identities) {
        SCOPED_TRACE(hex(&nPID, sizeof nPID));
        UsbReader reader({.vendor = nVID, .product = nPID});
        EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
        EXPECT_EQ(g_sParam.stParam.nPID, nPID);
        EXPECT_EQ(g_sParam.stParam.nVID, nVID);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST(UsbOpen, AnIdentityOfTheHostsOwnIsFound)
{
    UsbReader reader({.vendor = 0x1234, .product = 0x5678});
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), -51);
    EXPECT_EQ(Dev_Rdz_Ic_AddHid(-1, 0x5678, 0x1234), 0);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    g_bUseSetHid = 0;
    g_nHidNum = 0;
}

TEST(UsbOpen, TheDeviceIsResetOnce)
{
    UsbReader reader;
    const unsigned nBefore = reader.configurations();
    OpenUsb usb;
    ASSERT_EQ(usb.result(), 0);
    EXPECT_EQ(reader.configurations(), nBefore + 1);
}

TEST(UsbOpen, ASecondOpenKeepsTheFirstDeviceAndTakesNothing)
{
    UsbReader reader;
    OpenUsb usb;
    ASSERT_EQ(usb.result(), 0);
    const int nDescriptors = openDescriptors();
    libusb_device_handle *const pHandle = m_handle;
    EXPECT_EQ(COMM_Hid_OpenLinuxUsbLibHid(nVendor2, nProduct2), 0);
    EXPECT_EQ(m_handle, pHandle);
    EXPECT_EQ(openDescriptors(), nDescriptors);
}

TEST(UsbOpen, TwoSettingsOfAnInterfaceTeachNoEndpointsAndWritesFail)
{
    UsbReader reader({.interfaces = {{.settings = 2}, {}}});
    g_inep = {};
    g_outep = {};
    OpenUsb usb;
    ASSERT_EQ(usb.result(), 0);
    EXPECT_EQ(g_outep.cEpaddress, 0);
    const Bytes command = bytes("02 30 30 30 32 33 31 31 31 32 30 03");
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(command.data(), static_cast<uint32_t>(command.size())), -54);
    EXPECT_TRUE(reader.takeOutReports().empty());
}

TEST(UsbOpen, WithoutPermissionItWillNotOpen)
{
    UsbReader reader;
    EXPECT_EQ(asNobody([] { return -COMM_Hid_OpenLinuxUsbLibHid(nVendor, nProduct); }), 3);
    EXPECT_EQ(asNobody([] { return -Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600); }), 51);
    EXPECT_EQ(UsbReader::driverOf(0), "usbhid");
}

// The reset takes every interface from the programs that hold one and gives it to the kernel's driver, so that a claim
// is no protection.
TEST(UsbOpen, AnotherProgramsClaimDoesNotOutliveTheReset)
{
    UsbReader reader;
    OtherProgram other(nVendor, nProduct);
    ASSERT_EQ(other.detach(0), 0);
    ASSERT_EQ(other.claim(0), 0);
    OpenUsb usb;
    EXPECT_EQ(usb.result(), 0);
}

TEST(UsbClose, LeavesTheInterfaceToWhoeverWantsItAndTheKernelsDriverTaken)
{
    for (const DeviceShape &shape : {firstInterface(), secondInterface()}) {
        const int nInterface = shape.vendor == nVendor ? 0 : 1;
        SCOPED_TRACE(nInterface);
        UsbReader reader(shape);
        const int nDescriptors = openDescriptors();
        ASSERT_EQ(COMM_Hid_OpenLinuxUsbLibHid(shape.vendor, shape.product), 0);
        {
            OtherProgram other(shape.vendor, shape.product);
            EXPECT_EQ(other.claim(nInterface), LIBUSB_ERROR_BUSY);
        }
        EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        EXPECT_EQ(openDescriptors(), nDescriptors);
        EXPECT_EQ(UsbReader::driverOf(static_cast<unsigned>(nInterface)), "");
        OtherProgram other(shape.vendor, shape.product);
        EXPECT_EQ(other.claim(nInterface), 0);
    }
}

TEST(UsbClose, TheKernelsDriverCanBePutBackAndTakenAgain)
{
    UsbReader reader;
    for (int i = 0; i < 3; ++i) {
        {
            OpenUsb usb;
            ASSERT_EQ(usb.result(), 0);
        }
        OtherProgram other(nVendor, nProduct);
        EXPECT_EQ(other.attach(0), 0);
        EXPECT_TRUE(waitUntil([] { return UsbReader::driverOf(0) == "usbhid" && UsbReader::hasHidraw(0); }));
    }
}

TEST(UsbClose, OpeningAgainWorksWithoutTheKernelsDriver)
{
    UsbReader reader;
    for (int i = 0; i < 5; ++i) {
        OpenUsb usb;
        ASSERT_EQ(usb.result(), 0) << i;
    }
}

} // namespace
