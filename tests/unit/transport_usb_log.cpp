// The labels in front of what a reader over libusb logs: its own lines are typed, the dumps of what went over the bus are
// not.

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

TEST_F(UsbLog, EveryLineOfAFailedOpenIsTyped)
{
    struct Row {
        const char *pszCall; // that fails; empty: none, the device is of other ids
        int nResult;
        const char *pszText;
    };
    const Row rows[] = {{"init", -99, " Have No device"},
                        {"list", 0, " Have No device"},
                        {"list", -11, " Have No device"},
                        {"", 0, "get hiddev err!\n"},
                        {"open", -3, "libusb open failed\n"},
                        {"active_config", -5, "get config failed\n"},
                        {"claim", -6, "Cannot Claim Interface:-6\n"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.pszCall << " " << row.nResult);
        const std::string sCall = row.pszCall;
        m_usb.plug({usbReader(0x0403, sCall.empty() ? 0xBCD7 : 0xBCD5)});
        if (!sCall.empty())
            m_usb.results(sCall, {row.nResult});
        logOn();
        EXPECT_LT(open(), 0);
        EXPECT_THAT(logTexts(), Contains(row.pszText));
        expectAllTyped();
    }
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
    std::string sFive = dumped("hid write  LEN=1   HEX: 31");
    for (int i = 0; i < 5; ++i)
        sFive += typed("no support transfer type!\n");
    EXPECT_TRUE(withoutTimes().starts_with(sFive)) << rawLog();
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
    EXPECT_TRUE(withoutTimes().starts_with(typed(" Param err") + typed("read nRetVal:-7, nReadOneTm=0\n"))) << rawLog();
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
    EXPECT_TRUE(withoutTimes().starts_with(typed("[COMM_Dev_Linux_ReadDataFromTransPort] Start ") +
                                           typed("TYPE_USBLIB_HID\n") + typed("read nRetVal:-7, nReadOneTm=0\n")))
        << rawLog();
}

} // namespace
