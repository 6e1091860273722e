// Writing a command through libusb: reports, padding, short transfers, pauses and failures, byte for byte.

#include "usb_bus.h"

#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class UsbWrite : public UsbBus {
  protected:
    int32_t write(const Bytes &data)
    {
        return COMM_Hid_WriteLinuxUsbLibHid(data.data(), static_cast<uint32_t>(data.size()));
    }
    // The reports that a command goes out in when every transfer moves all its bytes.
    static std::vector<Bytes> reports(const Bytes &data, size_t nReport)
    {
        std::vector<Bytes> out;
        for (size_t nAt = 0; nAt < data.size(); nAt += nReport) {
            auto begin = data.begin() + static_cast<std::ptrdiff_t>(nAt);
            size_t nLen = std::min(nReport, data.size() - nAt);
            out.push_back(padded(Bytes(begin, begin + static_cast<std::ptrdiff_t>(nLen)), nReport));
        }
        return out;
    }
};

TEST_F(UsbWrite, WithoutADeviceNothingIsSentButTheDataIsLogged)
{
    logOn();
    EXPECT_EQ(write(bytes("31 32")), -50);
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=2   HEX: 3132"));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbWrite, WithoutADeviceACommandThatNoDeviceTakesGivesMinus50Too)
{
    EXPECT_EQ(write(filled(1025)), -50);
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(nullptr, 4), -50);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbWrite, AShortCommandIsOneReportPaddedWithZeros)
{
    openReader();
    logOn();
    EXPECT_EQ(write(bytes("02 30 31 03")), 4);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 02 64 1000"));
    EXPECT_THAT(m_usb.takeSent(), ElementsAre(padded(bytes("02 30 31 03"), 64)));
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=4   HEX: 02303103", "write ok:4\n"));
}

TEST_F(UsbWrite, TheDumpIsUntypedAndTheTextsAreTyped)
{
    openReader();
    logOn();
    EXPECT_EQ(write(filled(64)), 64);
    const std::string sTime = std::string("  ") + GetLogTime() + "  ";
    EXPECT_EQ(rawLog().find(" " + std::string(GetLogTime()) + "  hid write  LEN=64   HEX: 0102"), 0U);
    EXPECT_TRUE(rawLog().ends_with("\r\n" + sTime + "INFO:    CommDev:  write ok:64\n\r\n"));
}

TEST_F(UsbWrite, ACommandGoesOutInAsManyReportsAsItNeedsUpToFive)
{
    struct Row {
        uint16_t nReport;
        size_t nLen;
        size_t nReports;
    };
    const Row rows[] = {{8, 1, 1},      {8, 8, 1},       {8, 9, 2},      {8, 39, 5},    {8, 40, 5},     {64, 63, 1},
                        {64, 64, 1},    {64, 65, 2},     {64, 128, 2},   {64, 129, 3},  {64, 257, 5},   {64, 319, 5},
                        {64, 320, 5},   {512, 1, 1},     {512, 512, 1},  {512, 513, 2}, {512, 1000, 2}, {512, 1023, 2},
                        {512, 1024, 2}, {1024, 1024, 1}, {2047, 1024, 1}};
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.nLen << " bytes in reports of " << row.nReport);
        COMM_Hid_CloseLinuxUsbLibHid();
        openReader(row.nReport);
        Bytes data = filled(row.nLen);
        EXPECT_EQ(write(data), static_cast<int32_t>(row.nLen));
        auto sent = m_usb.takeSent();
        EXPECT_EQ(sent.size(), row.nReports);
        EXPECT_EQ(sent, reports(data, row.nReport));
        EXPECT_THAT(m_usb.takeCalls(),
                    ElementsAreArray(times(row.nReports, "interrupt 02 " + std::to_string(row.nReport) + " 1000")));
    }
}

TEST_F(UsbWrite, WhatFiveReportsDoNotHoldIsSentInPartAndFails)
{
    const std::pair<uint16_t, size_t> rows[] = {{8, 41}, {8, 1024}, {64, 321}, {64, 1024}, {1, 6}};
    for (auto [nReport, nLen] : rows) {
        SCOPED_TRACE(testing::Message() << nLen << " bytes in reports of " << nReport);
        COMM_Hid_CloseLinuxUsbLibHid();
        openReader(nReport);
        Bytes data = filled(nLen);
        logOn();
        EXPECT_EQ(write(data), -54);
        EXPECT_FALSE(logged({"write ok:" + std::to_string(nLen) + "\n"}));
        logOff();
        auto all = reports(data, nReport);
        all.resize(5);
        EXPECT_EQ(m_usb.takeSent(), all);
    }
}

