// The library over the system's hidapi and the kernel's hidraw nodes.

#include "usb_devices.h"

#include "qvreader/support.h"

#include <algorithm>
#include <chrono>
#include <ctime>

using namespace qvtest;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Hidapi : public UsbDevices {
  protected:
    void openReader(const UsbDeviceOptions &options)
    {
        plug({options});
        ASSERT_EQ(open(kHidapi, options.id), 0);
        takeCalls();
    }
    static int32_t write(const Bytes &command)
    {
        return kHidapi.write(command.data(), static_cast<uint32_t>(command.size()));
    }
};

TEST_F(Hidapi, EveryBuiltInReaderOpensOnItsFirstNode)
{
    for (const UsbId id : {UsbId{0x0403, 0xBCD5}, UsbId{0x0403, 0xBCD7}, UsbId{0x0403, 0xBC95}, UsbId{0x2B46, 0xBE11},
                           UsbId{0x2B46, 0xBE21}, UsbId{0x2B46, 0xBE01}})
        for (const unsigned nInterfaces : {1u, 2u}) {
            SCOPED_TRACE(qvsim::usbIdText(id) + " with " + std::to_string(nInterfaces));
            plug({reader({0x046D, 0xC31C}), reader(id, nInterfaces)});
            ASSERT_EQ(open(kHidapi, id), 0);
            EXPECT_THAT(takeCalls(1), ElementsAre("HIDRAW OPEN 0"));
            EXPECT_THAT(takeCalls(0), IsEmpty());
            EXPECT_EQ(kHidapi.close(), 0);
            expectClosed();
            EXPECT_THAT(takeCalls(1), ElementsAre("HIDRAW CLOSE 0"));
            expectWorks(kHidapi, id);
        }
}

TEST_F(Hidapi, BothInterfacesAnswerAtTheSameTimeEachItsOwnWay)
{
    // libusb takes the kernel's driver off the second interface alone.
    plug({reader(kSecondChannel, 2)});
    ASSERT_EQ(open(kLibusb, kSecondChannel), 0);
    ASSERT_EQ(open(kHidapi, kSecondChannel), 0);
    const Bytes first = bytes("41 41"), second = bytes("42 42 42");
    usb().answerWith({bytes("31"), bytes("32")});
    EXPECT_EQ(write(first), 2);
    EXPECT_EQ(kLibusb.write(second.data(), 3), 3);
    EXPECT_EQ(hex(readReply(kLibusb, 1).data), "32");
    EXPECT_EQ(hex(readReply(kHidapi, 1).data), "31");
    const auto received = usb().received();
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[0].interface, 0U);
    EXPECT_EQ(hex(received[0].bytes), hex(first)); // hidapi does not fill up
    EXPECT_EQ(received[1].interface, 1U);
    EXPECT_EQ(hex(received[1].bytes), hex(padded(second, 64)));
}

TEST_F(Hidapi, TheDriverThatLibusbTakesOffTakesTheNodeAlong)
{
    plug({reader()});
    ASSERT_EQ(open(kHidapi), 0);
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_EQ(readOnce(kHidapi).nResult, RET_PUB_READ_FAIL);
    EXPECT_EQ(write(bytes("41")), -54);
    EXPECT_EQ(kHidapi.close(), 0);
    EXPECT_EQ(open(kHidapi), -3);
    kLibusb.close();
    EXPECT_EQ(open(kHidapi), -3); // it is not given back
    expectClosed();
    usb().unplug();
    usb().plug();
    expectWorks(kHidapi);
}

TEST_F(Hidapi, ASecondOpenClosesTheFirstDevice)
{
    plug({reader(kFirstChannel), reader(kSecondChannel)});
    ASSERT_EQ(open(kHidapi, kFirstChannel), 0);
    ASSERT_EQ(open(kHidapi, kSecondChannel), 0);
    EXPECT_EQ(write(bytes("41")), 1);
    EXPECT_THAT(usb().calls(0), ElementsAre("HIDRAW OPEN 0", "HIDRAW CLOSE 0"));
    EXPECT_THAT(usb().calls(1), ElementsAre("HIDRAW OPEN 0", "HIDRAW WRITE 0 2"));
    usb().forgetCalls();
    ASSERT_EQ(open(kHidapi, kSecondChannel), 0); // also the same one
    EXPECT_EQ(write(bytes("41")), 1);
    const Lines calls = usb().calls(1);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "HIDRAW CLOSE 0"), 1);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "HIDRAW OPEN 0"), 1);
    EXPECT_EQ(open(kHidapi, {0x1234, 0x5678}), -3); // and when there is none to take its place
    expectClosed();
}

