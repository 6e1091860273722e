// Which interface of a USB reader is taken, and what is learnt from its descriptors.

#include "usb_bus.h"

#include <libusb.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

std::string endpointBytes(const EndpointInfo &is)
{
    return hex(&is, sizeof is);
}

class UsbEndpoints : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        g_inep = {0xC5, 0xC5, 0xC5, {0xC5, 0xC5}};
        g_outep = {0x35, 0x35, 0x35, {0x35, 0x35}};
    }
    static void expectNothingLearnt()
    {
        EXPECT_EQ(endpointBytes(g_inep), "C5 C5 C5 C5 C5");
        EXPECT_EQ(endpointBytes(g_outep), "35 35 35 35 35");
    }
    // Opens a device with these interfaces; the interface that it claims, -1: the open failed.
    int claimed(std::vector<UsbInterface> interfaces, uint16_t nVendor = 0x0403, uint16_t nProduct = 0xBCD5)
    {
        COMM_Hid_CloseLinuxUsbLibHid();
        m_usb.plug({UsbDevice{nVendor, nProduct, std::move(interfaces)}});
        m_usb.takeCalls();
        logOn();
        if (COMM_Hid_OpenLinuxUsbLibHid(nVendor, nProduct) != 0)
            return -1;
        auto calls = m_usb.takeCalls();
        if (calls.size() < 2 || !calls.back().starts_with("claim ") ||
            calls[calls.size() - 2] != "driver_active " + calls.back().substr(6))
            return -2;
        return std::stoi(calls.back().substr(6));
    }
    // Learns from one interface with these settings, of a device that has no other.
    int learn(UsbInterface settings) { return claimed({std::move(settings)}); }
};

const UsbEndpoint s_in = {0x84, 3, 64, 10};
const UsbEndpoint s_out = {0x05, 3, 64, 10};

TEST_F(UsbEndpoints, TheOnlyInterfaceIsTakenWhateverTheIds)
{
    const std::pair<uint16_t, uint16_t> ids[] = {{0x0403, 0xBCD5}, {0x2B46, 0xBE11}, {0x2B46, 0xBE01}};
    for (auto [nVendor, nProduct] : ids) {
        SCOPED_TRACE(nProduct);
        EXPECT_EQ(claimed({{UsbSetting{3, {s_in, s_out}}}}, nVendor, nProduct), 3);
        EXPECT_TRUE(logged({"the num of interface is=1\n", "get default interface_num and endpoint_info\n",
                            "GetCommInfo Begin,num_altsetting=1", "GetInterfaceInfo Begin,bNumEndpoints=2",
                            "nInterfaceNum=03\n", "nInep=84,nOutep=05\n", "open hiddev success!\n"}));
        EXPECT_EQ(endpointBytes(g_inep), "84 03 0A 00 40");
        EXPECT_EQ(endpointBytes(g_outep), "05 03 0A 00 40");
    }
}

TEST_F(UsbEndpoints, OfSeveralInterfacesOneProductHasItsChannelOnTheFirstAllOthersOnTheSecond)
{
    struct Row {
        uint16_t nVendor, nProduct;
        bool bFirst;
    };
    const Row rows[] = {{0x2B46, 0xBE11, true},  {0x2B46, 0xBE21, false}, {0x2B46, 0xBE01, false},
                        {0x0403, 0xBE11, false}, {0x0403, 0xBCD5, false}, {0xBE11, 0x2B46, false}};
    for (size_t nInterfaces : {2U, 3U, 5U}) {
        for (const Row &row : rows) {
            SCOPED_TRACE(testing::Message() << nInterfaces << " interfaces of " << row.nVendor << ":" << row.nProduct);
            std::vector<UsbInterface> interfaces;
            for (size_t i = 0; i < nInterfaces; ++i) {
                auto uc = static_cast<uint8_t>(i);
                interfaces.push_back({UsbSetting{
                    static_cast<uint8_t>(7 - uc),
                    {{static_cast<uint8_t>(0x81 + uc), 3, 64, 1}, {static_cast<uint8_t>(0x01 + uc), 3, 64, 1}}}});
            }
            EXPECT_EQ(claimed(interfaces, row.nVendor, row.nProduct), row.bFirst ? 7 : 6);
            EXPECT_EQ(g_inep.cEpaddress, row.bFirst ? 0x81 : 0x82);
            EXPECT_EQ(g_outep.cEpaddress, row.bFirst ? 0x01 : 0x02);
            EXPECT_TRUE(logged({"the num of interface is=" + std::to_string(nInterfaces) + "\n"}));
            EXPECT_FALSE(logged({"get default interface_num and endpoint_info\n"}));
        }
    }
}

