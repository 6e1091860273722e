// hidapi.cpp - the library through the kernel's HID driver and its hidraw nodes.
#include "usb_steps.h"

#include "model/frame.h"

#include <atomic>
#include <thread>

using namespace qvvm;

namespace {

std::atomic<int> s_nPasses{0};
int32_t countPass(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return -1;
}

class Hid : public testing::Test {
  protected:
    ~Hid() override
    {
        EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }

    // Sends a card frame around the data and reads the reply; its data, status first.
    static std::string ask(std::string_view sData)
    {
        const Bytes frame = qvsim::encodeFrame(qvsim::FrameKind::card, bytes(sData));
        EXPECT_EQ(COMM_Hid_WriteLinuxHid(frame.data(), static_cast<uint32_t>(frame.size())),
                  static_cast<int32_t>(frame.size()));
        std::array<uint8_t, 2048> buf{};
        const int32_t nRead = COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), 10, IcEndCondition);
        if (nRead < 2)
            return "result " + std::to_string(nRead);
        const std::span<const uint8_t> inner(buf.data() + 1, static_cast<size_t>(nRead) - 2);
        const qvsim::DecodedFrame decoded = qvsim::decodeFrame(inner, 1024);
        return decoded.fault == qvsim::FrameFault::none ? hex(decoded.data)
                                                        : "no frame: " + hex(buf.data(), inner.size() + 2);
    }
    static std::string apdu(std::string_view sCommand) { return ask("32 26 00 " + std::string(sCommand)); }

    static constexpr char szPowerOn[] = "32 22 00 00 00";

  private:
    int m_nDescriptors = openDescriptors();
};

TEST_F(Hid, APowerOnAndAnApduAreAnsweredWithTheKernelsDriverInPlace)
{
    UsbReader reader;
    reader.insert(0, szCard);
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    EXPECT_EQ(UsbReader::driverOf(0), "usbhid");
    EXPECT_EQ(UsbReader::driverOf(1), "usbhid");
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
    EXPECT_EQ(apdu(szGetChallenge), std::string("00 00 ") + szChallenge);
}

TEST_F(Hid, BothInterfacesAnswerWhicheverIsOpened)
{
    UsbReader reader(secondInterface());
    reader.insert(0, szCard);
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor2, nProduct2), 0);
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
    // The raw channel takes the second one meanwhile, and its reset leaves this one's node in place.
    ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(send(szGetChallenge).sHex, szChallenge);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    reader.takeOutReports();
    EXPECT_EQ(apdu(szGetChallenge), std::string("00 00 ") + szChallenge);
    const std::vector<OutReport> reports = reader.takeOutReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].interface, 0U);
}

TEST_F(Hid, TheLongestAnswerComesWholeInItsReports)
{
    UsbReader reader;
    reader.insert(0, szCard);
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(apdu(szGetLong), "00 00 " + longAnswer()) << i;
}

TEST_F(Hid, ACommandIsOneOutputReportWhateverItsLength)
{
    UsbReader reader;
    reader.insert(0, szCard);
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
    reader.takeOutReports();
    // 8 bytes of frame, 32 26 slot, and two half-bytes for each byte of the command: 20, 100, 1022 bytes.
    const std::array<std::pair<size_t, size_t>, 3> lengths{{{4, 22}, {43, 100}, {504, 1022}}};
    for (const auto &[nCommand, nFrame] : lengths) {
        EXPECT_EQ(apdu(longCommand(nCommand)), "00 00 90 00");
        const std::vector<OutReport> reports = reader.takeOutReports();
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].bytes.size(), nFrame);
        EXPECT_EQ(reports[0].bytes.front(), 0x02);
        EXPECT_EQ(reports[0].bytes.back(), 0x03);
    }
}

TEST_F(Hid, ZeroBytesInFrontOfAReplyAreNoPartOfIt)
{
    UsbReader reader;
    reader.insert(0, szCard);
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    reader.fault("garbage 00 00");
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
    reader.fault("leadingzero 300"); // a report of zeros alone
    EXPECT_EQ(apdu(szGetChallenge), std::string("00 00 ") + szChallenge);
}

TEST_F(Hid, AnIdleReadEndsAfterItsTimeOutAndPassesFiveTimesASecond)
{
    UsbReader reader;
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    std::array<uint8_t, 64> buf{};
    s_nPasses = 0;
    StopWatch watch;
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), 2, countPass), RET_PUB_TIMEOUT);
    const double dElapsed = watch.ms();
    EXPECT_GE(dElapsed, 2000);
    EXPECT_LE(s_nPasses, dElapsed / 200 + 2);
    EXPECT_GE(s_nPasses, 4);
}

TEST_F(Hid, ANegativeTimeOutEndsTheReadAfterItsFirstWait)
{
    UsbReader reader;
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    std::array<uint8_t, 64> buf{};
    s_nPasses = 0;
    StopWatch watch;
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), -1, countPass), RET_PUB_TIMEOUT);
    EXPECT_GE(watch.ms(), 199);
    EXPECT_EQ(s_nPasses, 1);
}

TEST_F(Hid, ACancelEndsARead)
{
    UsbReader reader;
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    std::array<uint8_t, 64> buf{};
    s_nPasses = 0;
    StopWatch sinceCancel;
    std::thread canceller([&] {
        waitUntil([] { return s_nPasses >= 1; });
        sinceCancel = StopWatch();
        EXPECT_EQ(COMM_Hid_CancelLinuxRead(), 0);
    });
    const int32_t nResult = COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), 60, countPass);
    canceller.join();
    const double dElapsed = sinceCancel.ms();
    EXPECT_EQ(nResult, RET_PUB_CANCEL);
    EXPECT_LT(dElapsed, 5000); // 0.2 seconds, and what a busy machine adds
}

TEST_F(Hid, UnpluggingEndsAReadThatWaitsAndFailsWhatFollows)
{
    std::array<uint8_t, 64> buf{};
    {
        UsbReader reader;
        ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
        s_nPasses = 0;
        StopWatch watch;
        std::thread puller([&] {
            waitUntil([] { return s_nPasses >= 1; });
            watch = StopWatch();
            reader.unplug();
        });
        EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), 60, countPass), RET_PUB_READ_FAIL);
        puller.join();
        EXPECT_LT(watch.ms(), 5000);
    }
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), buf.size(), 1, countPass), RET_PUB_READ_FAIL);
    const Bytes command = bytes("02 30 30 30 32 33 31 31 31 32 30 03");
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(command.data(), static_cast<uint32_t>(command.size())), RET_PUB_SEND_FAIL);
    EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);

    UsbReader again;
    again.insert(0, szCard);
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    EXPECT_EQ(ask(szPowerOn), std::string("00 00 ") + szAtr);
}

TEST_F(Hid, OpeningWhileOpenClosesTheOldDeviceFirst)
{
    UsbReader reader;
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    const int nDescriptors = openDescriptors();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), 0);
    EXPECT_EQ(openDescriptors(), nDescriptors);
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(nVendor2, nProduct2), RET_PUB_OPEN_FAIL);
    EXPECT_EQ(m_pHidHanle, nullptr);
}

TEST_F(Hid, WithoutAReaderOrWithoutPermissionItWillNotOpen)
{
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(nVendor, nProduct), RET_PUB_OPEN_FAIL);
    UsbReader reader;
    EXPECT_EQ(asNobody([] { return -COMM_Hid_OpenLinuxHid(nVendor, nProduct); }), 3);
}

} // namespace
