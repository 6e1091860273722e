// Reading a reply through libusb: reports, zero padding, end condition, time-outs and what is logged.

#include "steady_clock.h"
#include "unwritten.h"
#include "usb_bus.h"

using namespace qvtest;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

// What the end condition was asked about, in hexadecimal.
std::vector<std::string> s_asked;
const uint8_t *s_pAsked = nullptr;

int32_t never(const uint8_t *pBuf, int32_t nLen)
{
    s_pAsked = pBuf;
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

class UsbRead : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        s_asked.clear();
        m_buf.assign(512, ucUnwritten);
    }
    int32_t read(EndConditionFn end = endsWithEtx, int32_t nTimeOut = 3, uint32_t nMax = 511)
    {
        s_asked.clear();
        m_buf.assign(512, ucUnwritten);
        return COMM_Hid_ReadLinuxUsbLibHid(m_buf.data(), nMax, nTimeOut, end);
    }
    std::string got(size_t nLen) { return writtenUpTo(m_buf, nLen); }

    Bytes m_buf;
};

TEST_F(UsbRead, WithoutADeviceOrBufferNothingIsRead)
{
    EXPECT_EQ(read(), -50);
    EXPECT_EQ(got(0), "");
    openReader();
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(nullptr, 4, 3, never), -50);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
    EXPECT_THAT(s_asked, ElementsAre());
}

TEST_F(UsbRead, APaddedReportIsTakenUpToItsLastByteThatIsNotZero)
{
    openReader();
    m_usb.in(hex(padded(bytes("02 30 31 00 32 03"), 64)));
    EXPECT_EQ(read(), 6);
    EXPECT_EQ(got(6), "02 30 31 00 32 03");
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 82 64 1000"));
    EXPECT_THAT(s_asked, ElementsAre("02 30 31 00 32 03"));
    EXPECT_EQ(s_pAsked, m_buf.data());
}

TEST_F(UsbRead, AReplyMayComeInSeveralReports)
{
    openReader();
    Bytes reply = filled(150);
    std::replace(reply.begin(), reply.end(), uint8_t{0x03}, uint8_t{0x33});
    reply.back() = 0x03;
    m_usb.in(hex(reply.data(), 64));
    m_usb.in(hex(reply.data() + 64, 64));
    m_usb.in(hex(padded(Bytes(reply.begin() + 128, reply.end()), 64)));
    EXPECT_EQ(read(), 150);
    EXPECT_EQ(got(150), hex(reply));
    EXPECT_EQ(s_asked.size(), 3U);
    EXPECT_EQ(s_asked[1], hex(reply.data(), 128));
}

TEST_F(UsbRead, AnAllZeroReportBringsNothing)
{
    openReader();
    m_usb.in(hex(Bytes(64)));
    m_usb.in(hex(padded(bytes("00 41 03"), 64)));
    EXPECT_EQ(read(), 3);
    EXPECT_EQ(got(3), "00 41 03");
    EXPECT_THAT(s_asked, ElementsAre("", "00 41 03"));
}

TEST_F(UsbRead, WithZeroStrippingOffWholeReportsAreKept)
{
    openReader(8);
    COMM_Hid_SetLinuxHidClearZero(0);
    m_usb.in("41 00 00 00 00 00 00 00");
    m_usb.in("00 00 00 00 00 00 00 00");
    m_usb.in("42 03 00 00");
    m_usb.in("00 00 03");
    EXPECT_EQ(read(), 23);
    EXPECT_EQ(got(23), "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 42 03 00 00 00 00 03");
    EXPECT_EQ(s_asked[2].size(), 20U * 3 - 1);
}

TEST_F(UsbRead, TrailingZerosNeverCount)
{
    openReader(8);
    COMM_Hid_SetLinuxHidClearZero(0);
    m_usb.in("41 42 00 00 00 00 00 00");
    EXPECT_EQ(read(atOnce), 2);
    m_usb.in("00 00 00 00 00 00 00 00");
    EXPECT_EQ(read(atOnce), 0);
    // Neither do those of a full buffer, with and without stripping.
    m_usb.in("41 00 00 00 42 00 00 00");
    EXPECT_EQ(read(never, 3, 4), 1);
    EXPECT_EQ(got(4), "41 00 00 00");
    COMM_Hid_SetLinuxHidClearZero(1);
    m_usb.in("41 00 00 00 42 00 00 00");
    EXPECT_EQ(read(never, 3, 4), 1);
    EXPECT_EQ(got(4), "41 00 00 00");
}

TEST_F(UsbRead, AFullBufferEndsTheReadWithoutAskingTheEndCondition)
{
    openReader(8);
    m_usb.in("41 42 43 44 45 46 47 48");
    EXPECT_EQ(read(never, 3, 8), 8);
    EXPECT_THAT(s_asked, ElementsAre());
    m_usb.in("41 42 43 44 45 46 47 48");
    EXPECT_EQ(read(never, 3, 5), 5);
    EXPECT_EQ(got(5), "41 42 43 44 45");
    m_usb.in("41 42 43 44 45 46 47 48");
    m_usb.in("51 52 53 54 55 56 57 58");
    EXPECT_EQ(read(never, 3, 11), 11);
    EXPECT_EQ(got(11), "41 42 43 44 45 46 47 48 51 52 53");
    EXPECT_EQ(s_asked.size(), 1U);
}

