// Commands over libusb: whole reports, at most five of them, and transfers that fail.

#include "usb_devices.h"

#include <chrono>

using namespace qvtest;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UsbWrite : public UsbDevices {
  protected:
    void openReader(const UsbDeviceOptions &options)
    {
        plug({options});
        ASSERT_EQ(open(kLibusb, options.id), 0);
        takeCalls();
    }
    static int32_t write(const Bytes &command)
    {
        return kLibusb.write(command.data(), static_cast<uint32_t>(command.size()));
    }
};

TEST_F(UsbWrite, ACommandGoesOutInWholeReportsTheLastOneFilledUpWithZeros)
{
    struct Row {
        unsigned nReportSize;
        size_t nLen;
        size_t nReports; // 0: it is too long for five reports
    };
    constexpr Row rows[] = {
        {8, 1, 1},   {8, 8, 1},     {8, 9, 2},     {8, 40, 5},     {8, 41, 0},     {64, 1, 1},   {64, 63, 1},
        {64, 64, 1}, {64, 65, 2},   {64, 208, 4},  {64, 319, 5},   {64, 320, 5},   {64, 321, 0}, {64, 1024, 0},
        {512, 1, 1}, {512, 512, 1}, {512, 513, 2}, {512, 1023, 2}, {512, 1024, 2},
    };
    for (const bool bBulk : {false, true})
        for (const Row &row : rows) {
            SCOPED_TRACE(std::to_string(row.nLen) + " in reports of " + std::to_string(row.nReportSize) +
                         (bBulk ? ", bulk" : ", interrupt"));
            openReader(readerWith(row.nReportSize, bBulk));
            const Bytes command = filled(row.nLen);
            const size_t nReports = row.nReports == 0 ? 5 : row.nReports;
            EXPECT_EQ(write(command), row.nReports == 0 ? -54 : static_cast<int32_t>(row.nLen));
            EXPECT_EQ(receivedSizes(), std::vector<size_t>(nReports, row.nReportSize));
            // Of what is too long the beginning has gone out.
            EXPECT_EQ(hex(receivedBytes()), hex(padded(command, nReports * row.nReportSize)));
            EXPECT_EQ(takeCalls(), Lines(nReports, (bBulk ? "BULK OUT 01 " : "INTERRUPT OUT 01 ") +
                                                       std::to_string(row.nReportSize)));
        }
}

TEST_F(UsbWrite, WhatIsLongerThanTheStagingAreaIsRefusedBeforeAnythingIsSent)
{
    for (const unsigned nReportSize : {8u, 64u, 512u}) {
        SCOPED_TRACE(nReportSize);
        openReader(readerWith(nReportSize));
        const Bytes command = filled(5000);
        for (const uint32_t nLen : {1025u, 5000u, 0xFFFFFFFFu})
            EXPECT_EQ(kLibusb.write(command.data(), nLen), -54) << nLen;
        EXPECT_EQ(kLibusb.write(nullptr, 5), -54);
        EXPECT_THAT(takeCalls(), IsEmpty());
        EXPECT_EQ(write(filled(8)), 8); // and works on
    }
}

TEST_F(UsbWrite, AnEmptyCommandIsOneReportOfZeros)
{
    openReader(reader());
    EXPECT_EQ(kLibusb.write(filled(1).data(), 0), 0);
    EXPECT_EQ(receivedBytes(), Bytes(64, 0));
}

TEST_F(UsbWrite, CommandsFollowEachOtherWithoutRemains)
{
    openReader(reader());
    EXPECT_EQ(write(filled(320)), 320);
    EXPECT_EQ(write(bytes("41")), 1);
    EXPECT_EQ(write(bytes("42 00 43 00")), 4);
    const Bytes all = receivedBytes();
    ASSERT_EQ(all.size(), 7 * 64U);
    EXPECT_EQ(Bytes(all.begin() + 320, all.begin() + 384), padded(bytes("41"), 64));
    EXPECT_EQ(Bytes(all.begin() + 384, all.end()), padded(bytes("42 00 43"), 64));
}

TEST_F(UsbWrite, ReportsThatMoveOnlyAPartGoOnBehindIt)
{
    openReader(reader());
    behave("out short 20");
    const Bytes command = filled(90);
    EXPECT_EQ(write(command), 90); // 20, 20, 20, 20, and 10 with padding
    EXPECT_EQ(receivedSizes(), (std::vector<size_t>(5, 20)));
    EXPECT_EQ(hex(receivedBytes()), hex(padded(command, 100)));
    usb().forgetCalls();
    EXPECT_EQ(write(filled(101)), -54);
    EXPECT_EQ(hex(receivedBytes()), hex(filled(100)));
    behave("out ok");
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbWrite, AStalledEndpointEndsTheWriteAtOnce)
{
    for (const bool bBulk : {false, true}) {
        SCOPED_TRACE(bBulk);
        openReader(readerWith(64, bBulk));
        behave("out stall");
        EXPECT_EQ(write(filled(200)), -54);
        EXPECT_EQ(takeCalls().size(), 1U);
        behave("out ok");
        EXPECT_EQ(write(filled(200)), 200);
        kLibusb.close();
        expectWorks(kLibusb);
    }
}

TEST_F(UsbWrite, ATransferThatDoesNotCompleteIsTakenBackAfterASecond)
{
    for (const bool bBulk : {false, true}) {
        SCOPED_TRACE(bBulk);
        openReader(readerWith(64, bBulk));
        behave("out stuck");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(write(filled(200)), -54);
        EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(990));
        EXPECT_THAT(takeCalls(), ElementsAre(bBulk ? "BULK OUT 01 64" : "INTERRUPT OUT 01 64", "DISCARD"));
        EXPECT_THAT(receivedSizes(), IsEmpty());
        behave("out ok");
        EXPECT_EQ(write(filled(65)), 65);
        EXPECT_EQ(hex(receivedBytes()), hex(padded(filled(65), 128))); // nothing of the first one comes late
        kLibusb.close();
        expectWorks(kLibusb);
    }
}

TEST_F(UsbWrite, ATransferThatTheKernelRefusesEndsTheWrite)
{
    openReader(reader());
    g_outep.cEpaddress = 0x05; // the device has none of this address
    EXPECT_EQ(write(filled(10)), -54);
    EXPECT_THAT(receivedSizes(), IsEmpty());
    kLibusb.close();
    expectWorks(kLibusb);
}

TEST_F(UsbWrite, AWriteToAReaderThatIsGoneFails)
{
    openReader(reader());
    usb().unplug();
    EXPECT_EQ(write(filled(10)), -54);
    EXPECT_EQ(write(filled(10)), -54);
    EXPECT_EQ(kLibusb.close(), 0);
    expectClosed();
    EXPECT_EQ(open(kLibusb), -50);
    usb().plug();
    expectWorks(kLibusb);
}

} // namespace
