// Writing to the reader and reading from it: framed and raw, the sticky end condition, sizes.

#include "protocol_exchange.h"

using namespace qvtest;

namespace {

// ---- writing ------------------------------------------------------------------------------------------------------

TEST_F(Exchange, DataAreFramedUnlessBothMarkersAreZero)
{
    Bytes data = bytes("32 30 00 10");
    EXPECT_EQ(writeTo(2, 3, data), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03");
    EXPECT_EQ(writeTo(0, 0, data), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03 32 30 00 10");
}

TEST_F(Exchange, OneZeroMarkerIsStillAFrame)
{
    EXPECT_EQ(writeTo(0, 3, bytes("AB")), 0);
    EXPECT_EQ(m_peer->wire(), "00 30 30 30 31 3A 3B 3A 3B 03");
    EXPECT_EQ(writeTo(1, 0, bytes("AB")), 0);
    EXPECT_EQ(m_peer->wire(), "00 30 30 30 31 3A 3B 3A 3B 03 01 30 30 30 31 3A 3B 3A 3B 00");
}

TEST_F(Exchange, TypeTwoSendsRaw)
{
    stRDZ73xx.nType = 2;
    EXPECT_EQ(writeTo(2, 3, bytes("32 30 00 10")), 0);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10");
    // The raw limit counts then.
    Bytes data = counted(1024);
    EXPECT_EQ(writeTo(2, 3, data), 0);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10 " + hex(data));
    EXPECT_EQ(writeTo(2, 3, counted(1025)), -1);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10 " + hex(data));
}

TEST_F(Exchange, AFrameWithoutDataIsSent)
{
    const uint8_t uc = 0x77;
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, &uc, 0), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 30 30 30 03");
    // Raw there is nothing to send.
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, &uc, 0), -1);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 30 30 30 03");
}

TEST_F(Exchange, AFrameHoldsAtMost508Bytes)
{
    Bytes data = counted(508);
    EXPECT_EQ(writeTo(2, 3, data), 0);
    std::string sWire = commandFrame(hex(data));
    EXPECT_EQ(m_peer->wire(), sWire);
    for (size_t n : {509U, 510U, 1024U, 5000U})
        EXPECT_EQ(writeTo(2, 3, counted(n)), -1) << n;
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, data.data(), 0x80000000U), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, data.data(), 0xFFFFFFFFU), -1);
    EXPECT_EQ(m_peer->wire(), sWire);
}

TEST_F(Exchange, RawDataAreAtMost1024Bytes)
{
    Bytes data = counted(1024);
    EXPECT_EQ(writeTo(0, 0, data), 0);
    EXPECT_EQ(m_peer->wire(), hex(data));
    EXPECT_EQ(writeTo(0, 0, counted(1025)), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, data.data(), 0xFFFFFFFFU), -1);
    EXPECT_EQ(m_peer->wire(), hex(data));
}

TEST_F(Exchange, NullDataAreNotSent)
{
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, nullptr, 4), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, nullptr, 4), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(nullptr, 4), -1);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Exchange, WhatCannotBeWrittenGivesMinusOne)
{
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(writeTo(0, 0, bytes("31")), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("31").data(), 1), -1);
    g_AuxFd = -2;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("31").data(), 1), -1);
    g_AuxFd = nFd;
    stBackUpParam.nType = 0;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Exchange, AReaderCommandIsSentAsItIs)
{
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("1B 25 49 34").data(), 4), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 34");
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("1B").data(), 0), -1);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 34");
}

TEST_F(Exchange, AReaderCommandHolds1024Bytes)
{
    const Bytes data(1025, 0x55);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(data.data(), 1025), -1);
    EXPECT_EQ(m_peer->wire(), "");
    EXPECT_EQ(COMM_Rdz_ReaderCmd(data.data(), 1024), 0);
    EXPECT_EQ(m_peer->wire(), hex(Bytes(1024, 0x55)));
}