TEST_F(UsbRead, ABufferOfNoBytesIsFullAfterOneReport)
{
    openReader();
    m_usb.in("41");
    EXPECT_EQ(read(never, 3, 0), 0);
    EXPECT_EQ(got(0), "");
    EXPECT_THAT(s_asked, ElementsAre());
    EXPECT_EQ(FakeUsb::reads(), 1U);
}

TEST_F(UsbRead, TheEndConditionIsAskedAfterEachPassAlsoAboutNothing)
{
    openReader();
    m_usb.in("");
    m_usb.in("41");
    m_usb.in("", -7);
    m_usb.in("42 03");
    EXPECT_EQ(read(), 3);
    EXPECT_THAT(s_asked, ElementsAre("", "41", "41", "41 42 03"));
    EXPECT_EQ(read(atOnce), 0);
}

TEST_F(UsbRead, WithoutAnEndConditionTheReadLastsToItsTimeOut)
{
    openReader();
    m_usb.in("41 03");
    EXPECT_EQ(read(nullptr, 1), 0);
    EXPECT_EQ(FakeUsb::reads(), 3U);
    EXPECT_EQ(got(2), "41 03"); // what has come stays
}

TEST_F(UsbRead, AReportThatComesWithAFailureCountsAllTheSame)
{
    openReader();
    m_usb.in("41", -7);
    m_usb.in("42", -4);
    m_usb.in("03", -1);
    EXPECT_EQ(read(), 3);
    EXPECT_EQ(got(3), "41 42 03");
}

TEST_F(UsbRead, AFailureThatDoesNotCountBringsNothing)
{
    openReader();
    m_usb.in("41 42");
    m_usb.inUntouched(-4);
    m_usb.inUntouched(0);
    m_usb.in("43 03");
    EXPECT_EQ(read(), 4);
    EXPECT_THAT(s_asked, ElementsAre("41 42", "41 42", "41 42", "41 42 43 03"));
}

TEST_F(UsbRead, AnOldReportDoesNotShowThroughAShorterOne)
{
    openReader(8);
    m_usb.in("41 42 43 44 45 46 47 48");
    m_usb.in("51 03");
    EXPECT_EQ(read(), 10);
    EXPECT_EQ(got(10), "41 42 43 44 45 46 47 48 51 03");
}

TEST_F(UsbRead, ALargestReportFits)
{
    openReader(2047);
    m_usb.in(hex(filled(2047)));
    m_buf.assign(2048, 0xC5);
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(m_buf.data(), 2047, 3, never), 2047);
    EXPECT_EQ(got(2047), hex(filled(2047)));
}

// ---- kinds of transfer ----------------------------------------------------------------------------------------------

TEST_F(UsbRead, TheOutEndpointsTypeChoosesTheTransfer)
{
    openReader();
    g_inep.cTransferType = 3;
    g_outep.cTransferType = 2;
    m_usb.in("03");
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("bulk 82 64 1000"));
    g_inep.cTransferType = 2;
    g_outep.cTransferType = 3;
    m_usb.in("03");
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 82 64 1000"));
    g_inep.cTransferType = 0;
    m_usb.in("03");
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 82 64 1000"));
}

TEST_F(UsbRead, TheInEndpointsSizeIsAskedFor)
{
    openReader();
    g_inep.cMaxPackeSize[0] = 2;
    g_inep.cMaxPackeSize[1] = 8;
    g_outep.cMaxPackeSize[1] = 9;
    m_usb.in("03");
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 82 520 1000"));
}

TEST_F(UsbRead, AnInterruptReportIsFollowedByThePauseOfItsEndpoint)
{
    openReader(64, 3, 10);
    m_usb.in("41");
    m_usb.in("03");
    EXPECT_EQ(read(), 2);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(10, 10));
    g_outep.cTransferType = 2;
    m_usb.in("41");
    m_usb.in("03");
    EXPECT_EQ(read(), 2);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

TEST_F(UsbRead, AnUnknownTypeReceivesNothingAndKeepsItsPaceUntilTheTimeOut)
{
    openReader();
    g_outep.cTransferType = 0;
    SteadyClock steady;
    m_clock.script({1000, 1000, 1001, 1001, 1002, 1003, 1003});
    EXPECT_EQ(read(never, 1), 0);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
    EXPECT_GE(s_asked.size(), 3U);
    EXPECT_EQ(FakeSleep::take(), std::vector<long>(s_asked.size() - 1, 100));
}

// ---- time-outs ------------------------------------------------------------------------------------------------------