TEST_F(UsbWrite, MoreThan1024BytesAreRefusedBeforeAnythingIsSent)
{
    openReader(512);
    EXPECT_EQ(write(filled(1025)), -54);
    Bytes data = filled(1024); // nobody reads what cannot be sent
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(data.data(), 0x80000000U), -54);
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(data.data(), 0xFFFFFFFFU), -54);
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(nullptr, 4), -54);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbWrite, ARefusedCommandIsLoggedUpTo1024Bytes)
{
    openReader();
    const Bytes data = filled(1025);
    std::string sDigits = hex(data.data(), 1024);
    std::erase(sDigits, ' ');
    for (uint32_t nLen : {1025U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(nLen);
        logOn();
        EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(data.data(), nLen), -54);
        EXPECT_EQ(logTexts().front(), "hid write  LEN=1024   HEX: " + sDigits);
    }
    logOn();
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(nullptr, 4), -54);
    EXPECT_EQ(logTexts().front(), "hid write  LEN=4   HEX: ");
}

TEST_F(UsbWrite, AnEmptyCommandIsOneReportOfZeros)
{
    openReader();
    const uint8_t uc = 0xC5;
    EXPECT_EQ(COMM_Hid_WriteLinuxUsbLibHid(&uc, 0), 0);
    EXPECT_THAT(m_usb.takeSent(), ElementsAre(Bytes(64)));
}

TEST_F(UsbWrite, AfterAShortTransferTheRestFollows)
{
    openReader();
    Bytes data = filled(100);
    m_usb.out(0, 10);
    m_usb.out(0, 0);
    m_usb.out(0, 1);
    EXPECT_EQ(write(data), 100);
    auto from = [&data](size_t nAt) {
        auto begin = data.begin() + static_cast<std::ptrdiff_t>(nAt);
        Bytes out(begin, begin + static_cast<std::ptrdiff_t>(std::min<size_t>(64, data.size() - nAt)));
        return padded(out, 64);
    };
    EXPECT_THAT(m_usb.takeSent(), ElementsAre(from(0), from(10), from(10), from(11), from(75)));
}

TEST_F(UsbWrite, FiveTransfersThatMoveTooLittleFail)
{
    openReader();
    for (int i = 0; i < 5; ++i)
        m_usb.out(0, i == 4 ? 15 : 21);
    EXPECT_EQ(write(filled(100)), -54);
    EXPECT_EQ(m_usb.takeSent().size(), 5U);
    for (int i = 0; i < 5; ++i)
        m_usb.out(0, 20);
    EXPECT_EQ(write(filled(100)), 100);
    for (int i = 0; i < 5; ++i)
        m_usb.out(0, 0);
    EXPECT_EQ(write(filled(1)), -54);
}

TEST_F(UsbWrite, ReportsThatReachBehindTheCommandHoldZerosThere)
{
    const std::pair<uint16_t, int> rows[] = {{512, 511}, {512, 256}, {1024, 1023}, {2047, 1023}};
    for (auto [nReport, nMoved] : rows) {
        SCOPED_TRACE(testing::Message() << nMoved << " moved of " << nReport);
        COMM_Hid_CloseLinuxUsbLibHid();
        openReader(nReport);
        Bytes data = filled(1024);
        size_t nAt = 0;
        std::vector<Bytes> all;
        for (int i = 0; i < 4 && nAt < data.size(); ++i) {
            auto begin = data.begin() + static_cast<std::ptrdiff_t>(nAt);
            size_t nLen = std::min<size_t>(nReport, data.size() - nAt);
            all.push_back(padded(Bytes(begin, begin + static_cast<std::ptrdiff_t>(nLen)), nReport));
            m_usb.out(0, nMoved);
            nAt += static_cast<size_t>(nMoved);
        }
        EXPECT_EQ(write(data), 1024);
        EXPECT_EQ(m_usb.takeSent(), all);
    }
}

TEST_F(UsbWrite, OldBytesOfALongerCommandAreNotSentAgain)
{
    openReader();
    EXPECT_EQ(write(filled(64)), 64);
    EXPECT_EQ(write(bytes("41")), 1);
    EXPECT_EQ(m_usb.takeSent().back(), padded(bytes("41"), 64));
}

// ---- kinds of transfer ----------------------------------------------------------------------------------------------

