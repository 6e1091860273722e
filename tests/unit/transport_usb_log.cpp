// What a reader over libusb logs to the byte, failures above all: its own lines are typed, the dumps of what went over the
// bus are not.

#include "usb_bus.h"

#include <cerrno>
#include <functional>

using namespace qvtest;
using testing::Contains;
using testing::ElementsAre;

namespace {

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

// The raw log without the times in front of its lines.
std::string withoutTimes()
{
    std::string sLog = rawLog();
    const size_t nTime = std::string(GetLogTime()).size();
    std::string sOut;
    for (size_t nAt = 0; nAt < sLog.size();) {
        size_t nEnd = sLog.find("\r\n", nAt);
        nEnd = nEnd == std::string::npos ? sLog.size() : nEnd + 2;
        std::string sLine = sLog.substr(nAt, nEnd - nAt);
        const size_t nHead = sLine.find_first_not_of(' ');
        sLine.erase(nHead, nTime);
        sOut += sLine;
        nAt = nEnd;
    }
    return sOut;
}

// As withoutTimes() shows them.
std::string typed(const std::string &sText)
{
    return "    INFO:    CommDev:  " + sText + "\r\n";
}
std::string dumped(const std::string &sText)
{
    return "   " + sText + "\r\n";
}

class UsbLog : public UsbBus {
  protected:
    static int32_t open() { return COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5); }
    int32_t write(const char *pszHex)
    {
        const Bytes data = bytes(pszHex);
        return COMM_Hid_WriteLinuxUsbLibHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    int32_t read(EndConditionFn end, int32_t nTimeOut = 3)
    {
        return COMM_Hid_ReadLinuxUsbLibHid(m_buf, sizeof m_buf, nTimeOut, end);
    }
    static void expectAllTyped()
    {
        std::string sAll;
        for (const std::string &sText : logTexts())
            sAll += typed(sText);
        EXPECT_EQ(withoutTimes(), sAll);
    }

    uint8_t m_buf[64] = {};
};

// What an open of the reader, the only device, logs up to the libusb call of that name.
std::string openedUpTo(const std::string &sCall)
{
    std::string sLog =
        typed("libusb_get_device_list  nret = 1 ") + typed("vid=0403 pid=BCD5\n") + typed("find target device\n");
    if (sCall != "claim")
        return sLog;
    const std::string sEndpoint = ",bmAttributes=03,bInterval=1,wMaxPacketSize=0040",
                      sRecord = ",cTransferType=03,cTimeInterval=1,cMaxPackeSize[0]=00,cMaxPackeSize[1]=40";
    return sLog + typed("the num of interface is=2\n") + typed("GetCommInfo Begin,num_altsetting=1") +
           typed("GetInterfaceInfo Begin,bNumEndpoints=2") + typed("endpoint1,bEndpointAddress=82" + sEndpoint) +
           typed("endpoint2,bEndpointAddress=02" + sEndpoint) + typed("g_inep,cEpaddress=82" + sRecord) +
           typed("g_outep,cEpaddress=02" + sRecord) + typed("nInterfaceNum=01\n") + typed("nInep=82,nOutep=02\n");
}

TEST_F(UsbLog, AFailedOpenEndsWithItsReason)
{
    struct Row {
        const char *pszCall; // that fails
        int nResult;
        std::string sLog;
    };
    const std::string sNone = typed(" Have No device");
    const Row rows[] = {{"init", -99, typed("libusb_init failed: -99") + sNone},
                        {"list", 0, typed("libusb_get_device_list  nret = 0 ") + sNone},
                        {"list", -11, typed("libusb_get_device_list  nret = -11 ") + sNone},
                        {"descriptor", -4, typed("libusb_get_device_list  nret = 1 ") + typed("get hiddev err!\n")},
                        {"open", -3, openedUpTo("open") + typed("libusb open failed\n") + typed("libusb_open: -3")},
                        {"active_config", -5, openedUpTo("active_config") + typed("get config failed\n")},
                        {"claim", -6, openedUpTo("claim") + typed("Cannot Claim Interface:-6\n")}};
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.pszCall << " " << row.nResult);
        m_usb.results(row.pszCall, {row.nResult});
        logOn();
        EXPECT_LT(open(), 0);
        EXPECT_EQ(withoutTimes(), row.sLog);
    }
    m_usb.plug({usbReader(0x0403, 0xBCD7)});
    logOn();
    EXPECT_EQ(open(), -50);
    EXPECT_EQ(withoutTimes(),
              typed("libusb_get_device_list  nret = 1 ") + typed("vid=0403 pid=BCD7\n") + typed("get hiddev err!\n"));
}