TEST_F(UsbRead, ATimeOutIsExceededNotReached)
{
    openReader();
    for (int nTimeOut : {1, 2, 3, 10}) {
        SCOPED_TRACE(nTimeOut);
        m_usb.takeCalls();
        EXPECT_EQ(read(never, nTimeOut), 0);
        EXPECT_EQ(s_asked.size(), static_cast<size_t>(nTimeOut) + 1); // a second each
        EXPECT_EQ(m_usb.takeCalls(), times(s_asked.size(), "interrupt 82 64 1000"));
    }
}

TEST_F(UsbRead, ATimeOutBelowOneWaits2000Seconds)
{
    openReader();
    for (int nTimeOut : {0, -1, INT32_MIN}) {
        SCOPED_TRACE(nTimeOut);
        time_t nStart = 1000;
        m_clock.set(nStart);
        size_t nFirst = FakeUsb::reads();
        m_usb.onIn([&](size_t n) { m_clock.set(nStart + (n - nFirst < 4 ? 1999 : 2000)); }); // silence adds one
        logOn();
        EXPECT_EQ(read(never, nTimeOut), 0);
        EXPECT_EQ(FakeUsb::reads() - nFirst, 4U);
        EXPECT_EQ(logTexts().front(), " Param err");
        EXPECT_TRUE(logged({" Param err", "3\n", "read ret:0\n"}));
    }
}

TEST_F(UsbRead, ACompleteReplyWinsOverATimeOut)
{
    openReader();
    m_usb.in("03");
    m_usb.onIn([&](size_t) { m_clock.advance(100); });
    EXPECT_EQ(read(endsWithEtx, 1), 1);
}

// ---- a pass that brings nothing at once -----------------------------------------------------------------------------

TEST_F(UsbRead, ADeviceThatIsGoneDoesNotMakeTheReadSpin)
{
    openReader(64, 2);
    for (int i = 0; i < 3; ++i)
        m_usb.inUntouched(-4);
    m_usb.in("03");
    SteadyClock steady;
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(100, 100, 100));
}

TEST_F(UsbRead, APassThatWaitedOrBroughtSomethingIsNotFollowedByAPause)
{
    openReader(64, 2);
    m_usb.in("41");
    m_usb.in("", -7, 120);
    m_usb.in("42");
    m_usb.in("03");
    EXPECT_EQ(read(), 3);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

TEST_F(UsbRead, TheLastPassIsNotFollowedByAPause)
{
    openReader(64, 2);
    m_usb.inUntouched(-4);
    EXPECT_EQ(read(atOnce), 0);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
    m_usb.onIn([&](size_t) { m_clock.advance(9); });
    m_usb.inUntouched(-4);
    EXPECT_EQ(read(never, 3), 0);
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

// ---- the log --------------------------------------------------------------------------------------------------------

TEST_F(UsbRead, AReadIsLoggedPassByPass)
{
    openReader(8);
    m_usb.in("41 00 42 00 00 00 00 00", -7);
    m_usb.in("03");
    logOn();
    EXPECT_EQ(read(), 4);
    EXPECT_THAT(logTexts(), ElementsAre("read nRetVal:-7, nReadOneTm=8\n", "read data  LEN=8   HEX: 4100420000000000",
                                        "read real data  LEN=3   HEX: 410042", "read nRetVal:0, nReadOneTm=1\n",
                                        "read data  LEN=1   HEX: 03", "read real data  LEN=4   HEX: 41004203",
                                        "2nReadLen=4\n", "read ret:4\n"));
    const std::string sTime = GetLogTime();
    EXPECT_EQ(rawLog().find("  " + sTime + "  INFO:    CommDev:  read nRetVal:-7, nReadOneTm=8\n\r\n " + sTime +
                            "  read data  LEN=8   HEX: 4100420000000000\r\n " + sTime + "  read real data  LEN=3"),
              0U);
    EXPECT_TRUE(rawLog().ends_with("  " + sTime + "  INFO:    CommDev:  2nReadLen=4\n\r\n  " + sTime +
                                   "  INFO:    CommDev:  read ret:4\n\r\n"));
}

TEST_F(UsbRead, ATimeOutIsLoggedAndSoIsWhatIsReturned)
{
    openReader(8);
    m_usb.in("41");
    logOn();
    EXPECT_EQ(read(never, 1), 0);
    EXPECT_THAT(logTexts(), ElementsAre("read nRetVal:0, nReadOneTm=1\n", "read data  LEN=1   HEX: 41",
                                        "read real data  LEN=1   HEX: 41", "read nRetVal:-7, nReadOneTm=0\n",
                                        "read data  LEN=0   HEX: ", "read real data  LEN=1   HEX: 41",
                                        "read nRetVal:-7, nReadOneTm=0\n", "read data  LEN=0   HEX: ",
                                        "read real data  LEN=1   HEX: 41", "3\n", "read ret:0\n"));
}

TEST_F(UsbRead, AFullBufferIsLoggedWithItsLength)
{
    openReader(8);
    m_usb.in("41 42 00 44");
    logOn();
    EXPECT_EQ(read(never, 1, 3), 2);
    EXPECT_THAT(logTexts(),
                ElementsAre("read nRetVal:0, nReadOneTm=4\n", "read data  LEN=4   HEX: 41420044", "read ret:2\n"));
}

} // namespace
