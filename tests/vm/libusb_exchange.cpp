// libusb_exchange.cpp - conversations through usbfs: reports, time-outs, cancel.
#include "tool_process.h"
#include "usb_steps.h"

#include <atomic>
#include <thread>

using namespace qvvm;

namespace {

constexpr size_t nFrameAround = 8; // bytes of a frame around its half-bytes

std::atomic<int> s_nPasses{0};
int32_t countPass(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return -1;
}

class UsbExchange : public testing::Test {
  protected:
    ~UsbExchange() override { EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0); }

    void open(UsbReader &reader)
    {
        reader.insert(0, szCard);
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
        reader.takeOutReports();
    }
};

TEST_F(UsbExchange, APowerOnAndAnApduAreAnsweredOnEitherInterfaceAndOnTheOnlyOne)
{
    const DeviceShape only{.interfaces = {{}}};
    unsigned nInterface = 0;
    for (const DeviceShape &shape : {firstInterface(), secondInterface(), only}) {
        nInterface = shape.vendor == nVendor2 ? 1 : 0;
        UsbReader reader(shape);
        open(reader);
        EXPECT_EQ(powerOn(0).sHex, szAtr);
        EXPECT_EQ(send(szGetChallenge).sHex, szChallenge);
        EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
        const std::vector<OutReport> reports = reader.takeOutReports();
        EXPECT_EQ(reports.size(), 3U);
        for (const OutReport &report : reports) {
            EXPECT_EQ(report.interface, nInterface);
            EXPECT_EQ(report.bytes.size(), kReportSize);
        }
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

TEST_F(UsbExchange, BulkEndpointsCarryItToo)
{
    UsbReader reader({.interfaces = {{.isHid = false}}});
    open(reader);
    EXPECT_EQ(g_outep.cTransferType, 2);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    EXPECT_EQ(send(szGetLong).sHex, longAnswer());
}

TEST_F(UsbExchange, AReportIsTheCommandAndThenZeros)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    const std::vector<OutReport> reports = reader.takeOutReports();
    ASSERT_EQ(reports.size(), 1U);
    Bytes expected = bytes("02 30 30 30 35 33 32 32 32 30 30 30 30 30 30 31 30 03");
    expected.resize(kReportSize, 0);
    EXPECT_EQ(hex(reports[0].bytes), hex(expected));
}

TEST_F(UsbExchange, TheLongestAnswerComesWholeInItsReports)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(send(szGetLong).sHex, longAnswer()) << i;
}

TEST_F(UsbExchange, AnAnswerInManySmallReportsComesWhole)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    reader.fault("split 7");
    EXPECT_EQ(send(szGetLong).sHex, longAnswer());
}

TEST_F(UsbExchange, ACommandOfFiveReportsIsSentAndALongerOneIsNot)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    reader.takeOutReports();
    const size_t nMost = (5 * kReportSize - nFrameAround) / 2 - 3; // 32 26 slot stand in front of the command
    EXPECT_EQ(send(longCommand(nMost)).sHex, "90 00");
    EXPECT_EQ(reader.takeOutReports().size(), 5U);
    EXPECT_EQ(send(longCommand(nMost + 1)).nResult, RET_PUB_SEND_FAIL);
}

TEST_F(UsbExchange, ACallThatOpensAndClosesByItselfFindsTheCardPowered)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    const int nDescriptors = openDescriptors();
    const Bytes command = bytes(szGetChallenge);
    for (int i = 0; i < 5; ++i) {
        std::array<uint8_t, 1024> out{};
        uint32_t nLen = 0;
        EXPECT_EQ(Dev_Rdz_Ic_SendCommand("HID", 1, nullptr, 9600, "1", static_cast<uint32_t>(command.size()),
                                         command.data(), &nLen, out.data()),
                  0);
        EXPECT_EQ(hex(out.data(), nLen), szChallenge);
    }
    EXPECT_EQ(openDescriptors(), nDescriptors);
}

