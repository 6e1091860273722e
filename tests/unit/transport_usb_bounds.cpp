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

class UsbBounds : public UsbBus {
  protected:
    static int32_t write(const Bytes &data)
    {
        return COMM_Hid_WriteLinuxUsbLibHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    int32_t read(EndConditionFn end = atOnce)
    {
        m_buf.assign(4096, 0xC5);
        return COMM_Hid_ReadLinuxUsbLibHid(m_buf.data(), static_cast<uint32_t>(m_buf.size()), 3, end);
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

} // namespace
