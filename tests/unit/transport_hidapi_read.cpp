// Reading a reply through hidapi: the run of bytes of each report, end condition, time-outs and what is logged.

#include "fake_clock.h"
#include "fake_hidapi.h"
#include "fake_sleep.h"
#include "pty_peer.h"
#include "steady_clock.h"
#include "unwritten.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

std::vector<std::string> s_asked;

int32_t never(const uint8_t *pBuf, int32_t nLen)
{
    s_asked.push_back(hex(pBuf, static_cast<size_t>(nLen)));
    return 1;
}

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    never(pBuf, nLen);
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

class HidapiRead : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_hid.onSilence([this] { m_clock.advance(1); });
        ASSERT_EQ(COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5), 0);
        m_hid.takeCalls();
    }
    void TearDown() override
    {
        logOff();
        COMM_Hid_CloseLinuxHid();
        EXPECT_EQ(FakeHid::openDevices(), 0);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    int32_t read(EndConditionFn end = endsWithEtx, int32_t nTimeOut = 3, uint32_t nMax = 255)
    {
        s_asked.clear();
        m_buf.assign(256, ucUnwritten);
        return COMM_Hid_ReadLinuxHid(m_buf.data(), nMax, nTimeOut, end);
    }
    std::string got(size_t nLen) { return writtenUpTo(m_buf, nLen); }

    int m_nDescriptors = 0;
    FakeClock m_clock{1000};
    FakeSleep m_sleep;
    FakeHid m_hid;
    Bytes m_buf;
};

TEST_F(HidapiRead, WithoutADeviceOrBufferNothingIsRead)
{
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(nullptr, 4, 3, never), -50);
    COMM_Hid_CloseLinuxHid();
    EXPECT_EQ(read(), -50);
    EXPECT_EQ(got(0), "");
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("close"));
}

TEST_F(HidapiRead, WithoutADeviceNothingIsLogged)
{
    COMM_Hid_CloseLinuxHid();
    logOn();
    EXPECT_EQ(read(), -50);
    EXPECT_THAT(logTexts(), ElementsAre());
}

TEST_F(HidapiRead, TheFirstRunOfBytesOfAReportIsTaken)
{
    m_hid.in("00 00 02 30 31 03 00 00");
    EXPECT_EQ(read(), 4);
    EXPECT_EQ(got(4), "02 30 31 03");
    EXPECT_THAT(m_hid.takeCalls(), ElementsAre("read 1024 200"));
    m_hid.in("41 42 00 43 03");
    m_hid.in("00 44 03");
    EXPECT_EQ(read(), 4);
    EXPECT_EQ(got(4), "41 42 44 03");
}

TEST_F(HidapiRead, TheStrippingFlagIsNotAsked)
{
    for (uint32_t nFlag : {0U, 7U, 1U}) {
        EXPECT_EQ(COMM_Hid_SetSrcLinuxHidClearZero(nFlag), 0);
        EXPECT_EQ(g_bIsLinuxSrcHidClearZero, nFlag);
        m_hid.in("00 41 03 00");
        EXPECT_EQ(read(), 2);
        EXPECT_EQ(got(2), "41 03");
    }
}

TEST_F(HidapiRead, AReplyMayComeInSeveralReportsAndEmptyOnes)
{
    m_hid.in("41");
    m_hid.in("00 00 00");
    m_hid.in("");
    m_hid.in("42 03");
    EXPECT_EQ(read(), 3);
    EXPECT_EQ(got(3), "41 42 03");
    EXPECT_THAT(s_asked, ElementsAre("41", "41", "41", "41 42 03"));
}

TEST_F(HidapiRead, TheEndConditionIsAskedAboutNothingToo)
{
    EXPECT_EQ(read(atOnce), 0);
    EXPECT_EQ(FakeHid::reads(), 1U);
    EXPECT_EQ(read(never, 1), -56);
    EXPECT_THAT(s_asked, ElementsAre("", ""));
}