TEST_F(UsbLog, AnOpenWhileOneIsOpenIsTyped)
{
    openReader();
    logOn();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(withoutTimes(), typed("COMM_Hid_OpenLinuxUsbLibHid  11"));
}

TEST_F(UsbLog, WhatAnInterfaceDoesNotTellIsTyped)
{
    UsbDevice settings = usbReader(0x0403, 0xBCD5, 1);
    settings.interfaces[0].push_back(settings.interfaces[0][0]);
    UsbDevice endpoints = usbReader(0x0403, 0xBCD5, 1);
    endpoints.interfaces[0][0].endpoints.pop_back();
    const std::pair<UsbDevice, const char *> rows[] = {{settings, "need choose altsetting by yourself\n"},
                                                       {endpoints, "need choose endpoint by yourself\n"}};
    for (const auto &[device, pszText] : rows) {
        m_usb.plug({device});
        logOn();
        EXPECT_EQ(open(), 0);
        EXPECT_THAT(logTexts(), Contains(pszText));
        expectAllTyped();
        COMM_Hid_CloseLinuxUsbLibHid();
    }
}

TEST_F(UsbLog, TheNumberOfTheInterfaceIsHexadecimal)
{
    UsbDevice device = usbReader(0x0403, 0xBCD5, 1);
    device.interfaces[0][0].ucInterface = 0x1A;
    m_usb.plug({device});
    logOn();
    EXPECT_EQ(open(), 0);
    EXPECT_THAT(logTexts(), Contains("nInterfaceNum=1A\n"));
    EXPECT_EQ(m_usb.takeCalls().back(), "claim 26");
}

// ---- lines and calls ------------------------------------------------------------------------------------------------

TEST_F(UsbLog, WhatIsGivenBackIsToldBeforeOrBehindIt)
{
    struct Row {
        const char *pszCall; // that fails; empty: none
        const char *pszLine;
        bool bBefore; // the line stands in front of what is given back
    };
    const Row rows[] = {{"open", "libusb open failed\n", true},
                        {"active_config", "get config failed\n", true},
                        {"claim", "Cannot Claim Interface:-3\n", false},
                        {"", "exit libusb!\n", false}};
    m_usb.plug({usbReader(0x0403, 0xBCD5)});
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszLine);
        const std::string sCall = row.pszCall;
        if (!sCall.empty())
            m_usb.results(sCall, {-3});
        int nGivenBack = 0;
        m_usb.onCall([&](const std::string &s) {
            if (s == "close" || s == "free_list" || s == "exit") {
                ++nGivenBack;
                EXPECT_THAT(logTexts(), testing::Contains(row.pszLine).Times(row.bBefore ? 1 : 0)) << "at " << s;
            }
        });
        logOn();
        EXPECT_EQ(open(), sCall.empty() ? 0 : -3);
        EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        m_usb.onCall(nullptr);
        EXPECT_EQ(nGivenBack, sCall == "open" ? 2 : 3);
        EXPECT_THAT(logTexts(), Contains(row.pszLine));
    }
}

// ---- write ----------------------------------------------------------------------------------------------------------

TEST_F(UsbLog, AFailedTransferIsTyped)
{
    openReader();
    m_usb.out(-4, 3, ENODEV);
    logOn();
    EXPECT_EQ(write("31"), -54);
    EXPECT_EQ(withoutTimes(),
              dumped("hid write  LEN=1   HEX: 31") + typed("nTimes:0 sendlen3 ret:-4 No such device\n"));
}

TEST_F(UsbLog, ATypeThatCarriesNoReportsIsTypedAtEachAttempt)
{
    openReader(64, 1);
    logOn();
    EXPECT_EQ(write("31"), -54);
    std::string sLog = dumped("hid write  LEN=1   HEX: 31");
    for (int i = 0; i < 5; ++i)
        sLog += typed("no support transfer type!\n");
    EXPECT_EQ(withoutTimes(), sLog + typed("5 reports carried 0 of 1 bytes"));
}

