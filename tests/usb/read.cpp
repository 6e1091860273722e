// Replies over libusb: reports of every size, padding on and off, zeros inside, and transfers that fail.

#include "usb_devices.h"

#include <ctime>

using namespace qvtest;
using testing::ElementsAre;

namespace {

class UsbRead : public UsbDevices {
  protected:
    void openReader(const UsbDeviceOptions &options)
    {
        plug({options});
        ASSERT_EQ(open(kLibusb, options.id), 0);
        takeCalls();
    }
};

// The configuration with another transfer type for one endpoint.
Bytes withTransferType(Bytes configuration, uint8_t ucEndpoint, uint8_t ucType)
{
    for (size_t nAt = 0; nAt + 4 <= configuration.size() && configuration[nAt] != 0; nAt += configuration[nAt])
        if (configuration[nAt + 1] == 5 && configuration[nAt + 2] == ucEndpoint)
            configuration[nAt + 3] = ucType;
    return configuration;
}

TEST_F(UsbRead, AReplyComesInAsManyReportsAsItNeeds)
{
    for (const bool bBulk : {false, true})
        for (const unsigned nSize : {8u, 64u, 512u})
            for (const size_t nLen : {size_t{1}, size_t{nSize - 1}, size_t{nSize}, size_t{nSize + 1}, size_t{1030}})
                for (const uint32_t nStrip : {1u, 0u}) {
                    SCOPED_TRACE(std::to_string(nLen) + " in reports of " + std::to_string(nSize) +
                                 (bBulk ? ", bulk" : ", interrupt") + (nStrip != 0 ? ", stripped" : ", whole"));
                    openReader(readerWith(nSize, bBulk));
                    COMM_Hid_SetLinuxHidClearZero(nStrip);
                    const Bytes reply = filled(nLen);
                    usb().reply(reply);
                    const Reply read = readReply(kLibusb, nLen);
                    EXPECT_EQ(read.nResult, static_cast<int32_t>(nLen));
                    EXPECT_EQ(hex(read.data), hex(reply));
                    EXPECT_EQ(takeCalls(), Lines((nLen + nSize - 1) / nSize,
                                                 (bBulk ? "BULK IN 81 " : "INTERRUPT IN 81 ") + std::to_string(nSize)));
                }
}

TEST_F(UsbRead, ZerosAtTheEndOfAReportAreItsPaddingUnlessStrippingIsOff)
{
    // The last byte of the first report is a zero of the reply itself.
    Bytes reply = filled(70);
    reply[63] = 0;
    Bytes stripped = reply;
    stripped.erase(stripped.begin() + 63);

    openReader(reader());
    usb().reply(reply);
    EXPECT_EQ(hex(readReply(kLibusb, 69).data), hex(stripped));

    COMM_Hid_SetLinuxHidClearZero(0);
    usb().reply(reply);
    EXPECT_EQ(hex(readReply(kLibusb, 70).data), hex(reply)); // its own end is found by the zeros all the same
}

TEST_F(UsbRead, ZerosInsideAReplyStayAndThoseAtItsEndAreNotCounted)
{
    for (const uint32_t nStrip : {1u, 0u}) {
        SCOPED_TRACE(nStrip);
        openReader(reader());
        COMM_Hid_SetLinuxHidClearZero(nStrip);
        usb().reply(bytes("02 00 00 41 00 03"));
        EXPECT_EQ(hex(readReply(kLibusb, 6).data), "02 00 00 41 00 03");
        usb().reply(bytes("00 00 41"));
        EXPECT_EQ(hex(readReply(kLibusb, 3).data), "00 00 41");
        usb().reply(bytes("41 42 00 00"));
        EXPECT_EQ(readReply(kLibusb, 2).nResult, 2);
        usb().reply(Bytes(5, 0));
        EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    }
}

TEST_F(UsbRead, AnAllZeroReportAddsNothingUnlessStrippingIsOff)
{
    for (const uint32_t nStrip : {1u, 0u}) {
        SCOPED_TRACE(nStrip);
        openReader(readerWith(8));
        COMM_Hid_SetLinuxHidClearZero(nStrip);
        usb().reply(bytes("41 41 41 41 41 41 41 41 00 00 00 00 00 00 00 00 42"));
        const Reply read = readReply(kLibusb, nStrip != 0 ? 9 : 17);
        EXPECT_EQ(hex(read.data),
                  nStrip != 0 ? "41 41 41 41 41 41 41 41 42" : "41 41 41 41 41 41 41 41 00 00 00 00 00 00 00 00 42");
    }
}

TEST_F(UsbRead, AReplyLongerThanTheRoomIsCut)
{
    for (const size_t nRoom : {1u, 63u, 64u, 65u, 100u}) {
        SCOPED_TRACE(nRoom);
        openReader(reader());
        usb().reply(filled(200));
        const Reply read = readReply(kLibusb, 200, nRoom);
        EXPECT_EQ(read.nResult, static_cast<int32_t>(nRoom));
        EXPECT_EQ(hex(read.data), hex(filled(nRoom)));
    }
}

TEST_F(UsbRead, ShortAndEmptyReportsAreTakenAsTheyCome)
{
    for (const char *psz : {"in short 20", "in short 1", "in empty"}) {
        SCOPED_TRACE(psz);
        openReader(reader());
        behave(psz);
        const Bytes reply = filled(30);
        usb().reply(reply);
        EXPECT_EQ(hex(readReply(kLibusb, 30).data), hex(reply));
    }
}

TEST_F(UsbRead, AFailedTransferBringsNothingAndTheReadGoesOn)
{
    openReader(reader());
    behave("in stall");
    EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    EXPECT_THAT(takeCalls(), ElementsAre("INTERRUPT IN 81 64"));
    usb().reply(bytes("41 42"));
    EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    behave("in ok");
    EXPECT_EQ(hex(readReply(kLibusb, 2).data), "41 42");
    // Until its time is over.
    behave("in stall");
    uint8_t buf[16] = {};
    EXPECT_EQ(kLibusb.read(buf, sizeof buf, 1, nullptr), 0);
    behave("in ok");
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbRead, HowAReportIsReadIsWhatTheOutEndpointSays)
{
    // The kernel carries out a bulk transfer on an interrupt endpoint, and refuses the other way round.
    UsbDeviceOptions options = reader();
    options.configuration = withTransferType(qvsim::configurationDescriptor(options), 0x01, qvsim::kTransferBulk);
    openReader(options);
    EXPECT_EQ(g_inep.cTransferType, 3);
    EXPECT_EQ(g_outep.cTransferType, 2);
    usb().reply(bytes("41 42"));
    EXPECT_EQ(hex(readReply(kLibusb, 2).data), "41 42");
    EXPECT_THAT(takeCalls(), ElementsAre("BULK IN 81 64"));

    options.configuration = withTransferType(qvsim::configurationDescriptor(reader()), 0x81, qvsim::kTransferBulk);
    openReader(options);
    EXPECT_EQ(g_inep.cTransferType, 2);
    EXPECT_EQ(g_outep.cTransferType, 3);
    usb().reply(bytes("41 42"));
    EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    EXPECT_THAT(takeCalls(), ElementsAre("INTERRUPT IN 81 64"));
}

TEST_F(UsbRead, AnEndpointThatTheDeviceHasNotBringsNothing)
{
    openReader(reader());
    g_inep.cEpaddress = 0x85;
    EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbRead, OfAReportLongerThanTheTransferTheBytesThatFittedAreTaken)
{
    openReader(reader());
    behave("in overflow");
    usb().sendReport(bytes("41 42"));
    EXPECT_EQ(hex(readOnce(kLibusb).data), "41 42"); // the transfer has failed, and has moved bytes
    behave("in ok");
    usb().reply(bytes("43"));
    EXPECT_EQ(hex(readOnce(kLibusb).data), "43");
}

TEST_F(UsbRead, WhenNothingComesTheReadIsEmptyAfterItsTime)
{
    openReader(reader());
    uint8_t buf[16] = {};
    const time_t nStart = time(nullptr);
    EXPECT_EQ(kLibusb.read(buf, sizeof buf, 1, nullptr), 0);
    EXPECT_GT(time(nullptr) - nStart, 1);
    const Lines calls = takeCalls();
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls[0], "INTERRUPT IN 81 64");
    EXPECT_EQ(calls[1], "DISCARD");
    EXPECT_EQ(calls.size() % 2, 0U);
    // Nothing of the transfers that were taken back is left: the next reply is whole.
    usb().reply(filled(100));
    EXPECT_EQ(hex(readReply(kLibusb, 100).data), hex(filled(100)));
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbRead, APartOfAReplyIsLeftWhenTheRestDoesNotCome)
{
    openReader(reader());
    usb().reply(bytes("02 30 30"));
    uint8_t buf[16] = {};
    EXPECT_EQ(kLibusb.read(buf, sizeof buf, 1, nullptr), 0);
    EXPECT_EQ(hex(buf, 4), "02 30 30 00");
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbRead, AReaderThatIsGoneGivesAnEmptyReply)
{
    openReader(reader());
    usb().reply(bytes("41"));
    usb().unplug();
    EXPECT_EQ(readOnce(kLibusb).nResult, 0);
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    usb().plug();
    expectWorks(kLibusb);
}

TEST_F(UsbRead, TheSecondInterfacesReplyIsNotTheFirstOnes)
{
    openReader(reader(kSecondChannel, 2));
    usb().reply(bytes("41"), 0);
    usb().reply(bytes("42"), 1);
    EXPECT_EQ(hex(readOnce(kLibusb).data), "42");
}

} // namespace