TEST_F(Hidapi, WithoutADeviceOrANodeTheOpenFails)
{
    UsbDeviceOptions driverless = reader(kSecondChannel);
    driverless.kernelDriver = false;
    plug({driverless});
    EXPECT_EQ(open(kHidapi), -3);
    EXPECT_EQ(open(kHidapi, kSecondChannel), -3);
    EXPECT_EQ(write(bytes("41")), -50);
    EXPECT_EQ(readOnce(kHidapi).nResult, -50);
    EXPECT_EQ(kHidapi.cancel(), -57);
    EXPECT_EQ(kHidapi.close(), 0);
    expectClosed();
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(Hidapi, ACommandIsOneOutputReportBehindItsNumber)
{
    for (const size_t nLen : {1u, 16u, 64u, 65u, 100u, 319u, 320u, 321u, 1023u}) {
        SCOPED_TRACE(nLen);
        openReader(readerWith(64));
        EXPECT_EQ(write(filled(nLen)), static_cast<int32_t>(nLen));
        EXPECT_THAT(usb().calls(), ElementsAre("HIDRAW WRITE 0 " + std::to_string(nLen + 1)));
        EXPECT_EQ(hex(receivedBytes()), hex(filled(nLen)));
    }
}

TEST_F(Hidapi, WhatIsLongerThanTheStagingAreaIsRefusedBeforeAnythingIsSent)
{
    openReader(reader());
    const Bytes command = filled(5000);
    for (const uint32_t nLen : {1024u, 1025u, 5000u, 0xFFFFFFFFu})
        EXPECT_EQ(kHidapi.write(command.data(), nLen), -54) << nLen;
    EXPECT_EQ(kHidapi.write(nullptr, 5), -54);
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_EQ(write(filled(8)), 8);
}

TEST_F(Hidapi, ReportsThatCarryOnlyAPartAreFollowedByTheRest)
{
    openReader(reader());
    behave("out short 20");
    EXPECT_EQ(write(filled(90)), 90);
    EXPECT_THAT(usb().calls(), ElementsAre("HIDRAW WRITE 0 91", "HIDRAW WRITE 0 71", "HIDRAW WRITE 0 51",
                                           "HIDRAW WRITE 0 31", "HIDRAW WRITE 0 11"));
    EXPECT_EQ(hex(receivedBytes()), hex(filled(90)));
    usb().forgetCalls();
    EXPECT_EQ(write(filled(101)), -54);
    EXPECT_EQ(hex(receivedBytes()), hex(filled(100)));
    behave("out ok");
    kHidapi.close();
    expectWorks(kHidapi);
}

TEST_F(Hidapi, AWriteThatFailsSaysSoOnce)
{
    for (const char *psz : {"out stall", "out stuck"}) {
        SCOPED_TRACE(psz);
        openReader(reader());
        behave(psz);
        testing::internal::CaptureStderr();
        EXPECT_EQ(write(filled(10)), -54);
        EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("abc: "));
        EXPECT_THAT(takeCalls(), ElementsAre("HIDRAW WRITE 0 11"));
        EXPECT_THAT(receivedSizes(), IsEmpty());
        behave("out ok");
        EXPECT_EQ(write(filled(10)), 10);
        kHidapi.close();
        expectWorks(kHidapi);
    }
}

TEST_F(Hidapi, AReplyComesInAsManyReportsAsItNeeds)
{
    for (const unsigned nSize : {8u, 64u, 512u})
        for (const size_t nLen : {size_t{1}, size_t{nSize - 1}, size_t{nSize}, size_t{nSize + 1}, size_t{500}}) {
            SCOPED_TRACE(std::to_string(nLen) + " in reports of " + std::to_string(nSize));
            openReader(readerWith(nSize));
            usb().reply(filled(nLen));
            const Reply reply = readReply(kHidapi, nLen);
            EXPECT_EQ(hex(reply.data), hex(filled(nLen)));
        }
}