TEST_F(UsbExchange, AReaderThatKeepsSilentGivesAnEmptyReplyAfterTheTimeOut)
{
    UsbReader reader;
    open(reader);
    std::array<uint8_t, 1024> buf{};
    s_nPasses = 0;
    StopWatch watch;
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buf.data(), buf.size(), 2, countPass), 0);
    const double dElapsed = watch.ms();
    EXPECT_GE(dElapsed, 2000);
    EXPECT_LE(s_nPasses, dElapsed / 1000 + 1); // a transfer lasts a second
    EXPECT_GE(s_nPasses, 2);
}

// The transfer that the time-out gives up must not swallow what comes a moment later.
TEST_F(UsbExchange, AnAnswerThatComesAfterAGivenUpTransferIsReceived)
{
    UsbReader reader;
    open(reader);
    for (const char *pszLate : {"late 1200", "late 2300"}) {
        reader.fault(pszLate);
        EXPECT_EQ(powerOn(0, 0, 10).sHex, szAtr);
    }
}

TEST_F(UsbExchange, ACancelEndsAReadWithItsTransfer)
{
    UsbReader reader;
    open(reader);
    std::array<uint8_t, 1024> buf{};
    s_nPasses = 0;
    StopWatch sinceCancel;
    std::thread canceller([&] {
        waitUntil([] { return s_nPasses >= 1; });
        sinceCancel = StopWatch();
        EXPECT_EQ(COMM_Dev_CancelRead(), 0);
    });
    const int32_t nResult = COMM_Hid_ReadLinuxUsbLibHid(buf.data(), buf.size(), 60, countPass);
    canceller.join();
    const double dElapsed = sinceCancel.ms();
    EXPECT_EQ(nResult, 0);
    EXPECT_LT(dElapsed, 5000); // a second, and what a busy machine adds
    EXPECT_EQ(powerOn(0).sHex, szAtr);
}

TEST_F(UsbExchange, AHundredExchangesInARowAreAllAnswered)
{
    UsbReader reader;
    open(reader);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(send(szGetChallenge).sHex, szChallenge) << i;
    EXPECT_EQ(reader.counts().rejectedFrames, 0U);
}

TEST(UsbTool, ShowsTheDeviceRecordOfAReaderOnUsb)
{
    for (const DeviceShape &shape : {firstInterface(), secondInterface()}) {
        UsbReader reader(shape);
        const ToolOutcome info = tool("HID", "info");
        EXPECT_EQ(info.nCode, 0) << info.sOutput;
        EXPECT_TRUE(contains(info.sOutput, "SIM00000001")) << info.sOutput;
        EXPECT_GT(reader.counts().replies, 0U);
    }
}

TEST(UsbTool, PowersACardAndSendsACommandOnUsb)
{
    for (const DeviceShape &shape : {firstInterface(), secondInterface()}) {
        UsbReader reader(shape);
        reader.insert(0, szCard);
        const ToolOutcome atr = tool("HID", "atr");
        EXPECT_EQ(atr.nCode, 0) << atr.sOutput;
        EXPECT_TRUE(contains(atr.sOutput, szAtr)) << atr.sOutput;
        const ToolOutcome apdu = tool("HID", "apdu 0084000008");
        EXPECT_EQ(apdu.nCode, 0) << apdu.sOutput;
        EXPECT_TRUE(contains(apdu.sOutput, "0084000008 -> B72E610FD8439AC5 9000")) << apdu.sOutput;
    }
}

TEST(UsbTool, FindsNothingWrongWithAHealthyReaderOnUsb)
{
    UsbReader reader;
    const ToolOutcome doctor = tool("HID", "doctor");
    EXPECT_EQ(doctor.nCode, 0) << doctor.sOutput;
    EXPECT_FALSE(contains(doctor.sOutput, "WRONG")) << doctor.sOutput;
}

TEST(UsbTool, SaysThatThereIsNoReaderOnUsb)
{
    const ToolOutcome info = tool("HID", "info");
    EXPECT_EQ(info.nCode, 3) << info.sOutput;
}

} // namespace
