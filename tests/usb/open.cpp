// Taking a device into use through libusb: the calls that reach the kernel, the configurations there are, and each call
// failing in turn.

#include "usb_devices.h"

using namespace qvtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UsbOpen : public UsbDevices {};

// What an open asks of the kernel for this interface.
Lines openCalls(unsigned nInterface)
{
    const std::string s = std::to_string(nInterface);
    return {"OPEN", "RESET", "GETDRIVER " + s, "GETDRIVER " + s, "DISCONNECT " + s, "CLAIM " + s};
}

TEST_F(UsbOpen, OpenAndCloseAreTheseCallsInThisOrder)
{
    plug({reader()});
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_EQ(takeCalls(), openCalls(0));
    EXPECT_NE(m_targetDev, nullptr);
    EXPECT_NE(m_devs, nullptr);
    EXPECT_NE(m_handle, nullptr);
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    EXPECT_THAT(takeCalls(), ElementsAre("RELEASE 0", "CLOSE"));
    EXPECT_EQ(kLibusb.close(), 0);
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(UsbOpen, ADriverThatWasTakenOffStaysAway)
{
    plug({reader()});
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    takeCalls();
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_THAT(takeCalls(), ElementsAre("OPEN", "RESET", "GETDRIVER 0", "CLAIM 0"));
}

TEST_F(UsbOpen, WithoutADriverNoneIsTakenOff)
{
    UsbDeviceOptions options = reader();
    options.kernelDriver = false;
    plug({options});
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_THAT(takeCalls(), ElementsAre("OPEN", "RESET", "GETDRIVER 0", "CLAIM 0"));
    EXPECT_EQ(kLibusb.close(), 0);
    expectWorks(kLibusb);
}

TEST_F(UsbOpen, TheInterfaceIsTheOnlyOneTheFirstOneOrTheSecondOne)
{
    struct Row {
        UsbId id;
        unsigned nInterfaces;
        unsigned nChosen;
        uint8_t ucIn, ucOut;
    };
    constexpr Row rows[] = {
        {kFirstChannel, 1, 0, 0x81, 0x01},  {kFirstChannel, 2, 0, 0x81, 0x01},  {kFirstChannel, 4, 0, 0x81, 0x01},
        {kSecondChannel, 1, 0, 0x81, 0x01}, {kSecondChannel, 2, 1, 0x82, 0x02}, {kSecondChannel, 4, 1, 0x82, 0x02},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(qvsim::usbIdText(row.id) + " with " + std::to_string(row.nInterfaces));
        plug({reader(row.id, row.nInterfaces)});
        ASSERT_EQ(open(kLibusb, row.id), 0);
        EXPECT_EQ(takeCalls(), openCalls(row.nChosen));
        EXPECT_EQ(g_inep.cEpaddress, row.ucIn);
        EXPECT_EQ(g_outep.cEpaddress, row.ucOut);
        const Bytes command = filled(5);
        usb().answerWith({bytes("41 42 43")});
        EXPECT_EQ(kLibusb.write(command.data(), 5), 5);
        EXPECT_EQ(hex(readReply(kLibusb, 3).data), "41 42 43");
        ASSERT_EQ(usb().received().size(), 1U);
        EXPECT_EQ(usb().received()[0].interface, row.nChosen);
        takeCalls();
        // Interface 0 is released whichever was claimed: libusb refuses what it has not claimed, and the close frees it.
        EXPECT_EQ(kLibusb.close(), 0);
        expectClosed();
        EXPECT_EQ(takeCalls(), row.nChosen == 0 ? (Lines{"RELEASE 0", "CLOSE"}) : (Lines{"CLOSE"}));
        expectClosed();
        expectWorks(kLibusb, row.id);
    }
}

TEST_F(UsbOpen, EndpointsAreLearntInEitherOrderWithTypeSizeAndInterval)
{
    for (const UsbEndpointSet endpoints : {UsbEndpointSet::inOut, UsbEndpointSet::outIn})
        for (const bool bBulk : {false, true})
            for (const unsigned nSize : {8u, 64u, 512u}) {
                SCOPED_TRACE(nSize);
                UsbDeviceOptions options = readerWith(nSize, bBulk);
                options.endpoints = endpoints;
                options.intervalMs = 3;
                plug({options});
                ASSERT_EQ(open(kLibusb), 0);
                for (const EndpointInfo *p : {&g_inep, &g_outep}) {
                    EXPECT_EQ(p->cEpaddress, p == &g_inep ? 0x81 : 0x01);
                    EXPECT_EQ(p->cTransferType, bBulk ? 2 : 3);
                    EXPECT_EQ(p->cTimeInterval, 3);
                    EXPECT_EQ(p->cMaxPackeSize[0] * 256u + p->cMaxPackeSize[1], nSize);
                }
                EXPECT_EQ(kLibusb.close(), 0);
                expectClosed();
                EXPECT_EQ(g_outep.cEpaddress, 0x01); // a close leaves them
            }
}

TEST_F(UsbOpen, TwoAlternateSettingsLeaveTheEndpointsUnknown)
{
    for (const unsigned nInterfaces : {1u, 2u}) {
        SCOPED_TRACE(nInterfaces);
        UsbDeviceOptions options = reader(kSecondChannel, nInterfaces);
        options.altSettings = 2;
        plug({options});
        g_inep = g_outep = {};
        ASSERT_EQ(open(kLibusb, kSecondChannel), 0);
        EXPECT_EQ(takeCalls(), openCalls(0)); // also of two interfaces
        EXPECT_EQ(g_inep.cEpaddress, 0);
        EXPECT_EQ(g_outep.cEpaddress, 0);
        const Bytes command = filled(3);
        EXPECT_EQ(kLibusb.write(command.data(), 3), -54);
        EXPECT_EQ(readOnce(kLibusb).nResult, 0);
        EXPECT_THAT(takeCalls(), IsEmpty());
        EXPECT_EQ(kLibusb.close(), 0);
        expectClosed();
    }
}

TEST_F(UsbOpen, OtherThanTwoEndpointsAreNotLearnt)
{
    for (const UsbEndpointSet endpoints :
         {UsbEndpointSet::inOnly, UsbEndpointSet::outOnly, UsbEndpointSet::none, UsbEndpointSet::inOutIn}) {
        SCOPED_TRACE(static_cast<int>(endpoints));
        UsbDeviceOptions options = reader(kSecondChannel, 2);
        options.endpoints = endpoints;
        plug({options});
        g_inep = g_outep = {};
        ASSERT_EQ(open(kLibusb, kSecondChannel), 0);
        EXPECT_EQ(takeCalls(), openCalls(1)); // the interface's number is known all the same
        EXPECT_EQ(g_inep.cEpaddress, 0);
        EXPECT_EQ(g_outep.cEpaddress, 0);
        const Bytes command = filled(3);
        EXPECT_EQ(kLibusb.write(command.data(), 3), -54);
        EXPECT_EQ(readOnce(kLibusb).nResult, 0);
        EXPECT_THAT(takeCalls(), IsEmpty());
        EXPECT_EQ(kLibusb.close(), 0);
        expectClosed();
    }
}

TEST_F(UsbOpen, AConfigurationWithoutInterfacesHasNothingToClaim)
{
    plug({reader(kFirstChannel, 0)});
    EXPECT_EQ(open(kLibusb), -3);
    expectClosed();
}

TEST_F(UsbOpen, EachCallThatFailsEndsTheOpenAndLeavesNothing)
{
    struct Row {
        const char *pszWrong;
        const char *pszRight;
        int32_t nResult;
        Lines calls;
    };
    const Lines refused = {"OPEN", "RESET", "GETDRIVER 0", "GETDRIVER 0", "DISCONNECT 0", "CLAIM 0", "CLOSE"};
    const std::vector<Row> rows = {
        {"config none", "config ok", -3, {"OPEN", "RESET", "CLOSE"}},
        {"detach refused", "detach ok", -3, refused},
        {"claim busy", "claim ok", -3, refused},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszWrong);
        plug({reader()});
        behave(row.pszWrong);
        EXPECT_EQ(open(kLibusb), row.nResult);
        expectClosed();
        EXPECT_EQ(takeCalls(), row.calls);
        behave(row.pszRight);
        expectWorks(kLibusb);
    }
}

