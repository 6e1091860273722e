// Sizes and counts beyond what a report can be, from a host that writes the endpoint records and from a bus that counts
// wrongly: nothing is read or written outside a report.

#include "usb_bus.h"

using namespace qvtest;
using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr size_t nLargest = 2047; // bytes of a report

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

int32_t onceSomethingCame(const uint8_t *, int32_t nLen)
{
    return nLen > 0 ? 0 : 1;
}

class UsbBounds : public UsbBus {
  protected:
    static int32_t write(const Bytes &data)
    {
        return COMM_Hid_WriteLinuxUsbLibHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    int32_t read(EndConditionFn end = atOnce) { return COMM_Hid_ReadLinuxUsbLibHid(buffer(), 4096, 3, end); }
    uint8_t *buffer()
    {
        m_buf.assign(4096, 0xC5);
        return m_buf.data();
    }

    Bytes m_buf;
};

TEST_F(UsbBounds, AReportOnItsWayOutHasAtMost2047Bytes)
{
    const std::pair<uint8_t, uint8_t> rows[] = {{0xFF, 0xFF}, {0x08, 0x00}, {0x08, 0x01}, {0x07, 0xFF}};
    for (auto [ucHigh, ucLow] : rows) {
        SCOPED_TRACE(testing::Message() << int{ucHigh} << " " << int{ucLow});
        openReader();
        g_outep.cMaxPackeSize[0] = ucHigh;
        g_outep.cMaxPackeSize[1] = ucLow;
        const Bytes data = filled(1024);
        m_usb.out(0, 1023); // the next one begins at the last byte
        EXPECT_EQ(write(data), 1024);
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 02 2047 1000", "interrupt 02 2047 1000"));
        EXPECT_THAT(m_usb.takeSent(), ElementsAre(padded(data, nLargest), padded(Bytes{data.back()}, nLargest)));
        COMM_Hid_CloseLinuxUsbLibHid();
    }
}

TEST_F(UsbBounds, AReportOnItsWayInHasAtMost2047Bytes)
{
    for (uint32_t bStrip : {0U, 1U}) {
        openReader();
        g_inep.cMaxPackeSize[0] = g_inep.cMaxPackeSize[1] = 0xFF;
        COMM_Hid_SetLinuxHidClearZero(bStrip);
        const Bytes report = filled(nLargest);
        m_usb.in(hex(report));
        EXPECT_EQ(read(), static_cast<int32_t>(nLargest));
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 82 2047 1000"));
        EXPECT_EQ(Bytes(m_buf.begin(), m_buf.begin() + nLargest), report);
        EXPECT_EQ(m_buf[nLargest], 0xC5);
        COMM_Hid_CloseLinuxUsbLibHid();
    }
}

TEST_F(UsbBounds, NoMoreThanAReportCountsAsSent)
{
    openReader();
    const Bytes data = filled(100);
    m_usb.out(0, 1000);
    EXPECT_EQ(write(data), 100);
    EXPECT_THAT(m_usb.takeSent(),
                ElementsAre(Bytes(data.begin(), data.begin() + 64), padded(Bytes(data.begin() + 64, data.end()), 64)));
    m_usb.out(0, -1);
    m_usb.out(0, INT32_MIN);
    EXPECT_EQ(write(bytes("31")), 1);
    EXPECT_THAT(m_usb.takeSent(), testing::Each(padded(bytes("31"), 64)));
}

TEST_F(UsbBounds, NoMoreThanAReportCountsAsReceived)
{
    openReader();
    for (int nMoved : {65, 4096, INT32_MAX}) {
        SCOPED_TRACE(nMoved);
        m_usb.inMoved("41 42", nMoved);
        logOn();
        EXPECT_EQ(read(), 2);
        EXPECT_THAT(logTexts(), Contains("read nRetVal:0, nReadOneTm=64\n"));
        EXPECT_EQ(hex(m_buf.data(), 3), "41 42 C5");
        logOff();
    }
    COMM_Hid_SetLinuxHidClearZero(0);
    m_usb.inMoved("41 42", 4096);
    EXPECT_EQ(read(), 2); // the zeros behind it do not count
    EXPECT_EQ(hex(m_buf.data() + 62, 3), "00 00 C5");
}

TEST_F(UsbBounds, FewerThanNoBytesAreNone)
{
    openReader();
    for (int nMoved : {-1, INT32_MIN}) {
        SCOPED_TRACE(nMoved);
        m_usb.inMoved("41 42", nMoved);
        logOn();
        EXPECT_EQ(read(), 0);
        EXPECT_THAT(logTexts(), Contains("read nRetVal:0, nReadOneTm=0\n"));
        EXPECT_EQ(m_buf[0], 0xC5);
        logOff();
    }
    EXPECT_EQ(read(never), 0);
}

TEST_F(UsbBounds, AnyStrippingFlagButZeroStrips)
{
    openReader(8);
    for (uint32_t nFlag : {2U, 0x80000000U, 0xFFFFFFFFU, 1U}) {
        SCOPED_TRACE(nFlag);
        COMM_Hid_SetLinuxHidClearZero(nFlag);
        m_usb.in("41 00 00 00 00 00 00 00");
        m_usb.in("42 03 00 00 00 00 00 00");
        m_usb.takeCalls();
        EXPECT_EQ(read([](const uint8_t *, int32_t nLen) -> int32_t { return nLen < 3; }), 3);
        EXPECT_EQ(hex(m_buf.data(), 3), "41 42 03");
    }
}

TEST_F(UsbBounds, TheLongestTimeOutIsExceededNotReached)
{
    openReader();
    m_usb.onSilence(nullptr);
    const time_t nEnd = 1000 + time_t{INT32_MAX};
    m_usb.onIn([&](size_t n) { m_clock.set(n < 3 ? 1001 : n == 3 ? nEnd : nEnd + 1); });
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buffer(), 16, INT32_MAX, never), 0);
    EXPECT_EQ(FakeUsb::reads(), 4U);
}

TEST_F(UsbBounds, AClockThatIsSetBackDoesNotEndTheRead)
{
    openReader();
    m_usb.inUntouched(-7);
    m_usb.in("03");
    m_usb.onIn([&](size_t) { m_clock.set(400); });
    EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buffer(), 16, 3, onceSomethingCame), 1);
}

TEST_F(UsbBounds, ABufferSaidToBeLargerThan2GiBTakesWhatComes)
{
    openReader();
    for (uint32_t nMax : {0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nMax);
        m_usb.in("41 42 03");
        EXPECT_EQ(COMM_Hid_ReadLinuxUsbLibHid(buffer(), nMax, 3, atOnce), 3);
        EXPECT_EQ(hex(m_buf.data(), 4), "41 42 03 C5");
    }
}

} // namespace