TEST_F(HidapiRead, AFullBufferEndsTheReadWithoutAskingTheEndCondition)
{
    m_hid.in("41 42 43");
    EXPECT_EQ(read(never, 3, 3), 3);
    EXPECT_THAT(s_asked, ElementsAre());
    m_hid.in("41 42 43 44 45");
    EXPECT_EQ(read(never, 3, 3), 3);
    EXPECT_EQ(got(3), "41 42 43");
    // The zeros are taken off first, then the rest is cut.
    m_hid.in("00 00 00 41 42 43 44 45");
    EXPECT_EQ(read(never, 3, 4), 4);
    EXPECT_EQ(got(4), "41 42 43 44");
    m_hid.in("41 42");
    m_hid.in("43 44 45");
    EXPECT_EQ(read(never, 3, 3), 3);
    EXPECT_EQ(got(3), "41 42 43");
    m_hid.in("41");
    EXPECT_EQ(read(never, 3, 0), 0);
    EXPECT_EQ(got(0), "");
}

TEST_F(HidapiRead, ALargestReportFits)
{
    Bytes report(1024, 0x41);
    m_hid.in(hex(report));
    m_buf.assign(1030, 0xC5);
    EXPECT_EQ(COMM_Hid_ReadLinuxHid(m_buf.data(), 1029, 3, atOnce), 1024);
    EXPECT_EQ(got(1024), hex(report));
}

TEST_F(HidapiRead, AnOldReportDoesNotShowThroughAShorterOne)
{
    m_hid.in("41 42 43 44");
    m_hid.in("03");
    EXPECT_EQ(read(), 5);
    EXPECT_EQ(got(5), "41 42 43 44 03");
}

// ---- time-outs ------------------------------------------------------------------------------------------------------

TEST_F(HidapiRead, ATimeOutIsExceededNotReached)
{
    for (int nTimeOut : {0, 1, 2, 10}) {
        SCOPED_TRACE(nTimeOut);
        EXPECT_EQ(read(never, nTimeOut), -56);
        EXPECT_EQ(s_asked.size(), static_cast<size_t>(nTimeOut) + 1); // a second each
    }
}

TEST_F(HidapiRead, ANegativeTimeOutEndsAfterTheFirstPass)
{
    m_hid.onSilence(nullptr);
    for (int nTimeOut : {-1, -1000, INT32_MIN}) {
        SCOPED_TRACE(nTimeOut);
        EXPECT_EQ(read(never, nTimeOut), -56);
        EXPECT_THAT(s_asked, ElementsAre(""));
    }
    m_hid.in("41 03");
    EXPECT_EQ(read(endsWithEtx, -1), 2);
}

TEST_F(HidapiRead, ATimeOutOfZeroGoesOnWithinTheSecond)
{
    m_hid.in("");
    m_hid.in("");
    m_hid.in("03");
    EXPECT_EQ(read(endsWithEtx, 0), 1);
}

TEST_F(HidapiRead, ACompleteReplyWinsOverATimeOut)
{
    m_hid.in("03");
    m_hid.onRead([&](size_t) { m_clock.advance(100); });
    EXPECT_EQ(read(endsWithEtx, 1), 1);
}

TEST_F(HidapiRead, WhatCameBeforeATimeOutStaysInTheBuffer)
{
    m_hid.in("41 03");
    EXPECT_EQ(read(nullptr, 1), -56);
    EXPECT_EQ(got(2), "41 03");
}

// ---- failures and passes that bring nothing -------------------------------------------------------------------------

TEST_F(HidapiRead, AFailedReadEndsAtOnceAndTheNextOneStartsAfresh)
{
    m_hid.in("41");
    m_hid.failRead(-1, ENODEV);
    EXPECT_EQ(read(), -55);
    EXPECT_THAT(s_asked, ElementsAre("41"));
    m_hid.failRead(-5, EIO);
    EXPECT_EQ(read(), -55);
    EXPECT_THAT(s_asked, ElementsAre());
    // The failed read still counts as a running one; the next one forgets what was asked of it.
    EXPECT_EQ(COMM_Hid_CancelLinuxRead(), 0);
    m_hid.in("41");
    m_hid.in("03");
    EXPECT_EQ(read(), 2);
    EXPECT_EQ(got(2), "41 03");
}