TEST_F(UsbWrite, AnInterruptReportIsFollowedByThePauseOfItsEndpoint)
{
    openReader(64, 3, 10);
    g_inep.cTimeInterval = 99;
    EXPECT_EQ(write(filled(129)), 129);
    EXPECT_THAT(FakeSleep::take(), ElementsAre(10, 10, 10));
    openReader(64);
    g_outep.cTimeInterval = 0;
    EXPECT_EQ(write(filled(10)), 10);
    EXPECT_THAT(FakeSleep::take(), testing::Each(0));
}

TEST_F(UsbWrite, ABulkReportIsNotFollowedByAPause)
{
    openReader(64, 2, 10);
    EXPECT_EQ(write(filled(65)), 65);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("bulk 02 64 1000", "bulk 02 64 1000"));
    EXPECT_THAT(m_usb.takeSent(), ElementsAreArray(reports(filled(65), 64)));
    EXPECT_THAT(FakeSleep::take(), ElementsAre());
}

TEST_F(UsbWrite, OtherTypesSendNothingAndSaySoFiveTimes)
{
    for (uint8_t ucType : {uint8_t{0}, uint8_t{1}}) {
        COMM_Hid_CloseLinuxUsbLibHid();
        openReader(64, ucType);
        logOn();
        EXPECT_EQ(write(bytes("31")), -54);
        auto texts = logTexts();
        EXPECT_EQ(texts[0], "hid write  LEN=1   HEX: 31");
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "no support transfer type!\n"), 5);
        EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
    }
}

TEST_F(UsbWrite, UnknownEndpointsFailAfterFiveAttempts)
{
    UsbDevice device = usbReader(0x0403, 0xBCD5);
    device.interfaces[1].push_back(device.interfaces[1][0]);
    m_usb.plug({device});
    ASSERT_EQ(COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5), 0);
    m_usb.takeCalls();
    logOn();
    EXPECT_EQ(write(bytes("31")), -54);
    auto texts = logTexts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "no support transfer type!\n"), 5);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre());
}

TEST_F(UsbWrite, AReportSizeOfZeroMovesNothing)
{
    openReader(0);
    EXPECT_EQ(write(bytes("31")), -54);
    EXPECT_THAT(m_usb.takeCalls(), ElementsAreArray(times(5, "interrupt 02 0 1000")));
}

// ---- failures -------------------------------------------------------------------------------------------------------

TEST_F(UsbWrite, AFailedTransferEndsTheWriteAndSaysWhy)
{
    openReader();
    m_usb.out(-4, 0, ENODEV);
    logOn();
    EXPECT_EQ(write(bytes("31")), -54);
    EXPECT_THAT(logTexts(), ElementsAre("hid write  LEN=1   HEX: 31", "nTimes:0 sendlen0 ret:-4 No such device\n"));
    EXPECT_THAT(m_usb.takeCalls(), ElementsAre("interrupt 02 64 1000"));
}

TEST_F(UsbWrite, AFailureOfALaterReportCountsItsAttempt)
{
    openReader(64, 2);
    m_usb.out(0, 64);
    m_usb.out(0, 0);
    m_usb.out(-7, 5, ETIMEDOUT);
    logOn();
    EXPECT_EQ(write(filled(320)), -54);
    EXPECT_EQ(logTexts().size(), 2U);
    EXPECT_EQ(logTexts().back(), "nTimes:2 sendlen5 ret:-7 Connection timed out\n");
    EXPECT_EQ(m_usb.takeSent().size(), 3U);
}

TEST_F(UsbWrite, AFailureCountsAlsoWhereAllBytesHaveMoved)
{
    openReader();
    m_usb.out(-1, 64, EIO);
    EXPECT_EQ(write(filled(64)), -54);
    EXPECT_EQ(write(filled(64)), 64);
}

TEST_F(UsbWrite, ATransferThatDoesNotCountHasMovedNothing)
{
    openReader();
    m_usb.out(0, 64);
    m_usb.outUntouched(-1);
    logOn();
    EXPECT_EQ(write(filled(128)), -54);
    EXPECT_THAT(logTexts().back(), testing::StartsWith("nTimes:1 sendlen0 ret:-1 "));
    logOff();
    m_usb.out(0, 64);
    for (int i = 0; i < 4; ++i)
        m_usb.outUntouched(0);
    EXPECT_EQ(write(filled(320)), -54);
}

TEST_F(UsbWrite, APositiveResultIsNoFailure)
{
    openReader();
    m_usb.out(3, 64);
    EXPECT_EQ(write(filled(64)), 64);
}

} // namespace