// ---- reading ------------------------------------------------------------------------------------------------------

TEST_F(Exchange, AFramedReplyIsParsed)
{
    EXPECT_EQ(readReply("02 30 30 30 33 39 30 30 30 30 31 39 31 03", 1, 2, 3), 1);
    EXPECT_EQ(buffer(2), "01 C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Exchange, AHeadByteAloneMeansAFrame)
{
    EXPECT_EQ(readReply(replyFrame(0x1111, "AA"), 0, 2, 3), 1);
    EXPECT_EQ(buffer(2), "AA C5");
    COMM_Dev_ChangeEndCondition(endsWithZero);
    EXPECT_EQ(readReply(replyFrame(0x2222, "BB", 2, 0), 0, 2, 0), 1);
    EXPECT_EQ(buffer(2), "BB C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x2222U);
}

TEST_F(Exchange, AnEndByteAloneMeansAFrameOnlyWithTheParseFlag)
{
    std::string sReply = "02 30 30 30 33 39 30 30 30 30 31 39 31 03";
    EXPECT_EQ(readReply(sReply, 0, 0, 3), 14);
    EXPECT_EQ(buffer(15), sReply + " C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    // With it, a head byte 0x00 is looked for.
    EXPECT_EQ(readReply(sReply, 1, 0, 3), -4);
    EXPECT_EQ(readReply("00 30 30 30 33 39 30 30 30 30 31 39 31 03", 1, 0, 3), 1);
    EXPECT_EQ(buffer(1), "01");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Exchange, WithoutMarkersTheBytesComeAsTheyAre)
{
    for (uint32_t bParse : {0U, 1U, 2U}) {
        SCOPED_TRACE(bParse);
        stRDZ73xx.gStatus = 0x1234;
        EXPECT_EQ(readReply("02 30 99 03", bParse, 0, 0), 4);
        EXPECT_EQ(buffer(5), "02 30 99 03 C5");
        EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    }
}

TEST_F(Exchange, AReplyWithoutABodyGivesZeroAndTheStatusWord)
{
    EXPECT_EQ(readReply(replyFrame(0x1003), 1, 2, 3), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1003U);
    EXPECT_EQ(buffer(1), "C5");
}

TEST_F(Exchange, AReplyIsCutAtTheGivenLength)
{
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 3), 3);
    EXPECT_EQ(buffer(4), "01 02 03 C5");
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 1), 1);
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 5), 5);
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 0xFFFFFFFFU), 5);
    EXPECT_EQ(buffer(6), "01 02 03 04 05 C5");
    // The whole reply is read all the same.
    m_buf.assign(64, 0xC5);
    EXPECT_EQ(readReply("41 42 43 44 03", 0, 0, 0, 2), 2);
    EXPECT_EQ(buffer(3), "41 42 C5");
    EXPECT_EQ(readReply("45 03", 0, 0, 0, 9), 2);
    EXPECT_EQ(buffer(3), "45 03 C5");
}

TEST_F(Exchange, ALengthOfZeroReadsNothingAndResetsNothing)
{
    stRDZ73xx.gStatus = 0x1234;
    stBackUpParam.pfnEndCondition = never;
    gEndChar = 0x44;
    m_peer->send(replyFrame(0x9000, "01"));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 0), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, never);
    EXPECT_EQ(gEndChar, 0x44);
    // The reply still stands there.
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), 1);
}

TEST_F(Exchange, WithoutADestinationTheReplyStaysOnTheLine)
{
    stRDZ73xx.gStatus = 0x1234;
    stBackUpParam.pfnEndCondition = never;
    gEndChar = 0x44;
    m_peer->send(replyFrame(0x9000, "01"));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, nullptr, 8), -1);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, nullptr, 0), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, never);
    EXPECT_EQ(gEndChar, 0x44);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), 1);
    EXPECT_EQ(buffer(1), "01");
}