TEST_F(HidapiRead, ReportsThatComeAtOnceAndEmptyDoNotMakeTheReadSpin)
{
    for (int i = 0; i < 3; ++i)
        m_hid.in("");
    m_hid.in("03");
    SteadyClock steady;
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(100, 100, 100));
}

TEST_F(HidapiRead, APassThatWaitedOrBroughtSomethingIsNotFollowedByAPause)
{
    m_hid.in("41");
    m_hid.in("", 120);
    m_hid.in("42");
    m_hid.in("03");
    EXPECT_EQ(read(), 3);
    EXPECT_EQ(read(atOnce), 0);
    EXPECT_EQ(read(never, -1), -56);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

// ---- the log --------------------------------------------------------------------------------------------------------

TEST_F(HidapiRead, AReadIsLoggedPassByPass)
{
    m_hid.in("00 41 00 00");
    m_hid.in("03");
    logOn();
    EXPECT_EQ(read(), 2);
    EXPECT_THAT(logTexts(),
                ElementsAre("hid read maxlen:255\n", "hid_read_timeout:4", "hid read:  LEN=4   HEX: 00410000",
                            "read real data  LEN=1   HEX: 41", "hid_read_timeout:1", "hid read:  LEN=1   HEX: 03",
                            "read real data  LEN=2   HEX: 4103", "read ret:2\n"));
}

TEST_F(HidapiRead, ATimeOutAFullBufferAndAFailureAreLogged)
{
    logOn();
    EXPECT_EQ(read(never, -1, 9), -56);
    EXPECT_THAT(logTexts(), ElementsAre("hid read maxlen:9\n", "hid_read_timeout:0",
                                        "hid read:  LEN=0   HEX: ", "read real data  LEN=0   HEX: ", "read ret:-56\n"));
    m_hid.in("41 42 43");
    logOn();
    EXPECT_EQ(read(never, 3, 2), 2);
    EXPECT_THAT(logTexts(), ElementsAre("hid read maxlen:2\n", "hid_read_timeout:3", "hid read:  LEN=3   HEX: 414243",
                                        "read ret:2\n"));
    m_hid.failRead(-1, EIO);
    logOn();
    EXPECT_EQ(read(), -55);
    EXPECT_TRUE(logged({"hid read maxlen:255\n", "hid_read_timeout:-1"}));
    EXPECT_FALSE(logged({"read ret:-55\n"}));
}

// ---- the step alone -------------------------------------------------------------------------------------------------

TEST(HidapiRun, TheRunOfBytesIsCopiedAndNothingElse)
{
    struct Row {
        const char *pszReport;
        const char *pszRun;
    };
    const Row rows[] = {{"00 00 02 30 31 03 00 00", "02 30 31 03"},
                        {"41 00 42", "41"},
                        {"41 42", "41 42"},
                        {"00 41", "41"},
                        {"00 00", ""},
                        {"41", "41"},
                        {"00", ""}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszReport);
        Bytes report = bytes(row.pszReport);
        Bytes run = bytes(row.pszRun);
        Bytes out(10, 0xC5);
        EXPECT_EQ(GetLinuxSrcDataWithoutZero(report.data(), static_cast<int32_t>(report.size()), out.data()),
                  static_cast<int32_t>(run.size()));
        EXPECT_EQ(hex(out.data(), run.size()), hex(run));
        for (size_t i = run.size(); i < out.size(); ++i)
            EXPECT_EQ(out[i], 0xC5);
    }
    uint8_t in[2] = {1, 2};
    uint8_t out[2] = {0xC5, 0xC5};
    EXPECT_EQ(GetLinuxSrcDataWithoutZero(in, 0, out), 0);
    EXPECT_EQ(GetLinuxSrcDataWithoutZero(in, -1, out), 0);
    EXPECT_EQ(GetLinuxSrcDataWithoutZero(nullptr, 2, out), 0);
    EXPECT_EQ(GetLinuxSrcDataWithoutZero(in, 2, nullptr), 0);
    EXPECT_EQ(hex(out, 2), "C5 C5");
}

} // namespace
