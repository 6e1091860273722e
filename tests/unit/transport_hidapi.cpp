// Opening, writing and closing a reader through hidapi.

#include "fake_clock.h"
#include "fake_hidapi.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

hid_device *const s_pDeviceAtLoad = m_pHidHanle;
const uint32_t s_bClearZeroAtLoad = g_bIsLinuxSrcHidClearZero;

class Hidapi : public testing::Test {
  protected:
    void SetUp() override { m_nDescriptors = openDescriptors(); }
    void TearDown() override
    {
        logOff();
        COMM_Hid_CloseLinuxHid();
        EXPECT_EQ(m_pHidHanle, nullptr);
        EXPECT_EQ(FakeHid::openDevices(), 0);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    void open()
    {
        ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
        m_hid.takeCalls();
    }
    static int32_t write(const Bytes &data)
    {
        return COMM_Hid_WriteLinuxHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    // A command of nLen bytes, none of them zero.
    static Bytes command(size_t nLen)
    {
        Bytes out(nLen);
        for (size_t i = 0; i < nLen; ++i)
            out[i] = static_cast<uint8_t>(1 + i % 255);
        return out;
    }
    // The report of a command from nAt on: report id 0 in front.
    static Bytes report(const Bytes &data, size_t nAt = 0)
    {
        Bytes out(data.begin() + static_cast<std::ptrdiff_t>(nAt), data.end());
        out.insert(out.begin(), 0);
        return out;
    }

    int m_nDescriptors = 0;
    FakeClock m_clock{1000};
    FakeHid m_hid;
};

TEST(HidapiAtLoad, NoDeviceIsOpen)
{
    EXPECT_EQ(s_pDeviceAtLoad, nullptr);
    EXPECT_EQ(s_bClearZeroAtLoad, 1U);
}

// ---- open and close -------------------------------------------------------------------------------------------------

TEST_F(Hidapi, AnOpenAsksForTheIdsWhateverTheSerialNumber)
{
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x2B46, 0xBE0A), 0);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("open 2B46 BE0A"));
    EXPECT_THAT(logTexts(), ElementsAre("ICC_OpenLinuxHid:vid-2b46 pid-be0a", "open hiddev success!\n"));
    EXPECT_NE(m_pHidHanle, nullptr);
}

TEST_F(Hidapi, EveryLineIsUntyped)
{
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    EXPECT_EQ(write(bytes("31")), 1);
    EXPECT_EQ(COMM_Hid_CancelLinuxRead(), 0);
    uint8_t buf[4];
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf, 4, -1, nullptr), -56);
    EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
    EXPECT_EQ(rawLog().find("INFO:"), std::string::npos);
    const std::string sTime = GetLogTime();
    EXPECT_TRUE(rawLog().starts_with("  " + sTime + "  ICC_OpenLinuxHid:vid-0403 pid-bcd5\r\n\r\n  " + sTime +
                                     "  open hiddev success!\n\r\n " + sTime + "  hid write  LEN=1   HEX: 31\r\n"))
        << rawLog();
}

TEST_F(Hidapi, ADeviceThatWouldNotOpenIsNone)
{
    m_hid.failOpens(1);
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), -3);
    EXPECT_TRUE(logged({"ICC_OpenLinuxHid:vid-0403 pid-bcd5", "hid_open err!\n"}));
    EXPECT_EQ(m_pHidHanle, nullptr);
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
}

TEST_F(Hidapi, AnOpenWhileOneIsOpenClosesThatFirst)
{
    open();
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("close", "open 0403 BCD5"));
    EXPECT_THAT(logTexts(), ElementsAre("ICC_OpenLinuxHid:vid-0403 pid-bcd5", "Close hid!\n", "Close hid ok!\n",
                                        "open hiddev success!\n"));
    EXPECT_EQ(FakeHid::openDevices(), 1);
}

TEST_F(Hidapi, AFailedReopenLeavesNothingOpen)
{
    open();
    m_hid.failOpens(1);
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x2B46, 0xBE11), -3);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("close", "open 2B46 BE11"));
    EXPECT_EQ(m_pHidHanle, nullptr);
    EXPECT_EQ(FakeHid::openDevices(), 0);
    EXPECT_EQ(write(bytes("31")), -50);
}

TEST_F(Hidapi, ACloseForgetsTheDevice)
{
    open();
    logOn();
    EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("close"));
    EXPECT_THAT(logTexts(), ElementsAre("Close hid!\n", "Close hid ok!\n"));
    EXPECT_EQ(m_pHidHanle, nullptr);
    logOn();
    EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre());
    EXPECT_THAT(logTexts(), ElementsAre("Close hid!\n"));
}

// ---- write ----------------------------------------------------------------------------------------------------------

TEST_F(Hidapi, WithoutADeviceNothingIsWrittenButTheDataIsLogged)
{
    logOn();
    EXPECT_EQ(write(bytes("31 32")), -50);
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=2   HEX: 3132"));
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre());
}

TEST_F(Hidapi, WithoutADeviceACommandThatNoDeviceTakesGivesMinus50Too)
{
    EXPECT_EQ(write(command(1025)), -50);
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(nullptr, 4), -50);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre());
}

TEST_F(Hidapi, ACommandIsOneReportWithReportIdZero)
{
    for (size_t nLen : {1U, 63U, 64U, 100U, 1022U, 1023U}) {
        SCOPED_TRACE(nLen);
        open();
        Bytes data = command(nLen);
        EXPECT_EQ(write(data), static_cast<int32_t>(nLen));
        EXPECT_THAT(m_hid.takeCalls(), ElementsAre("write " + std::to_string(nLen + 1)));
        EXPECT_THAT(m_hid.takeSent(), ElementsAre(report(data)));
        COMM_Hid_CloseLinuxHid();
    }
}