TEST_F(UsbEndpoints, AConfigurationWithoutInterfacesTeachesNothing)
{
    const std::pair<uint16_t, uint16_t> ids[] = {{0x0403, 0xBCD5}, {0x2B46, 0xBE11}};
    for (auto [nVendor, nProduct] : ids) {
        EXPECT_EQ(claimed({}, nVendor, nProduct), 0);
        EXPECT_TRUE(logged({"the num of interface is=0\n", "nInterfaceNum=00\n", "nInep=C5,nOutep=35\n"}));
        EXPECT_FALSE(logged({"GetInterfaceInfo Begin,bNumEndpoints=0"}));
        expectNothingLearnt();
    }
}

TEST_F(UsbEndpoints, AnInterfaceWithSeveralSettingsTeachesNothingAndZeroIsClaimed)
{
    UsbSetting setting{1, {s_in, s_out}};
    for (size_t nSettings : {0U, 2U, 3U}) {
        SCOPED_TRACE(nSettings);
        EXPECT_EQ(claimed({{setting}, UsbInterface(nSettings, setting)}), 0);
        std::string sSettings = "GetCommInfo Begin,num_altsetting=" + std::to_string(nSettings);
        EXPECT_TRUE(logged({"the num of interface is=2\n", sSettings, "need choose altsetting by yourself\n",
                            "nInterfaceNum=00\n", "nInep=C5,nOutep=35\n", "open hiddev success!\n"}));
        EXPECT_FALSE(logged({"GetInterfaceInfo Begin,bNumEndpoints=2"}));
        expectNothingLearnt();
    }
}

TEST_F(UsbEndpoints, OtherThanTwoEndpointsTeachOnlyTheInterfacesNumber)
{
    const std::vector<UsbEndpoint> rows[] = {{}, {s_in}, {s_in, s_out, s_in}, {s_in, s_out, s_in, s_out}};
    for (const auto &endpoints : rows) {
        SCOPED_TRACE(endpoints.size());
        EXPECT_EQ(learn({UsbSetting{5, endpoints}}), 5);
        EXPECT_TRUE(logged({"GetInterfaceInfo Begin,bNumEndpoints=" + std::to_string(endpoints.size()),
                            "need choose endpoint by yourself\n", "nInterfaceNum=05\n", "nInep=C5,nOutep=35\n"}));
        EXPECT_FALSE(logged({"endpoint1,bEndpointAddress=84,bmAttributes=03,bInterval=10,wMaxPacketSize=0040"}));
        expectNothingLearnt();
    }
}

TEST_F(UsbEndpoints, EndpointsAreToldApartByTheirDirectionNotTheirPlace)
{
    EXPECT_EQ(learn({UsbSetting{0, {s_out, s_in}}}), 0);
    EXPECT_EQ(endpointBytes(g_inep), "84 03 0A 00 40");
    EXPECT_EQ(endpointBytes(g_outep), "05 03 0A 00 40");
    EXPECT_TRUE(logged({"endpoint1,bEndpointAddress=05,bmAttributes=03,bInterval=10,wMaxPacketSize=0040",
                        "endpoint2,bEndpointAddress=84,bmAttributes=03,bInterval=10,wMaxPacketSize=0040"}));
}

TEST_F(UsbEndpoints, OfTwoOfOneDirectionTheSecondStays)
{
    EXPECT_EQ(learn({UsbSetting{0, {{0x81, 2, 8, 1}, {0x82, 3, 64, 2}}}}), 0);
    EXPECT_EQ(endpointBytes(g_inep), "82 03 02 00 40");
    EXPECT_EQ(endpointBytes(g_outep), "35 35 35 35 35");
    g_inep = {0xC5, 0xC5, 0xC5, {0xC5, 0xC5}};
    EXPECT_EQ(learn({UsbSetting{0, {{0x01, 2, 8, 1}, {0x02, 3, 64, 2}}}}), 0);
    EXPECT_EQ(endpointBytes(g_inep), "C5 C5 C5 C5 C5");
    EXPECT_EQ(endpointBytes(g_outep), "02 03 02 00 40");
}