TEST_F(Hidapi, OfEachReportTheFirstRunOfBytesThatAreNotZeroIsKept)
{
    struct Row {
        const char *pszReport;
        const char *pszKept;
    };
    constexpr Row rows[] = {
        {"00 00 02 30 31 03 00 00", "02 30 31 03"},
        {"02 30 31 03", "02 30 31 03"},
        {"41 00 42 00", "41"},
        {"00 41 00 42", "41"},
        {"00 00 00 00", ""},
    };
    for (const uint32_t nFlag : {1u, 0u}) // nothing asks it
        for (const Row &row : rows) {
            SCOPED_TRACE(row.pszReport);
            COMM_Hid_SetSrcLinuxHidClearZero(nFlag);
            openReader(reader());
            usb().sendReport(bytes(row.pszReport));
            EXPECT_EQ(hex(readOnce(kHidapi).data), row.pszKept);
            usb().sendReport(bytes(row.pszReport));
            usb().sendReport(bytes("43"));
            EXPECT_EQ(hex(readReply(kHidapi, bytes(row.pszKept).size() + 1).data),
                      row.pszKept + std::string(*row.pszKept == '\0' ? "43" : " 43"));
        }
    COMM_Hid_SetSrcLinuxHidClearZero(1);
}

TEST_F(Hidapi, AReplyLongerThanTheRoomIsCut)
{
    for (const size_t nRoom : {1u, 63u, 64u, 65u, 100u}) {
        SCOPED_TRACE(nRoom);
        openReader(reader());
        usb().reply(filled(200));
        const Reply reply = readReply(kHidapi, 200, nRoom);
        EXPECT_EQ(reply.nResult, static_cast<int32_t>(nRoom));
        EXPECT_EQ(hex(reply.data), hex(filled(nRoom)));
    }
}

TEST_F(Hidapi, ReportsOfOneReplyMayHaveAnyLength)
{
    openReader(reader());
    behave("in short 20");
    usb().reply(filled(50));
    EXPECT_EQ(hex(readReply(kHidapi, 50).data), hex(filled(50)));
    behave("in empty"); // the driver passes no empty report on
    usb().reply(filled(50));
    EXPECT_EQ(hex(readReply(kHidapi, 50).data), hex(filled(50)));
}

TEST_F(Hidapi, WhenNothingComesTheReadTimesOut)
{
    openReader(reader());
    uint8_t buf[16] = {};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kHidapi.read(buf, sizeof buf, -1, nullptr), RET_PUB_TIMEOUT); // one wait
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(190));
    const time_t nStart = time(nullptr);
    EXPECT_EQ(kHidapi.read(buf, sizeof buf, 1, nullptr), RET_PUB_TIMEOUT);
    EXPECT_GT(time(nullptr) - nStart, 1);
    // Also behind a part of a reply, and while the endpoint is stalled.
    usb().reply(bytes("02 30"));
    EXPECT_EQ(kHidapi.read(buf, sizeof buf, 0, nullptr), RET_PUB_TIMEOUT);
    EXPECT_EQ(hex(buf, 3), "02 30 00");
    behave("in stall");
    usb().reply(bytes("02 30"));
    EXPECT_EQ(kHidapi.read(buf, sizeof buf, -1, nullptr), RET_PUB_TIMEOUT);
    behave("in ok");
    EXPECT_EQ(hex(readReply(kHidapi, 2).data), "02 30");
    kHidapi.close();
    expectWorks(kHidapi);
}

TEST_F(Hidapi, AReaderThatIsGoneFailsEveryCallUntilItIsBack)
{
    openReader(reader());
    usb().unplug();
    EXPECT_EQ(readOnce(kHidapi).nResult, RET_PUB_READ_FAIL);
    EXPECT_EQ(write(filled(10)), -54);
    EXPECT_EQ(kHidapi.close(), 0);
    expectClosed();
    EXPECT_EQ(open(kHidapi), -3);
    usb().plug();
    expectWorks(kHidapi);
}

TEST_F(Hidapi, HundredOpensLeaveNothing)
{
    plug({reader(kSecondChannel, 2)});
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(open(kHidapi, kSecondChannel), 0) << i;
        EXPECT_EQ(kHidapi.close(), 0);
    }
    expectClosed();
    expectWorks(kHidapi, kSecondChannel);
}

} // namespace