TEST_F(UsbLog, ARefusedCommandIsDumpedAndTyped)
{
    const std::string sDump = dumped("hid write  LEN=1   HEX: 31");
    logOn();
    EXPECT_EQ(write("31"), -50);
    EXPECT_EQ(withoutTimes(), sDump) << "no device, no reason of its own";
    openReader();
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(nullptr, 2), -54);
    EXPECT_EQ(withoutTimes(), dumped("hid write  LEN=2   HEX: ") + typed("no command"));
    const std::string sMost(2048, '3');
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(Bytes(1025, 0x33).data(), 1025), -54);
    EXPECT_EQ(withoutTimes(),
              dumped("hid write  LEN=1024   HEX: " + sMost) + typed("a command has at most 1024 bytes, not 1025"));
}

TEST_F(UsbLog, ACommandThatFiveReportsDoNotCarryIsTypedAtTheEnd)
{
    openReader(1);
    logOn();
    EXPECT_EQ(write("31 32 33 34 35 36"), -54);
    EXPECT_EQ(withoutTimes(), dumped("hid write  LEN=6   HEX: 313233343536") + typed("5 reports carried 5 of 6 bytes"));
}

TEST_F(UsbLog, ATypeThatCarriesNoReportsIsToldByWritesOnly)
{
    for (uint8_t ucType : {uint8_t{0}, uint8_t{1}}) {
        COMM_Hid_CloseLinuxUsbLibHid();
        openReader(64, ucType);
        logOn();
        EXPECT_EQ(read(atOnce), 0);
        EXPECT_EQ(withoutTimes(), typed("read nRetVal:0, nReadOneTm=0\n") + dumped("read data  LEN=0   HEX: ") +
                                      dumped("read real data  LEN=0   HEX: ") + typed("2nReadLen=0\n") +
                                      typed("read ret:0\n"));
        EXPECT_EQ(FakeUsb::reads(), 0U);
    }
}

// ---- read, cancel ---------------------------------------------------------------------------------------------------

TEST_F(UsbLog, ABadTimeOutIsTyped)
{
    openReader();
    logOn();
    EXPECT_EQ(read(atOnce, 0), 0);
    EXPECT_EQ(withoutTimes(), typed(" Param err") + typed("read nRetVal:-7, nReadOneTm=0\n") +
                                  dumped("read data  LEN=0   HEX: ") + dumped("read real data  LEN=0   HEX: ") +
                                  typed("2nReadLen=0\n") + typed("read ret:0\n"));
}

TEST_F(UsbLog, WithoutADeviceABadTimeOutIsNotLookedAt)
{
    logOn();
    EXPECT_EQ(read(never, 0), -50);
    EXPECT_THAT(logTexts(), ElementsAre());
}

TEST_F(UsbLog, ATimeOutIsTyped)
{
    openReader();
    m_usb.onIn([this](size_t) { m_clock.advance(2); });
    logOn();
    EXPECT_EQ(read(never, 1), 0);
    EXPECT_EQ(withoutTimes(), typed("read nRetVal:-7, nReadOneTm=0\n") + dumped("read data  LEN=0   HEX: ") +
                                  dumped("read real data  LEN=0   HEX: ") + typed("3\n") + typed("read ret:0\n"));
}

TEST_F(UsbLog, ACancelIsTypedWithAndWithoutADevice)
{
    logOn();
    EXPECT_EQ(COMM_Hid_CancelLinuxUsbLibHid(), -57);
    EXPECT_EQ(withoutTimes(), typed("[COMM_Hid_CancelLinuxUsbLibHid] Start "));
    openReader();
    logOn();
    EXPECT_EQ(COMM_Hid_CancelLinuxUsbLibHid(), 0);
    EXPECT_EQ(withoutTimes(), typed("[COMM_Hid_CancelLinuxUsbLibHid] Start "));
}

TEST_F(UsbLog, TheDispatchersReadIsTyped)
{
    openReader();
    stBackUpParam = {3, atOnce, 7, 0, 0};
    logOn();
    EXPECT_EQ(COMM_Dev_ReadDataFromTransPort(m_buf, sizeof m_buf), 0);
    EXPECT_EQ(withoutTimes(), typed("[COMM_Dev_Linux_ReadDataFromTransPort] Start ") + typed("TYPE_USBLIB_HID\n") +
                                  typed("read nRetVal:-7, nReadOneTm=0\n") + dumped("read data  LEN=0   HEX: ") +
                                  dumped("read real data  LEN=0   HEX: ") + typed("2nReadLen=0\n") +
                                  typed("read ret:0\n"));
}

} // namespace