TEST_F(Hidapi, AWriteIsLogged)
{
    open();
    m_hid.writes({3, 2});
    logOn();
    EXPECT_EQ(write(bytes("31 32 33")), 3);
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=3   HEX: 313233", "nTimes:0 sendlen2\n", "nTimes:1 sendlen1\n",
                                        "write ok:3\n"));
}

TEST_F(Hidapi, MoreThan1023BytesAreRefusedBeforeAnythingIsWritten)
{
    open();
    EXPECT_EQ(write(command(1024)), -54);
    EXPECT_EQ(write(command(1025)), -54);
    Bytes data = command(1024); // nobody reads what cannot be sent
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(data.data(), 0x80000000U), -54);
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(data.data(), 0xFFFFFFFFU), -54);
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(nullptr, 4), -54);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre());
}

TEST_F(Hidapi, ARefusedCommandIsLoggedUpTo1024Bytes)
{
    open();
    const Bytes data = command(1025);
    std::string sDigits = hex(data.data(), 1024);
    std::erase(sDigits, ' ');
    for (uint32_t nLen : {1025U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nLen);
        logOn();
        EXPECT_EQ(COMM_Hid_WriteLinuxHid(data.data(), nLen), -54);
        EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=1024   HEX: " + sDigits,
                                            "a command has at most 1023 bytes, not " + std::to_string(nLen)));
    }
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(nullptr, 4), -54);
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=4   HEX: ", "no command"));
}

TEST_F(Hidapi, AnEmptyCommandIsAReportIdAlone)
{
    open();
    const uint8_t uc = 0xC5;
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(&uc, 0), 0);
    EXPECT_THAT(m_hid.takeSent(), ElementsAre(Bytes{0}));
}

TEST_F(Hidapi, AfterAShortWriteTheRestFollowsUpToFiveTimes)
{
    open();
    Bytes data = command(100);
    m_hid.writes({11, 1, 51, 2}); // report id counted: 10, 0, 50, 1
    EXPECT_EQ(write(data), 100);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("write 101", "write 91", "write 91", "write 41", "write 40"));
    EXPECT_THAT(m_hid.takeSent(),
                ElementsAre(report(data), report(data, 10), report(data, 10), report(data, 60), report(data, 61)));

    m_hid.writes({21, 21, 21, 21, 20});
    EXPECT_EQ(write(data), -54);
    EXPECT_EQ(m_hid.takeSent().size(), 5U);
}

TEST_F(Hidapi, AWriteOfZeroCountsNothing)
{
    open();
    m_hid.writes({0, 0, 0, 0, 0});
    logOn();
    EXPECT_EQ(write(bytes("31 32")), -54);
    EXPECT_TRUE(logged({"nTimes:0 sendlen0\n", "nTimes:1 sendlen0\n", "nTimes:2 sendlen0\n", "nTimes:3 sendlen0\n",
                        "nTimes:4 sendlen0\n"}));
    EXPECT_THAT(m_hid.takeSent(), testing::Each(bytes("00 31 32")));
    logOff();
    m_hid.writes({0, 3});
    EXPECT_EQ(write(bytes("31 32")), 2);
}

TEST_F(Hidapi, MoreThanTheCommandIsNoSuccess)
{
    open();
    m_hid.writes({65}); // drivers that count the whole report
    logOn();
    EXPECT_EQ(write(bytes("31 32")), -54);
    EXPECT_TRUE(logged({"nTimes:0 sendlen64\n"}));
    EXPECT_FALSE(logged({"write ok:2\n"}));
    EXPECT_FALSE(logged({"write ok:64\n"}));
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("write 3"));
    logOff();
    m_hid.writes({2, 1024});
    EXPECT_EQ(write(bytes("31 32")), -54);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("write 3", "write 2"));
}

TEST_F(Hidapi, AFailedWriteIsLoggedAndPrintedWithItsErrorNumber)
{
    open();
    struct Row {
        int nErrno;
        const char *pszLog;
        const char *pszPrinted;
    };
    const Row rows[] = {{EIO, "hid_write err:5\n", "abc: Input/output error\n"},
                        {ENODEV, "hid_write err:19\n", "abc: No such device\n"}};
    for (const Row &row : rows) {
        for (bool bLog : {false, true}) {
            if (bLog)
                logOn();
            m_hid.writes({-1}, row.nErrno);
            testing::internal::CaptureStderr();
            int32_t nResult = write(bytes("31"));
            EXPECT_EQ(testing::internal::GetCapturedStderr(), row.pszPrinted);
            EXPECT_EQ(nResult, -54);
            if (bLog) {
                EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=1   HEX: 31", row.pszLog));
            }
            logOff();
        }
    }
    EXPECT_EQ(m_hid.takeCalls().size(), 4U);
}

TEST_F(Hidapi, AFailureAfterAShortWriteEndsTheWrite)
{
    open();
    m_hid.writes({3, -1}, EIO);
    testing::internal::CaptureStderr();
    EXPECT_EQ(write(bytes("31 32 33 34")), -54);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc: Input/output error\n");
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("write 5", "write 3"));
    EXPECT_EQ(write(bytes("31 32 33 34")), 4);
}

TEST_F(Hidapi, AGoodWritePrintsNothing)
{
    open();
    testing::internal::CaptureStderr();
    EXPECT_EQ(write(bytes("31")), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