TEST_F(UsbEndpoints, TypeAndReportSizeAreMaskedAndTheRestIsTakenAsItIs)
{
    EXPECT_EQ(learn({UsbSetting{0, {{0xFF, 0xFD, 0x1840, 255}, {0x7F, 0x1E, 0xFFFF, 0}}}}), 0);
    EXPECT_EQ(endpointBytes(g_inep), "FF 01 FF 00 40");
    EXPECT_EQ(endpointBytes(g_outep), "7F 02 00 07 FF");
    EXPECT_TRUE(
        logged({"endpoint1,bEndpointAddress=FF,bmAttributes=FD,bInterval=255,wMaxPacketSize=1840",
                "endpoint2,bEndpointAddress=7F,bmAttributes=1E,bInterval=0,wMaxPacketSize=FFFF",
                "g_inep,cEpaddress=FF,cTransferType=01,cTimeInterval=255,cMaxPackeSize[0]=00,cMaxPackeSize[1]=40",
                "g_outep,cEpaddress=7F,cTransferType=02,cTimeInterval=0,cMaxPackeSize[0]=07,cMaxPackeSize[1]=FF"}));

    EXPECT_EQ(learn({UsbSetting{0, {{0x81, 3, 512, 1}, {0x01, 3, 8, 1}}}}), 0);
    EXPECT_EQ(endpointBytes(g_inep), "81 03 01 02 00");
    EXPECT_EQ(endpointBytes(g_outep), "01 03 01 00 08");
}

// ---- the steps as calls of their own --------------------------------------------------------------------------------

TEST_F(UsbEndpoints, TheStepsCanBeCalledAlone)
{
    libusb_endpoint_descriptor endpoints[2] = {};
    endpoints[0].bEndpointAddress = 0x83;
    endpoints[0].bmAttributes = 2;
    endpoints[0].wMaxPacketSize = 512;
    endpoints[0].bInterval = 4;
    endpoints[1].bEndpointAddress = 0x03;
    endpoints[1].bmAttributes = 3;
    endpoints[1].wMaxPacketSize = 64;
    endpoints[1].bInterval = 5;
    GetEndpointInfo(&endpoints[0], &endpoints[1]);
    EXPECT_EQ(endpointBytes(g_inep), "83 02 04 02 00");
    EXPECT_EQ(endpointBytes(g_outep), "03 03 05 00 40");

    g_inep = g_outep = {};
    libusb_interface_descriptor setting{};
    setting.bInterfaceNumber = 9;
    setting.bNumEndpoints = 2;
    setting.endpoint = endpoints;
    EXPECT_EQ(GetInterfaceInfo(&setting), 9);
    EXPECT_EQ(endpointBytes(g_inep), "83 02 04 02 00");

    g_inep = g_outep = {};
    libusb_interface itf{&setting, 1};
    EXPECT_EQ(GetCommInfo(&itf), 9);
    EXPECT_EQ(endpointBytes(g_outep), "03 03 05 00 40");
    itf.num_altsetting = 2;
    EXPECT_EQ(GetCommInfo(&itf), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbEndpoints, NullTeachesNothing)
{
    EXPECT_EQ(GetCommInfo(nullptr), 0);
    EXPECT_EQ(GetInterfaceInfo(nullptr), 0);
    libusb_endpoint_descriptor endpoint{};
    GetEndpointInfo(nullptr, &endpoint);
    GetEndpointInfo(nullptr, nullptr);
    libusb_interface itf{nullptr, 1};
    EXPECT_EQ(GetCommInfo(&itf), 0);
    libusb_interface_descriptor setting{};
    setting.bInterfaceNumber = 4;
    setting.bNumEndpoints = 2;
    EXPECT_EQ(GetInterfaceInfo(&setting), 4);
    EXPECT_EQ(endpointBytes(g_inep), "C5 C5 C5 C5 C5");
}

} // namespace