TEST_F(Exchange, AnInvalidReplyGivesMinusFourAndNoStatusWord)
{
    for (const char *psz : {"02 30 30 30 33 39 30 30 30 30 31 39 30 03", // LRC
                            "02 30 30 30 33 39 30 30 30 30 31 39 03",    // odd
                            "30 30 30 33 39 30 30 30 30 31 39 31 03",    // no head
                            "02 03", "03", "02 30 30 03"}) {
        SCOPED_TRACE(psz);
        stRDZ73xx.gStatus = 0x1234;
        EXPECT_EQ(readReply(psz, 1, 2, 3), -4);
        EXPECT_EQ(stRDZ73xx.gStatus, 0U);
        EXPECT_EQ(buffer(1), "C5");
    }
}

TEST_F(Exchange, GarbageInFrontOfAFrameIsIgnored)
{
    EXPECT_EQ(readReply("FF 00 31 " + replyFrame(0x9000, "AB"), 1, 2, 3), 1);
    EXPECT_EQ(buffer(1), "AB");
}

TEST_F(Exchange, AFrameInPiecesIsOneReply)
{
    using std::chrono::milliseconds;
    m_peer->expect(commandFrame("32 23 00"))
        .reply("02 30 30 30")
        .reply("33 39 30 30 30 30", milliseconds(30))
        .reply("31 39 31", milliseconds(120))
        .reply("03", milliseconds(10));
    EXPECT_EQ(exchange("32 23 00"), 1);
    EXPECT_EQ(buffer(1), "01");
    m_peer->finish();
}

TEST_F(Exchange, AReplyOfMoreThan1024CharactersIsRefused)
{
    Bytes body = counted(507);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(body)), 1, 2, 3), 507);
    EXPECT_EQ(buffer(508), hex(body) + " C5");
    m_buf.assign(2048, 0xC5);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(counted(508))), 1, 2, 3, 2048), -4);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(counted(1500))), 1, 2, 3, 2048), -4);
    EXPECT_EQ(m_buf, Bytes(2048, 0xC5));
}

TEST_F(Exchange, ARawReplyIsReadUpTo4096Bytes)
{
    COMM_Dev_ChangeEndCondition(nullptr);
    Bytes data = counted(5000);
    m_peer->send(hex(data));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf.data(), 5100), 4096);
    EXPECT_EQ(buffer(4096), hex(std::span(data).first(4096)));
    EXPECT_EQ(m_buf[4096], 0xC5);
    // The rest is the next read's.
    m_peer->send("03");
    COMM_Dev_ChangeEndCondition(endsWithEtx);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf.data(), 5100), 905);
}

TEST_F(Exchange, AFrameBehind4096BytesOfGarbageIsNotFound)
{
    m_peer->send(hex(counted(4096)) + " " + replyFrame(0x9000, "AB"));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 64), -4);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 64), 1);
    EXPECT_EQ(buffer(2), "AB C5");
}

// ---- the sticky end condition -------------------------------------------------------------------------------------

TEST_F(Exchange, AnEndByteInstallsItsConditionForGood)
{
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEtx);
    EXPECT_EQ(readReply(replyFrame(0x9000, "", 1, 4), 1, 1, 4), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, ChangeEndCondition);
    EXPECT_EQ(gEndChar, 0x04);
    // A raw read afterwards ends at the 0x04.
    EXPECT_EQ(readReply("41 03 42 04", 0, 0, 0), 4);
    EXPECT_EQ(buffer(4), "41 03 42 04");
    EXPECT_EQ(COMM_Rdz_SetEndCondition(endsWithEtx), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEtx);
    EXPECT_EQ(readReply("41 04 42 03", 0, 0, 0), 4);
}

TEST_F(Exchange, WithoutAnEndByteTheConditionStays)
{
    COMM_Dev_ChangeEndCondition(endsWithEot);
    EXPECT_EQ(readReply("41 03 04", 1, 0, 0), 3);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEot);
    EXPECT_EQ(gEndChar, 0x03);
}

} // namespace