TEST_F(UsbOpen, ANodeThatCannotBeOpenedEndsTheOpen)
{
    plug({reader()});
    behave("open fail");
    EXPECT_EQ(open(kLibusb), -3);
    preloadKeeps(kOpensOfAMissingNode);
    expectClosed();
    behave("open ok");
    expectWorks(kLibusb);
}

TEST_F(UsbOpen, AReaderThatRefusesTheResetIsUsedAsItIs)
{
    plug({reader()});
    behave("reset fail");
    ASSERT_EQ(open(kLibusb), 0);
    EXPECT_EQ(takeCalls(), openCalls(0));
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    expectWorks(kLibusb);
}

TEST_F(UsbOpen, WhatNobodyHasReadIsThrownAwayByTheNextOpen)
{
    plug({reader()});
    ASSERT_EQ(open(kLibusb), 0);
    usb().reply(bytes("41 42"));
    EXPECT_EQ(kLibusb.close(), 0);
    expectWorks(kLibusb);
    ASSERT_EQ(open(kLibusb), 0);
    usb().reply(bytes("43"));
    EXPECT_EQ(hex(readReply(kLibusb, 1).data), "43");
}

TEST_F(UsbOpen, TheDeviceIsNotThere)
{
    plug({});
    EXPECT_EQ(open(kLibusb), -50);
    expectClosed();
    plug({reader(kSecondChannel)});
    EXPECT_EQ(open(kLibusb), -50);
    expectClosed();
    usb().unplug();
    EXPECT_EQ(open(kLibusb, kSecondChannel), -50);
    expectClosed();
    usb().plug();
    expectWorks(kLibusb, kSecondChannel);
    EXPECT_EQ(kLibusb.write(filled(1).data(), 1), -50);
    EXPECT_EQ(readOnce(kLibusb).nResult, -50);
    EXPECT_EQ(kLibusb.cancel(), -57);
}

TEST_F(UsbOpen, HundredOpensLeaveNothing)
{
    plug({reader(kSecondChannel, 2)});
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(open(kLibusb, kSecondChannel), 0) << i;
        EXPECT_EQ(kLibusb.close(), 0);
    }
    expectClosed();
    expectWorks(kLibusb, kSecondChannel);
}

} // namespace
