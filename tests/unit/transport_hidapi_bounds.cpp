// Reading and opening through hidapi: ids and counts beyond what it takes, and the untyped lines of what fails.

#include "fake_clock.h"
#include "fake_hidapi.h"
#include "fake_sleep.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

class HidapiBounds : public testing::Test {
  protected:
    void TearDown() override
    {
        logOff();
        COMM_Hid_CloseLinuxHid();
        EXPECT_EQ(FakeHid::openDevices(), 0);
    }
    // A line as it stands in the raw log while the clock stands: without labels.
    static std::string untyped(const std::string &sText)
    {
        return "  " + std::string(GetLogTime()) + "  " + sText + "\r\n";
    }

    FakeClock m_clock{1000};
    FakeSleep m_sleep;
    FakeHid m_hid;
};

TEST_F(HidapiBounds, IdsAreCutTo16Bits)
{
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x10403, 0xFFFFBCD5U), 0);
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("open 0403 BCD5"));
    EXPECT_THAT(logTexts(), ElementsAre("ICC_OpenLinuxHid:vid-10403 pid-ffffbcd5", "open hiddev success!\n"));
}

TEST_F(HidapiBounds, NoMoreThanAReportCountsAsReceived)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    const Bytes report(1024, 0x41);
    for (int nCount : {1025, 5000, INT32_MAX}) {
        SCOPED_TRACE(nCount);
        m_hid.inCounted(hex(report), nCount);
        Bytes buf(8192, 0xC5);
        logOn();
        EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), static_cast<uint32_t>(buf.size()), 3, atOnce), 1024);
        EXPECT_TRUE(logged({"hid_read_timeout:" + std::to_string(nCount)}));
        EXPECT_NE(rawLog().find("hid read:  LEN=1024   HEX: 4141"), std::string::npos);
        logOff();
        EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 1024), report);
        EXPECT_EQ(buf[1024], 0xC5);
    }
}

TEST_F(HidapiBounds, TheLongestTimeOutIsExceededNotReached)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    const time_t nEnd = 1000 + time_t{INT32_MAX};
    m_hid.onRead([&](size_t n) { m_clock.set(n < 3 ? 1001 : n == 3 ? nEnd : nEnd + 1); });
    uint8_t buf[4];
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf, 4, INT32_MAX, nullptr), -56);
    EXPECT_EQ(FakeHid::reads(), 4U);
}

TEST_F(HidapiBounds, AClockThatIsSetBackDoesNotEndTheRead)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    m_hid.in("");
    m_hid.in("41 42");
    m_hid.onRead([&](size_t) { m_clock.set(400); });
    uint8_t buf[2];
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf, 2, 3, nullptr), 2);
}

TEST_F(HidapiBounds, ABufferSaidToBeLargerThan2GiBTakesWhatComes)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    for (uint32_t nMax : {0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nMax);
        m_hid.in("41 42 03");
        Bytes buf(8, 0xC5);
        EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf.data(), nMax, 3, atOnce), 3);
        EXPECT_EQ(hex(buf.data(), 4), "41 42 03 C5");
    }
}

TEST_F(HidapiBounds, ACloseIsToldOnceItIsDone)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    std::vector<std::string> linesBefore;
    m_hid.onCall([&](const std::string &) { linesBefore = logTexts(); });
    logOn();
    EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
    m_hid.onCall(nullptr);
    EXPECT_THAT(linesBefore, ElementsAre("Close hid!\n"));
    EXPECT_EQ(logTexts().back(), "Close hid ok!\n");
}

TEST_F(HidapiBounds, AFailedOpenIsLoggedUntyped)
{
    m_hid.failOpens(1);
    logOn();
    EXPECT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), -3);
    EXPECT_EQ(rawLog(), untyped("ICC_OpenLinuxHid:vid-0403 pid-bcd5\r\n") + untyped("hid_open err!\n"));
}

TEST_F(HidapiBounds, AFailedWriteIsLoggedUntyped)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    m_hid.writes({2, -1}, EIO);
    const uint8_t data[] = {0x31, 0x32};
    logOn();
    testing::internal::CaptureStderr();
    EXPECT_EQ(COMM_Hid_WriteLinuxHid(data, 2), -54);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc: Input/output error\n");
    EXPECT_EQ(rawLog(), " " + std::string(GetLogTime()) + "  hid write  LEN=2   HEX: 3132\r\n" +
                            untyped("nTimes:0 sendlen1\n") + untyped("hid_write err:5\n"));
}

TEST_F(HidapiBounds, AFailedReadAndACancelAreLoggedUntyped)
{
    ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
    m_hid.failRead(-1, EIO);
    uint8_t buf[4];
    logOn();
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(buf, 4, 3, nullptr), -55);
    EXPECT_EQ(COMM_Hid_CancelLinuxRead(), 0);
    EXPECT_EQ(rawLog(), untyped("hid read maxlen:4\n") + untyped("hid_read_timeout:-1\r\n") +
                            untyped("[COMM_Hid_CancelLinuxRead] Start "));
}

} // namespace
